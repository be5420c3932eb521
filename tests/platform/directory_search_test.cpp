#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "platform/crt/directory_search.h"
#include "platform/crt/file_status.h"
#include "tests/support/temp_dir.h"

namespace {

std::vector<std::string> Search(const std::string& pattern) {
    std::vector<std::string> names;
    WIN32_FIND_DATAA found;
    HANDLE search = FindFirstFileA(pattern.c_str(), &found);
    if (search == INVALID_HANDLE_VALUE) return names;
    do names.push_back(found.cFileName);
    while (FindNextFileA(search, &found));
    EXPECT_TRUE(FindClose(search));
    return names;
}

TEST(Wildcard, MatchesAsWindowsDoes) {
    EXPECT_TRUE(MatchesWildcard("*.ssf", "noon.ssf"));
    EXPECT_TRUE(MatchesWildcard("*.ssf", "NOON.SSF"));
    EXPECT_TRUE(MatchesWildcard("*.ssf", ".ssf"));
    EXPECT_FALSE(MatchesWildcard("*.ssf", "noon.ssf.bak"));
    EXPECT_TRUE(MatchesWildcard("a*b*c", "aXbYbZc"));  // a star must be able to give back
    EXPECT_TRUE(MatchesWildcard("n??n.*", "noon.lit"));
    EXPECT_FALSE(MatchesWildcard("n?n", "noon"));
    EXPECT_TRUE(MatchesWildcard("*", ""));
    EXPECT_FALSE(MatchesWildcard("", "x"));
}

TEST(DirectorySearch, ListsMatchesInNameOrderWithoutRegardToCase) {
    TempDir dir;
    for (const char* name : {"b.ssf", "A.SSF", "c.ssf", "notes.txt", "d.ssf.old"})
        WriteWholeFile(dir.File(name), "x");
    std::filesystem::create_directories(dir.File("folder.ssf"));
    EXPECT_EQ(Search(dir.Path() + "/*.ssf"),
              (std::vector<std::string>{"A.SSF", "b.ssf", "c.ssf", "folder.ssf"}));
    EXPECT_EQ(Search(dir.Path() + "\\*.SSF").size(), 4u);               // either separator
    EXPECT_EQ(Search("*.txt"), std::vector<std::string>{"notes.txt"});  // the current folder

    WIN32_FIND_DATAA found;
    HANDLE search = FindFirstFileA((dir.Path() + "/folder*").c_str(), &found);
    ASSERT_NE(search, INVALID_HANDLE_VALUE);
    EXPECT_EQ(found.dwFileAttributes, uint32_t(FILE_ATTRIBUTE_DIRECTORY));
    EXPECT_FALSE(FindNextFileA(search, &found));
    FindClose(search);
}

TEST(DirectorySearch, NothingFoundIsAnInvalidHandle) {
    TempDir dir;
    WIN32_FIND_DATAA found;
    EXPECT_EQ(FindFirstFileA((dir.Path() + "/*.ssf").c_str(), &found), INVALID_HANDLE_VALUE);
    EXPECT_EQ(FindFirstFileA((dir.Path() + "/missing/*").c_str(), &found), INVALID_HANDLE_VALUE);
    EXPECT_EQ(FindFirstFileA(nullptr, &found), INVALID_HANDLE_VALUE);
    EXPECT_FALSE(FindNextFileA(INVALID_HANDLE_VALUE, &found));
    EXPECT_FALSE(FindClose(INVALID_HANDLE_VALUE));
}

TEST(FileStatus, TellsFoldersFromFiles) {
    TempDir dir;
    WriteWholeFile(dir.File("file"), "12345");
    struct _stat status;
    ASSERT_EQ(_stat(dir.File("file").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & _S_IFMT, _S_IFREG);
    EXPECT_EQ(status.st_size, 5);
    ASSERT_EQ(_stat(dir.Path().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & _S_IFMT, _S_IFDIR);
    EXPECT_EQ(_stat(dir.File("missing").c_str(), &status), -1);
    EXPECT_EQ(_stat("", &status), -1);
}

}  // namespace
