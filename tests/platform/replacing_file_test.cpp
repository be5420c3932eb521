#include "platform/crt/replacing_file.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/temp_dir.h"

namespace fs = std::filesystem;

namespace {

std::vector<std::string> Listing(const std::string& folder) {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(folder))
        names.push_back(entry.path().filename().string());
    return names;
}

TEST(ReplacingFile, ReplacesAFileOnlyWithAWholeOne) {
    TempDir dir;
    WriteWholeFile(dir.File("out.dat"), "good");
    ASSERT_TRUE(WriteFileAtomically("out.dat", "better", 6));
    for (bool commit : {true, false}) {  // a failed write, or none committed, keeps the old file
        ReplacingFile file("out.dat");
        ASSERT_NE(file.Stream(), nullptr);
        std::fputs("torn", file.Stream());
        EXPECT_FALSE(commit && file.Commit(false));
    }
    EXPECT_EQ(ReadWholeFile(dir.File("out.dat")), "better");
    EXPECT_EQ(Listing(dir.Path()), std::vector<std::string>{"out.dat"});

    // Failing cleanly where nothing can be written; a device is written in place.
    ReplacingFile nowhere("no-such-dir/out.dat");
    EXPECT_EQ(nowhere.Stream(), nullptr);
    EXPECT_FALSE(nowhere.Commit(true));
    fs::create_directory(dir.File("taken"));
    EXPECT_FALSE(WriteFileAtomically("taken", "x", 1));
    EXPECT_TRUE(fs::is_directory(dir.File("taken")));
    EXPECT_TRUE(WriteFileAtomically("/dev/null", "x", 1));
    EXPECT_FALSE(WriteFileAtomically("/dev/full", "x", 1));  // a device's failure still counts
    // A name at the file system's limit still gets a temporary file of its own.
    const std::string longest(255, 'n');
    ASSERT_TRUE(WriteFileAtomically(longest.c_str(), "long", 4));
    EXPECT_EQ(ReadWholeFile(dir.File(longest)), "long");
}

// A replaced file keeps its permissions, without set-id bits; a hard stop's clean-up removes the
// temporaries still being written, and only those.
TEST(ReplacingFile, KeepsTheModeOfWhatItReplacesAndCleansUpOnAHardStop) {
    TempDir dir;
    for (auto [before, after] : {std::pair{0444, 0444}, {0640, 0640}, {04755, 0755}}) {
        WriteWholeFile(dir.File("out.dat"), "old");
        fs::permissions(dir.File("out.dat"), fs::perms(before));
        ASSERT_TRUE(WriteFileAtomically("out.dat", "new", 3));
        EXPECT_EQ(int(fs::status(dir.File("out.dat")).permissions()), after) << before;
        fs::permissions(dir.File("out.dat"), fs::perms(0644));
    }
    ReplacingFile done("done.dat"), pending("pending.dat");
    ASSERT_TRUE(done.Commit(true));
    RemovePartialFilesNow();
    EXPECT_EQ(Listing(dir.Path()).size(), 2u);  // out.dat and done.dat
    EXPECT_FALSE(pending.Commit(true));
}

// Links planted at the temporary name and at the target: what they point to stays as it was, and
// the target ends a plain file with the new bytes.
TEST(ReplacingFile, NeverWritesThroughALink) {
    struct Row {
        bool atTemporary, atTarget, dangling;
    };
    for (const Row& r : {Row{true, false, false}, Row{true, true, false}, Row{false, true, true}}) {
        SCOPED_TRACE(std::to_string(r.atTemporary) + std::to_string(r.atTarget));
        TempDir dir;
        const std::string victim = dir.File("victim");
        if (!r.dangling) WriteWholeFile(victim, "precious");
        if (r.atTemporary) fs::create_symlink(victim, dir.File("out.dat.partial"));
        if (r.atTarget) fs::create_symlink(victim, dir.File("out.dat"));
        ASSERT_TRUE(WriteFileAtomically("out.dat", "new", 3));
        EXPECT_EQ(ReadWholeFile(victim), r.dangling ? "" : "precious");
        EXPECT_EQ(fs::exists(victim), !r.dangling);
        EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(dir.File("out.dat"))));
        EXPECT_EQ(ReadWholeFile(dir.File("out.dat")), "new");
    }
}

TEST(OpenFileNoFollow, OpensAsFopenDoesButNeverThroughALink) {
    TempDir dir;
    fs::create_symlink(dir.File("victim"), dir.File("link"));
    struct Row {
        const char *mode, *after;  // the file held "old" before
    };
    for (const Row& r : {Row{"wb", "new"}, Row{"ab", "oldnew"}, Row{"w+", "new"},
                         Row{"a+", "oldnew"}, Row{"r+", "new"}}) {
        SCOPED_TRACE(r.mode);
        WriteWholeFile(dir.File("victim"), "old");
        EXPECT_EQ(OpenFileNoFollow("link", r.mode), nullptr);
        EXPECT_EQ(ReadWholeFile(dir.File("victim")), "old");
        WriteWholeFile(dir.File("plain"), "old");
        FILE* file = OpenFileNoFollow("plain", r.mode);
        ASSERT_NE(file, nullptr);
        std::fputs("new", file);
        std::fclose(file);
        EXPECT_EQ(ReadWholeFile(dir.File("plain")), r.after);
    }
}

// Two writers of one file: each round both succeed, the file is wholly one of theirs, and no
// temporary file is left behind.
TEST(ReplacingFile, RacingWritersEachReplaceTheWholeFile) {
    TempDir dir;
    const std::string contents[2] = {std::string(3 << 20, 'a'), std::string(3 << 20, 'b')};
    for (int round = 0; round < 20; ++round) {
        bool written[2] = {};
        std::thread writers[2];
        for (int w = 0; w < 2; ++w)
            writers[w] = std::thread([&, w] {
                written[w] = WriteFileAtomically("out.dat", contents[w].data(), contents[w].size());
            });
        for (std::thread& writer : writers) writer.join();
        ASSERT_TRUE(written[0] && written[1]) << "round " << round;
        const std::string result = ReadWholeFile(dir.File("out.dat"));
        ASSERT_TRUE(result == contents[0] || result == contents[1]) << "round " << round;
    }
    EXPECT_EQ(Listing(dir.Path()), std::vector<std::string>{"out.dat"});
}

}  // namespace
