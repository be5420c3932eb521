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
    CorvaneSetWarningHandler(CorvaneSetWarningHandler(nullptr));  // null puts the default back
    CorvaneWarning("w");
    EXPECT_EQ(capture.Pieces(),
              (Texts{"WARNING: ", "low on space", "\n", "ALERT: ", "Could not open RESOURCE.CFG\n", "\n",
                     "engine/scene.cpp(17) : TRACE entering\n", "DEBUG: ", "3 meshes", "\n", "WARNING: ", "w",
                     "\n"}));
    EXPECT_EQ(capture.Boxes(), (Texts{"ALERT: Could not open RESOURCE.CFG\n"}));
}

// The presenter, called for the box, writes what the debug output had received by then.
DebugCapture* DyingCapture = nullptr;

TEST(DiagnosticsDeathTest, DefaultErrorShowsTheTextOnceThenAborts) {
    auto fail = [] {
        DebugCapture capture;
        DyingCapture = &capture;
        SetMessageBoxPresenter([](void*, const char* text, const char* caption, unsigned) -> int {
            for (const std::string& piece : DyingCapture->Pieces())
                std::fprintf(stderr, "[%s]", piece.c_str());
            std::fprintf(stderr, "box %s: %s|", caption, text);
            return IDOK;
        });
        CorvaneError("%s", "disk 100%d full");
    };
    EXPECT_DEATH(fail(), "\\[ERROR: \\]\\[disk 100%d full\\]\\[\n\\]box ERROR: disk 100%d full\\|");
    EXPECT_DEATH(CorvaneAssert("x.cpp", 7), "ERROR: Assertion Failed: +x\\.cpp\\(7\\)");
}

TEST(Diagnostics, TextsAreFormattedOnceAndCutAtTheBuffer) {
    {
        ReportLog log;
        CorvaneError("%s", "50% %d %s %n");
        CorvaneErrorCode(77, "code %s", "%%");
        // A handler may report the text it was given, which lives in the buffer the report uses.
        CorvaneSetWarningHandler([](const char* text) { CorvaneAlert("again: %s", text); });
        CorvaneWarning("%s", "%x");
        EXPECT_EQ(log.Take(), (Texts{"E513: 50% %d %s %n", "E77: code %%", "A: again: %x"}));
    }
    ReportLog cut;
    const std::string longText(1000, 'q'), kept(399, 'q');
    DebugCapture capture;
    CorvaneWarning("%s", longText.c_str());
    CorvaneTrace(longText.c_str(), "t.cpp", 1);
    CorvaneAssert(longText.c_str(), 2);
    CorvaneDebug("%s", longText.c_str());
    EXPECT_EQ(cut.Take(), (Texts{"W: " + kept, "T: t.cpp(1) : TRACE " + std::string(399 - 17, 'q'),
                                 "E512: Assertion Failed: " + std::string(399 - 18, 'q')}));
    ASSERT_EQ(capture.Pieces().size(), 4u);
    EXPECT_EQ(capture.Pieces()[0] + capture.Pieces()[2], kept + kept);  // the assertion's own text
}

TEST(Diagnostics, AssertionReportsTwoTextsAndGoesOnWithAReturningHandler) {
    ReportLog log;
    DebugCapture capture;
    CorvaneAssert("src/a.cpp", 42);
    CorvaneAssert("a/very/long/path/of/more/than/forty-eight/characters.cpp", 3);
    ASSERT(log.texts.size() == 2);  // holds: no report
    const int line = __LINE__ + 1;
    ASSERT(log.texts.empty());
    const std::string here = std::string(__FILE__) + "(" + std::to_string(line) + ")";
    ASSERT_EQ(log.texts.size(), 3u);
    EXPECT_EQ(log.texts[0], "E512: Assertion Failed: " + std::string(39, ' ') + "src/a.cpp(42)\n");
    EXPECT_EQ(log.texts[1],
              "E512: Assertion Failed: a/very/long/path/of/more/than/forty-eight/characters.cpp(3)\n");
    EXPECT_NE(log.texts[2].find(here + "\n"), std::string::npos) << log.texts[2];
    ASSERT_EQ(capture.Pieces().size(), 3u);
    EXPECT_EQ(capture.Pieces()[0], "src/a.cpp(42) : ASSERTION FAILED\n");
    EXPECT_EQ(capture.Pieces()[2], here + " : ASSERTION FAILED\n");
}

std::string Filter() {
    int32_t mode = 9;
    uint32_t included = 9, excluded = 9;
    CorvaneDebugGetFilter(&mode, &included, &excluded);
    return std::to_string(mode) + " +" + std::to_string(included) + " -" + std::to_string(excluded);
}

TEST(Diagnostics, ChannelFilterListsOnlyWhatDiffersFromItsMode) {
    DebugCapture capture;
    CorvaneDebugShowAll();
    CorvaneDebugSetChannel(5, 0);
    CorvaneDebugSetChannel(5, 0);
    CorvaneDebugSetChannel(5, 1);  // no removal of a single channel
    CorvaneDebugSetChannel(6, 1);  // shown already: nothing listed
    CorvaneDebugChannel(5, "hidden");
    CorvaneDebugChannel(6, "six");
    EXPECT_EQ(Filter(), "0 +0 -1");
    CorvaneDebugShowNone();
    CorvaneDebugSetChannel(6, 0);  // hidden already: nothing listed
    CorvaneDebugSetChannel(5, 1);
    CorvaneDebugSetChannel(5, 1);
    CorvaneDebugSetChannel(5, 0);  // no removal here either
    CorvaneDebugChannel(5, "five %s", "%d");
    CorvaneDebugChannel(6, "six");
    CorvaneDebug("plain");  // passes no filter
    EXPECT_EQ(capture.Text(), "DEBUG: six\nDEBUG: five %d\nDEBUG: plain\n");
    EXPECT_EQ(Filter(), "-1 +1 -0");
    CorvaneDebugShowNone();  // forgets the included channel
    EXPECT_EQ(Filter(), "-1 +0 -0");
    CorvaneDebugSetChannel(3, 1);
    CorvaneInit();  // init and close clear the filter
    EXPECT_EQ(Filter(), "0 +0 -0");
    CorvaneDebugSetChannel(4, 0);
    CorvaneClose();  // frees the list; the leak checker would see it otherwise
    EXPECT_EQ(Filter(), "0 +0 -0");
    CorvaneInit();
}

TEST(Diagnostics, PlatformPacksVersionAndCodeFromEitherRecord) {
    // refused record size, platform id, major, minor, packed, record sizes asked for
    const struct {
        uint32_t refuse, platformId, major, minor, packed;
        std::vector<uint32_t> asked;
    } rows[] = {
        {0, 0, 3, 1, 0x03010001u, {156}},         {0, 1, 4, 0, 0x04000001u, {156}},
        {156, 1, 4, 10, 0x040A0002u, {156, 148}}, {0, 1, 4, 90, 0x045A0002u, {156}},
        {0, 1, 5, 0, 0x05000002u, {156}},         {0, 1, 3, 95, 0x035F0001u, {156}},
        {148, 2, 3, 51, 0x03330003u, {156}},      {0, 2, 10, 0, 0x0A000003u, {156}},
        {0, 2, 0, 0, 0x00000003u, {156}},         {0, 3, 5, 1, 0x05010000u, {156}},
        {0, 0x10002, 6, 2, 0x06020000u, {156}},   {1, 2, 5, 0, 0, {156, 148}},
    };
    ReportLog log;
    for (const auto& row : rows) {
        const StagedVersion staged = {row.refuse, row.major, row.minor, row.platformId};
        StageVersionForTesting(&staged);
        EXPECT_EQ(CorvaneGetPlatform(), row.packed) << row.platformId << " " << row.major;
        uint32_t sizes[4] = {};
        EXPECT_EQ(std::vector<uint32_t>(sizes, sizes + StagedVersionQueries(sizes, 4)), row.asked);
    }
    StageVersionForTesting(nullptr);
    EXPECT_EQ(log.Take(), (Texts{"W: CorvaneGetPlatform:\nFailed to obtain system information."}));
    EXPECT_EQ(CorvaneGetPlatform() & 0xFFFFu, 3u);  // this system: the NT family
}

}  // namespace
