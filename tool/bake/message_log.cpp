#include "tool/bake/message_log.h"

#include <cstring>

#include "base/memory.h"
#include "base/services.h"
#include "tool/bake/progress.h"

static char* Lines[MessageLogCapacity];  // owned copies, oldest first
static int LineCount = 0;
static MessageLogListener Listener = nullptr;

void LogMessage(const char* text) {
    if (!text) text = "";
    char* copy = CopyString(text);
    if (copy) {
        if (LineCount < MessageLogCapacity) {
            Lines[LineCount++] = copy;
        } else {
            if (Lines[0]) FREE(Lines[0]);
            std::memmove(&Lines[0], &Lines[1], sizeof(Lines[0]) * (MessageLogCapacity - 1));
            Lines[MessageLogCapacity - 1] = copy;
        }
    }
    RequestViewerRedraw();
    DrainMessages();
    if (Listener) Listener(text);
}

int MessageLogCount() {
    return LineCount;
}

const char* MessageLogLine(int index) {
    if (index < 0 || index >= LineCount) return nullptr;
    return Lines[index];
}

void MessageLogClear() {
    for (int i = 0; i < LineCount; ++i) {
        if (Lines[i]) FREE(Lines[i]);
        Lines[i] = nullptr;
    }
    LineCount = 0;
}

void SetMessageLogListener(MessageLogListener listener) {
    Listener = listener;
}
