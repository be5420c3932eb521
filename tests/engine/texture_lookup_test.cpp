#include "engine/texture/texture_lookup.h"

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "base/velmora_log.h"
#include "engine/texture/texture.h"
#include "platform/debug/debug_output.h"
#include "tests/support/temp_dir.h"

namespace {

// A square TGA whose side tells the tests which file a lookup read.
void WriteTga(const std::string& path, int side) {
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    CTexture* texture = CreateTexture(side, side, TextureFormat8880);
    for (int i = 0; i < side * side * 3; ++i) texture->pixels[i] = uint8_t(i * 7 + side);
    ASSERT_TRUE(texture->SaveAsTGA(path.c_str()));
    FreeTexture(texture);
}

enum LoaderMode { LoaderReads, LoaderGivesNull, LoaderGivesEmpty };
LoaderMode Mode = LoaderReads;
std::vector<std::string> LoaderPaths;  // every path the installed loader was handed

CTexture* RecordingLoader(const char* path) {
    LoaderPaths.emplace_back(path);
    if (Mode == LoaderGivesNull) return nullptr;
    if (Mode == LoaderGivesEmpty) return CreateEmptyTexture();
    return CreateTextureFromFile(path);
}

class TextureLookup : public testing::Test {
protected:
    void SetUp() override {
        savedLoader = TextureLoadFunction;
        savedSearch = TextureSearchEnabled;
        std::memcpy(savedMeshFolder, MeshFolder, sizeof savedMeshFolder);
        savedPaths = TexturePaths;
        TextureLoadFunction = nullptr;
        TextureSearchEnabled = 1;
        MeshFolder[0] = '\0';
        TexturePaths = &paths;
        VelmoraLogBeginRun();
        Mode = LoaderReads;
        LoaderPaths.clear();
    }
    void TearDown() override {
        for (CTexture* texture : made) FreeTexture(texture);
        TextureLoadFunction = savedLoader;
        TextureSearchEnabled = savedSearch;
        std::memcpy(MeshFolder, savedMeshFolder, sizeof savedMeshFolder);
        TexturePaths = savedPaths;
    }

    CTexture* Load(const char* name) {
        CTexture* texture = VALoadTexture(name);
        if (texture) made.insert(texture);
        return texture;
    }
    static std::string Log() { return ReadWholeFile("velmora.log"); }

    TempDir dir;
    PathList paths;  // the folders' strings are literals: the list doesn't own them
    std::set<CTexture*> made;
    TextureLoader savedLoader = nullptr;
    uint8_t savedSearch = 0;
    char savedMeshFolder[PathBufferSize] = {};
    PathList* savedPaths = nullptr;
};

TEST_F(TextureLookup, MeshFolderComesFirstThenTheSearchFoldersInAnyCase) {
    WriteTga("mesh/GRASS.TGA", 2);
    WriteTga("mesh/sub/rock.tga", 3);
    WriteTga("textures/Grass.Tga", 4);
    paths.Push("textures");

    SetMeshFolderFromPath("mesh\\test.vbf");  // Windows data names the mesh with "\"
    EXPECT_STREQ(MeshFolder, "mesh/");
    CTexture* first = Load("grass.tga");
    EXPECT_EQ(first->width, 2);
    EXPECT_STREQ(first->name, "grass.tga");  // named as asked, whatever path was read
    EXPECT_NE(Load("grass.tga"), first);     // without a load function each call reads again
    EXPECT_STREQ(Load("sub\\rock.tga")->name, "sub\\rock.tga");
    SetMeshFolderFromPath("elsewhere/test.vbf");
    EXPECT_EQ(Load("GRASS.tga")->width, 4);
    SetMeshFolderFromPath("test.vbf");
    EXPECT_STREQ(MeshFolder, "");
    EXPECT_EQ(Load("grass.tga")->width, 4);
    EXPECT_EQ(Log().find("Failed to open"), std::string::npos) << Log();

    TextureLoadFunction = RecordingLoader;
    SetMeshFolderFromPath("mesh/test.vbf");
    EXPECT_EQ(Load("sub\\rock.tga")->width, 3);
    SetTextureSearch(0);  // the name goes to the loader unchanged
    DebugCapture capture;
    EXPECT_EQ(Load("grass.tga")->width, 64);  // nothing by that name in the current directory
    EXPECT_EQ(LoaderPaths, (std::vector<std::string>{"mesh/sub/rock.tga", "grass.tga"}));
    EXPECT_EQ(capture.Text().find("Find failed"), std::string::npos);
}

TEST_F(TextureLookup, AMissingFileGivesThePatternAndALogLine) {
    DebugCapture capture;
    CTexture* texture = Load("nowhere.tga");
    ASSERT_NE(texture, nullptr);
    EXPECT_EQ(texture->width, 64);
    EXPECT_STREQ(texture->name, "nowhere.tga");
    EXPECT_NE(Log().find("LOG: (CTexture::LoadTGA) Failed to open TGA: nowhere.tga"),
              std::string::npos)
        << Log();
    EXPECT_NE(capture.Text().find("VALoadTexture: Find failed to locate texture: nowhere.tga.\n"),
              std::string::npos)
        << capture.Text();

    // No name and a name without an extension are not fatal either: the pattern shows instead.
    for (const char* name : {static_cast<const char*>(nullptr), "", "MISSING"}) {
        CTexture* missing = Load(name);
        EXPECT_EQ(missing->width, 64);
        EXPECT_STREQ(missing->name, "MISSING");
    }
    EXPECT_NE(Log().find("Texture MISSING has no file extension"), std::string::npos) << Log();
}

TEST_F(TextureLookup, TheLoadFunctionsFailureIsLoggedAndPassedOn) {
    TextureLoadFunction = RecordingLoader;
    Mode = LoaderGivesNull;
    EXPECT_EQ(Load("grass.tga"), nullptr);
    Mode = LoaderGivesEmpty;
    CTexture* empty = Load("rock.tga");
    ASSERT_NE(empty, nullptr);
    EXPECT_EQ(empty->width, 0);
    EXPECT_STREQ(empty->name, "rock.tga");
    const std::string log = Log();
    EXPECT_NE(log.find("LOG: (LoadTexture) User load function failed to find texture grass.tga"),
              std::string::npos)
        << log;
    EXPECT_NE(log.find("User load function failed to find texture rock.tga"), std::string::npos);
}

TEST_F(TextureLookup, TheReaderJudgesTheLastDotOfTheFileName) {
    WriteTga("mesh/grass.old.tga", 2);
    WriteTga("v1.2/plain", 4);
    SetMeshFolderFromPath("mesh/test.vbf");
    EXPECT_EQ(Load("grass.old.tga")->width, 2);
    // A dot in a folder is no extension: this file has none, and still loads.
    SetMeshFolderFromPath("v1.2/test.vbf");
    EXPECT_EQ(Load("plain")->width, 4);
}

TEST_F(TextureLookup, NamesTooLongForThePathBuffersAreRefused) {
    TextureLoadFunction = RecordingLoader;
    const std::string overlong(PathBufferSize + 40, 'a');
    CTexture* refused = Load((overlong + ".tga").c_str());
    EXPECT_TRUE(LoaderPaths.empty());
    EXPECT_EQ(refused->width, 64);
    EXPECT_EQ(std::string(refused->name), overlong + ".tga");
    EXPECT_NE(Log().find("Texture name too long: aaa"), std::string::npos);

    // A name that fits alone but not behind the mesh folder is searched on without the folder.
    const std::string longest = std::string(PathBufferSize - 5, 'b') + ".tga";
    SetMeshFolderFromPath("mesh/test.vbf");
    paths.Push("textures");
    Load(longest.c_str());
    EXPECT_EQ(LoaderPaths, std::vector<std::string>{longest});

    SetMeshFolderFromPath((std::string(PathBufferSize, 'c') + "/test.vbf").c_str());
    EXPECT_STREQ(MeshFolder, "");
    EXPECT_NE(Log().find("Mesh folder too long: ccc"), std::string::npos);
}

using TextureLookupDeathTest = TextureLookup;

TEST_F(TextureLookupDeathTest, AnExtensionOtherThanTgaIsFatal) {
    EXPECT_DEATH(Load("grass.tga.bak"),
                 "VELMORALoadTexture: Texture grass.tga.bak is an Invalid File Format");
    EXPECT_DEATH(Load("grass.tgax"), "Texture grass.tgax is an Invalid File Format");
}

}  // namespace
