#include "tool/bake/message_log.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tool/bake/progress.h"

namespace {

std::vector<std::string> Events;  // what the hooks and the listener saw, in order

// The log keeps its own copies of the last 50 lines; each message redraws, drains (where a quit
// request is remembered) and then tells the listener.
TEST(MessageLog, KeepsTheLast50LinesAndEachMessageRedrawsDrainsThenTellsTheListener) {
    MessageLogClear();
    for (int i = 0; i <= MessageLogCapacity; ++i) {
        std::string line = "line " + std::to_string(i);
        LogMessage(line.c_str());
        line.assign("scribbled");
    }
    ASSERT_EQ(MessageLogCount(), MessageLogCapacity);
    for (int i = 0; i < MessageLogCapacity; ++i)
        EXPECT_EQ(MessageLogLine(i), "line " + std::to_string(i + 1));
    EXPECT_EQ(MessageLogLine(-1), nullptr);
    EXPECT_EQ(MessageLogLine(MessageLogCapacity), nullptr);
    MessageLogClear();
    EXPECT_EQ(MessageLogLine(0), nullptr);

    ProgressHooks hooks = {nullptr, [] { Events.push_back("redraw"); },
                           [] {
                               Events.push_back("drain");
                               return true;
                           }};
    SetProgressHooks(&hooks);
    LogMessage("first");
    EXPECT_EQ(QuitRequested, 1);
    SetMessageLogListener(
        [](const char* text) { Events.push_back(std::string("listen:") + text); });
    LogMessage("second");
    SetMessageLogListener(nullptr);
    SetProgressHooks(nullptr);
    LogMessage("third");
    EXPECT_EQ(Events,
              (std::vector<std::string>{"redraw", "drain", "redraw", "drain", "listen:second"}));
    ASSERT_EQ(MessageLogCount(), 3);
    EXPECT_STREQ(MessageLogLine(2), "third");
    MessageLogClear();
    QuitRequested = 0;
}

}  // namespace
