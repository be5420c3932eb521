#include "base/file.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "base/DiskFile.h"
#include "base/MemoryFile.h"
#include "base/WinDiskFile.h"
#include "base/memory.h"
#include "platform/debug/debug_output.h"
#include "tests/support/report_capture.h"
#include "tests/support/temp_dir.h"

namespace {

using Texts = std::vector<std::string>;

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
    ReportCapture log;
    DiskFile disk;
    WinDiskFile win;
    for (File* file : {static_cast<File*>(&disk), static_cast<File*>(&win)}) {
        char buffer[8] = "x";
        EXPECT_EQ(file->Read(buffer, 1), 0u);
        EXPECT_EQ(file->Write(buffer, 1), 0u);
        EXPECT_EQ(file->Seek(0, 0), 0);
        EXPECT_EQ(file->Get(buffer, 8), nullptr);
    }
    const std::string closed = "E513: Cannot ";
    // The line reader of a stream asks for the end first.
    EXPECT_EQ(log.Take(), (Texts{closed + "Read from closed file\n", closed + "Write to closed file\n",
                                 closed + "Seek on closed file\n", closed + "Get from closed file\n",
                                 closed + "Read from closed file\n", closed + "Write to closed file\n",
                                 closed + "Seek on closed file\n", closed + "EOF closed file\n"}));
}

TEST(FileLayer, MemoryFilesSeekFromTheirEndsAndReadLines) {
    MemoryFile file("digits", "rb", Block(Digits), 20, true);
    char bytes[32];
    EXPECT_EQ(file.Seek(2, 10), 10);  // 10 before the end
    EXPECT_EQ(std::string(bytes, file.Read(bytes, 3)), "ABC");
    EXPECT_EQ(file.Seek(0, 21), -1);  // past the size: -1, and reads deliver nothing
    EXPECT_EQ(file.Read(bytes, 5), 0u);
    EXPECT_EQ(file.Seek(1, -3), 18);
    EXPECT_EQ(std::string(bytes, file.Read(bytes, 32)), "IJ");  // cut at the size
    // Text mode drops the 13s but moves over them; lines end at line feeds, zeros or the buffer.
    MemoryFile text("text", "RT", "ab\r\ncd\r\n\r\nef\0gh", 15, false);
    EXPECT_EQ(std::string(bytes, text.Read(bytes, 10)), "ab\ncd\n\n");
    EXPECT_EQ(text.Tell(), 10);
    EXPECT_EQ(std::string(text.Get(bytes, sizeof bytes), 3), std::string("ef\0", 3));
    EXPECT_STREQ(text.Get(bytes, 2), "g");
    EXPECT_STREQ(text.Get(bytes, sizeof bytes), "h");
    EXPECT_EQ(text.Get(bytes, sizeof bytes), nullptr);
}

}  // namespace
