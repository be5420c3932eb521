#include "tool/bake/message_log.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "tool/bake/progress.h"

namespace {

std::vector<std::string> Events;  // what the hooks and the listener saw, in order

class MessageLogTest : public ::testing::Test {
protected:
    void SetUp() override {
        MessageLogClear();
        Events.clear();
    }
    void TearDown() override {
        MessageLogClear();
        SetMessageLogListener(nullptr);
        SetProgressHooks(nullptr);
        QuitRequested = 0;
    }
};

TEST_F(MessageLogTest, KeepsTheLast50LinesInOrder) {
    char buffer[32];
    for (int i = 0; i <= MessageLogCapacity; ++i) {
        std::snprintf(buffer, sizeof(buffer), "line %d", i);
        LogMessage(buffer);
        std::snprintf(buffer, sizeof(buffer), "scribbled");  // the log holds its own copy
    }
    ASSERT_EQ(MessageLogCapacity, MessageLogCount());
    for (int i = 0; i < MessageLogCapacity; ++i)
        EXPECT_EQ("line " + std::to_string(i + 1), MessageLogLine(i));
    EXPECT_EQ(nullptr, MessageLogLine(-1));
    EXPECT_EQ(nullptr, MessageLogLine(MessageLogCapacity));

    MessageLogClear();
    EXPECT_EQ(nullptr, MessageLogLine(0));
    LogMessage("again");
    ASSERT_EQ(1, MessageLogCount());
    EXPECT_STREQ("again", MessageLogLine(0));
}

TEST_F(MessageLogTest, EachMessageRedrawsDrainsThenTellsTheListener) {
    ProgressHooks hooks = {};
    hooks.redrawViewer = [] { Events.push_back("redraw"); };
    hooks.drainMessages = [] {
        Events.push_back("drain");
        return true;  // a quit request
    };
    SetProgressHooks(&hooks);
    LogMessage("first");
    EXPECT_EQ(1, QuitRequested);
    SetMessageLogListener(
        [](const char* text) { Events.push_back(std::string("listen:") + text); });
    LogMessage("second");
    SetMessageLogListener(nullptr);
    LogMessage("third");
    EXPECT_EQ((std::vector<std::string>{"redraw", "drain", "redraw", "drain", "listen:second",
                                        "redraw", "drain"}),
              Events);
    EXPECT_EQ(3, MessageLogCount());
}

}  // namespace
