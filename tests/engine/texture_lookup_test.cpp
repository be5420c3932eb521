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

using Strings = std::vector<std::string>;

// A square TGA whose side tells the tests which file a lookup read.
void WriteTga(const std::string& path, int side) {
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    CTexture* texture = CreateTexture(side, side, TextureFormat8880);
    std::memset(texture->pixels, side, size_t(side) * side * 3);
    ASSERT_TRUE(texture->SaveAsTGA(path.c_str()));
    FreeTexture(texture);
}

CTexture* LoaderGives = nullptr;  // what the installed loader returns; null: it reads the file
Strings LoaderPaths;              // every path the installed loader was handed

CTexture* RecordingLoader(const char* path) {
    LoaderPaths.emplace_back(path);
    return LoaderGives ? LoaderGives : CreateTextureFromFile(path);
}

class TextureLookup : public testing::Test {
protected:
    void SetUp() override {
        savedPaths = TexturePaths;
        TexturePaths = &paths;
        TextureLoadFunction = nullptr;
        TextureSearchEnabled = 1;
        MeshFolder[0] = '\0';
        VelmoraLogBeginRun();
        LoaderGives = nullptr;
        LoaderPaths.clear();
    }
    void TearDown() override {
        for (CTexture* texture : made) FreeTexture(texture);
        TextureLoadFunction = nullptr;
        TextureSearchEnabled = 1;
        MeshFolder[0] = '\0';
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
    PathList* savedPaths = nullptr;
    DebugCapture capture;
};

}  // namespace

TEST_F(TextureLookup, MeshFolderComesFirstThenTheEnabledSearchFoldersInAnyCase) {
    WriteTga("mesh/GRASS.TGA", 2);
    WriteTga("mesh/sub/rock.tga", 3);
    WriteTga("textures/Grass.Tga", 4);
    WriteTga("more/grass.tga", 5);
    WriteTga("v1.2/plain", 6);
    const int32_t textures = paths.Push("textures");
    paths.Push("more");
    SetMeshFolderFromPath("mesh\\test.vbf");  // Windows data names the mesh with "\"
    EXPECT_STREQ(MeshFolder, "mesh/");
    CTexture* first = Load("grass.tga");
    EXPECT_EQ(first->width, 2);
    EXPECT_STREQ(first->name, "grass.tga");  // named as asked, whatever path was read
    EXPECT_NE(Load("grass.tga"), first);     // without a load function each call reads again
    EXPECT_STREQ(Load("sub\\rock.tga")->name, "sub\\rock.tga");
    SetMeshFolderFromPath("elsewhere/test.vbf");
    EXPECT_EQ(Load("GRASS.tga")->width, 4);
    paths.Disable(textures);
    EXPECT_EQ(Load("grass.tga")->width, 5);
    paths.DisableAll();
    EXPECT_EQ(Load("grass.tga")->width, 64);
    paths.EnableAll();
    SetMeshFolderFromPath("test.vbf");
    EXPECT_STREQ(MeshFolder, "");
    EXPECT_EQ(Load("grass.tga")->width, 4);
    SetMeshFolderFromPath("v1.2/test.vbf");  // a dot in a folder is no extension
    EXPECT_EQ(Load("plain")->width, 6);

    TextureLoadFunction = RecordingLoader;
    SetMeshFolderFromPath("mesh/test.vbf");
    EXPECT_EQ(Load("sub\\rock.tga")->width, 3);
    SetTextureSearch(0);                      // the name goes to the loader unchanged
    EXPECT_EQ(Load("grass.tga")->width, 64);  // nothing by that name in the current directory
    EXPECT_EQ(LoaderPaths, (Strings{"mesh/sub/rock.tga", "grass.tga"}));
    EXPECT_EQ(Log().find("(LoadTexture)"), std::string::npos) << Log();
}

TEST_F(TextureLookup, WhatCannotBeFoundGivesThePatternUnderItsNameAndALogLine) {
    CTexture* texture = Load("nowhere.tga");
    EXPECT_EQ(texture->width, 64);
    EXPECT_STREQ(texture->name, "nowhere.tga");
    EXPECT_NE(Log().find("LOG: (CTexture::LoadTGA) Failed to open TGA: nowhere.tga"),
              std::string::npos);
    EXPECT_NE(capture.Text().find("VALoadTexture: Find failed to locate texture: nowhere.tga.\n"),
              std::string::npos);
    for (const char* name : {static_cast<const char*>(nullptr), "", "MISSING"}) {
        CTexture* missing = Load(name);
        EXPECT_EQ(missing->width, 64);
        EXPECT_STREQ(missing->name, "MISSING");
    }
    EXPECT_NE(Log().find("Texture MISSING has no file extension"), std::string::npos);

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
    EXPECT_EQ(LoaderPaths, Strings{longest});
    SetMeshFolderFromPath((std::string(PathBufferSize, 'c') + "/test.vbf").c_str());
    EXPECT_STREQ(MeshFolder, "");
    EXPECT_NE(Log().find("Mesh folder too long: ccc"), std::string::npos);

    LoaderGives = CreateEmptyTexture();  // a loader's failure is logged and passed on
    EXPECT_STREQ(Load("rock.tga")->name, "rock.tga");
    EXPECT_EQ(made.count(LoaderGives), 1u);
    LoaderGives = nullptr;
    TextureLoadFunction = [](const char*) -> CTexture* { return nullptr; };
    EXPECT_EQ(Load("grass.tga"), nullptr);
    EXPECT_NE(Log().find("LOG: (LoadTexture) User load function failed to find texture grass.tga"),
              std::string::npos);
    EXPECT_NE(Log().find("User load function failed to find texture rock.tga"), std::string::npos);
    TextureLoadFunction = nullptr;
    EXPECT_DEATH(Load("grass.tga.bak"),
                 "VELMORALoadTexture: Texture grass.tga.bak is an Invalid File Format");
}

TEST(PathList, FindFileTakesWindowsNamesAndNoPathLongerThanTheBuffer) {
    TempDir dir;
    std::filesystem::create_directories("Textures/Sub");
    WriteWholeFile("Textures/Grass.TGA", "g");
    WriteWholeFile("Textures/Sub/Rock.tga", "r");
    const std::string name(std::max<size_t>(PathBufferSize - dir.Path().size(), 1) + 4, 'n');
    WriteWholeFile(name, "x");
    PathList list;
    char out[PathBufferSize] = "untouched";
    EXPECT_EQ(list.FindFile("grass.tga", out), 0);                  // empty list
    const std::string windowsFolder = dir.Path() + "\\Textures\\";  // the list keeps no copy
    list.Push(windowsFolder.c_str());
    list.Push(dir.Path().c_str());
    ASSERT_EQ(list.FindFile("grass.tga", out), 1);
    EXPECT_EQ(std::string(out), dir.File("Textures/Grass.TGA"));  // the real name, one separator
    ASSERT_EQ(list.FindFile("sub\\ROCK.tga", out), 1);
    EXPECT_EQ(std::string(out), dir.File("Textures/Sub/Rock.tga"));
    char* exact = new char[PathBufferSize];  // exact size, so the sanitizer sees any overrun
    EXPECT_EQ(list.FindFile(name.c_str(), exact), 0);
    delete[] exact;
}
