#include "tool/bake/atomic_write.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "tests/support/temp_dir.h"

TEST(AtomicWrite, ReplacesAFileOnlyWithAWholeOne) {
    TempDir dir;
    WriteWholeFile(dir.File("out.dat"), "good");
    ASSERT_TRUE(WriteFileAtomically("out.dat", "better", 6));
    EXPECT_EQ(ReadWholeFile(dir.File("out.dat")), "better");
    {
        ReplacingFile file("out.dat");
        ASSERT_NE(file.Stream(), nullptr);
        std::fputs("torn", file.Stream());
        EXPECT_FALSE(file.Commit(false));  // a failed write keeps the old file
    }
    {
        ReplacingFile file("out.dat");
        std::fputs("abandoned", file.Stream());  // destroyed without a commit
    }
    EXPECT_EQ(ReadWholeFile(dir.File("out.dat")), "better");
    EXPECT_FALSE(std::filesystem::exists(dir.File("out.dat.partial")));

    // Failing cleanly where nothing can be written; a device is written in place.
    EXPECT_FALSE(WriteFileAtomically("no-such-dir/out.dat", "x", 1));
    std::filesystem::create_directory(dir.File("taken"));
    EXPECT_FALSE(WriteFileAtomically("taken", "x", 1));  // a directory stands there
    EXPECT_TRUE(std::filesystem::is_directory(dir.File("taken")));
    ASSERT_TRUE(WriteFileAtomically("/dev/null", "x", 1));
    EXPECT_TRUE(std::filesystem::is_character_file("/dev/null"));
}
