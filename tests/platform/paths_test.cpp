#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "platform/crt/paths.h"
#include "tests/support/temp_dir.h"

namespace {
struct Split {
    char drive[_MAX_DRIVE], dir[_MAX_DIR], fname[_MAX_FNAME], ext[_MAX_EXT];
    explicit Split(const char* path) { _splitpath(path, drive, dir, fname, ext); }
};
}  // namespace

TEST(SplitPath, TakesDirectoryNameAndExtensionWithEitherSeparator) {
    Split a("maps/town/test.vbf");
    EXPECT_STREQ(a.drive, "");
    EXPECT_STREQ(a.dir, "maps/town/");
    EXPECT_STREQ(a.fname, "test");
    EXPECT_STREQ(a.ext, ".vbf");

    Split b("maps\\town.v2\\test");  // a dot in the directory is not the extension
    EXPECT_STREQ(b.dir, "maps\\town.v2\\");
    EXPECT_STREQ(b.fname, "test");
    EXPECT_STREQ(b.ext, "");

    Split c("archive.tar.gz");  // the last dot makes the extension
    EXPECT_STREQ(c.dir, "");
    EXPECT_STREQ(c.fname, "archive.tar");
    EXPECT_STREQ(c.ext, ".gz");

    Split d("/abs/dir/");
    EXPECT_STREQ(d.dir, "/abs/dir/");
    EXPECT_STREQ(d.fname, "");
}

TEST(SplitPath, CutsEachPartToItsBuffer) {
    std::string longDir(400, 'd');
    std::string path = longDir + "/" + std::string(300, 'n') + "." + std::string(300, 'e');
    Split s(path.c_str());
    EXPECT_EQ(std::string(s.dir).size(), size_t(_MAX_DIR - 1));
    EXPECT_EQ(std::string(s.fname).size(), size_t(_MAX_FNAME - 1));
    EXPECT_EQ(std::string(s.ext).size(), size_t(_MAX_EXT - 1));
    _splitpath("a/b.c", nullptr, nullptr, nullptr, nullptr);  // every output optional
}

TEST(FileOperations, CopyOverwritesUnlessToldNotToAndDeleteRemoves) {
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
}

TEST(FileOperations, ChangeAndReadTheCurrentDirectory) {
    TempDir dir;
    std::filesystem::create_directory(dir.File("sub"));
    ASSERT_EQ(_chdir("sub"), 0);
    char here[_MAX_PATH];
    ASSERT_NE(_getcwd(here, sizeof here), nullptr);
    EXPECT_EQ(std::filesystem::path(here).filename(), "sub");
    EXPECT_EQ(_chdir("no-such-directory"), -1);
    char tiny[2];
    EXPECT_EQ(_getcwd(tiny, sizeof tiny), nullptr);
}
