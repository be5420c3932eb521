#include "tool/maps/tool_load_texture.h"

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <memory>
#include <set>
#include <string>

#include "base/fatal_trap.h"
#include "base/resmanager.h"
#include "base/velmora_log.h"
#include "engine/texture/texture.h"
#include "engine/texture/texture_lookup.h"
#include "tests/support/temp_dir.h"

namespace {

class ToolTextures : public testing::Test {
protected:
    void SetUp() override {
        savedLoader = TextureLoadFunction;
        std::memcpy(savedMeshFolder, MeshFolder, sizeof savedMeshFolder);
        savedPaths = TexturePaths;
        TexturePaths = nullptr;
        VelmoraLogBeginRun();
        WriteWholeFile("resource.cfg", "TEXTURE_DATA data\\textures\n");  // Windows data
        resources = std::make_unique<ResourceManager>("resource.cfg");
        SetToolResourceManager(resources.get());
        // Square TGAs whose side tells which file a load read.
        const std::pair<const char*, int> files[] = {{"data/textures/grass.tga", 4},
                                                     {"mapA/grass.tga", 2},
                                                     {"data/textures/ROCK.TGA", 8},
                                                     {"data/textures/moss.tga.bak", 2},
                                                     {"data/textures/slate.Tga", 16}};
        for (auto [path, side] : files) {
            std::filesystem::create_directories(std::filesystem::path(path).parent_path());
            CTexture* texture = CreateTexture(side, side, TextureFormat8880);
            for (int i = 0; i < side * side * 3; ++i) texture->pixels[i] = uint8_t(i * 5 + side);
            ASSERT_TRUE(texture->SaveAsTGA(path));
            FreeTexture(texture);
        }
    }
    void TearDown() override {
        ToolTextureCacheClear();
        SetToolResourceManager(nullptr);
        for (CTexture* texture : made) FreeTexture(texture);
        TextureLoadFunction = savedLoader;
        std::memcpy(MeshFolder, savedMeshFolder, sizeof savedMeshFolder);
        TexturePaths = savedPaths;
    }
    CTexture* Load(const char* path) {
        CTexture* texture = ToolLoadTexture(path);
        made.insert(texture);
        return texture;
    }

    TempDir dir;
    std::unique_ptr<ResourceManager> resources;
    std::set<CTexture*> made;
    TextureLoader savedLoader = nullptr;
    char savedMeshFolder[PathBufferSize] = {};
    PathList* savedPaths = nullptr;
};

// Only the tool's texture folder is read, whatever folder a mesh or the name gives; a name is
// found there in any case, its type is judged by the first dot of the file name, and meshes naming
// one texture share one load. A file that is missing or can't be read gives the shared pattern.
TEST_F(ToolTextures, LoadsComeFromTheTexturesFolderOnceAndMissingOnesGiveThePattern) {
    SetTextureLoadFunction(ToolLoadTexture);
    const int before = CountTextures();
    SetMeshFolderFromPath("mapA/test.vbf");
    CTexture* grass = VALoadTexture("grass.tga");
    made.insert(grass);
    SetMeshFolderFromPath("mapB/test.vbf");
    EXPECT_EQ(VALoadTexture("grass.tga"), grass);
    EXPECT_STREQ(grass->name, "grass.tga");
    EXPECT_EQ(Load("C:\\art\\grass.tga"), grass);  // any folder, either separator
    EXPECT_EQ(CountTextures(), before + 1);
    const std::string longName = std::string(PathBufferSize - 10, 'a') + ".tga";
    const std::pair<const char*, int> sides[] = {
        {"grass.tga", 4}, {"rock.tga", 8},    {"moss.tga.bak", 2},   {"../maps.v2/slate.Tga", 16},
        {"MISSING", 64},  {"absent.tga", 64}, {longName.c_str(), 64}};
    for (auto [name, side] : sides) EXPECT_EQ(Load(name)->width, side) << name;
    EXPECT_EQ(Load("MISSING"), Load("MISSING"));                // one pattern, shared
    EXPECT_NE(Load(longName.c_str()), Load(longName.c_str()));  // refused, and never cached
    const std::string log = ReadWholeFile("velmora.log");
    for (const char* text :
         {"Texture MISSING has no file extension", "Failed to open TGA: data/textures/absent.tga",
          "Texture path too long: aaa"})
        EXPECT_NE(log.find(text), std::string::npos) << log;
    EXPECT_EQ(log.find("Failed to open TGA: data/textures/grass"), std::string::npos) << log;
    // Clearing the cache leaves the textures to the engine's list; the next ask loads anew.
    CTexture* rock = Load("rock.tga");
    ToolTextureCacheClear();
    EXPECT_NE(Load("rock.tga"), rock);
}

using ToolTexturesDeathTest = ToolTextures;
TEST_F(ToolTexturesDeathTest, AnotherTypeIsFatal) {
    EXPECT_DEATH(Load("grass.old.tga"), "Load Texture: Invalid Texture Type grass.old.tga");
    EXPECT_DEATH(Load("grass.bmp"), "Invalid Texture Type grass.bmp");
    FatalReportTrap job;  // in a run's job the report ends the job, and the load goes on
    EXPECT_EQ(Load("grass.bmp")->width, 64);
    EXPECT_STREQ(job.Reason(), "Load Texture: Invalid Texture Type grass.bmp");
}

}  // namespace
