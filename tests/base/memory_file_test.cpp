#include "base/MemoryFile.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "base/diagnostics.h"
#include "base/memory.h"
#include "platform/debug/debug_output.h"
#include "tests/support/report_capture.h"

namespace {

using Texts = std::vector<std::string>;

// A heap block the file may own, so the sanitizer sees a read past it and a block not freed.
char* Block(const std::string& bytes) {
    char* block = static_cast<char*>(MALLOC(bytes.size() ? bytes.size() : 1));
    std::memcpy(block, bytes.data(), bytes.size());
    return block;
}

TEST(MemoryFile, SeeksCountFromTheEndAndPastTheSizeGiveMinusOne) {
    ReportCapture reports;
    const std::string text = "0123456789ABCDEFGHIJ";
    MemoryFile file("digits", "rb", Block(text), 20, true);
    ASSERT_TRUE(file.IsOpen());
    EXPECT_EQ(file.GetSize(), 20u);
    EXPECT_EQ(file.Seek(2, 10), 10);  // 10 before the end
    char bytes[32];
    EXPECT_EQ(file.Read(bytes, 3), 3u);
    EXPECT_EQ(std::string(bytes, 3), "ABC");
    EXPECT_EQ(file.Seek(1, -13), 0);
    EXPECT_EQ(file.Seek(2, 0), 20);
    EXPECT_TRUE(file.IsEndOfFile());
    EXPECT_EQ(file.Read(bytes, 1), 0u);

    // Past the size: -1, the position stays out there, and reads deliver nothing.
    EXPECT_EQ(file.Seek(0, 21), -1);
    EXPECT_TRUE(file.IsEndOfFile());
    EXPECT_EQ(file.Read(bytes, 5), 0u);
    EXPECT_EQ(file.Tell(), -1);
    EXPECT_EQ(file.Seek(1, -1), 20);
    EXPECT_EQ(file.Seek(0, -1), -1);  // before the start wraps beyond the size
    EXPECT_EQ(file.Read(bytes, 5), 0u);
    EXPECT_EQ(file.Seek(0, 18), 18);
    EXPECT_EQ(file.Read(bytes, 32), 2u);  // cut at the size
    EXPECT_EQ(std::string(bytes, 2), "IJ");
    EXPECT_EQ(file.GetBytesRead(), 5u);

    EXPECT_EQ(file.Seek(3, 0), -1);
    EXPECT_EQ(file.Write("x", 1), 0u);  // read-only
    const Texts texts = reports.Take();
    ASSERT_EQ(texts.size(), 2u);
    for (const std::string& t : texts) EXPECT_EQ(t.rfind("E512: ", 0), 0u) << t;
}

TEST(MemoryFile, TextModeDropsCarriageReturnsButMovesOverThem) {
    const std::string text = "ab\r\ncd\r\n\r\nef";
    MemoryFile file("text", "rt", text.data(), uint32_t(text.size()), false);
    char bytes[16];
    EXPECT_EQ(file.Read(bytes, 10), 7u);
    EXPECT_EQ(std::string(bytes, 7), "ab\ncd\n\n");
    EXPECT_EQ(file.Tell(), 10);
    EXPECT_EQ(file.GetBytesRead(), 10u);
    EXPECT_EQ(file.Read(bytes, 10), 2u);
    EXPECT_EQ(std::string(bytes, 2), "ef");

    // Either case; a mode of one letter is binary.
    MemoryFile upper("upper", "RT", text.data(), uint32_t(text.size()), false);
    EXPECT_EQ(upper.Read(bytes, 3), 2u);
    MemoryFile binary("binary", "r", text.data(), uint32_t(text.size()), false);
    EXPECT_EQ(binary.Read(bytes, 3), 3u);
    EXPECT_EQ(std::string(bytes, 3), "ab\r");
}

TEST(MemoryFile, LinesEndAtLineFeedsZerosOrTheBuffer) {
    const std::string text = std::string("one\r\ntwo\0three\nfour", 19);
    MemoryFile file("lines", "rb", text.data(), uint32_t(text.size()), false);
    char line[8];
    EXPECT_STREQ(file.Get(line, sizeof line), "one\n");
    ASSERT_NE(file.Get(line, sizeof line), nullptr);
    EXPECT_EQ(std::string(line, 4), std::string("two\0", 4));
    EXPECT_STREQ(file.Get(line, 4), "thr");
    EXPECT_STREQ(file.Get(line, sizeof line), "ee\n");
    EXPECT_STREQ(file.Get(line, sizeof line), "four");
    EXPECT_EQ(file.Get(line, sizeof line), nullptr);
    EXPECT_STREQ(line, "");

    file.Seek(0, 0);
    line[0] = 'x';
    EXPECT_EQ(file.Get(line, 1), nullptr);
    EXPECT_STREQ(line, "");
    EXPECT_EQ(file.Tell(), 0);

    // In text mode a line made only of a 13 gives what follows it.
    const std::string crs = "\r\r\rx";
    MemoryFile text13("cr", "rt", crs.data(), 4, false);
    EXPECT_STREQ(text13.Get(line, sizeof line), "x");
}

TEST(MemoryFile, ClosingFreesOnlyOwnedDataAndLeavesAClosedFile) {
    ReportCapture reports;
    const uint32_t before = FileOpenCount();
    const std::string text = "borrowed bytes";
    MemoryFile borrowed("borrowed", "rb", text.data(), uint32_t(text.size()), false);
    EXPECT_EQ(FileOpenCount(), before + 1);
    char bytes[4];
    borrowed.Read(bytes, 4);
    EXPECT_TRUE(borrowed.Close());
    EXPECT_EQ(text, "borrowed bytes");
    EXPECT_FALSE(borrowed.IsOpen());
    EXPECT_TRUE(borrowed.IsEndOfFile());
    EXPECT_EQ(borrowed.GetData(), nullptr);
    EXPECT_EQ(borrowed.GetSize(), 0u);
    EXPECT_EQ(borrowed.Read(bytes, 4), 0u);  // a closed memory file is simply at its end
    EXPECT_EQ(borrowed.Tell(), -1);
    EXPECT_EQ(FileOpenCount(), before);
    EXPECT_EQ(reports.Take(), Texts{});
    EXPECT_EQ(borrowed.Seek(0, 0), -1);
    EXPECT_EQ(reports.Take(), (Texts{"E513: Cannot Seek on closed file\n"}));

    // An owned block goes with the close (the sanitizer build sees it freed once); the object
    // opens again.
    ASSERT_TRUE(borrowed.Open("owned", "rb", Block("abc"), 3, true));
    EXPECT_EQ(borrowed.Read(bytes, 3), 3u);
    borrowed.Close();

    // Read under a mode without "r" and never written: the close says so.
    MemoryFile written("w.bin", "wb", text.data(), 4, false);
    written.Read(bytes, 1);
    written.Close();
    EXPECT_EQ(reports.Take(), (Texts{"W: File w.bin closed without writing.  Open for read only"}));
}

TEST(MemoryFile, SizeZeroLeavesItClosedAndUnregistered) {
    ReportCapture reports;
    const uint32_t before = FileOpenCount();
    MemoryFile empty;
    EXPECT_FALSE(empty.Open("empty", "rb", Block(""), 0, true));  // the block is freed
    EXPECT_FALSE(empty.IsOpen());
    EXPECT_EQ(empty.GetName(), nullptr);
    EXPECT_EQ(FileOpenCount(), before);
    const char byte = 'x';
    MemoryFile unowned("empty", "rb", &byte, 0, false);
    EXPECT_FALSE(unowned.IsOpen());
    EXPECT_EQ(byte, 'x');
    EXPECT_EQ(reports.Take(), Texts{});

    // Null arguments are assertions and open nothing.
    EXPECT_FALSE(empty.Open(nullptr, "rb", &byte, 1, false));
    EXPECT_FALSE(empty.Open("n", nullptr, &byte, 1, false));
    EXPECT_FALSE(empty.Open("n", "rb", nullptr, 1, false));
    EXPECT_EQ(reports.Take().size(), 3u);
    EXPECT_EQ(FileOpenCount(), before);
}

TEST(MemoryFile, DeprecatedEndTestSaysSo) {
    std::string text = "z";
    MemoryFile file("z", "rb", text.data(), 1, false);
    DebugCapture capture;
    EXPECT_FALSE(file.IsEOF());
    char byte;
    file.Read(&byte, 1);
    EXPECT_TRUE(file.IsEOF());
    EXPECT_EQ(capture.Text(),
              "DEBUG: This method is deprecated please use IsEndOfFile()\n\n"
              "DEBUG: This method is deprecated please use IsEndOfFile()\n\n");
}

}  // namespace
