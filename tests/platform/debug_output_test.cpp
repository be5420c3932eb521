#include "platform/debug/debug_output.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using Texts = std::vector<std::string>;
Texts Presented;

TEST(DebugOutput, BoxesReachThePresenterAndTheInnermostCapture) {
    DebugCapture outer;
    MessageBoxPresenter none =
        SetMessageBoxPresenter([](void*, const char* text, const char* caption, unsigned type) {
            Presented.push_back(std::string(caption) + "|" + text + "|" + std::to_string(type));
            return 7;
        });
    {
        DebugCapture inner;
        EXPECT_EQ(MessageBoxA(nullptr, "Could not open", "ALERT", MB_OK | MB_ICONERROR), 7);
        OutputDebugStringA(nullptr);
        OutputDebugStringA("");
        EXPECT_EQ(inner.Pieces(), Texts{""});
        EXPECT_EQ(inner.Boxes(), Texts{"ALERT: Could not open"});
    }
    EXPECT_EQ(MessageBoxA(nullptr, nullptr, nullptr, MB_OK), 7);
    SetMessageBoxPresenter(none);
    EXPECT_EQ(Presented, (Texts{"ALERT|Could not open|16", "||0"}));
    EXPECT_EQ(outer.Boxes(), Texts{": "});
    EXPECT_TRUE(outer.Pieces().empty());
}

}  // namespace
