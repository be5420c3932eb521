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
// found there in any case, and its type is judged by the first dot of the file name.
TEST_F(ToolTextures, MeshesNamingOneTextureShareOneLoadFromTheTexturesFolder) {
    SetTextureLoadFunction(ToolLoadTexture);
    const int before = CountTextures();
    SetMeshFolderFromPath("mapA/test.vbf");
    CTexture* grass = VALoadTexture("grass.tga");
    made.insert(grass);
    SetMeshFolderFromPath("mapB/test.vbf");
    EXPECT_EQ(VALoadTexture("grass.tga"), grass);
    EXPECT_EQ(grass->width, 4);
    EXPECT_STREQ(grass->name, "grass.tga");
    EXPECT_EQ(Load("C:\\art\\grass.tga"), grass);  // any folder, either separator
    EXPECT_EQ(CountTextures(), before + 1);
    CTexture* rock = Load("rock.tga");
    EXPECT_EQ(rock->width, 8);
    EXPECT_EQ(Load("moss.tga.bak")->width, 2);
    EXPECT_EQ(Load("../maps.v2/slate.Tga")->width, 16);
    EXPECT_EQ(ReadWholeFile("velmora.log").find("Failed to open"), std::string::npos);
    // Clearing the cache leaves the textures to the engine's list; the next ask loads anew.
    ToolTextureCacheClear();
    EXPECT_EQ(CountTextures(), before + 4);
    CTexture* again = Load("rock.tga");
    EXPECT_NE(again, rock);
    EXPECT_EQ(again->width, 8);
}

TEST_F(ToolTextures, MissingOrUnusableFilesGiveThePattern) {
    CTexture* missing = Load("MISSING");
    EXPECT_EQ(missing->width, 64);
    EXPECT_EQ(Load("MISSING"), missing);  // one shared pattern
    EXPECT_EQ(Load("absent.tga")->width, 64);
    // A path that fits alone but not behind the folder is refused, and never cached.
    const std::string longName = std::string(PathBufferSize - 10, 'a') + ".tga";
    CTexture* refused = Load(longName.c_str());
    EXPECT_EQ(refused->width, 64);
    EXPECT_NE(Load(longName.c_str()), refused);
    const std::string log = ReadWholeFile("velmora.log");
    for (const char* text :
         {"Texture MISSING has no file extension", "Failed to open TGA: data/textures/absent.tga",
          "Texture path too long: aaa"})
        EXPECT_NE(log.find(text), std::string::npos) << log;
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
