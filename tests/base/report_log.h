// Every warning, alert, error and trace reported while it lives, in order, as "W: text",
// "A: text", "E<code>: text" and "T: text". The handlers return, so a test watches misuse go on.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "base/diagnostics.h"

using Texts = std::vector<std::string>;

class ReportLog {
public:
    ReportLog() {
        active = this;
        oldWarning = CorvaneSetWarningHandler([](const char* t) { Add("W: ", t); });
        oldAlert = CorvaneSetAlertHandler([](const char* t) { Add("A: ", t); });
        oldTrace = CorvaneSetTraceHandler([](const char* t) { Add("T: ", t); });
        oldError = CorvaneSetErrorHandler(
            [](uint32_t code, const char* t) { Add("E" + std::to_string(code) + ": ", t); });
    }
    ~ReportLog() {
        CorvaneSetWarningHandler(oldWarning);
        CorvaneSetAlertHandler(oldAlert);
        CorvaneSetTraceHandler(oldTrace);
        CorvaneSetErrorHandler(oldError);
    }
    Texts Take() { return std::exchange(texts, {}); }

    Texts texts;

private:
    static void Add(const std::string& slot, const char* text) { active->texts.push_back(slot + text); }
    static inline ReportLog* active = nullptr;
    CorvaneTextHandler oldWarning, oldAlert, oldTrace;
    CorvaneErrorHandler oldError;
};
