#include "base/file.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "base/DiskFile.h"
#include "base/MemoryFile.h"
#include "base/WinDiskFile.h"
#include "base/memory.h"
#include "platform/debug/debug_output.h"
#include "tests/base/report_log.h"
#include "tests/support/temp_dir.h"

namespace {

const char* const Digits = "0123456789ABCDEFGHIJ";

void ExpectAllAssertions(ReportLog& log, size_t count) {
    const Texts texts = log.Take();
    EXPECT_EQ(texts.size(), count);
    for (const std::string& text : texts) EXPECT_EQ(text.rfind("E512: ", 0), 0u) << text;
}

TEST(FileLayer, CloseWarnsOfFilesNeverUsedAndLeavesTheRegistry) {
    TempDir dir;
    WriteWholeFile("data.bin", Digits);
    ReportLog log;
    const uint32_t before = FileOpenCount();
    DiskFile disk("unused.bin", "wb");
    WinDiskFile win("unused2.bin", "wb");
    EXPECT_EQ(FileOpenCount(), before + 2);
    EXPECT_TRUE(disk.Close());
    EXPECT_TRUE(win.Close());
    EXPECT_EQ(FileOpenCount(), before);
    EXPECT_EQ(log.Take(), (Texts{"W: File unused.bin was opened but never used.",
                                 "W: File unused2.bin was opened but never used."}));

    // Read and closed with "rb": no warning. A closed object opens again.
    ASSERT_TRUE(disk.Open("data.bin", "rb"));
    char bytes[4];
    EXPECT_EQ(disk.Read(bytes, 4), 4u);
    EXPECT_TRUE(disk.Close());
    EXPECT_FALSE(win.Close());
    EXPECT_EQ(log.Take(), (Texts{"W: Cannot find File Pointer (null)"}));

    // Opening an open file is an assertion and keeps the first.
    WriteWholeFile("b.bin", "bbbb");
    ASSERT_TRUE(disk.Open("data.bin", "rb"));
    ASSERT_TRUE(win.Open("data.bin", "rb"));
    EXPECT_TRUE(disk.Open("b.bin", "rb"));
    EXPECT_TRUE(win.Open("b.bin", "rb", 0, 4));
    ExpectAllAssertions(log, 2);
    EXPECT_EQ(disk.Read(bytes, 1) + win.Read(bytes + 1, 1), 2u);
    EXPECT_EQ(std::string(bytes, 2), "00");
}

TEST(FileLayer, CloseReportNamesClosesAndDeletesWhatWasLeftOpen) {
    TempDir dir;
    ASSERT_EQ(FileOpenCount(), 0u) << "an earlier test left a file open";
    DebugCapture capture;
    FileCloseReport();  // nothing open: prints nothing
    WriteWholeFile("win.bin", Digits);
    File* disk = NEW DiskFile("disk.bin", "wb");
    File* win = NEW WinDiskFile("win.bin", "rb", 2, 5);
    char* bytes = static_cast<char*>(MALLOC(3));
    std::memcpy(bytes, "abc", 3);
    NEW MemoryFile("memory.bin", "rb", bytes, 3, true);
    disk->WriteString("written");
    char line[8];
    EXPECT_NE(win->Get(line, sizeof line), nullptr);
    ASSERT_EQ(FileOpenCount(), 3u);

    FileCloseReport();
    // Newest first; each close says what the file saw.
    EXPECT_EQ(capture.Text(),
              "DEBUG: \nFILES LEFT OPEN\n\n\n"
              "WARNING: Failed to close file memory.bin\n\n"
              "WARNING: File memory.bin was opened but never used.\n"
              "WARNING: Failed to close file win.bin\n\n"
              "WARNING: Failed to close file disk.bin\n\n"
              "DEBUG: \nEND\n\n\n");
    EXPECT_EQ(FileOpenCount(), 0u);
    EXPECT_EQ(ReadWholeFile("disk.bin"), "written");  // closed, so flushed
}

TEST(FileLayer, MisuseOfClosedFilesIsAnError) {
    ReportLog log;
    DiskFile disk;
    WinDiskFile win;
    for (File* file : {static_cast<File*>(&disk), static_cast<File*>(&win)}) {
        char buffer[8] = "x";
        EXPECT_EQ(file->Read(buffer, 1), 0u);
        EXPECT_EQ(file->Write(buffer, 1), 0u);
        EXPECT_EQ(file->Seek(0, 0), 0);
        file->Commit();
        EXPECT_TRUE(file->IsEndOfFile());
        EXPECT_EQ(file->GetSize(), 0u);
        EXPECT_EQ(file->Tell(), -1);  // silent
        EXPECT_EQ(file->Get(buffer, 8), nullptr);
        if (file == &win) {
            EXPECT_STREQ(buffer, "");  // the stream's reader leaves it alone
        }
    }
    EXPECT_EQ(disk.GetPosition(), 0);  // silent
    disk.SetUnbuffered();              // silent
    const Texts common = {
        "E513: Cannot Read from closed file\n", "E513: Cannot Write to closed file\n",
        "E513: Cannot Seek on closed file\n",   "E513: Cannot Commit to closed file\n",
        "E513: Cannot EOF closed file\n",       "E513: Cannot GetSize closed file\n"};
    Texts expected = common;
    expected.push_back("E513: Cannot Get from closed file\n");
    expected.insert(expected.end(), common.begin(), common.end());
    expected.push_back("E513: Cannot EOF closed file\n");  // the line reader asks for the end
    EXPECT_EQ(log.Take(), expected);
}

TEST(DiskFile, PositionsAreTheStreamsAndTheSpanIsOnlyRecorded) {
    TempDir dir;
    ReportLog log;
    DiskFile out("lines.txt", "wb");
    EXPECT_EQ(out.WriteString("hello\r\nworld\n"), 13u);
    // The descriptor's length: the bytes still in the stream's buffer do not count.
    EXPECT_EQ(out.GetSize(), 0u);
    EXPECT_EQ(out.Tell(), 13);
    out.Close();

    DiskFile in("lines.txt", "rb");
    char line[32];
    ASSERT_NE(in.Get(line, sizeof line), nullptr);
    EXPECT_STREQ(line, "hello\r\n");  // the stream keeps the 13
    EXPECT_EQ(in.Seek(2, 10), 23);    // past the end, unlike the other forms
    EXPECT_EQ(in.Seek(2, -6), 7);
    EXPECT_EQ(in.Seek(1, -1), 6);
    EXPECT_EQ(in.Seek(0, 7), 7);
    EXPECT_EQ(in.Read(line, sizeof line), 6u);
    EXPECT_TRUE(in.IsEndOfFile());
    EXPECT_EQ(in.GetBytesRead(), 13u);
    in.Close();

    DiskFile span("lines.txt", "rb", 7, 3);
    EXPECT_EQ(span.Tell(), 0);
    EXPECT_EQ(span.GetSize(), 13u);
    EXPECT_EQ(span.Read(line, 5), 5u);
    EXPECT_EQ(std::string(line, 5), "hello");
    span.Close();

    DiskFile missing("missing/none.bin", "rb");
    EXPECT_FALSE(missing.IsOpen());
    EXPECT_EQ(log.Take(), Texts{});
}

TEST(WinDiskFile, SpanCountsFromItsStartAndEndsAtItsLength) {
    TempDir dir;
    WriteWholeFile("span.bin", Digits);
    ReportLog log;
    WinDiskFile file("span.bin", "rb", 5, 10);
    ASSERT_TRUE(file.IsOpen());
    EXPECT_EQ(file.GetSize(), 10u);
    char bytes[8] = {};
    EXPECT_EQ(file.Read(bytes, 3), 3u);
    EXPECT_EQ(std::string(bytes, 3), "567");
    EXPECT_EQ(file.Seek(2, 2), 8);  // 2 before the span's end
    EXPECT_EQ(file.Read(bytes, 2), 2u);
    EXPECT_EQ(std::string(bytes, 2), "DE");
    EXPECT_TRUE(file.IsEndOfFile());
    // The span bounds only what IsEndOfFile says; a read goes on past it.
    EXPECT_EQ(file.Read(bytes, 3), 3u);
    EXPECT_EQ(std::string(bytes, 3), "FGH");
    EXPECT_EQ(file.Seek(1, -14), -1);  // one before the span: the file's byte 4
    EXPECT_EQ(file.Seek(0, 1), 1);
    EXPECT_EQ(file.Seek(0, -6), -1);  // before the file's start: refused, position stays
    EXPECT_EQ(file.Tell(), 1);
    file.Close();

    // A span from byte 0 reports the whole file; one may start at the end, empty, but not
    // beyond it.
    const uint32_t before = FileOpenCount();
    ASSERT_TRUE(file.Open("span.bin", "rb", 0, 4));
    EXPECT_EQ(file.GetSize(), 20u);
    file.Close();
    ASSERT_TRUE(file.Open("span.bin", "rb", 20, 0));
    EXPECT_TRUE(file.IsEndOfFile());
    file.Close();
    EXPECT_FALSE(file.Open("span.bin", "rb", 21, 0));
    EXPECT_EQ(file.GetName(), nullptr);
    EXPECT_EQ(log.Take(), (Texts{"W: File span.bin was opened but never used.",
                                 "W: File span.bin was opened but never used."}));
    EXPECT_FALSE(file.Open("span.bin", "rb", -1, 4));
    EXPECT_FALSE(file.Open("span.bin", "rb", 0, -4));
    EXPECT_FALSE(file.Open("span.bin", "x"));
    ExpectAllAssertions(log, 3);
    EXPECT_EQ(FileOpenCount(), before);

    // A span that claims more than the file: the line read stops at the file's end.
    ASSERT_TRUE(file.Open("span.bin", "rb", 15, 100));
    char line[200];
    EXPECT_STREQ(file.Get(line, sizeof line), "FGHIJ");
    EXPECT_FALSE(file.IsEndOfFile());
    EXPECT_EQ(file.Get(line, sizeof line), nullptr);
}

TEST(WinDiskFile, ModesWriteCreateAndReadLines) {
    TempDir dir;
    WinDiskFile out("out.txt", "WB");
    EXPECT_EQ(out.WriteString("one\r\ntwo\n\nlast"), 14u);
    EXPECT_EQ(out.GetSize(), 14u);  // nothing waits in a buffer
    EXPECT_EQ(out.Seek(2, 0), 0);   // the end of a whole file's span is its size at open
    out.Close();

    WinDiskFile append("out.txt", "a");
    EXPECT_EQ(append.GetSize(), 14u);  // not truncated
    append.Close();
    EXPECT_TRUE(WinDiskFile("new.txt", "A").IsOpen());
    EXPECT_FALSE(WinDiskFile("none.txt", "r").IsOpen());

    WinDiskFile in("out.txt", "rt");
    char line[16] = "x";
    EXPECT_EQ(in.Get(line, 1), nullptr);  // no room for a byte
    EXPECT_STREQ(line, "");
    EXPECT_EQ(in.Tell(), 0);
    EXPECT_STREQ(in.Get(line, sizeof line), "one\n");  // the 13 is dropped
    EXPECT_EQ(in.Seek(2, 4), 10);
    EXPECT_STREQ(in.Get(line, 3), "la");  // size - 1 bytes
    EXPECT_STREQ(in.Get(line, sizeof line), "st");
    EXPECT_EQ(in.Get(line, sizeof line), nullptr);
    EXPECT_STREQ(line, "");
}

}  // namespace
