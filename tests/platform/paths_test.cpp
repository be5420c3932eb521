#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "platform/crt/paths.h"
#include "tests/support/temp_dir.h"

namespace {

TEST(SplitPath, TakesDirectoryNameAndExtensionWithEitherSeparator) {
    struct Case {
        const char *path, *dir, *fname, *ext;
    };
    for (const Case& c : {Case{"maps/town/test.vbf", "maps/town/", "test", ".vbf"},
                          Case{"maps\\town.v2\\test", "maps\\town.v2\\", "test", ""},
                          Case{"archive.tar.gz", "", "archive.tar", ".gz"},
                          Case{"/abs/dir/", "/abs/dir/", "", ""}}) {
        SCOPED_TRACE(c.path);
        char drive[_MAX_DRIVE], dir[_MAX_DIR], fname[_MAX_FNAME], ext[_MAX_EXT];
        _splitpath(c.path, drive, dir, fname, ext);
        EXPECT_STREQ(drive, "");
        EXPECT_STREQ(dir, c.dir);
        EXPECT_STREQ(fname, c.fname);
        EXPECT_STREQ(ext, c.ext);
    }
}

TEST(SplitPath, CutsEachPartToItsBuffer) {
    std::string path =
        std::string(400, 'd') + "/" + std::string(300, 'n') + "." + std::string(300, 'e');
    char drive[_MAX_DRIVE], dir[_MAX_DIR], fname[_MAX_FNAME], ext[_MAX_EXT];
    _splitpath(path.c_str(), drive, dir, fname, ext);
    EXPECT_EQ(std::string(dir).size(), size_t(_MAX_DIR - 1));
    EXPECT_EQ(std::string(fname).size(), size_t(_MAX_FNAME - 1));
    EXPECT_EQ(std::string(ext).size(), size_t(_MAX_EXT - 1));
    _splitpath("a/b.c", nullptr, nullptr, nullptr, nullptr);  // every output optional
}

TEST(FileOperations, CopyDeleteAndTheCurrentDirectory) {
    TempDir dir;
    WriteWholeFile(dir.File("source"), "light");
    WriteWholeFile(dir.File("target"), "old");
    EXPECT_FALSE(CopyFileA("source", "target", true));
    EXPECT_EQ(ReadWholeFile(dir.File("target")), "old");
    EXPECT_TRUE(CopyFileA("source", "target", false));
    EXPECT_EQ(ReadWholeFile(dir.File("target")), "light");
    EXPECT_FALSE(CopyFileA("missing", "other", false));
    EXPECT_FALSE(std::filesystem::exists(dir.File("other")));
    EXPECT_TRUE(DeleteFileA("target"));
    EXPECT_FALSE(DeleteFileA("target"));

    std::filesystem::create_directory(dir.File("sub"));
    ASSERT_EQ(_chdir("sub"), 0);
    char here[_MAX_PATH], tiny[2];
    ASSERT_NE(_getcwd(here, sizeof here), nullptr);
    EXPECT_EQ(std::filesystem::path(here).filename(), "sub");
    EXPECT_EQ(_chdir("no-such-directory"), -1);
    EXPECT_EQ(_getcwd(tiny, sizeof tiny), nullptr);
}

}  // namespace
