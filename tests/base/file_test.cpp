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

// A heap block the file may own, so the sanitizer sees a read past it and a block not freed.
char* Block(const std::string& bytes) {
    char* block = static_cast<char*>(MALLOC(bytes.size() + 1));
    std::memcpy(block, bytes.data(), bytes.size());
    return block;
}

TEST(FileLayer, UnusedFilesAreNamedAndTheCloseReportClosesWhatWasLeftOpen) {
    TempDir dir;
    WriteWholeFile("win.bin", Digits);
    {
        ReportLog log;
        EXPECT_TRUE(DiskFile("unused.bin", "wb").Close());
        EXPECT_EQ(log.Take(), Texts{"W: File unused.bin was opened but never used."});
    }
    ASSERT_EQ(FileOpenCount(), 0u) << "an earlier test left a file open";
    DebugCapture capture;
    File* disk = NEW DiskFile("disk.bin", "wb");
    File* win = NEW WinDiskFile("win.bin", "rb", 2, 5);
    NEW MemoryFile("memory.bin", "rb", Block("abc"), 3, true);
    disk->WriteString("written");
    char line[8];
    EXPECT_NE(win->Get(line, sizeof line), nullptr);
    ASSERT_EQ(FileOpenCount(), 3u);
    FileCloseReport();
    // Newest first; each close says what the file saw.
    EXPECT_EQ(capture.Text(),
              "DEBUG: \nFILES LEFT OPEN\n\n\nWARNING: Failed to close file memory.bin\n\n"
              "WARNING: File memory.bin was opened but never used.\nWARNING: Failed to close file win.bin\n\n"
              "WARNING: Failed to close file disk.bin\n\nDEBUG: \nEND\n\n\n");
    EXPECT_EQ(FileOpenCount(), 0u);
    EXPECT_EQ(ReadWholeFile("disk.bin"), "written");  // closed, so flushed
}

TEST(FileLayer, ClosedFilesRefuseEveryCall) {
    ReportLog log;
    DiskFile disk;
    WinDiskFile win;
    for (File* file : {static_cast<File*>(&disk), static_cast<File*>(&win)}) {
        char buffer[8] = "x";
        EXPECT_EQ(file->Read(buffer, 1), 0u);
        EXPECT_EQ(file->Write(buffer, 1), 0u);
        EXPECT_EQ(file->Seek(0, 0), 0);
        EXPECT_TRUE(file->IsEndOfFile());
        EXPECT_EQ(file->GetSize(), 0u);
        EXPECT_EQ(file->Get(buffer, 8), nullptr);
    }
    const Texts common = {"E513: Cannot Read from closed file\n", "E513: Cannot Write to closed file\n",
                          "E513: Cannot Seek on closed file\n", "E513: Cannot EOF closed file\n",
                          "E513: Cannot GetSize closed file\n"};
    Texts expected = common;
    expected.push_back("E513: Cannot Get from closed file\n");
    expected.insert(expected.end(), common.begin(), common.end());
    expected.push_back("E513: Cannot EOF closed file\n");  // the line reader asks for the end
    EXPECT_EQ(log.Take(), expected);
}

TEST(FileLayer, DiskFilesSeekInEveryFormAndSpansCountFromTheirStart) {
    TempDir dir;
    WriteWholeFile("span.bin", Digits);
    ReportLog log;
    DiskFile out("lines.txt", "wb");
    EXPECT_EQ(out.WriteString("hello\r\nworld\n"), 13u);
    out.Close();
    DiskFile in("lines.txt", "rb");
    char line[32];
    EXPECT_STREQ(in.Get(line, sizeof line), "hello\r\n");  // the stream keeps the 13
    EXPECT_EQ(in.Seek(2, 10), 23);                         // past the end, unlike the other forms
    EXPECT_EQ(in.Seek(2, -6), 7);
    EXPECT_EQ(in.Seek(1, -1), 6);
    EXPECT_EQ(in.Seek(0, 7), 7);
    EXPECT_EQ(in.Read(line, sizeof line), 6u);
    EXPECT_TRUE(in.IsEndOfFile());

    WinDiskFile file("span.bin", "rb", 5, 10);
    EXPECT_EQ(file.GetSize(), 10u);
    EXPECT_EQ(std::string(line, file.Read(line, 3)), "567");
    EXPECT_EQ(file.Seek(2, 2), 8);  // 2 before the span's end
    EXPECT_EQ(std::string(line, file.Read(line, 2)), "DE");
    EXPECT_TRUE(file.IsEndOfFile());
    EXPECT_EQ(std::string(line, file.Read(line, 3)), "FGH");  // the span bounds only the end's test
    EXPECT_EQ(file.Seek(1, -14), -1);                         // one before the span: the file's byte 4
    EXPECT_EQ(file.Seek(0, 1), 1);
    EXPECT_EQ(file.Seek(0, -6), -1);  // before the file's start: refused, position stays
    EXPECT_EQ(file.Tell(), 1);
    file.Close();
    ASSERT_TRUE(file.Open("span.bin", "rb", 0, 4));
    EXPECT_EQ(file.GetSize(), 20u);  // a span from byte 0 reports the whole file
    file.Close();
    ASSERT_TRUE(file.Open("span.bin", "rb", 20, 0));  // at the end, empty, but not beyond
    file.Close();
    EXPECT_FALSE(file.Open("span.bin", "rb", 21, 0));
    EXPECT_EQ(log.Take().size(), 2u);  // the two opened but never used
    EXPECT_FALSE(file.Open("span.bin", "rb", -1, 4) || file.Open("span.bin", "rb", 0, -4) ||
                 file.Open("span.bin", "x"));
    EXPECT_EQ(log.Take().size(), 3u);                   // assertions
    ASSERT_TRUE(file.Open("span.bin", "rb", 15, 100));  // a line read stops at the file's end
    EXPECT_STREQ(file.Get(line, sizeof line), "FGHIJ");
    EXPECT_EQ(file.Get(line, sizeof line), nullptr);
    file.Close();

    WinDiskFile text("lines.txt", "rt");
    EXPECT_EQ(text.Get(line, 1), nullptr);                 // no room for a byte
    EXPECT_STREQ(text.Get(line, sizeof line), "hello\n");  // the 13 is dropped
    EXPECT_STREQ(text.Get(line, 3), "wo");                 // size - 1 bytes
    EXPECT_TRUE(WinDiskFile("new.txt", "A").IsOpen());
    EXPECT_FALSE(WinDiskFile("none.txt", "r").IsOpen());
}

TEST(FileLayer, MemoryFilesSeekReadLinesAndFreeWhatTheyOwn) {
    ReportLog log;
    MemoryFile file("digits", "rb", Block(Digits), 20, true);
    char bytes[32];
    EXPECT_EQ(file.Seek(2, 10), 10);  // 10 before the end
    EXPECT_EQ(std::string(bytes, file.Read(bytes, 3)), "ABC");
    EXPECT_EQ(file.Seek(1, -13), 0);
    EXPECT_EQ(file.Seek(0, 21), -1);  // past the size: -1, and reads deliver nothing
    EXPECT_EQ(file.Read(bytes, 5), 0u);
    EXPECT_EQ(file.Seek(1, -1), 20);
    EXPECT_EQ(file.Seek(0, -1), -1);  // before the start wraps beyond the size
    EXPECT_EQ(file.Seek(0, 18), 18);
    EXPECT_EQ(std::string(bytes, file.Read(bytes, 32)), "IJ");  // cut at the size
    EXPECT_EQ(file.Write("x", 1), 0u);                          // read-only
    EXPECT_EQ(log.Take().at(0).rfind("E512: Assertion Failed", 0), 0u);
    EXPECT_TRUE(file.Close());
    EXPECT_EQ(file.Read(bytes, 4), 0u);  // closed: simply at its end, and the owned block freed

    // Text mode drops the 13s but moves over them, in either case; a mode of one letter is binary.
    const std::string text = "ab\r\ncd\r\n\r\nef";
    MemoryFile textMode("text", "RT", text.data(), 12, false);
    EXPECT_EQ(std::string(bytes, textMode.Read(bytes, 10)), "ab\ncd\n\n");
    EXPECT_EQ(textMode.Tell(), 10);
    EXPECT_EQ(MemoryFile("binary", "r", text.data(), 12, false).Read(bytes, 3), 3u);
    EXPECT_STREQ(MemoryFile("cr", "rt", "\r\r\rx", 4, false).Get(bytes, sizeof bytes), "x");
    // Lines end at line feeds, zeros or the buffer.
    MemoryFile lines("lines", "rb", "one\r\ntwo\0three\nfour", 19, false);
    EXPECT_STREQ(lines.Get(bytes, sizeof bytes), "one\n");
    EXPECT_EQ(std::string(lines.Get(bytes, sizeof bytes), 4), std::string("two\0", 4));
    EXPECT_STREQ(lines.Get(bytes, 4), "thr");
    EXPECT_STREQ(lines.Get(bytes, sizeof bytes), "ee\n");
    EXPECT_STREQ(lines.Get(bytes, sizeof bytes), "four");
    EXPECT_EQ(lines.Get(bytes, sizeof bytes), nullptr);

    MemoryFile written("w.bin", "wb", text.data(), 4, false);
    written.Read(bytes, 1);
    written.Close();
    EXPECT_FALSE(written.Open("empty", "rb", Block(""), 0, true));  // size 0 opens nothing
    EXPECT_EQ(log.Take(), (Texts{"W: File w.bin closed without writing.  Open for read only"}));
}

}  // namespace
