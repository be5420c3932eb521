#include "platform/debug/debug_output.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

namespace {

using Pieces = std::vector<std::string>;
Pieces Presented;

TEST(DebugOutput, CapturesNestAndBoxesGoToThePresenterOrReturnAtOnce) {
    DebugCapture outer;
    OutputDebugStringA("a %s b\n");
    OutputDebugStringA(nullptr);
    {
        DebugCapture inner;
        OutputDebugStringA("");
        MessageBoxA(nullptr, "text", "Caption", MB_OK);
        EXPECT_EQ(inner.Pieces(), Pieces{""});
        EXPECT_EQ(inner.Boxes(), Pieces{"Caption: text"});
    }
    MessageBoxPresenter none =
        SetMessageBoxPresenter([](void*, const char* t, const char* c, unsigned type) {
            Presented.push_back(std::string(c) + "|" + t + "|" + std::to_string(type));
            return 7;
        });
    EXPECT_EQ(MessageBoxA(nullptr, "Could not open", "ALERT", MB_OK | MB_ICONERROR), 7);
    EXPECT_EQ(MessageBoxA(nullptr, nullptr, nullptr, MB_OK), 7);
    SetMessageBoxPresenter(none);
    // Without a presenter nobody can dismiss the box: it returns OK without waiting.
    EXPECT_EQ(MessageBoxA(nullptr, "no one there", "ERROR", MB_OK), int(IDOK));
    EXPECT_EQ(Presented, (Pieces{"ALERT|Could not open|16", "||0"}));
    EXPECT_EQ(outer.Pieces(), Pieces{"a %s b\n"});
    EXPECT_EQ(outer.Boxes(), (Pieces{"ALERT: Could not open", ": ", "ERROR: no one there"}));
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
