// Finding and opening files as the maps name them: by wildcard, and by names in any case.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "platform/crt/directory_search.h"
#include "platform/crt/find_file.h"
#include "platform/crt/win_file.h"
#include "tests/support/temp_dir.h"

namespace {

using Names = std::vector<std::string>;

Names Search(const std::string& pattern) {
    Names names;
    WIN32_FIND_DATAA found;
    HANDLE search = FindFirstFileA(pattern.c_str(), &found);
    if (search == INVALID_HANDLE_VALUE) return names;
    do
        names.push_back(found.cFileName +
                        std::string(found.dwFileAttributes == FILE_ATTRIBUTE_DIRECTORY ? "/" : ""));
    while (FindNextFileA(search, &found));
    EXPECT_TRUE(FindClose(search));
    return names;
}

TEST(DirectorySearch, ListsWildcardMatchesInNameOrderWithoutRegardToCase) {
    TempDir dir;
    for (const char* name :
         {"b.ssf", "A.SSF", "c.ssf", "notes.txt", "d.ssf.old", "aXbYbZc", ".ssf"})
        WriteWholeFile(dir.File(name), "x");
    std::filesystem::create_directories(dir.File("folder.ssf"));
    const std::string at = dir.Path() + "/";
    EXPECT_EQ(Search(at + "*.ssf"), (Names{".ssf", "A.SSF", "b.ssf", "c.ssf", "folder.ssf/"}));
    EXPECT_EQ(Search(dir.Path() + "\\*.SSF").size(), 5u);  // either separator
    EXPECT_EQ(Search("*.txt"), Names{"notes.txt"});        // the current folder
    EXPECT_EQ(Search(at + "a*b*c"), Names{"aXbYbZc"});     // a star must be able to give back
    EXPECT_EQ(Search(at + "?.s?f"), (Names{"A.SSF", "b.ssf", "c.ssf"}));
    for (std::string nothing : {at + "*.lit", at + "??.ssf", at + "missing/*", at})
        EXPECT_EQ(Search(nothing), Names{}) << nothing;
    WIN32_FIND_DATAA found;
    EXPECT_EQ(FindFirstFileA(nullptr, &found), INVALID_HANDLE_VALUE);
    EXPECT_FALSE(FindNextFileA(INVALID_HANDLE_VALUE, &found));
    EXPECT_FALSE(FindClose(INVALID_HANDLE_VALUE));
}

// Asks with a buffer of exactly outSize bytes on the heap, so the sanitizer build sees any write
// past it; returns the path found, or "-" for a miss (after checking the buffer was left alone).
std::string Find(const char* folder, const char* name, size_t outSize) {
    const std::string untouched(outSize, '#');
    std::vector<char> buffer(untouched.begin(), untouched.end());
    if (FileExistsAnyCase(folder, name, buffer.data(), outSize)) return buffer.data();
    EXPECT_EQ(std::string(buffer.data(), outSize), untouched) << "written on a miss";
    return "-";
}

TEST(FindFile, FindsNamesInAnyCaseWhereThePathFits) {
    TempDir dir;
    std::filesystem::create_directories("Tex/Trees");
    for (const char* name : {"Tex/Trees/Oak.tga", "Tex/ROCK.tga", "Tex/rock.TGA", "abcdef.tga"})
        WriteWholeFile(name, "x");
    struct Row {
        const char *folder, *name;
        size_t outSize;
        const char* found;
    };
    for (const Row& r : {
             Row{"Tex/", "trees\\OAK.TGA", 260, "Tex/Trees/Oak.tga"},
             Row{nullptr, "tex/trees/oak.tga", 260, "Tex/Trees/Oak.tga"},
             Row{"tex", "ROCK.tga", 260, "-"},             // the folder itself is taken as given
             Row{"Tex", "Rock.tga", 260, "Tex/ROCK.tga"},  // of two spellings, the smaller
             Row{"Tex", "rock.TGA", 260, "Tex/rock.TGA"},  // an exact name comes first
             Row{"Tex", "Trees", 260, "-"},                // a folder is not a file
             Row{"Tex", nullptr, 260, "-"},
             Row{"", "ABCDEF.TGA", 11, "abcdef.tga"},  // 10 bytes and the terminator
             Row{"", "ABCDEF.TGA", 10, "-"},
             Row{".", "abcdef.tga", 13, "./abcdef.tga"},
             Row{".", "ABCDEF.tga", 12, "-"},
         })
        EXPECT_EQ(Find(r.folder, r.name, r.outSize), r.found)
            << (r.folder ? r.folder : "null") << " + " << (r.name ? r.name : "null");
}

HANDLE Open(const char* name, uint32_t disposition) {
    return CreateFileA(name, GENERIC_WRITE, FILE_SHARE_READ, nullptr, disposition,
                       FILE_ATTRIBUTE_NORMAL, nullptr);
}

void WriteAll(const char* name, uint32_t disposition, const std::string& bytes) {
    HANDLE file = Open(name, disposition);
    uint32_t done = 0;
    EXPECT_TRUE(WriteFile(file, bytes.data(), uint32_t(bytes.size()), &done, nullptr)) << name;
    EXPECT_EQ(done, bytes.size());
    EXPECT_TRUE(CloseHandle(file));
}

TEST(WinFile, OpensByDispositionAndFindsNamesInAnyCase) {
    TempDir dir;
    std::filesystem::create_directories("Maps/Town");
    WriteAll("Maps/Town/Test.VBF", CREATE_ALWAYS, "0123456789");
    for (const char* name : {"missing", "Maps", "", static_cast<const char*>(nullptr)})
        EXPECT_EQ(Open(name, OPEN_EXISTING), INVALID_HANDLE_VALUE) << (name ? name : "null");
    EXPECT_EQ(Open("missing", TRUNCATE_EXISTING), INVALID_HANDLE_VALUE);
    for (uint32_t disposition : {uint32_t(CREATE_NEW), 77u})
        EXPECT_EQ(Open("maps/town/test.vbf", disposition), INVALID_HANDLE_VALUE) << disposition;
    EXPECT_FALSE(std::filesystem::exists("missing"));
    WriteAll("MAPS\\TOWN\\TEST.VBF", OPEN_ALWAYS, "xy");  // keeps the rest, starts at the start
    EXPECT_EQ(ReadWholeFile("Maps/Town/Test.VBF"), "xy23456789");
    WriteAll((dir.Path() + "/maps\\town\\test.vbf").c_str(), CREATE_ALWAYS, "new");
    EXPECT_EQ(ReadWholeFile("Maps/Town/Test.VBF"), "new");
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator("Maps/Town"), {}), 1);
}

}  // namespace
