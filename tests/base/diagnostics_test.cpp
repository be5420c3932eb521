#include "base/diagnostics.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "platform/crt/version.h"
#include "platform/debug/debug_output.h"

namespace {

struct Report {
    char slot;  // 'W'arning, 'A'lert, 'E'rror, 'T'race
    uint32_t code;
    std::string text;
};

// Installs handlers that return and record what they get; puts the old ones back at the end.
class RecordReports {
public:
    RecordReports() {
        active = this;
        oldWarning = CorvaneSetWarningHandler([](const char* t) { Add('W', 0, t); });
        oldAlert = CorvaneSetAlertHandler([](const char* t) { Add('A', 0, t); });
        oldError = CorvaneSetErrorHandler([](uint32_t c, const char* t) { Add('E', c, t); });
        oldTrace = CorvaneSetTraceHandler([](const char* t) { Add('T', 0, t); });
    }
    ~RecordReports() {
        CorvaneSetWarningHandler(oldWarning);
        CorvaneSetAlertHandler(oldAlert);
        CorvaneSetErrorHandler(oldError);
        CorvaneSetTraceHandler(oldTrace);
        active = nullptr;
    }
    RecordReports(const RecordReports&) = delete;
    RecordReports& operator=(const RecordReports&) = delete;

    std::vector<Report> reports;

private:
    static void Add(char slot, uint32_t code, const char* text) {
        active->reports.push_back({slot, code, text});
    }
    static inline RecordReports* active = nullptr;
    CorvaneTextHandler oldWarning, oldAlert, oldTrace;
    CorvaneErrorHandler oldError;
};

// Leaves the filter as the library starts it, whatever a test did.
struct FilterReset {
    ~FilterReset() { CorvaneDebugShowAll(); }
};

using Pieces = std::vector<std::string>;

TEST(Diagnostics, DefaultHandlersWriteTheirPiecesInOrder) {
    DebugCapture capture;
    CorvaneWarning("low on %s", "space");
    EXPECT_EQ(capture.Pieces(), (Pieces{"WARNING: ", "low on space", "\n"}));
    EXPECT_TRUE(capture.Boxes().empty());

    capture.Clear();
    CorvaneAlert("Could not open %s\n", "RESOURCE.CFG");
    EXPECT_EQ(capture.Pieces(), (Pieces{"ALERT: ", "Could not open RESOURCE.CFG\n", "\n"}));
    EXPECT_EQ(capture.Boxes(), (Pieces{"ALERT: Could not open RESOURCE.CFG\n"}));

    capture.Clear();
    CorvaneTrace("entering", "engine/scene.cpp", 17);
    EXPECT_EQ(capture.Pieces(), (Pieces{"engine/scene.cpp(17) : TRACE entering\n"}));

    capture.Clear();
    CorvaneDebug("%d meshes", 3);
    EXPECT_EQ(capture.Pieces(), (Pieces{"DEBUG: ", "3 meshes", "\n"}));
    EXPECT_TRUE(capture.Boxes().empty());
}

// The default error handler shows its pieces, then the box, then aborts. The presenter, called
// for the box, writes what the debug output had received by then to stderr.
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

TEST(Diagnostics, ErrorTextIsFormattedOnce) {
    RecordReports record;
    CorvaneError("%s", "50% %d %s %n");
    CorvaneErrorCode(77, "code %s", "%%");
    CorvaneWarning("%s", "%x");
    ASSERT_EQ(record.reports.size(), 3u);
    EXPECT_EQ(record.reports[0].code, uint32_t(CorvaneCodeError));
    EXPECT_EQ(record.reports[0].text, "50% %d %s %n");
    EXPECT_EQ(record.reports[1].code, 77u);
    EXPECT_EQ(record.reports[1].text, "code %%");
    EXPECT_EQ(record.reports[2].text, "%x");
}

TEST(Diagnostics, OverlongTextsAreCutAtTheBuffer) {
    const std::string longText(1000, 'q');
    const std::string kept(399, 'q');
    RecordReports record;
    DebugCapture capture;

    CorvaneWarning("%s", longText.c_str());
    CorvaneError("%s", longText.c_str());
    CorvaneTrace(longText.c_str(), "t.cpp", 1);
    CorvaneAssert(longText.c_str(), 2);
    CorvaneDebug("%s", longText.c_str());
    CorvaneDebugChannel(9, "%s", longText.c_str());

    ASSERT_EQ(record.reports.size(), 4u);
    EXPECT_EQ(record.reports[0].text, kept);
    EXPECT_EQ(record.reports[1].text, kept);
    EXPECT_EQ(record.reports[2].text, "t.cpp(1) : TRACE " + std::string(399 - 17, 'q'));
    EXPECT_EQ(record.reports[3].text, "Assertion Failed: " + std::string(399 - 18, 'q'));
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
    EXPECT_EQ(capture.Pieces(), (Pieces{"DEBUG: ", "again: disk 2", "\n"}));
}

// Records the assertion and marks in the debug output when the handler ran.
std::vector<Report> Assertions;

void RecordAssertion(uint32_t code, const char* text) {
    Assertions.push_back({'E', code, text});
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
    int line = __LINE__ + 1;
    ASSERT(Assertions.empty());
    reachedBehind = true;
    CorvaneSetErrorHandler(old);

    EXPECT_TRUE(reachedBehind);
    ASSERT_EQ(Assertions.size(), 3u);
    EXPECT_EQ(Assertions[0].code, 512u);
    EXPECT_EQ(Assertions[0].text, "Assertion Failed: " + std::string(39, ' ') + "src/a.cpp(42)\n");
    EXPECT_EQ(Assertions[1].text,
              "Assertion Failed: a/very/long/path/of/more/than/forty-eight/characters.cpp(3)\n");
    std::string here = std::string(__FILE__) + "(" + std::to_string(line) + ")";
    EXPECT_EQ(Assertions[2].code, 512u);
    EXPECT_NE(Assertions[2].text.find(here), std::string::npos) << Assertions[2].text;
    ASSERT_EQ(capture.Pieces().size(), 6u);
    EXPECT_EQ(capture.Pieces()[0], "src/a.cpp(42) : ASSERTION FAILED\n");
    EXPECT_EQ(capture.Pieces()[1], "<handler>");
    EXPECT_EQ(capture.Pieces()[4], here + " : ASSERTION FAILED\n");
}

TEST(Diagnostics, NullHandlerPutsTheDefaultBack) {
    CorvaneTextHandler old = CorvaneSetWarningHandler(nullptr);
    DebugCapture capture;
    CorvaneWarning("w");
    CorvaneSetWarningHandler(old);
    EXPECT_EQ(capture.Pieces(), (Pieces{"WARNING: ", "w", "\n"}));
}

TEST(Diagnostics, ChannelFilterShowsAllButExcludedInModeZero) {
    FilterReset reset;
    DebugCapture capture;
    CorvaneDebugShowAll();
    CorvaneDebugChannel(5, "unknown %d", 5);
    EXPECT_EQ(capture.Text(), "DEBUG: unknown 5\n");

    capture.Clear();
    CorvaneDebugSetChannel(5, 0);
    CorvaneDebugSetChannel(5, 0);
    CorvaneDebugSetChannel(5, 1);  // no removal of a single channel
    CorvaneDebugSetChannel(6, 1);  // shown already: nothing listed
    CorvaneDebugChannel(5, "hidden");
    CorvaneDebugChannel(6, "six");
    CorvaneDebugChannel(0xFFFFFFFF, "other");
    EXPECT_EQ(capture.Text(), "DEBUG: six\nDEBUG: other\n");
    int32_t mode = 1;
    uint32_t included = 9, excluded = 9;
    CorvaneDebugGetFilter(&mode, &included, &excluded);
    EXPECT_EQ(mode, 0);
    EXPECT_EQ(included, 0u);
    EXPECT_EQ(excluded, 1u);

    CorvaneDebugSetChannel(7, 0);
    CorvaneDebugGetFilter(nullptr, nullptr, &excluded);
    EXPECT_EQ(excluded, 2u);

    capture.Clear();
    CorvaneDebugShowAll();
    CorvaneDebugChannel(5, "back");
    EXPECT_EQ(capture.Text(), "DEBUG: back\n");
    CorvaneDebugGetFilter(&mode, &included, &excluded);
    EXPECT_EQ(excluded, 0u);
}

TEST(Diagnostics, ChannelFilterShowsOnlyIncludedInModeMinusOne) {
    FilterReset reset;
    DebugCapture capture;
    CorvaneDebugShowNone();
    CorvaneDebugChannel(5, "unknown");
    CorvaneDebugSetChannel(6, 0);  // hidden already: nothing listed
    CorvaneDebugChannel(6, "six");
    EXPECT_TRUE(capture.Pieces().empty());

    CorvaneDebugSetChannel(5, 1);
    CorvaneDebugSetChannel(5, 1);
    CorvaneDebugSetChannel(5, 0);  // no removal of a single channel
    CorvaneDebugChannel(5, "five %s", "%d");
    CorvaneDebugChannel(6, "six");
    EXPECT_EQ(capture.Pieces(), (Pieces{"DEBUG: ", "five %d", "\n"}));
    int32_t mode = 0;
    uint32_t included = 9, excluded = 9;
    CorvaneDebugGetFilter(&mode, &included, &excluded);
    EXPECT_EQ(mode, -1);
    EXPECT_EQ(included, 1u);
    EXPECT_EQ(excluded, 0u);

    // A fresh ShowNone forgets the included channel.
    capture.Clear();
    CorvaneDebugShowNone();
    CorvaneDebugChannel(5, "five");
    EXPECT_TRUE(capture.Pieces().empty());

    // CorvaneDebug passes no filter.
    CorvaneDebug("plain");
    EXPECT_EQ(capture.Text(), "DEBUG: plain\n");
}

TEST(Diagnostics, InitAndCloseClearTheFilter) {
    FilterReset reset;
    DebugCapture capture;
    CorvaneDebugShowNone();
    CorvaneDebugSetChannel(3, 1);
    CorvaneInit();
    int32_t mode = 1;
    uint32_t included = 9, excluded = 9;
    CorvaneDebugGetFilter(&mode, &included, &excluded);
    EXPECT_EQ(mode, 0);
    EXPECT_EQ(included, 0u);
    CorvaneDebugChannel(4, "shown");
    EXPECT_EQ(capture.Text(), "DEBUG: shown\n");

    CorvaneDebugSetChannel(4, 0);
    CorvaneClose();  // frees the list; the leak checker would see it otherwise
    CorvaneDebugGetFilter(nullptr, &included, &excluded);
    EXPECT_EQ(included, 0u);
    EXPECT_EQ(excluded, 0u);
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

uint32_t PlatformFor(uint32_t platformId, uint32_t major, uint32_t minor) {
    StageVersion stage(0, major, minor, platformId);
    return CorvaneGetPlatform();
}

TEST(Diagnostics, PlatformPacksVersionAndCode) {
    EXPECT_EQ(PlatformFor(0, 3, 1), 0x03010001u);
    EXPECT_EQ(PlatformFor(1, 4, 0), 0x04000001u);
    EXPECT_EQ(PlatformFor(1, 4, 10), 0x040A0002u);
    EXPECT_EQ(PlatformFor(1, 4, 90), 0x045A0002u);
    EXPECT_EQ(PlatformFor(1, 5, 0), 0x05000002u);
    EXPECT_EQ(PlatformFor(1, 3, 95), 0x035F0001u);
    EXPECT_EQ(PlatformFor(2, 3, 51), 0x03330003u);
    EXPECT_EQ(PlatformFor(2, 10, 0), 0x0A000003u);
    EXPECT_EQ(PlatformFor(2, 0, 0), 0x00000003u);
    EXPECT_EQ(PlatformFor(3, 5, 1), 0x05010000u);
    EXPECT_EQ(PlatformFor(0x10002, 6, 2), 0x06020000u);
}

TEST(Diagnostics, PlatformAsksTheLongRecordFirstThenTheShort) {
    RecordReports record;
    uint32_t sizes[4] = {};
    {
        StageVersion stage(156, 4, 10, 1);
        EXPECT_EQ(CorvaneGetPlatform(), 0x040A0002u);
        ASSERT_EQ(StagedVersionQueries(sizes, 4), 2u);
        EXPECT_EQ(sizes[0], 156u);
        EXPECT_EQ(sizes[1], 148u);
    }
    {
        StageVersion stage(148, 5, 0, 2);
        EXPECT_EQ(CorvaneGetPlatform(), 0x05000003u);
        ASSERT_EQ(StagedVersionQueries(sizes, 4), 1u);
        EXPECT_EQ(sizes[0], 156u);
    }
    EXPECT_TRUE(record.reports.empty());
}

TEST(Diagnostics, PlatformFailureWarnsAndGivesZero) {
    StageVersion stage(1, 5, 0, 2);
    {
        RecordReports record;
        EXPECT_EQ(CorvaneGetPlatform(), 0u);
        ASSERT_EQ(record.reports.size(), 1u);
        EXPECT_EQ(record.reports[0].slot, 'W');
        EXPECT_EQ(record.reports[0].text,
                  "CorvaneGetPlatform:\nFailed to obtain system information.");
        uint32_t sizes[4] = {};
        ASSERT_EQ(StagedVersionQueries(sizes, 4), 2u);
        EXPECT_EQ(sizes[0], 156u);
        EXPECT_EQ(sizes[1], 148u);
    }
    DebugCapture capture;
    EXPECT_EQ(CorvaneGetPlatform(), 0u);
    EXPECT_EQ(
        capture.Pieces(),
        (Pieces{"WARNING: ", "CorvaneGetPlatform:\nFailed to obtain system information.", "\n"}));
}

TEST(Diagnostics, PlatformOnThisSystemIsTheNtFamily) {
    uint32_t platform = CorvaneGetPlatform();
    EXPECT_EQ(platform & 0xFFFFu, 3u);
    EXPECT_NE(platform >> 24, 0u);
}

}  // namespace
