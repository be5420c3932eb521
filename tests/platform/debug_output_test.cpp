#include "platform/debug/debug_output.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

namespace {

using Pieces = std::vector<std::string>;

TEST(DebugOutput, CaptureKeepsPiecesInOrder) {
    DebugCapture capture;
    OutputDebugStringA("WARNING: ");
    OutputDebugStringA(nullptr);
    OutputDebugStringA("");
    OutputDebugStringA("a %s b");
    OutputDebugStringA("\n");
    EXPECT_EQ(capture.Pieces(), (Pieces{"WARNING: ", "", "a %s b", "\n"}));
    EXPECT_EQ(capture.Text(), "WARNING: a %s b\n");

    capture.Clear();
    EXPECT_TRUE(capture.Pieces().empty());
    EXPECT_EQ(capture.Text(), "");
}

TEST(DebugOutput, InnerCaptureTakesOverWhileItLives) {
    DebugCapture outer;
    OutputDebugStringA("one");
    {
        DebugCapture inner;
        OutputDebugStringA("two");
        MessageBoxA(nullptr, "text", "Caption", MB_OK);
        EXPECT_EQ(inner.Pieces(), (Pieces{"two"}));
        EXPECT_EQ(inner.Boxes(), (Pieces{"Caption: text"}));
    }
    OutputDebugStringA("three");
    EXPECT_EQ(outer.Pieces(), (Pieces{"one", "three"}));
    EXPECT_TRUE(outer.Boxes().empty());
}

struct PresenterCall {
    std::string text, caption;
    unsigned type;
};
std::vector<PresenterCall> Presented;

int RecordingPresenter(void*, const char* text, const char* caption, unsigned type) {
    Presented.push_back({text, caption, type});
    return 7;
}

TEST(DebugOutput, MessageBoxGoesToThePresenterOrReturnsAtOnce) {
    Presented.clear();
    DebugCapture capture;
    MessageBoxPresenter none = SetMessageBoxPresenter(RecordingPresenter);
    EXPECT_EQ(MessageBoxA(nullptr, "Could not open", "ALERT", MB_OK | MB_ICONERROR), 7);
    EXPECT_EQ(MessageBoxA(nullptr, nullptr, nullptr, MB_OK), 7);
    EXPECT_EQ(SetMessageBoxPresenter(none), RecordingPresenter);

    ASSERT_EQ(Presented.size(), 2u);
    EXPECT_EQ(Presented[0].text, "Could not open");
    EXPECT_EQ(Presented[0].caption, "ALERT");
    EXPECT_EQ(Presented[0].type, unsigned(MB_OK | MB_ICONERROR));
    EXPECT_EQ(Presented[1].text, "");

    // Without a presenter nobody can dismiss the box: it returns OK without waiting.
    EXPECT_EQ(MessageBoxA(nullptr, "no one there", "ERROR", MB_OK), int(IDOK));
    EXPECT_EQ(Presented.size(), 2u);
    EXPECT_EQ(capture.Boxes(), (Pieces{"ALERT: Could not open", ": ", "ERROR: no one there"}));
}

TEST(DebugOutputDeathTest, DebugOutputReachesStderrWhenAsked) {
    // The switch is read once per process, so the check runs in a fresh one.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    setenv("TENEBRIX_DEBUG", "1", 1);
    EXPECT_EXIT(
        {
            OutputDebugStringA("LOG: (");
            OutputDebugStringA("Tag) seen\n");
            std::exit(0);
        },
        testing::ExitedWithCode(0), "LOG: \\(Tag\\) seen");
    unsetenv("TENEBRIX_DEBUG");
}

}  // namespace
