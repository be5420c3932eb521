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

// A square TGA whose side tells the tests which file a load read.
void WriteTga(const std::string& path, int side) {
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    CTexture* texture = CreateTexture(side, side, TextureFormat8880);
    for (int i = 0; i < side * side * 3; ++i) texture->pixels[i] = uint8_t(i * 5 + side);
    ASSERT_TRUE(texture->SaveAsTGA(path.c_str()));
    FreeTexture(texture);
}

class ToolTextures : public testing::Test {
protected:
    void SetUp() override {
        savedLoader = TextureLoadFunction;
        std::memcpy(savedMeshFolder, MeshFolder, sizeof savedMeshFolder);
        savedPaths = TexturePaths;
        TexturePaths = nullptr;
        VelmoraLogBeginRun();
        // Windows data: the folder comes with "\".
        WriteWholeFile("resource.cfg", "TEXTURE_DATA data\\textures\n");
        resources = std::make_unique<ResourceManager>("resource.cfg");
        SetToolResourceManager(resources.get());
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
    static std::string Log() { return ReadWholeFile("velmora.log"); }

    TempDir dir;
    std::unique_ptr<ResourceManager> resources;
    std::set<CTexture*> made;
    TextureLoader savedLoader = nullptr;
    char savedMeshFolder[PathBufferSize] = {};
    PathList* savedPaths = nullptr;
};

TEST_F(ToolTextures, MeshesNamingOneTextureShareOneLoad) {
    WriteTga("data/textures/grass.tga", 4);
    WriteTga("mapA/grass.tga", 2);  // beside a mesh, yet the tool reads only its own folder
    WriteTga("data/textures/rock.tga", 8);
    SetTextureLoadFunction(ToolLoadTexture);

    const int before = CountTextures();
    SetMeshFolderFromPath("mapA/test.vbf");
    CTexture* fromA = VALoadTexture("grass.tga");
    made.insert(fromA);
    SetMeshFolderFromPath("mapB/test.vbf");
    CTexture* fromB = VALoadTexture("grass.tga");
    EXPECT_EQ(fromA, fromB);
    EXPECT_EQ(fromA->width, 4);
    EXPECT_STREQ(fromA->name, "grass.tga");
    EXPECT_EQ(Load("C:\\art\\grass.tga"), fromA);  // any folder, either separator
    EXPECT_EQ(CountTextures(), before + 1);

    CTexture* rock = Load("rock.tga");
    EXPECT_NE(rock, fromA);
    EXPECT_EQ(rock->width, 8);

    // Clearing the cache leaves the textures to the engine's list; the next ask loads anew.
    ToolTextureCacheClear();
    EXPECT_EQ(CountTextures(), before + 2);
    CTexture* again = Load("rock.tga");
    EXPECT_NE(again, rock);
    EXPECT_EQ(again->width, 8);
}

TEST_F(ToolTextures, CaseAndFolderDotsDoNotHideAFile) {
    WriteTga("data/textures/GRASS.TGA", 4);
    WriteTga("data/textures/moss.tga.bak", 2);
    WriteTga("data/textures/rock.Tga", 8);
    CTexture* grass = Load("grass.tga");
    EXPECT_EQ(grass->width, 4);
    EXPECT_EQ(Load("grass.tga"), grass);
    // The type is judged by the first dot of the file name, not of a folder.
    EXPECT_EQ(Load("moss.tga.bak")->width, 2);
    EXPECT_EQ(Load("../maps.v2/rock.Tga")->width, 8);
    EXPECT_EQ(Log().find("Failed to open"), std::string::npos) << Log();
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
    const std::string log = Log();
    EXPECT_NE(log.find("Texture MISSING has no file extension"), std::string::npos) << log;
    EXPECT_NE(log.find("Failed to open TGA: data/textures/absent.tga"), std::string::npos) << log;
    EXPECT_NE(log.find("Texture path too long: aaa"), std::string::npos) << log;
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
