// Reports by grade: debug, trace, warning, alert, error, and assertions. Warning, alert, error and
// trace go through replaceable handlers; debug output can be filtered by channel. Report texts
// are formatted into one shared 400-byte buffer, so a handler's text is valid only until the next
// report. Nothing here takes a lock.
#pragma once

#include <cstdint>

using CorvaneTextHandler = void (*)(const char* text);
using CorvaneErrorHandler = void (*)(uint32_t code, const char* text);

enum : uint32_t {
    CorvaneCodeAssertion = 512,
    CorvaneCodeError = 513,
};

void CorvaneWarning(const char* format, ...) __attribute__((format(printf, 1, 2)));
void CorvaneAlert(const char* format, ...) __attribute__((format(printf, 1, 2)));
void CorvaneError(const char* format, ...) __attribute__((format(printf, 1, 2)));
void CorvaneErrorCode(uint32_t code, const char* format, ...)
    __attribute__((format(printf, 2, 3)));
void CorvaneAssert(const char* file, int line);
void CorvaneTrace(const char* text, const char* file, int line);
void CorvaneDebug(const char* format, ...) __attribute__((format(printf, 1, 2)));
void CorvaneDebugChannel(uint32_t channel, const char* format, ...)
    __attribute__((format(printf, 2, 3)));

// Each setter installs a new handler and returns the one it replaces; null puts the default back.
// The default error handler shows the text and aborts, whatever the code.
CorvaneTextHandler CorvaneSetWarningHandler(CorvaneTextHandler handler);
CorvaneTextHandler CorvaneSetAlertHandler(CorvaneTextHandler handler);
CorvaneErrorHandler CorvaneSetErrorHandler(CorvaneErrorHandler handler);
CorvaneTextHandler CorvaneSetTraceHandler(CorvaneTextHandler handler);

// Channel filter of CorvaneDebugChannel.
void CorvaneDebugShowAll();
void CorvaneDebugShowNone();
void CorvaneDebugSetChannel(uint32_t channel, uint8_t enabled);
// The filter's state as it stands, for reports of the library's memory and for tests.
void CorvaneDebugGetFilter(int32_t* mode, uint32_t* includeCount, uint32_t* excludeCount);

void CorvaneInit();
void CorvaneClose();

// Major version in bits 24-31, minor in 16-23, platform code in the low 16 bits; 0 on failure.
uint32_t CorvaneGetPlatform();

// Raised when the condition is false; the default error handler then aborts. With a handler that
// returns, execution continues behind the assertion.
#define ASSERT(condition)                                   \
    do {                                                    \
        if (!(condition)) CorvaneAssert(__FILE__, __LINE__); \
    } while (0)

#define TRACE(text) CorvaneTrace((text), __FILE__, __LINE__)
