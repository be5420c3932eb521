#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "base/fatal_trap.h"
#include "base/resmanager.h"
#include "base/velmora_log.h"
#include "engine/scene/path_list.h"
#include "engine/texture/texture.h"
#include "tests/support/report_capture.h"
#include "tests/support/temp_dir.h"
#include "tool/maps/map_chunks.h"
#include "tool/maps/tool_load_texture.h"

namespace {

// Chunks written byte by byte, little-endian, so a reader that takes the host's order or reads
// through a cast would not pass on every host.
struct Block {
    Block& U32(uint32_t value) {
        for (int k = 0; k < 4; ++k) bytes.push_back(uint8_t(value >> (8 * k)));
        return *this;
    }
    Block& Raw(std::vector<uint8_t> more) {
        bytes.insert(bytes.end(), more.begin(), more.end());
        return *this;
    }
    Block& Chunk(uint32_t id, std::vector<uint8_t> d) {
        return U32(id).U32(uint32_t(d.size())).Raw(d);
    }
    Block& Size(int32_t x, int32_t y) { return U32(S).U32(8).U32(uint32_t(x)).U32(uint32_t(y)); }
    Block& End() { return U32(MapChunkEnd).U32(0); }
    operator std::vector<uint8_t>() const { return bytes; }
    static constexpr uint32_t S = MapChunkSize;
    std::vector<uint8_t> bytes;
};

// The size comes from the last size chunk before the end mark; anything else is refused without
// a read past the data's end.
TEST(MapChunks, SizeComesFromTheLastSizeChunkBeforeTheEndMarkAndDamageIsRefused) {
    using B = Block;
    const uint32_t S = MapChunkSize, E = MapChunkEnd;
    // The unknown chunk's data holds what looks like an end mark and a size chunk; only its
    // length field says where the next chunk starts.
    const std::vector<uint8_t> decoy = B().End().U32(S).U32(8).U32(1).U32(1).Raw({9, 9, 9});
    const char* noSize = "the user data does not begin with the map size chunk 0xA0000002";
    const char* noEnd = "the user data ends without the end chunk 0xA0000000";
    const char* noCells = "the map size chunk gives 0 or fewer cells along a side";
    const std::tuple<std::vector<uint8_t>, int32_t, int32_t, const char*> rows[] = {
        // bytes, cells across and down (0: refused), the refusal (null: any)
        {B().Size(64, 32).End(), 64, 32, nullptr},
        {B().Size(8, 4).End().Size(100, 100).U32(0xFFFFFFFF).Raw({1}), 8, 4, nullptr},  // behind
        {B().Size(10, 20).Chunk(0xA0000001, decoy).Chunk(7, {}).End(), 10, 20, nullptr},
        {B().Size(10, 20).Chunk(0x55, {1, 2, 3}).Size(30, 40).End(), 30, 40, nullptr},
        {B().U32(S).U32(12).U32(5).U32(6).U32(E).End(), 5, 6, nullptr},  // a long size chunk
        {B().Size(1, 1000).End(), 1, 1000, nullptr},  // above 256 is the pass's business
        {{}, 0, 0, nullptr},
        {{0x02, 0x00, 0x00}, 0, 0, nullptr},
        {B().End().Size(8, 8).End(), 0, 0, noSize},
        {B().Chunk(0x10, {}).Size(8, 8).End(), 0, 0, noSize},
        {B().U32(S), 0, 0, nullptr},
        {B().U32(S).U32(8).U32(8).Raw({8, 0}), 0, 0, nullptr},
        {B().U32(S).U32(4).U32(8).End(), 0, 0, nullptr},
        {B().Size(0, 8).End(), 0, 0, noCells},
        {B().Size(8, -8).End(), 0, 0, noCells},
        {B().Size(8, INT32_MIN).End(), 0, 0, noCells},
        {B().Size(0, 0).Size(8, 8).End(), 0, 0, nullptr},
        {B().Size(8, 8), 0, 0, noEnd},
        {B().Size(8, 8).Raw({0, 0, 0}), 0, 0, nullptr},
        {B().Size(8, 8).U32(0x33).U32(9).Raw({1, 2, 3}), 0, 0, nullptr},
        // Lengths that would wrap a cursor sum around to the start of the block.
        {B().Size(8, 8).U32(0x33).U32(0xFFFFFFF8).End(), 0, 0, nullptr},
        {B().U32(S).U32(0xFFFFFFFF).U32(1).U32(1).End(), 0, 0, nullptr},
    };
    int row = 0;
    for (const auto& [bytes, x, y, refusal] : rows) {
        SCOPED_TRACE(testing::Message() << "row " << row++);
        // A heap block of exactly the data's size, for the address sanitizer.
        std::unique_ptr<uint8_t[]> exact(new uint8_t[bytes.size() + bytes.empty()]);
        std::copy(bytes.begin(), bytes.end(), exact.get());
        MapSize size = {-7, -7};
        const char* error = nullptr;
        ASSERT_EQ(ReadMapChunks(exact.get(), bytes.size(), size, error), x != 0);
        if (x) {
            EXPECT_EQ(std::make_pair(size.cellsX, size.cellsY), std::make_pair(x, y));
        } else {
            ASSERT_NE(error, nullptr);
            EXPECT_NE(*error, '\0');
            EXPECT_STREQ(refusal ? refusal : error, error);
        }
    }
    EXPECT_EQ(MakeMapChunks(200, 3), std::vector<uint8_t>(B().Size(200, 3).End()));
    // No writer makes a map without cells: a call that asks for one is the program's own fault.
    ReportCapture reports;
    MakeMapChunks(0, 8);
    MakeMapChunks(8, 0);
    EXPECT_EQ(reports.Take().size(), 2u);
}

class ToolTextures : public testing::Test {
protected:
    void SetUp() override {
        VelmoraLogBeginRun();
        WriteWholeFile("resource.cfg", "TEXTURE_DATA data\\textures\n");  // Windows data
        resources = std::make_unique<ResourceManager>("resource.cfg");
        SetToolResourceManager(resources.get());
        // Square TGAs whose side tells which file a load read.
        std::filesystem::create_directories("data/textures");
        for (auto [path, side] : {std::pair("data/textures/grass.tga", 4),
                                  {"grass.tga", 2},
                                  {"data/textures/ROCK.TGA", 8},
                                  {"data/textures/moss.tga.bak", 2}}) {
            CTexture* texture = CreateTexture(side, side, TextureFormat8880);
            ASSERT_TRUE(texture->SaveAsTGA(path));
            FreeTexture(texture);
        }
    }
    void TearDown() override {
        ToolTextureCacheClear();
        SetToolResourceManager(nullptr);
        for (CTexture* texture : made) FreeTexture(texture);
    }
    CTexture* Load(const std::string& path) {
        return *made.insert(ToolLoadTexture(path.c_str())).first;
    }

    TempDir dir;
    std::unique_ptr<ResourceManager> resources;
    std::set<CTexture*> made;
};

// Textures come from the TEXTURE_DATA folder whatever folder the name gives, in any case, typed by
// the first dot, loaded once; a file missing or unnameable gives the test pattern.
TEST_F(ToolTextures, LoadsComeFromTheTexturesFolderOnceAndMissingOnesGiveThePattern) {
    const std::string longName = std::string(PathBufferSize - 10, 'a') + ".tga";
    for (auto [name, side] : {std::pair<std::string, int>("grass.tga", 4),
                              {"C:\\art\\grass.tga", 4},
                              {"rock.tga", 8},
                              {"../maps.v2/moss.tga.bak", 2},
                              {"MISSING", 64},
                              {"absent.tga", 64},
                              {longName, 64}})
        EXPECT_EQ(Load(name)->width, side) << name;
    EXPECT_EQ(Load("maps/grass.tga"), Load("grass.tga"));
    EXPECT_EQ(Load("MISSING"), Load("MISSING"));  // the pattern is cached too
    EXPECT_NE(Load(longName), Load(longName));    // but a name that can't be joined never is
    const std::string log = ReadWholeFile("velmora.log");
    for (const char* text :
         {"Texture MISSING has no file extension", "Failed to open TGA: data/textures/absent.tga",
          "Texture path too long: aaa"})
        EXPECT_NE(log.find(text), std::string::npos) << log;
    {
        FatalReportTrap job;  // another type is fatal; in a run's job that ends only the job
        EXPECT_EQ(Load("grass.bmp")->width, 64);
        EXPECT_STREQ(job.Reason(), "Invalid Texture Type grass.bmp");
    }
    CTexture* rock = Load("rock.tga");
    ToolTextureCacheClear();  // the textures stay with the engine; the next ask loads anew
    EXPECT_NE(Load("rock.tga"), rock);
}

}  // namespace
