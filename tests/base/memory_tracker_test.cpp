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
const std::string OffNotice =
    "\nCorvane DEBUG_MEMORY checking is OFF\nNo DEBUG memory allocation information can be displayed.\n";

#ifdef CV_DEBUG_MEMORY

std::string Output;  // the tracker's output
Texts Errors;        // and its errors, as "code line: text"

std::string Hex(const void* pointer) {
    char text[32];
    std::snprintf(text, sizeof text, "0x%08" PRIXPTR, reinterpret_cast<uintptr_t>(pointer));
    return text;
}

// A dump line: hexadecimal from column 0, characters from column 28, 63 columns in all.
std::string Dump(const char* hex, const char* chars) {
    std::string line = hex;
    line.resize(28, ' ');
    line.resize(63, ' ');
    return line.replace(28, std::strlen(chars), chars) + "\n";
}

class MemoryTracker : public ::testing::Test {
protected:
    void SetUp() override {
        Output.clear();
        Errors.clear();
        MemorySetOutput([](const char* text) { Output += text; });
        MemorySetErrorHandler([](const char* message, const char*, int line, uint32_t code) {
            Errors.push_back(std::to_string(code) + " " + std::to_string(line) + ": " + message);
        });
    }
    void TearDown() override {
        MemorySetOutput(nullptr);
        MemorySetErrorHandler(nullptr);
        MemorySetHistory(false);
    }
};

TEST_F(MemoryTracker, BlocksStartFilledBetweenGuardsAndAnOverrunIsDumped) {
    const uint32_t blocks = MemoryGetBlocks(), bytes = MemoryGetBytes();
    const int tailLine = __LINE__ + 1;
    char* tail = static_cast<char*>(MALLOC(10));
    EXPECT_EQ(std::string(tail - 8, 26),
              std::string(8, '\xBD') + std::string(10, '\xCD') + std::string(8, '\xBD'));
    std::memcpy(tail, "ABCDEFGHIJX", 11);  // one byte behind the caller's block
    const std::string tailReport =
        "**********\nERROR: Memory Block Has Tail Damage\n" + std::string(__FILE__) + "(" +
        std::to_string(tailLine) + ") : Block " + Hex(tail) + " 0x00000010\n" + "Boundary Block\n" +
        Dump("58 BD BD BD BD BD BD BD", "X.......") + "Memory Block\n" +
        Dump("41 42 43 44 45 46 47 48", "ABCDEFGH") + Dump("49 4A", "IJ") + "**********\n";
    FREE(tail);  // the release checks the guards, reports, and releases all the same
    EXPECT_EQ(Output, tailReport);
    EXPECT_EQ(MemoryGetBlocks(), blocks);
    EXPECT_EQ(MemoryGetBytes(), bytes);
    EXPECT_EQ(Errors, Texts{});
}

TEST_F(MemoryTracker, MisusedReleasesAreReportedAndStillRelease) {
    MemorySetHistory(true);
    const uint32_t blocks = MemoryGetBlocks(), bytes = MemoryGetBytes();
    int* number = NEW int(5);
    void* raw = MALLOC(4);
    void* twice = MALLOC(24);
    const int line = __LINE__ + 1;
    FREE(nullptr);
    DELETE(static_cast<int*>(nullptr));
    FREE(number);
    DELETE(static_cast<int*>(raw));
    FREE(twice);
    FREE(twice);
    const auto at = [line](int offset) { return " " + std::to_string(line + offset) + ": "; };
    EXPECT_EQ(
        Errors,
        (Texts{"256" + at(0) + "Attempting to FREE a NULL pointer.",
               "256" + at(1) + "Attempting to DELETE a NULL pointer.",
               "257" + at(2) + "Using FREE on a pointer allocated with NEW",
               "258" + at(3) + "Using DELETE on a pointer allocated with MALLOC",
               "259" + at(5) + "Trying to FREE a memory block which has not been allocated: " + Hex(twice)}));
    // The second release lists the block's history before the report.
    const std::string file = __FILE__;
    EXPECT_NE(Output.find("HISTORY\n" + file + "(" + std::to_string(line - 2) + ") : Allocated as 24\n" +
                          file + "(" + std::to_string(line + 4) + ") : Freed\n"),
              std::string::npos)
        << Output;
    EXPECT_EQ(Output.substr(Output.size() - 12), "END HISTORY\n");
    EXPECT_EQ(MemoryGetBlocks(), blocks);
    EXPECT_EQ(MemoryGetBytes(), bytes);
}

TEST_F(MemoryTracker, CloseListsLeaksAndEmptiesTheTables) {
    auto* leak = static_cast<unsigned char*>(MemoryAllocate(12, "probe/leak.cpp", 77, MemoryKindMalloc));
    MemoryClose();
    EXPECT_EQ(Output.rfind(OffNotice, 0), 0u);
    EXPECT_NE(Output.find("\nprobe/leak.cpp(77) : Block " + Hex(leak) + " : Size       12\n"),
              std::string::npos);
    EXPECT_EQ(MemoryGetBlocks() + MemoryGetBytes(), 0u);
    std::free(leak - 8);  // the tracker forgot it; its heap block starts at the front guard
    MemoryInit();
    EXPECT_EQ(Errors, Texts{});
}

#else

TEST(PlainMemory, CloseSaysTrackingIsOff) {
    DebugCapture capture;
    CorvaneClose();
    CorvaneInit();
    EXPECT_EQ(capture.Text().rfind(OffNotice + "** Add the CV_DEBUG_MEMORY define in 'Project Settings", 0),
              0u);
}

#endif

}  // namespace
