#include "tool/maps/tool_load_texture.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <set>
#include <string>

#include "base/fatal_trap.h"
#include "base/resmanager.h"
#include "base/velmora_log.h"
#include "engine/scene/path_list.h"
#include "engine/texture/texture.h"
#include "tests/support/temp_dir.h"

namespace {

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

// Every texture comes from the TEXTURE_DATA folder, whatever folder the name gives; a name is found
// there in any case, its type is judged by the first dot of the file name, and each file is loaded
// once. A file that is missing or can't be named gives the test pattern.
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
    CTexture* rock = Load("rock.tga");
    ToolTextureCacheClear();  // the textures stay with the engine; the next ask loads anew
    EXPECT_NE(Load("rock.tga"), rock);
}

using ToolTexturesDeathTest = ToolTextures;
TEST_F(ToolTexturesDeathTest, AnotherTypeIsFatalOrEndsTheJob) {
    EXPECT_DEATH(Load("grass.old.tga"), "Load Texture: Invalid Texture Type grass.old.tga");
    FatalReportTrap job;  // in a run's job the report ends the job, and the load goes on
    EXPECT_EQ(Load("grass.bmp")->width, 64);
    EXPECT_STREQ(job.Reason(), "Load Texture: Invalid Texture Type grass.bmp");
}

}  // namespace
