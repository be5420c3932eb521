#include "base/memory.h"

#include <gtest/gtest.h>

#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "base/diagnostics.h"
#include "platform/debug/debug_output.h"

namespace {

#ifdef CV_DEBUG_MEMORY

// One entry per output text or error, in the order they came.
struct Entry {
    uint32_t code;  // 0 for an output text
    std::string text;
    std::string file;
    int line;
};

std::vector<Entry>* Log = nullptr;
std::vector<uint32_t>* Pauses = nullptr;

std::string Hex(const void* pointer) {
    char text[32];
    std::snprintf(text, sizeof text, "0x%08" PRIXPTR, reinterpret_cast<uintptr_t>(pointer));
    return text;
}

// Routes the tracker's output and errors into a log and makes its pauses instant; the tracker's
// defaults come back at the end.
class MemoryTracker : public ::testing::Test {
protected:
    void SetUp() override {
        Log = &log;
        Pauses = &pauses;
        MemorySetOutput([](const char* text) { Log->push_back({0, text, "", 0}); });
        MemorySetErrorHandler([](const char* message, const char* file, int line, uint32_t code) {
            Log->push_back({code, message, file, line});
        });
        MemorySetPauseForTesting([](uint32_t ms) { Pauses->push_back(ms); });
    }
    void TearDown() override {
        MemorySetOutput(nullptr);
        MemorySetErrorHandler(nullptr);
        MemorySetPauseForTesting(nullptr);
        MemorySetFill(true);
        MemorySetHistory(false);
        Log = nullptr;
        Pauses = nullptr;
    }

    std::string Output() const {
        std::string all;
        for (const Entry& entry : log)
            if (entry.code == 0) all += entry.text;
        return all;
    }
    std::vector<Entry> Errors() const {
        std::vector<Entry> errors;
        for (const Entry& entry : log)
            if (entry.code != 0) errors.push_back(entry);
        return errors;
    }

    std::vector<Entry> log;
    std::vector<uint32_t> pauses;
};

// A dump line: 63 columns, hexadecimal from column 0, characters from column 28.
std::string DumpLine(const char* hex, const char* chars) {
    std::string line = std::string(hex);
    line.resize(28, ' ');
    line += chars;
    line.resize(63, ' ');
    return line + "\n";
}

TEST_F(MemoryTracker, BlocksLieBetweenGuardsAndStartFilled) {
    // Seven bytes: a fill by whole words would leave the last three alone.
    const int line = __LINE__ + 1;
    unsigned char* block = static_cast<unsigned char*>(MALLOC(7));
    ASSERT_NE(block, nullptr);
    for (int i = 0; i < 7; ++i) EXPECT_EQ(block[i], 0xCD) << i;
    for (int i = 1; i <= 8; ++i) EXPECT_EQ(block[-i], 0xBD) << -i;
    for (int i = 7; i < 15; ++i) EXPECT_EQ(block[i], 0xBD) << i;

    const MemoryRecord* record = MemoryFindBlock(block);
    ASSERT_NE(record, nullptr);
    EXPECT_EQ(record->size, 7u);
    EXPECT_EQ(record->kind, uint32_t(MemoryKindMalloc));
    EXPECT_STREQ(record->file, __FILE__);
    EXPECT_EQ(record->line, uint32_t(line));
    EXPECT_FALSE(MemoryCheckBlock(record));
    FREE(block);
    EXPECT_EQ(MemoryFindBlock(block), nullptr);

    // A block of size 0 has guards that touch; its first byte is already the tail guard.
    unsigned char* empty = static_cast<unsigned char*>(MALLOC(0));
    ASSERT_NE(empty, nullptr);
    for (int i = -8; i < 8; ++i) EXPECT_EQ(empty[i], 0xBD) << i;
    empty[0] = 0;
    EXPECT_TRUE(MemoryCheckBlock(MemoryFindBlock(empty)));
    empty[0] = 0xBD;
    FREE(empty);

    MemorySetFill(false);
    unsigned char* unfilled = static_cast<unsigned char*>(MALLOC(64));
    ASSERT_NE(unfilled, nullptr);
    std::memset(unfilled, 0x11, 64);  // contents are the heap's; the guards stay
    EXPECT_FALSE(MemoryCheckBlock(MemoryFindBlock(unfilled)));
    FREE(unfilled);
    EXPECT_TRUE(Errors().empty());
}

TEST_F(MemoryTracker, AWriteBehindTheBlockIsReportedAndTheBlockStillReleased) {
    const uint32_t blocks = MemoryGetBlocks();
    const uint32_t bytes = MemoryGetBytes();
    const int line = __LINE__ + 1;
    char* block = static_cast<char*>(MALLOC(10));
    std::memcpy(block, "ABCDEFGHIJ", 10);
    block[10] = 'X';  // one byte behind the caller's block

    EXPECT_TRUE(MemoryCheckBlock(MemoryFindBlock(block)));
    char where[160];
    std::snprintf(where, sizeof where, "%s(%d) : Block %s 0x00000010\n", __FILE__, line,
                  Hex(block).c_str());
    const std::string tail =
        std::string("**********\n") + "ERROR: Memory Block Has Tail Damage\n" + where +
        "Boundary Block\n" + DumpLine("58 BD BD BD BD BD BD BD", "X.......") + "Memory Block\n" +
        DumpLine("41 42 43 44 45 46 47 48", "ABCDEFGH") + DumpLine("49 4A", "IJ") + "**********\n";
    EXPECT_EQ(Output(), tail);

    log.clear();
    FREE(block);
    EXPECT_EQ(Output(), tail);  // the release checks the guards once more
    EXPECT_EQ(MemoryFindBlock(block), nullptr);
    EXPECT_EQ(MemoryGetBlocks(), blocks);
    EXPECT_EQ(MemoryGetBytes(), bytes);
    EXPECT_TRUE(Errors().empty());
}

TEST_F(MemoryTracker, AWriteBeforeTheBlockGivesTheHeaderReport) {
    const int line = __LINE__ + 1;
    unsigned char* block = static_cast<unsigned char*>(MALLOC(40));
    for (int i = 0; i < 40; ++i) block[i] = uint8_t(0x30 + i);
    block[-1] = 0x7E;

    const MemoryRecord* record = MemoryFindBlock(block);
    EXPECT_TRUE(MemoryCheckBlock(record));
    char where[160];
    std::snprintf(where, sizeof where, "%s(%d) : Block %s %8d\n", __FILE__, line,
                  Hex(block).c_str(), 40);
    // The block's start shows its first 32 bytes only.
    const std::string header = std::string("ERROR: Memory Block Has Header Damage\n**********\n") +
                               where + "**********\n" +
                               DumpLine("BD BD BD BD BD BD BD 7E", ".......~") + "**********\n" +
                               DumpLine("30 31 32 33 34 35 36 37", "01234567") +
                               DumpLine("38 39 3A 3B 3C 3D 3E 3F", "89:;<=>?") +
                               DumpLine("40 41 42 43 44 45 46 47", "@ABCDEFG") +
                               DumpLine("48 49 4A 4B 4C 4D 4E 4F", "HIJKLMNO") + "**********\n";
    EXPECT_EQ(Output(), header);
    FREE(block);
    EXPECT_EQ(MemoryFindBlock(block), nullptr);
}

TEST_F(MemoryTracker, ReleasingTwiceIsReportedBehindTheHistory) {
    MemorySetHistory(true);
    const int allocated = __LINE__ + 1;
    void* block = MALLOC(24);
    const int freed = __LINE__ + 1;
    FREE(block);
    log.clear();
    const int again = __LINE__ + 1;
    FREE(block);

    char allocText[160], freeText[160];
    std::snprintf(allocText, sizeof allocText, "%s(%d) : Allocated as 24\n", __FILE__, allocated);
    std::snprintf(freeText, sizeof freeText, "%s(%d) : Freed\n", __FILE__, freed);
    ASSERT_GE(log.size(), 4u);
    EXPECT_EQ(log[0].text, "HISTORY\n");
    EXPECT_EQ(log[1].text, allocText);
    EXPECT_EQ(log[2].text, freeText);
    // Older releases at the same address may follow; the report comes behind the list's end.
    ASSERT_EQ(log.back().code, 259u);
    EXPECT_EQ(log.back().text,
              "Trying to FREE a memory block which has not been allocated: " + Hex(block));
    EXPECT_EQ(log.back().file, __FILE__);
    EXPECT_EQ(log.back().line, again);
    EXPECT_EQ(log[log.size() - 2].text, "END HISTORY\n");

    // Without history the list is empty but still printed.
    MemorySetHistory(false);
    int* number = NEW int(3);
    DELETE(number);
    log.clear();
    DELETE(number);  // an int has no destructor to run again
    ASSERT_EQ(log.size(), 3u);
    EXPECT_EQ(log[0].text, "HISTORY\n");
    EXPECT_EQ(log[1].text, "END HISTORY\n");
    EXPECT_EQ(log[2].code, 259u);
}

TEST_F(MemoryTracker, MismatchedReleasesAreReportedAndStillRelease) {
    const uint32_t blocks = MemoryGetBlocks();
    int* number = NEW int(5);
    const int freeLine = __LINE__ + 1;
    FREE(number);
    void* raw = MALLOC(4);
    const int deleteLine = __LINE__ + 1;
    DELETE(static_cast<int*>(raw));

    std::vector<Entry> errors = Errors();
    ASSERT_EQ(errors.size(), 2u);
    EXPECT_EQ(errors[0].code, 257u);
    EXPECT_EQ(errors[0].text, "Using FREE on a pointer allocated with NEW");
    EXPECT_EQ(errors[0].line, freeLine);
    EXPECT_EQ(errors[1].code, 258u);
    EXPECT_EQ(errors[1].text, "Using DELETE on a pointer allocated with MALLOC");
    EXPECT_EQ(errors[1].line, deleteLine);
    EXPECT_EQ(MemoryFindBlock(number), nullptr);
    EXPECT_EQ(MemoryFindBlock(raw), nullptr);
    EXPECT_EQ(MemoryGetBlocks(), blocks);

    // A reallocated NEW block is released as a MALLOC block, and so is reported.
    log.clear();
    int* object = NEW int(7);
    void* grown = CvReallocCopy(object, sizeof(int), 16);
    errors = Errors();
    ASSERT_EQ(errors.size(), 1u);
    EXPECT_EQ(errors[0].code, 257u);
    ASSERT_NE(MemoryFindBlock(grown), nullptr);
    EXPECT_EQ(MemoryFindBlock(grown)->kind, uint32_t(MemoryKindMalloc));
    EXPECT_EQ(*static_cast<int*>(grown), 7);
    FREE(grown);
}

struct Counted {
    ~Counted() { ++destroyed; }
    int value = 0;
    static inline int destroyed = 0;
};

TEST_F(MemoryTracker, DeleteOfAnArrayElementHintsAtDeleteArray) {
    Counted::destroyed = 0;
    Counted* array = NEW Counted[3];
    ASSERT_NE(array, nullptr);
    DELETE(array);  // the elements stand behind the array's length, so this misses the block
    std::vector<Entry> errors = Errors();
    ASSERT_EQ(errors.size(), 2u);
    EXPECT_EQ(errors[0].code, 259u);
    EXPECT_EQ(errors[1].code, 259u);
    EXPECT_EQ(errors[1].text, "Possible Array missmatch use DELETEARRAY?");

    // The block is still live; the right release runs every destructor and finds it.
    const uint32_t blocks = MemoryGetBlocks();
    Counted::destroyed = 0;
    log.clear();
    DELETEARRAY(array);
    EXPECT_EQ(Counted::destroyed, 3);
    EXPECT_EQ(MemoryGetBlocks(), blocks - 1);
    EXPECT_TRUE(Errors().empty());

    uint16_t* shorts = NEW uint16_t[5];
    EXPECT_EQ(MemoryFindBlock(shorts)->size, 10u);
    DELETEARRAY(shorts);
    EXPECT_EQ(MemoryFindBlock(shorts), nullptr);
    EXPECT_TRUE(Errors().empty());
}

TEST_F(MemoryTracker, ReleaseOfNullIsReportedAndCountsNothing) {
    const uint32_t frees = MemoryGetFreeCount(), deletes = MemoryGetDeleteCount();
    const uint32_t blocks = MemoryGetBlocks(), bytes = MemoryGetBytes();
    FREE(nullptr);
    DELETE(static_cast<Counted*>(nullptr));
    DELETEARRAY(static_cast<char*>(nullptr));

    std::vector<Entry> errors = Errors();
    ASSERT_EQ(errors.size(), 3u);
    EXPECT_EQ(errors[0].code, 256u);
    EXPECT_EQ(errors[0].text, "Attempting to FREE a NULL pointer.");
    EXPECT_EQ(errors[1].code, 256u);
    EXPECT_EQ(errors[1].text, "Attempting to DELETE a NULL pointer.");
    EXPECT_EQ(errors[2].text, "Attempting to DELETE a NULL pointer.");
    EXPECT_EQ(MemoryGetFreeCount(), frees);
    EXPECT_EQ(MemoryGetDeleteCount(), deletes);
    EXPECT_EQ(MemoryGetBlocks(), blocks);
    EXPECT_EQ(MemoryGetBytes(), bytes);
}

TEST_F(MemoryTracker, ReallocationCopiesWhatTheRecordHolds) {
    const uint32_t reallocs = MemoryGetReallocCount(), mallocs = MemoryGetMallocCount();
    const uint32_t frees = MemoryGetFreeCount();
    char* block = static_cast<char*>(MALLOC(6));
    std::memcpy(block, "abcdef", 6);
    // The caller's idea of the old size is ignored: the record says 6.
    char* grown = static_cast<char*>(CvReallocCopy(block, 2, 10));
    ASSERT_NE(grown, nullptr);
    EXPECT_EQ(std::memcmp(grown, "abcdef", 6), 0);
    for (int i = 6; i < 10; ++i) EXPECT_EQ(uint8_t(grown[i]), 0xCD) << i;
    EXPECT_EQ(MemoryFindBlock(block), nullptr);
    EXPECT_EQ(MemoryFindBlock(grown)->size, 10u);
    EXPECT_EQ(MemoryGetReallocCount(), reallocs + 1);
    EXPECT_EQ(MemoryGetMallocCount(), mallocs + 2);  // the MALLOC and the reallocation
    EXPECT_EQ(MemoryGetFreeCount(), frees + 1);      // the old block went as a FREE

    char* shrunk = static_cast<char*>(CvReallocCopy(grown, 1000, 3));
    EXPECT_EQ(std::memcmp(shrunk, "abc", 3), 0);
    EXPECT_EQ(CvReallocCopy(shrunk, 3, 0), nullptr);  // size 0 frees, as on the plain heap
    EXPECT_EQ(MemoryFindBlock(shrunk), nullptr);
    EXPECT_TRUE(Errors().empty());

    // An unknown pointer is reported; the new block is given all the same, the old left alone.
    char local[8] = "unknown";
    void* fresh = MemoryReallocate(local, 8, "probe.cpp", 12);
    std::vector<Entry> errors = Errors();
    ASSERT_EQ(errors.size(), 1u);
    EXPECT_EQ(errors[0].code, 260u);
    EXPECT_EQ(errors[0].text, "Could not reallocate invalid pointer " + Hex(local) + ".");
    ASSERT_NE(fresh, nullptr);
    EXPECT_EQ(MemoryFindBlock(fresh)->size, 8u);
    EXPECT_STREQ(local, "unknown");
    FREE(fresh);
}

TEST_F(MemoryTracker, CountersFollowEachKindAndThePeakStays) {
    const uint32_t bytes = MemoryGetBytes(), blocks = MemoryGetBlocks();
    const uint32_t mallocs = MemoryGetMallocCount(), frees = MemoryGetFreeCount();
    const uint32_t news = MemoryGetNewCount(), deletes = MemoryGetDeleteCount();

    void* big = MALLOC(100000);
    double* small = NEW double(1.5);
    EXPECT_EQ(MemoryGetBytes(), bytes + 100000 + sizeof(double));
    EXPECT_EQ(MemoryGetBlocks(), blocks + 2);
    EXPECT_GE(MemoryGetPeakBytes(), MemoryGetBytes());
    const uint32_t peak = MemoryGetPeakBytes();
    FREE(big);
    DELETE(small);
    EXPECT_EQ(MemoryGetBytes(), bytes);
    EXPECT_EQ(MemoryGetBlocks(), blocks);
    EXPECT_EQ(MemoryGetPeakBytes(), peak);
    EXPECT_EQ(MemoryGetMallocCount(), mallocs + 1);
    EXPECT_EQ(MemoryGetFreeCount(), frees + 1);
    EXPECT_EQ(MemoryGetNewCount(), news + 1);
    EXPECT_EQ(MemoryGetDeleteCount(), deletes + 1);
}

TEST_F(MemoryTracker, PlainDeleteReleasesNewObjectsThroughTheTracker) {
    struct Node {
        explicit Node(Node* inner) : child(inner) {}
        ~Node() { delete child; }  // as trees delete their children
        Node* child;
    };
    const uint32_t blocks = MemoryGetBlocks(), deletes = MemoryGetDeleteCount();
    Node* tree = NEW Node(NEW Node(nullptr));
    EXPECT_EQ(MemoryGetBlocks(), blocks + 2);
    DELETE(tree);
    EXPECT_EQ(MemoryGetBlocks(), blocks);
    EXPECT_EQ(MemoryGetDeleteCount(), deletes + 2);

    std::string* untracked = new std::string(100, 'x');  // never seen by the tracker
    EXPECT_EQ(MemoryGetBlocks(), blocks);
    delete untracked;
    EXPECT_TRUE(log.empty());
}

TEST_F(MemoryTracker, TableReportsLiveBytesByFileAndLine) {
    const std::string longName = std::string(30, 'd') + "/" + std::string(69, 'e') + ".cpp";
    std::vector<void*> blocks = {
        MemoryAllocate(100, "probe/alpha.cpp", 10, MemoryKindMalloc),
        MemoryAllocate(100, "probe/alpha.cpp", 10, MemoryKindMalloc),
        MemoryAllocate(400, "probe/alpha.cpp", 20, MemoryKindMalloc),
        MemoryAllocate(5000, "probe/beta.cpp", 5, MemoryKindNew),
        MemoryAllocate(3, longName.c_str(), 1, MemoryKindMalloc),
    };

    PrintMemoryTable(0);
    std::string text = Output();
    EXPECT_EQ(text.rfind("**********\nMemory Table By File\n**********\n", 0), 0u);
    size_t beta = text.find("\nprobe/beta.cpp : 5000\n");
    size_t alpha = text.find("\nprobe/alpha.cpp : 600\n");
    EXPECT_NE(beta, std::string::npos);
    EXPECT_NE(alpha, std::string::npos);
    EXPECT_LT(beta, alpha);  // largest first
    EXPECT_NE(text.find("\n" + longName.substr(longName.size() - 80) + " : 3\n"),
              std::string::npos);
    EXPECT_EQ(text.substr(text.size() - 32), "**********\nTable End\n**********\n");
    EXPECT_EQ(pauses, (std::vector<uint32_t>{1000, 1000}));

    log.clear();
    pauses.clear();
    PrintMemoryTable(1);
    text = Output();
    std::string line20 = "probe/alpha.cpp(20) : ";
    line20.resize(80, ' ');
    std::string line10 = "probe/alpha.cpp(10) : ";
    line10.resize(80, ' ');
    const std::string expected = "probe/alpha.cpp : 600\n" + line20 +
                                 ":        1 blocks =      400\n" + line10 +
                                 ":        2 blocks =      200\n\n";
    EXPECT_NE(text.find(expected), std::string::npos) << text.substr(0, 2000);
    ASSERT_GE(pauses.size(), 4u);
    EXPECT_EQ(pauses.front(), 1000u);
    EXPECT_EQ(pauses.back(), 1000u);
    EXPECT_EQ(pauses[1], 100u);

    log.clear();
    PrintMemoryTable(7);
    EXPECT_EQ(Output(), "Unknown PrintMemoryTable format 7\n");

    for (void* block : blocks) MemoryRelease(block, "probe/alpha.cpp", 30, MemoryKindMalloc);
    EXPECT_EQ(Errors().size(), 1u);  // the NEW block released as a MALLOC one
}

TEST_F(MemoryTracker, CheckInitialisedFindsTheFirstUnwrittenByte) {
    unsigned char* block = static_cast<unsigned char*>(MALLOC(16));
    std::memset(block, 0, 5);
    EXPECT_TRUE(MemoryCheckInitialised(block, 5, 0));
    EXPECT_TRUE(log.empty());
    EXPECT_FALSE(MemoryCheckInitialised(block, 16, 2));
    EXPECT_EQ(Output(), "WARNING: Memory Block Contains unititialised data at " + Hex(block) +
                            " offset 5\n**********\n");
    std::memset(block, 7, 16);
    EXPECT_TRUE(MemoryCheckInitialised(block, 16, 0));
    FREE(block);
}

TEST_F(MemoryTracker, ValidationFailsOnDamageOnly) {
    char* block = static_cast<char*>(MALLOC(8));
    EXPECT_TRUE(MemoryValidate(block, 8, "probe.cpp", 1));
    int local = 0;
    EXPECT_TRUE(MemoryValidate(&local, 4, "probe.cpp", 2));  // a good pointer needs no record
    EXPECT_TRUE(Errors().empty());

    block[8] = 0;
    log.clear();
    EXPECT_FALSE(MemoryValidate(block, 8, "probe.cpp", 3));
    std::vector<Entry> errors = Errors();
    ASSERT_EQ(errors.size(), 1u);
    EXPECT_EQ(errors[0].code, 260u);
    EXPECT_EQ(errors[0].text, "Could not validate pointer " + Hex(block) + ".");
    EXPECT_EQ(errors[0].line, 3);
    block[8] = char(0xBD);
    FREE(block);

    EXPECT_FALSE(MemoryValidate(nullptr, 4, "probe.cpp", 4));
}

TEST_F(MemoryTracker, TableCheckCountsEveryBucket) {
    void* block = MALLOC(1);
    EXPECT_TRUE(MemoryCheckTables());
    ASSERT_EQ(log.size(), size_t(MemoryBlockBuckets));
    EXPECT_EQ(log[0].text.rfind("Memory block 0 count ", 0), 0u);
    EXPECT_EQ(log.back().text.rfind("Memory block 9732 count ", 0), 0u);
    uintptr_t p = reinterpret_cast<uintptr_t>(block);
    const uint32_t bucket = uint32_t(((p >> 16) ^ (p & 0xFFFF)) % 9733);
    EXPECT_EQ(log[bucket].text.find(" count 0\n"), std::string::npos);
    FREE(block);
}

TEST_F(MemoryTracker, DefaultErrorPrintsWhereWhatAndTheCode) {
    MemoryDefaultError("Using FREE on a pointer allocated with NEW", "maps/load.cpp", 42, 257);
    std::vector<std::string> pieces;
    for (const Entry& entry : log) pieces.push_back(entry.text);
    EXPECT_EQ(pieces,
              (std::vector<std::string>{"maps/load.cpp", "(42) : [CODE: 257]", " : MEMORY ERROR\n",
                                        "Using FREE on a pointer allocated with NEW", "\n\n"}));
}

TEST_F(MemoryTracker, AnEmptyHeapIsReportedWithNull) {
    const uint32_t blocks = MemoryGetBlocks();
    EXPECT_EQ(MemoryAllocate(size_t(UINT32_MAX) - 4, "probe.cpp", 9, MemoryKindMalloc), nullptr);
    std::vector<Entry> errors = Errors();
    ASSERT_EQ(errors.size(), 1u);
    EXPECT_EQ(errors[0].code, 261u);
    EXPECT_EQ(errors[0].text.rfind("Memory Allocation Failed: ", 0), 0u);
    EXPECT_EQ(MemoryGetBlocks(), blocks);
}

TEST_F(MemoryTracker, CloseListsLeaksAndEmptiesTheTables) {
    // A second start keeps what is live.
    unsigned char* kept = static_cast<unsigned char*>(MALLOC(2));
    MemoryInit();
    EXPECT_NE(MemoryFindBlock(kept), nullptr);
    FREE(kept);

    unsigned char* leak =
        static_cast<unsigned char*>(MemoryAllocate(12, "probe/leak.cpp", 77, MemoryKindMalloc));
    log.clear();
    MemoryClose();
    ASSERT_GE(log.size(), 4u);
    EXPECT_EQ(log[0].text, "\nCorvane DEBUG_MEMORY checking is OFF\n");
    EXPECT_EQ(log[1].text, "No DEBUG memory allocation information can be displayed.\n");
    EXPECT_EQ(log[2].text.rfind("** Add the CV_DEBUG_MEMORY define in 'Project Settings", 0), 0u);
    const std::string leakLine = "\nprobe/leak.cpp(77) : Block " + Hex(leak) + " : Size       12\n";
    bool listed = false;
    for (const Entry& entry : log) listed = listed || entry.text == leakLine;
    EXPECT_TRUE(listed);
    EXPECT_EQ(MemoryFindBlock(leak), nullptr);
    EXPECT_EQ(MemoryGetBlocks(), 0u);
    EXPECT_EQ(MemoryGetBytes(), 0u);
    std::free(leak - 8);  // the tracker forgot it; its heap block starts at the front guard
    MemoryInit();
}

#else  // the plain heap

TEST(PlainMemory, ReallocCopyCopiesTheSmallerSize) {
    char* block = static_cast<char*>(CvReallocCopy(nullptr, 0, 4));
    ASSERT_NE(block, nullptr);
    std::memcpy(block, "wxyz", 4);
    char* grown = static_cast<char*>(CvReallocCopy(block, 4, 9));
    ASSERT_NE(grown, nullptr);
    EXPECT_EQ(std::memcmp(grown, "wxyz", 4), 0);  // the sanitizer build catches a longer copy
    char* shrunk = static_cast<char*>(CvReallocCopy(grown, 9, 2));
    ASSERT_NE(shrunk, nullptr);
    EXPECT_EQ(std::memcmp(shrunk, "wx", 2), 0);
    EXPECT_EQ(CvReallocCopy(shrunk, 2, 0), nullptr);  // and the old block is gone
}

TEST(PlainMemory, CloseSaysTheCheckingIsOffAndNothingMore) {
    DebugCapture capture;
    CorvaneClose();
    CorvaneInit();
    ASSERT_EQ(capture.Pieces().size(), 3u);
    EXPECT_EQ(capture.Pieces()[0], "\nCorvane DEBUG_MEMORY checking is OFF\n");
    EXPECT_EQ(capture.Pieces()[1], "No DEBUG memory allocation information can be displayed.\n");
    const std::string& hint = capture.Pieces()[2];
    EXPECT_EQ(hint.rfind("** Add the CV_DEBUG_MEMORY define in 'Project Settings", 0), 0u);
    EXPECT_EQ(hint.substr(hint.size() - 18), " to turn it ON **\n");
}

#endif

}  // namespace
