// The tool's message log: the last 50 lines produced for a person, as owned copies.
#pragma once

enum { MessageLogCapacity = 50 };

// Stores a copy (dropping the oldest when full), requests a redraw of the viewer and drains the
// window messages as the bake pass does.
void LogMessage(const char* text);

int MessageLogCount();
const char* MessageLogLine(int index);  // 0 is the oldest held; null out of range
void MessageLogClear();                 // frees every line

// Called with each line as it is logged, for a front end that shows the lines as they come
// (the command line prints them to stderr). Null removes it.
using MessageLogListener = void (*)(const char* text);
void SetMessageLogListener(MessageLogListener listener);
