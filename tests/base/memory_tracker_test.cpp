#include "base/memory.h"

#include <gtest/gtest.h>

#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "base/diagnostics.h"
#include "platform/debug/debug_output.h"

namespace {

using Texts = std::vector<std::string>;

#ifdef CV_DEBUG_MEMORY

Texts* Log = nullptr;  // the tracker's output, and its errors among it as "!code line: text"
std::vector<uint32_t>* Pauses = nullptr;

std::string Hex(const void* pointer) {
    char text[32];
    std::snprintf(text, sizeof text, "0x%08" PRIXPTR, reinterpret_cast<uintptr_t>(pointer));
    return text;
}

// A dump line: hexadecimal from column 0, characters from column 28, 63 columns in all.
std::string Dump(const char* hex, const char* chars) {
    std::string line = hex;
    line.resize(28, ' ');
    line += chars;
    line.resize(63, ' ');
    return line + "\n";
}

class MemoryTracker : public ::testing::Test {
protected:
    void SetUp() override {
        Log = &log;
        Pauses = &pauses;
        MemorySetOutput([](const char* text) { Log->push_back(text); });
        MemorySetErrorHandler([](const char* message, const char*, int line, uint32_t code) {
            Log->push_back("!" + std::to_string(code) + " " + std::to_string(line) + ": " + message);
        });
        MemorySetPauseForTesting([](uint32_t ms) { Pauses->push_back(ms); });
    }
    void TearDown() override {
        MemorySetOutput(nullptr);
        MemorySetErrorHandler(nullptr);
        MemorySetPauseForTesting(nullptr);
        MemorySetFill(true);
        MemorySetHistory(false);
    }
    std::string Output() const {
        std::string all;
        for (const std::string& text : log) all += text[0] == '!' ? "" : text;
        return all;
    }
    Texts Errors() const {
        Texts errors;
        for (const std::string& text : log)
            if (text[0] == '!') errors.push_back(text.substr(1));
        return errors;
    }
    std::string At(int line) { return " " + std::to_string(line) + ": "; }

    Texts log;
    std::vector<uint32_t> pauses;
};

TEST_F(MemoryTracker, BlocksStartFilledBetweenGuardsAndDamageIsDumped) {
    // Seven bytes: a fill by whole words would leave the last three alone.
    auto* block = static_cast<unsigned char*>(MALLOC(7));
    for (int i = -8; i < 15; ++i) EXPECT_EQ(block[i], i >= 0 && i < 7 ? 0xCD : 0xBD) << i;
    FREE(block);
    auto* empty = static_cast<unsigned char*>(MALLOC(0));  // its first byte is the tail guard
    EXPECT_EQ(empty[0], 0xBD);
    FREE(empty);
    EXPECT_TRUE(log.empty());

    const uint32_t blocks = MemoryGetBlocks(), bytes = MemoryGetBytes();
    const int tailLine = __LINE__ + 1;
    char* tail = static_cast<char*>(MALLOC(10));
    std::memcpy(tail, "ABCDEFGHIJX", 11);  // one byte behind the caller's block
    EXPECT_TRUE(MemoryCheckBlock(MemoryFindBlock(tail)));
    char where[160];
    std::snprintf(where, sizeof where, "%s(%d) : Block %s 0x00000010\n", __FILE__, tailLine,
                  Hex(tail).c_str());
    const std::string tailReport = std::string("**********\nERROR: Memory Block Has Tail Damage\n") + where +
                                   "Boundary Block\n" + Dump("58 BD BD BD BD BD BD BD", "X.......") +
                                   "Memory Block\n" + Dump("41 42 43 44 45 46 47 48", "ABCDEFGH") +
                                   Dump("49 4A", "IJ") + "**********\n";
    EXPECT_EQ(Output(), tailReport);
    log.clear();
    FREE(tail);
    EXPECT_EQ(Output(), tailReport);  // the release checks the guards once more
    EXPECT_EQ(MemoryGetBlocks(), blocks);
    EXPECT_EQ(MemoryGetBytes(), bytes);

    log.clear();
    const int headLine = __LINE__ + 1;
    auto* head = static_cast<unsigned char*>(MALLOC(40));
    for (int i = 0; i < 40; ++i) head[i] = uint8_t(0x30 + i);
    head[-1] = 0x7E;
    EXPECT_TRUE(MemoryCheckBlock(MemoryFindBlock(head)));
    std::snprintf(where, sizeof where, "%s(%d) : Block %s %8d\n", __FILE__, headLine, Hex(head).c_str(), 40);
    // The block's start shows its first 32 bytes only.
    EXPECT_EQ(Output(), std::string("ERROR: Memory Block Has Header Damage\n**********\n") + where +
                            "**********\n" + Dump("BD BD BD BD BD BD BD 7E", ".......~") + "**********\n" +
                            Dump("30 31 32 33 34 35 36 37", "01234567") +
                            Dump("38 39 3A 3B 3C 3D 3E 3F", "89:;<=>?") +
                            Dump("40 41 42 43 44 45 46 47", "@ABCDEFG") +
                            Dump("48 49 4A 4B 4C 4D 4E 4F", "HIJKLMNO") + "**********\n");
    FREE(head);
    EXPECT_EQ(MemoryFindBlock(head), nullptr);
    EXPECT_EQ(Errors(), Texts{});
}

struct Counted {
    ~Counted() { ++destroyed; }
    static inline int destroyed = 0;
};

TEST_F(MemoryTracker, MisusedReleasesAreReportedAndStillRelease) {
    MemorySetHistory(true);
    const uint32_t blocks = MemoryGetBlocks(), bytes = MemoryGetBytes();
    int* number = NEW int(5);
    void* raw = MALLOC(4);
    void* twice = MALLOC(24);
    auto* array = NEW Counted[3];
    const int line = __LINE__ + 1;
    FREE(nullptr);
    DELETE(static_cast<Counted*>(nullptr));
    FREE(number);
    DELETE(static_cast<int*>(raw));
    DELETE(array);  // the elements stand behind the array's length, so this misses the block
    FREE(twice);
    FREE(twice);
    EXPECT_EQ(Errors(),
              (Texts{"256" + At(line) + "Attempting to FREE a NULL pointer.",
                     "256" + At(line + 1) + "Attempting to DELETE a NULL pointer.",
                     "257" + At(line + 2) + "Using FREE on a pointer allocated with NEW",
                     "258" + At(line + 3) + "Using DELETE on a pointer allocated with MALLOC",
                     "259" + At(line + 4) +
                         "Trying to FREE a memory block which has not been allocated: " + Hex(array),
                     "259" + At(line + 4) + "Possible Array missmatch use DELETEARRAY?",
                     "259" + At(line + 6) +
                         "Trying to FREE a memory block which has not been allocated: " + Hex(twice)}));
    // The second release of a block lists its history before the report.
    const std::string file = __FILE__, history = "HISTORY\n" + file + "(" + std::to_string(line - 3) +
                                                 ") : Allocated as 24\n" + file + "(" +
                                                 std::to_string(line + 5) + ") : Freed\n";
    EXPECT_NE(Output().find(history), std::string::npos) << Output();
    EXPECT_EQ(Output().substr(Output().size() - 12), "END HISTORY\n");

    // The array is still live; the right release runs every destructor and finds it.
    Counted::destroyed = 0;
    log.clear();
    DELETEARRAY(array);
    EXPECT_EQ(Counted::destroyed, 3);
    EXPECT_EQ(MemoryGetBlocks(), blocks);
    EXPECT_EQ(MemoryGetBytes(), bytes);
    EXPECT_TRUE(log.empty());
}

TEST_F(MemoryTracker, ReallocationCopiesWhatTheRecordHolds) {
    char* block = static_cast<char*>(MALLOC(6));
    std::memcpy(block, "abcdef", 6);
    // The caller's idea of the old size is ignored: the record says 6.
    char* grown = static_cast<char*>(CvReallocCopy(block, 2, 10));
    EXPECT_EQ(std::string(grown, 10), "abcdef\xCD\xCD\xCD\xCD");
    EXPECT_EQ(MemoryFindBlock(block), nullptr);
    char* shrunk = static_cast<char*>(CvReallocCopy(grown, 1000, 3));
    EXPECT_EQ(std::string(shrunk, 3), "abc");
    EXPECT_EQ(CvReallocCopy(shrunk, 3, 0), nullptr);  // size 0 frees, as on the plain heap
    EXPECT_EQ(MemoryFindBlock(shrunk), nullptr);
    EXPECT_TRUE(log.empty());
    // An unknown pointer is reported; the new block is given all the same, the old left alone.
    char local[8] = "unknown";
    void* fresh = MemoryReallocate(local, 8, "probe.cpp", 12);
    ASSERT_NE(fresh, nullptr);
    EXPECT_EQ(MemoryFindBlock(fresh)->size, 8u);
    FREE(fresh);
    EXPECT_EQ(Errors(), Texts{"260 12: Could not reallocate invalid pointer " + Hex(local) + "."});
}

TEST_F(MemoryTracker, TableReportsLiveBytesByFileAndLine) {
    const std::string longName = std::string(30, 'd') + "/" + std::string(69, 'e') + ".cpp";
    const std::vector<void*> blocks = {
        MemoryAllocate(100, "probe/alpha.cpp", 10, MemoryKindMalloc),
        MemoryAllocate(100, "probe/alpha.cpp", 10, MemoryKindMalloc),
        MemoryAllocate(400, "probe/alpha.cpp", 20, MemoryKindMalloc),
        MemoryAllocate(5000, "probe/beta.cpp", 5, MemoryKindMalloc),
        MemoryAllocate(3, longName.c_str(), 1, MemoryKindMalloc),
    };
    PrintMemoryTable(0);
    const std::string text = Output();
    EXPECT_EQ(text.rfind("**********\nMemory Table By File\n**********\n", 0), 0u);
    const size_t alpha = text.find("\nprobe/alpha.cpp : 600\n");
    EXPECT_NE(alpha, std::string::npos);
    EXPECT_LT(text.find("\nprobe/beta.cpp : 5000\n"), alpha);  // largest first
    EXPECT_NE(text.find("\n" + longName.substr(longName.size() - 80) + " : 3\n"), std::string::npos);
    EXPECT_EQ(text.substr(text.size() - 32), "**********\nTable End\n**********\n");
    EXPECT_EQ(pauses, (std::vector<uint32_t>{1000, 1000}));

    log.clear();
    PrintMemoryTable(1);
    std::string line20 = "probe/alpha.cpp(20) : ", line10 = "probe/alpha.cpp(10) : ";
    line20.resize(80, ' ');
    line10.resize(80, ' ');
    EXPECT_NE(Output().find("probe/alpha.cpp : 600\n" + line20 + ":        1 blocks =      400\n" + line10 +
                            ":        2 blocks =      200\n\n"),
              std::string::npos);
    for (void* block : blocks) FREE(block);
}

TEST_F(MemoryTracker, ChecksAndFailuresAreReported) {
    char* block = static_cast<char*>(MALLOC(16));
    std::memset(block, 0, 5);
    EXPECT_TRUE(MemoryCheckInitialised(block, 5, 0));
    EXPECT_FALSE(MemoryCheckInitialised(block, 16, 2));
    EXPECT_EQ(Output(), "WARNING: Memory Block Contains unititialised data at " + Hex(block) +
                            " offset 5\n**********\n");
    int local = 0;
    EXPECT_TRUE(MemoryValidate(&local, 4, "probe.cpp", 2));  // a good pointer needs no record
    block[16] = 0;
    EXPECT_FALSE(MemoryValidate(block, 16, "probe.cpp", 3));
    block[16] = char(0xBD);
    EXPECT_TRUE(MemoryValidate(block, 16, "probe.cpp", 1));
    FREE(block);
    EXPECT_EQ(MemoryAllocate(size_t(UINT32_MAX) - 4, "probe.cpp", 9, MemoryKindMalloc), nullptr);
    const Texts errors = Errors();
    ASSERT_EQ(errors.size(), 2u);
    EXPECT_EQ(errors[0], "260 3: Could not validate pointer " + Hex(block) + ".");
    EXPECT_EQ(errors[1].rfind("261 9: Memory Allocation Failed: ", 0), 0u);

    log.clear();
    MemoryDefaultError("Using FREE on a pointer allocated with NEW", "maps/load.cpp", 42, 257);
    EXPECT_EQ(log, (Texts{"maps/load.cpp", "(42) : [CODE: 257]", " : MEMORY ERROR\n",
                          "Using FREE on a pointer allocated with NEW", "\n\n"}));
}

TEST_F(MemoryTracker, CloseListsLeaksAndEmptiesTheTables) {
    auto* leak = static_cast<unsigned char*>(MemoryAllocate(12, "probe/leak.cpp", 77, MemoryKindMalloc));
    MemoryClose();
    ASSERT_GE(log.size(), 2u);
    EXPECT_EQ(log[0] + log[1],
              "\nCorvane DEBUG_MEMORY checking is OFF\n"
              "No DEBUG memory allocation information can be displayed.\n");
    EXPECT_NE(Output().find("\nprobe/leak.cpp(77) : Block " + Hex(leak) + " : Size       12\n"),
              std::string::npos);
    EXPECT_EQ(MemoryFindBlock(leak), nullptr);
    EXPECT_EQ(MemoryGetBlocks() + MemoryGetBytes(), 0u);
    std::free(leak - 8);  // the tracker forgot it; its heap block starts at the front guard
    MemoryInit();
}

#else  // the plain heap

TEST(PlainMemory, ReallocCopyCopiesTheSmallerSizeAndCloseSaysTrackingIsOff) {
    char* block = static_cast<char*>(CvReallocCopy(nullptr, 0, 4));
    std::memcpy(block, "wxyz", 4);
    char* grown = static_cast<char*>(CvReallocCopy(block, 4, 9));
    EXPECT_EQ(std::memcmp(grown, "wxyz", 4), 0);  // the sanitizer build catches a longer copy
    char* shrunk = static_cast<char*>(CvReallocCopy(grown, 9, 2));
    EXPECT_EQ(std::memcmp(shrunk, "wx", 2), 0);
    EXPECT_EQ(CvReallocCopy(shrunk, 2, 0), nullptr);  // and the old block is gone

    DebugCapture capture;
    CorvaneClose();
    CorvaneInit();
    ASSERT_EQ(capture.Pieces().size(), 3u);
    EXPECT_EQ(capture.Pieces()[0] + capture.Pieces()[1],
              "\nCorvane DEBUG_MEMORY checking is OFF\n"
              "No DEBUG memory allocation information can be displayed.\n");
    EXPECT_EQ(capture.Pieces()[2].rfind("** Add the CV_DEBUG_MEMORY define in 'Project Settings", 0), 0u);
}

#endif

}  // namespace
