#include "base/diagnostics.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "platform/crt/version.h"
#include "platform/debug/debug_output.h"
#include "tests/base/report_log.h"

namespace {

TEST(Diagnostics, DefaultHandlersWriteTheirPiecesInOrder) {
    DebugCapture capture;
    CorvaneWarning("low on %s", "space");
    CorvaneAlert("Could not open %s\n", "RESOURCE.CFG");
    CorvaneTrace("entering", "engine/scene.cpp", 17);
    CorvaneDebug("%d meshes", 3);
    EXPECT_EQ(
        capture.Pieces(),
        (Texts{"WARNING: ", "low on space", "\n", "ALERT: ", "Could not open RESOURCE.CFG\n", "\n",
               "engine/scene.cpp(17) : TRACE entering\n", "DEBUG: ", "3 meshes", "\n"}));
    EXPECT_EQ(capture.Boxes(), (Texts{"ALERT: Could not open RESOURCE.CFG\n"}));

    // A null handler puts the default back.
    CorvaneTextHandler old = CorvaneSetWarningHandler(nullptr);
    capture.Clear();
    CorvaneWarning("w");
    CorvaneSetWarningHandler(old);
    EXPECT_EQ(capture.Pieces(), (Texts{"WARNING: ", "w", "\n"}));
}

// The presenter, called for the box, writes what the debug output had received by then.
DebugCapture* DyingCapture = nullptr;

int PrintCaptureThenBox(void*, const char* text, const char* caption, unsigned) {
    for (const std::string& piece : DyingCapture->Pieces())
        std::fprintf(stderr, "[%s]", piece.c_str());
    std::fprintf(stderr, "box %s: %s|", caption, text);
    return IDOK;
}

TEST(DiagnosticsDeathTest, DefaultErrorShowsTheTextOnceThenAborts) {
    auto fail = [] {
        DebugCapture capture;
        DyingCapture = &capture;
        SetMessageBoxPresenter(PrintCaptureThenBox);
        CorvaneError("%s", "disk 100%d full");
    };
    EXPECT_DEATH(fail(), "\\[ERROR: \\]\\[disk 100%d full\\]\\[\n\\]box ERROR: disk 100%d full\\|");
    EXPECT_DEATH(CorvaneAssert("x.cpp", 7), "ERROR: Assertion Failed: +x\\.cpp\\(7\\)");
}

TEST(Diagnostics, TextsAreFormattedOnceAndCutAtTheBuffer) {
    ReportLog log;
    CorvaneError("%s", "50% %d %s %n");
    CorvaneErrorCode(77, "code %s", "%%");
    CorvaneWarning("%s", "%x");
    EXPECT_EQ(log.Take(), (Texts{"E513: 50% %d %s %n", "E77: code %%", "W: %x"}));

    const std::string longText(1000, 'q');
    const std::string kept(399, 'q');
    DebugCapture capture;
    CorvaneWarning("%s", longText.c_str());
    CorvaneError("%s", longText.c_str());
    CorvaneTrace(longText.c_str(), "t.cpp", 1);
    CorvaneAssert(longText.c_str(), 2);
    CorvaneDebug("%s", longText.c_str());
    CorvaneDebugChannel(9, "%s", longText.c_str());
    EXPECT_EQ(log.Take(), (Texts{"W: " + kept, "E513: " + kept,
                                 "T: t.cpp(1) : TRACE " + std::string(399 - 17, 'q'),
                                 "E512: Assertion Failed: " + std::string(399 - 18, 'q')}));
    ASSERT_EQ(capture.Pieces().size(), 7u);
    EXPECT_EQ(capture.Pieces()[0], kept);  // the assertion's first text
    EXPECT_EQ(capture.Pieces()[2], kept);
    EXPECT_EQ(capture.Pieces()[5], kept);
}

TEST(Diagnostics, HandlerMayReportItsOwnText) {
    // The text lives in the shared buffer that the next report formats into.
    CorvaneTextHandler old =
        CorvaneSetWarningHandler([](const char* text) { CorvaneDebug("again: %s", text); });
    DebugCapture capture;
    CorvaneWarning("disk %d", 2);
    CorvaneSetWarningHandler(old);
    EXPECT_EQ(capture.Pieces(), (Texts{"DEBUG: ", "again: disk 2", "\n"}));
}

// Records the assertion and marks in the debug output when the handler ran.
Texts Assertions;

void RecordAssertion(uint32_t code, const char* text) {
    Assertions.push_back(std::to_string(code) + ": " + text);
    OutputDebugStringA("<handler>");
}

TEST(Diagnostics, AssertionReportsTwoTextsAndGoesOnWithAReturningHandler) {
    Assertions.clear();
    CorvaneErrorHandler old = CorvaneSetErrorHandler(RecordAssertion);
    DebugCapture capture;
    CorvaneAssert("src/a.cpp", 42);
    CorvaneAssert("a/very/long/path/of/more/than/forty-eight/characters.cpp", 3);
    ASSERT(Assertions.size() == 2);  // holds: no report
    bool reachedBehind = false;
    const int line = __LINE__ + 1;
    ASSERT(Assertions.empty());
    reachedBehind = true;
    CorvaneSetErrorHandler(old);

    EXPECT_TRUE(reachedBehind);
    const std::string here = std::string(__FILE__) + "(" + std::to_string(line) + ")";
    ASSERT_EQ(Assertions.size(), 3u);
    EXPECT_EQ(Assertions[0], "512: Assertion Failed: " + std::string(39, ' ') + "src/a.cpp(42)\n");
    EXPECT_EQ(Assertions[1],
              "512: Assertion Failed: a/very/long/path/of/more/than/forty-eight/"
              "characters.cpp(3)\n");
    EXPECT_NE(Assertions[2].find(here + "\n"), std::string::npos) << Assertions[2];
    ASSERT_EQ(capture.Pieces().size(), 6u);
    EXPECT_EQ(capture.Pieces()[0], "src/a.cpp(42) : ASSERTION FAILED\n");
    EXPECT_EQ(capture.Pieces()[1], "<handler>");
    EXPECT_EQ(capture.Pieces()[4], here + " : ASSERTION FAILED\n");
}

void ExpectFilter(int32_t mode, uint32_t included, uint32_t excluded) {
    int32_t gotMode = 9;
    uint32_t gotIncluded = 9, gotExcluded = 9;
    CorvaneDebugGetFilter(&gotMode, &gotIncluded, &gotExcluded);
    EXPECT_EQ(gotMode, mode);
    EXPECT_EQ(gotIncluded, included);
    EXPECT_EQ(gotExcluded, excluded);
}

TEST(Diagnostics, ChannelFilterListsOnlyWhatDiffersFromItsMode) {
    struct Reset {
        ~Reset() { CorvaneDebugShowAll(); }
    } reset;
    DebugCapture capture;
    CorvaneDebugShowAll();
    CorvaneDebugSetChannel(5, 0);
    CorvaneDebugSetChannel(5, 0);
    CorvaneDebugSetChannel(5, 1);  // no removal of a single channel
    CorvaneDebugSetChannel(6, 1);  // shown already: nothing listed
    CorvaneDebugChannel(5, "hidden");
    CorvaneDebugChannel(6, "six");
    CorvaneDebugChannel(0xFFFFFFFF, "other");
    EXPECT_EQ(capture.Text(), "DEBUG: six\nDEBUG: other\n");
    ExpectFilter(0, 0, 1);

    capture.Clear();
    CorvaneDebugShowNone();
    CorvaneDebugChannel(5, "unknown");
    CorvaneDebugSetChannel(6, 0);  // hidden already: nothing listed
    CorvaneDebugSetChannel(5, 1);
    CorvaneDebugSetChannel(5, 1);
    CorvaneDebugSetChannel(5, 0);
    CorvaneDebugChannel(5, "five %s", "%d");
    CorvaneDebugChannel(6, "six");
    CorvaneDebug("plain");  // passes no filter
    EXPECT_EQ(capture.Text(), "DEBUG: five %d\nDEBUG: plain\n");
    ExpectFilter(-1, 1, 0);

    // A fresh ShowNone forgets the included channel; init and close clear the filter.
    CorvaneDebugShowNone();
    ExpectFilter(-1, 0, 0);
    CorvaneDebugSetChannel(3, 1);
    CorvaneInit();
    ExpectFilter(0, 0, 0);
    CorvaneDebugSetChannel(4, 0);
    CorvaneClose();  // frees the list; the leak checker would see it otherwise
    ExpectFilter(0, 0, 0);
    CorvaneInit();
}

// Stages what the version query answers while it lives.
class StageVersion {
public:
    StageVersion(uint32_t refuseSize, uint32_t major, uint32_t minor, uint32_t platformId) {
        StagedVersion staged = {refuseSize, major, minor, platformId};
        StageVersionForTesting(&staged);
    }
    ~StageVersion() { StageVersionForTesting(nullptr); }
    StageVersion(const StageVersion&) = delete;
    StageVersion& operator=(const StageVersion&) = delete;
};

std::vector<uint32_t> Queries() {
    uint32_t sizes[4] = {};
    return std::vector<uint32_t>(sizes, sizes + StagedVersionQueries(sizes, 4));
}

TEST(Diagnostics, PlatformPacksVersionAndCode) {
    const struct {
        uint32_t platformId, major, minor, packed;
    } cases[] = {
        {0, 3, 1, 0x03010001u},  {1, 4, 0, 0x04000001u},       {1, 4, 10, 0x040A0002u},
        {1, 4, 90, 0x045A0002u}, {1, 5, 0, 0x05000002u},       {1, 3, 95, 0x035F0001u},
        {2, 3, 51, 0x03330003u}, {2, 10, 0, 0x0A000003u},      {2, 0, 0, 0x00000003u},
        {3, 5, 1, 0x05010000u},  {0x10002, 6, 2, 0x06020000u},
    };
    for (const auto& c : cases) {
        StageVersion stage(0, c.major, c.minor, c.platformId);
        EXPECT_EQ(CorvaneGetPlatform(), c.packed)
            << c.platformId << " " << c.major << "." << c.minor;
    }
    const uint32_t platform = CorvaneGetPlatform();  // this system: the NT family
    EXPECT_EQ(platform & 0xFFFFu, 3u);
    EXPECT_NE(platform >> 24, 0u);
}

TEST(Diagnostics, PlatformAsksTheLongRecordFirstThenTheShort) {
    ReportLog log;
    {
        StageVersion stage(156, 4, 10, 1);
        EXPECT_EQ(CorvaneGetPlatform(), 0x040A0002u);
        EXPECT_EQ(Queries(), (std::vector<uint32_t>{156, 148}));
    }
    {
        StageVersion stage(148, 5, 0, 2);
        EXPECT_EQ(CorvaneGetPlatform(), 0x05000003u);
        EXPECT_EQ(Queries(), (std::vector<uint32_t>{156}));
    }
    EXPECT_TRUE(log.texts.empty());

    StageVersion stage(1, 5, 0, 2);
    EXPECT_EQ(CorvaneGetPlatform(), 0u);
    EXPECT_EQ(log.Take(), (Texts{"W: CorvaneGetPlatform:\nFailed to obtain system information."}));
    EXPECT_EQ(Queries(), (std::vector<uint32_t>{156, 148}));
}

}  // namespace
