// Captures the warnings and errors reported while it lives, in order, as "W: text" and
// "E<code>: text"; the error handler returns, so tests can watch misuse go on.
#pragma once

#include <string>
#include <vector>

#include "base/diagnostics.h"

class ReportCapture {
public:
    ReportCapture() {
        active = this;
        oldWarning = CorvaneSetWarningHandler([](const char* t) {
            ++active->warnings;
            active->lastWarning = t;
            active->texts.push_back("W: " + std::string(t));
        });
        oldError = CorvaneSetErrorHandler([](uint32_t code, const char* t) {
            active->texts.push_back("E" + std::to_string(code) + ": " + t);
        });
    }
    ~ReportCapture() {
        CorvaneSetWarningHandler(oldWarning);
        CorvaneSetErrorHandler(oldError);
        active = nullptr;
    }
    ReportCapture(const ReportCapture&) = delete;
    ReportCapture& operator=(const ReportCapture&) = delete;

    std::vector<std::string> Take() { return std::move(texts); }

    int warnings = 0;
    std::string lastWarning;

private:
    static inline ReportCapture* active = nullptr;
    std::vector<std::string> texts;
    CorvaneTextHandler oldWarning;
    CorvaneErrorHandler oldError;
};
