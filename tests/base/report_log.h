// Every warning, alert, error and trace reported while it lives, in order, as "W: text",
// "A: text", "E<code>: text" and "T: text". The handlers return, so a test watches misuse go
// on; the old handlers come back at the end.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "base/diagnostics.h"

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
        active = nullptr;
    }
    ReportLog(const ReportLog&) = delete;
    ReportLog& operator=(const ReportLog&) = delete;

    bool Has(const std::string& part) const {
        for (const std::string& text : texts)
            if (text.find(part) != std::string::npos) return true;
        return false;
    }
    std::vector<std::string> Take() { return std::exchange(texts, {}); }

    std::vector<std::string> texts;

private:
    static void Add(const std::string& slot, const char* text) {
        active->texts.push_back(slot + text);
    }
    static inline ReportLog* active = nullptr;
    CorvaneTextHandler oldWarning, oldAlert, oldTrace;
    CorvaneErrorHandler oldError;
};

using Texts = std::vector<std::string>;
