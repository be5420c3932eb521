#include "platform/crt/find_file.h"

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <string>

#include "tests/support/temp_dir.h"

namespace {

// Asks with a buffer of exactly outSize bytes on the heap, so the sanitizer build sees any write
// past it; returns the path found, or "-" for a miss (after checking the buffer was left alone).
std::string Find(const char* folder, const char* name, size_t outSize = 260) {
    std::string out(outSize, '#');
    char* buffer = new char[outSize];
    std::memcpy(buffer, out.data(), outSize);
    const bool found = FileExistsAnyCase(folder, name, buffer, outSize);
    std::string result = found ? std::string(buffer) : "-";
    if (!found) {
        EXPECT_EQ(std::string(buffer, outSize), out) << "written on a miss";
    }
    delete[] buffer;
    return result;
}

TEST(FindFile, ExactNamesAndSeparators) {
    TempDir dir;
    std::filesystem::create_directories("maps/tex");
    WriteWholeFile("maps/tex/a.tga", "a");
    const std::string maps = dir.File("maps");

    EXPECT_EQ(Find(maps.c_str(), "tex/a.tga"), maps + "/tex/a.tga");
    EXPECT_EQ(Find((maps + "/").c_str(), "tex\\a.tga"), maps + "/tex/a.tga");
    EXPECT_EQ(Find((dir.Path() + "\\maps\\tex\\").c_str(), "a.tga"), maps + "/tex/a.tga");
    EXPECT_EQ(Find("maps\\tex", "a.tga"), "maps/tex/a.tga");  // relative to the current folder
    EXPECT_EQ(Find("", "maps/tex/a.tga"), "maps/tex/a.tga");
    EXPECT_EQ(Find(nullptr, "maps/tex/a.tga"), "maps/tex/a.tga");

    EXPECT_EQ(Find(maps.c_str(), "tex"), "-");  // a folder is not a file
    EXPECT_EQ(Find(maps.c_str(), ""), "-");
    EXPECT_EQ(Find((maps + "/nowhere").c_str(), "a.tga"), "-");
    char out[8] = "keep";
    EXPECT_FALSE(FileExistsAnyCase(maps.c_str(), nullptr, out, sizeof out));
    EXPECT_STREQ(out, "keep");
}

TEST(FindFile, NamesMatchInAnyCase) {
    TempDir dir;
    std::filesystem::create_directories("Tex/Trees");
    WriteWholeFile("Tex/Grass.TGA", "g");
    WriteWholeFile("Tex/Trees/Oak.tga", "o");
    WriteWholeFile("Tex/ROCK.tga", "1");
    WriteWholeFile("Tex/rock.TGA", "2");

    EXPECT_EQ(Find("Tex", "GRASS.tga"), "Tex/Grass.TGA");
    EXPECT_EQ(Find("Tex", "trees\\OAK.TGA"), "Tex/Trees/Oak.tga");
    EXPECT_EQ(Find("Tex", "Rock.tga"), "Tex/ROCK.tga");  // of two spellings, the smaller
    EXPECT_EQ(Find("Tex", "rock.TGA"), "Tex/rock.TGA");  // an exact name comes first
    EXPECT_EQ(Find("Tex", "grass.tg"), "-");
    EXPECT_EQ(Find("tex", "Grass.TGA"), "-");  // the folder itself is taken as given
}

TEST(FindFile, APathThatDoesNotFitIsNotFound) {
    TempDir dir;
    WriteWholeFile("abcdef.tga", "x");
    for (const char* name : {"abcdef.tga", "ABCDEF.TGA"}) {
        EXPECT_EQ(Find("", name, 11), "abcdef.tga");  // 10 bytes and the terminator
        EXPECT_EQ(Find("", name, 10), "-");
    }
    EXPECT_EQ(Find(".", "abcdef.tga", 13), "./abcdef.tga");
    EXPECT_EQ(Find(".", "abcdef.tga", 12), "-");
}

}  // namespace
