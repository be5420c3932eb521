#include "base/file.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "base/DiskFile.h"
#include "base/MemoryFile.h"
#include "base/WinDiskFile.h"
#include "base/diagnostics.h"
#include "base/memory.h"
#include "platform/debug/debug_output.h"
#include "tests/support/report_capture.h"
#include "tests/support/temp_dir.h"

namespace {

using Texts = std::vector<std::string>;

const char* const Digits = "0123456789ABCDEFGHIJ";

TEST(FileLayer, CloseWarnsOfFilesNeverUsedAndFreesTheirNames) {
    TempDir dir;
    ReportCapture reports;
    const uint32_t before = FileOpenCount();

    DiskFile disk("unused.bin", "wb");
    ASSERT_TRUE(disk.IsOpen());
    EXPECT_EQ(FileOpenCount(), before + 1);
    EXPECT_STREQ(disk.GetName(), "unused.bin");
    EXPECT_TRUE(disk.Close());
    EXPECT_EQ(disk.GetName(), nullptr);
    EXPECT_EQ(disk.GetMode(), nullptr);
    EXPECT_EQ(FileOpenCount(), before);
    EXPECT_EQ(reports.Take(), (Texts{"W: File unused.bin was opened but never used."}));

    // Read and closed with "rb": no warning. Reopening a closed object works.
    WriteWholeFile("data.bin", Digits);
    ASSERT_TRUE(disk.Open("data.bin", "rb"));
    char bytes[4];
    EXPECT_EQ(disk.Read(bytes, 4), 4u);
    EXPECT_TRUE(disk.Close());
    EXPECT_EQ(reports.Take(), Texts{});

    WinDiskFile win("unused2.bin", "wb");
    ASSERT_TRUE(win.IsOpen());
    win.Close();
    EXPECT_EQ(reports.Take(), (Texts{"W: File unused2.bin was opened but never used."}));

    // A closed object is no longer in the registry: closing again says so.
    EXPECT_FALSE(win.Close());
    EXPECT_EQ(reports.Take(), (Texts{"W: Cannot find File Pointer (null)"}));
}

TEST(FileLayer, OpeningAnOpenFileIsAnAssertionAndKeepsTheFirst) {
    TempDir dir;
    WriteWholeFile("a.bin", "aaaa");
    WriteWholeFile("b.bin", "bbbb");
    ReportCapture reports;
    DiskFile disk("a.bin", "rb");
    EXPECT_TRUE(disk.Open("b.bin", "rb"));
    WinDiskFile win("a.bin", "rb");
    EXPECT_TRUE(win.Open("b.bin", "rb", 0, 4));
    const Texts texts = reports.Take();
    ASSERT_EQ(texts.size(), 2u);
    for (const std::string& text : texts) EXPECT_EQ(text.rfind("E512: ", 0), 0u) << text;

    char byte = 0;
    EXPECT_EQ(disk.Read(&byte, 1), 1u);
    EXPECT_EQ(byte, 'a');
    EXPECT_STREQ(disk.GetName(), "a.bin");
    EXPECT_EQ(win.Read(&byte, 1), 1u);
    EXPECT_EQ(byte, 'a');
}

TEST(FileLayer, CloseReportNamesClosesAndDeletesWhatWasLeftOpen) {
    TempDir dir;
    ASSERT_EQ(FileOpenCount(), 0u) << "an earlier test left a file open";
    DebugCapture capture;
    FileCloseReport();
    EXPECT_EQ(capture.Text(), "");

    WriteWholeFile("win.bin", Digits);
    File* disk = NEW DiskFile("disk.bin", "wb");
    File* win = NEW WinDiskFile("win.bin", "rb", 2, 5);
    char* bytes = static_cast<char*>(MALLOC(3));
    std::memcpy(bytes, "abc", 3);
    File* memory = NEW MemoryFile("memory.bin", "rb", bytes, 3, true);
    disk->WriteString("written");
    char line[8];
    EXPECT_NE(win->Get(line, sizeof line), nullptr);
    EXPECT_TRUE(memory->IsOpen());
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

    capture.Clear();
    FileCloseReport();
    EXPECT_EQ(capture.Text(), "");
}

TEST(FileLayer, MisuseOfClosedFilesIsAnError) {
    ReportCapture reports;
    char buffer[8] = "x";
    DiskFile disk;
    EXPECT_EQ(disk.Read(buffer, 1), 0u);
    EXPECT_EQ(disk.Write(buffer, 1), 0u);
    EXPECT_EQ(disk.Get(buffer, 8), nullptr);
    EXPECT_EQ(disk.Seek(0, 0), 0);
    disk.Commit();
    EXPECT_TRUE(disk.IsEndOfFile());
    EXPECT_EQ(disk.GetSize(), 0u);
    EXPECT_EQ(disk.GetPosition(), 0);  // silent
    EXPECT_EQ(disk.Tell(), -1);        // silent
    disk.SetUnbuffered();              // silent
    const Texts diskTexts = {
        "E513: Cannot Read from closed file\n", "E513: Cannot Write to closed file\n",
        "E513: Cannot Get from closed file\n",  "E513: Cannot Seek on closed file\n",
        "E513: Cannot Commit to closed file\n", "E513: Cannot EOF closed file\n",
        "E513: Cannot GetSize closed file\n",
    };
    EXPECT_EQ(reports.Take(), diskTexts);

    WinDiskFile win;
    EXPECT_EQ(win.Read(buffer, 1), 0u);
    EXPECT_EQ(win.Write(buffer, 1), 0u);
    EXPECT_EQ(win.Seek(0, 0), 0);
    win.Commit();
    EXPECT_TRUE(win.IsEndOfFile());
    EXPECT_EQ(win.GetSize(), 0u);
    EXPECT_EQ(win.Tell(), -1);
    // The line reader asks for the end first, and stops there.
    EXPECT_EQ(win.Get(buffer, 8), nullptr);
    EXPECT_STREQ(buffer, "");
    EXPECT_EQ(reports.Take(),
              (Texts{"E513: Cannot Read from closed file\n", "E513: Cannot Write to closed file\n",
                     "E513: Cannot Seek on closed file\n", "E513: Cannot Commit to closed file\n",
                     "E513: Cannot EOF closed file\n", "E513: Cannot GetSize closed file\n",
                     "E513: Cannot EOF closed file\n"}));
}

TEST(DiskFile, PositionsAreTheStreamsAndTheSpanIsOnlyRecorded) {
    TempDir dir;
    ReportCapture reports;
    DiskFile out("lines.txt", "wb");
    ASSERT_TRUE(out.IsOpen());
    EXPECT_EQ(out.WriteString("hello\r\nworld\n"), 13u);
    EXPECT_EQ(out.GetBytesWritten(), 13u);
    // The descriptor's length: the bytes still in the stream's buffer do not count.
    EXPECT_EQ(out.GetSize(), 0u);
    EXPECT_EQ(out.Tell(), 13);
    out.Close();

    DiskFile in("lines.txt", "rb");
    EXPECT_EQ(in.GetSize(), 13u);
    EXPECT_EQ(in.GetSpanLength(), 13);
    char line[32];
    ASSERT_NE(in.Get(line, sizeof line), nullptr);
    EXPECT_STREQ(line, "hello\r\n");  // the stream keeps the 13
    EXPECT_EQ(in.GetBytesRead(), 7u);
    EXPECT_EQ(in.Seek(2, 10), 23);  // past the end, unlike the other forms
    EXPECT_EQ(in.Seek(2, -6), 7);
    EXPECT_EQ(in.Seek(1, -1), 6);
    EXPECT_EQ(in.Seek(0, 7), 7);
    EXPECT_FALSE(in.IsEndOfFile());
    EXPECT_EQ(in.Read(line, sizeof line), 6u);
    EXPECT_TRUE(in.IsEndOfFile());
    EXPECT_EQ(in.Read(line, 1), 0u);
    EXPECT_EQ(in.GetBytesRead(), 13u);
    EXPECT_EQ(in.GetPosition(), 13);
    in.Close();

    DiskFile span("lines.txt", "rb", 7, 3);
    EXPECT_EQ(span.GetSpanStart(), 7);
    EXPECT_EQ(span.GetSpanLength(), 3);
    EXPECT_EQ(span.Tell(), 0);
    EXPECT_EQ(span.GetSize(), 13u);
    span.SetUnbuffered();
    EXPECT_EQ(span.Read(line, 5), 5u);
    EXPECT_EQ(std::string(line, 5), "hello");
    span.Close();

    DiskFile missing("missing/none.bin", "rb");
    EXPECT_FALSE(missing.IsOpen());
    EXPECT_EQ(reports.Take(), Texts{});
}

TEST(WinDiskFile, SpanCountsFromItsStartAndEndsAtItsLength) {
    TempDir dir;
    WriteWholeFile("span.bin", Digits);
    ReportCapture reports;
    WinDiskFile file("span.bin", "rb", 5, 10);
    ASSERT_TRUE(file.IsOpen());
    EXPECT_EQ(file.Tell(), 0);
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
    EXPECT_EQ(file.GetBytesRead(), 8u);
    EXPECT_EQ(file.Seek(0, 0), 0);
    EXPECT_EQ(file.Seek(1, 4), 4);
    EXPECT_EQ(file.Seek(1, -5), -1);  // one before the span: the file's byte 4
    EXPECT_EQ(file.Tell(), -1);
    EXPECT_EQ(file.Seek(0, -6), -1);  // before the file's start: refused, position stays
    EXPECT_EQ(file.Seek(0, 1), 1);
    EXPECT_EQ(file.Seek(0, -6), -1);
    EXPECT_EQ(file.Tell(), 1);
    file.Close();

    // A span from byte 0 reports the whole file.
    ASSERT_TRUE(file.Open("span.bin", "rb", 0, 4));
    EXPECT_EQ(file.GetSize(), 20u);
    file.Close();

    // A span may start at the end, empty; one beyond it does not open.
    const uint32_t before = FileOpenCount();
    ASSERT_TRUE(file.Open("span.bin", "rb", 20, 0));
    EXPECT_TRUE(file.IsEndOfFile());
    file.Close();
    EXPECT_FALSE(file.Open("span.bin", "rb", 21, 0));
    EXPECT_FALSE(file.IsOpen());
    EXPECT_EQ(file.GetName(), nullptr);
    EXPECT_EQ(FileOpenCount(), before);
    EXPECT_EQ(reports.Take(), (Texts{"W: File span.bin was opened but never used.",
                                     "W: File span.bin was opened but never used."}));

    EXPECT_FALSE(file.Open("span.bin", "rb", -1, 4));
    EXPECT_FALSE(file.Open("span.bin", "rb", 0, -4));
    EXPECT_FALSE(file.Open("span.bin", "x"));
    const Texts texts = reports.Take();
    ASSERT_EQ(texts.size(), 3u);
    for (const std::string& text : texts) EXPECT_EQ(text.rfind("E512: ", 0), 0u) << text;
    EXPECT_EQ(FileOpenCount(), before);
}

TEST(WinDiskFile, ModesWriteCreateAndReadLines) {
    TempDir dir;
    WinDiskFile out("out.txt", "WB");
    ASSERT_TRUE(out.IsOpen());
    EXPECT_EQ(out.WriteString("one\r\ntwo\n\nlast"), 14u);
    EXPECT_EQ(out.GetSize(), 14u);  // nothing waits in a buffer
    // The end of a whole file's span is its size at open.
    EXPECT_EQ(out.Seek(2, 0), 0);
    out.Close();

    WinDiskFile append("out.txt", "a");
    EXPECT_EQ(append.GetSize(), 14u);  // not truncated
    append.Close();
    WinDiskFile created("new.txt", "A");
    EXPECT_TRUE(created.IsOpen());
    created.Close();
    WinDiskFile missing("none.txt", "r");
    EXPECT_FALSE(missing.IsOpen());

    WinDiskFile in("out.txt", "rt");
    EXPECT_EQ(in.Seek(2, 4), 10);
    in.Seek(0, 0);
    char line[16];
    ASSERT_NE(in.Get(line, sizeof line), nullptr);
    EXPECT_STREQ(line, "one\n");  // the 13 is dropped
    EXPECT_STREQ(in.Get(line, sizeof line), "two\n");
    EXPECT_STREQ(in.Get(line, sizeof line), "\n");
    EXPECT_STREQ(in.Get(line, 3), "la");  // size - 1 bytes
    EXPECT_STREQ(in.Get(line, sizeof line), "st");
    EXPECT_EQ(in.Get(line, sizeof line), nullptr);
    EXPECT_STREQ(line, "");
    in.Seek(0, 0);
    line[0] = 'x';
    EXPECT_EQ(in.Get(line, 1), nullptr);
    EXPECT_STREQ(line, "");
    EXPECT_EQ(in.Tell(), 0);
}

TEST(WinDiskFile, LineReadStopsWhereASpanClaimsMoreThanTheFile) {
    TempDir dir;
    WriteWholeFile("short.bin", Digits);
    WinDiskFile file("short.bin", "rb", 15, 100);
    ASSERT_TRUE(file.IsOpen());
    char line[200];
    ASSERT_NE(file.Get(line, sizeof line), nullptr);
    EXPECT_STREQ(line, "FGHIJ");
    EXPECT_FALSE(file.IsEndOfFile());
    EXPECT_EQ(file.Get(line, sizeof line), nullptr);
}

}  // namespace
