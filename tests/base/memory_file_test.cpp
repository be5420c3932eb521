#include "base/MemoryFile.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "base/memory.h"
#include "platform/debug/debug_output.h"
#include "tests/base/report_log.h"

namespace {

// A heap block the file may own, so the sanitizer sees a read past it and a block not freed.
char* Block(const std::string& bytes) {
    char* block = static_cast<char*>(MALLOC(bytes.size() ? bytes.size() : 1));
    std::memcpy(block, bytes.data(), bytes.size());
    return block;
}

TEST(MemoryFile, SeeksCountFromTheEndAndPastTheSizeGiveMinusOne) {
    ReportLog log;
    MemoryFile file("digits", "rb", Block("0123456789ABCDEFGHIJ"), 20, true);
    EXPECT_EQ(file.Seek(2, 10), 10);  // 10 before the end
    char bytes[32];
    EXPECT_EQ(file.Read(bytes, 3), 3u);
    EXPECT_EQ(std::string(bytes, 3), "ABC");
    EXPECT_EQ(file.Seek(1, -13), 0);

    // Past the size: -1, the position stays out there, and reads deliver nothing.
    EXPECT_EQ(file.Seek(0, 21), -1);
    EXPECT_TRUE(file.IsEndOfFile());
    EXPECT_EQ(file.Read(bytes, 5), 0u);
    EXPECT_EQ(file.Seek(1, -1), 20);
    EXPECT_EQ(file.Seek(0, -1), -1);  // before the start wraps beyond the size
    EXPECT_EQ(file.Read(bytes, 5), 0u);
    EXPECT_EQ(file.Seek(0, 18), 18);
    EXPECT_EQ(file.Read(bytes, 32), 2u);  // cut at the size
    EXPECT_EQ(std::string(bytes, 2), "IJ");
    EXPECT_EQ(file.GetBytesRead(), 5u);

    EXPECT_EQ(file.Seek(3, 0), -1);
    EXPECT_EQ(file.Write("x", 1), 0u);  // read-only
    const Texts texts = log.Take();
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
    EXPECT_EQ(file.Read(bytes, 10), 2u);

    // Either case; a mode of one letter is binary.
    MemoryFile upper("upper", "RT", text.data(), uint32_t(text.size()), false);
    EXPECT_EQ(upper.Read(bytes, 3), 2u);
    MemoryFile binary("binary", "r", text.data(), uint32_t(text.size()), false);
    EXPECT_EQ(binary.Read(bytes, 3), 3u);

    // In text mode a line made only of a 13 gives what follows it.
    const std::string crs = "\r\r\rx";
    MemoryFile text13("cr", "rt", crs.data(), 4, false);
    EXPECT_STREQ(text13.Get(bytes, sizeof bytes), "x");
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
    DebugCapture capture;
    EXPECT_FALSE(file.IsEOF());  // the deprecated twin says so on the debug output
    EXPECT_STREQ(file.Get(line, sizeof line), "four");
    EXPECT_TRUE(file.IsEOF());
    EXPECT_EQ(capture.Text(),
              "DEBUG: This method is deprecated please use IsEndOfFile()\n\n"
              "DEBUG: This method is deprecated please use IsEndOfFile()\n\n");
    EXPECT_EQ(file.Get(line, sizeof line), nullptr);
    EXPECT_STREQ(line, "");
}

TEST(MemoryFile, ClosingFreesOnlyOwnedDataAndLeavesAClosedFile) {
    ReportLog log;
    const uint32_t before = FileOpenCount();
    const std::string text = "borrowed bytes";
    MemoryFile borrowed("borrowed", "rb", text.data(), uint32_t(text.size()), false);
    char bytes[4];
    borrowed.Read(bytes, 4);
    EXPECT_TRUE(borrowed.Close());
    EXPECT_EQ(text, "borrowed bytes");
    EXPECT_TRUE(borrowed.IsEndOfFile());
    EXPECT_EQ(borrowed.GetData(), nullptr);
    EXPECT_EQ(borrowed.Read(bytes, 4), 0u);  // a closed memory file is simply at its end
    EXPECT_EQ(FileOpenCount(), before);
    EXPECT_EQ(log.Take(), Texts{});
    EXPECT_EQ(borrowed.Seek(0, 0), -1);
    EXPECT_EQ(log.Take(), (Texts{"E513: Cannot Seek on closed file\n"}));

    // An owned block goes with the close (the sanitizer build sees it freed once).
    ASSERT_TRUE(borrowed.Open("owned", "rb", Block("abc"), 3, true));
    EXPECT_EQ(borrowed.Read(bytes, 3), 3u);
    borrowed.Close();

    // Read under a mode without "r" and never written: the close says so.
    MemoryFile written("w.bin", "wb", text.data(), 4, false);
    written.Read(bytes, 1);
    written.Close();
    EXPECT_EQ(log.Take(), (Texts{"W: File w.bin closed without writing.  Open for read only"}));

    // Size zero leaves it closed and unregistered; an owned block is freed.
    EXPECT_FALSE(written.Open("empty", "rb", Block(""), 0, true));
    EXPECT_EQ(written.GetName(), nullptr);
    EXPECT_FALSE(MemoryFile("empty", "rb", text.data(), 0, false).IsOpen());
    EXPECT_EQ(log.Take(), Texts{});
    EXPECT_EQ(FileOpenCount(), before);

    // Null arguments are assertions and open nothing.
    EXPECT_FALSE(written.Open(nullptr, "rb", text.data(), 1, false));
    EXPECT_FALSE(written.Open("n", nullptr, text.data(), 1, false));
    EXPECT_FALSE(written.Open("n", "rb", nullptr, 1, false));
    EXPECT_EQ(log.Take().size(), 3u);
    EXPECT_EQ(FileOpenCount(), before);
}

}  // namespace
