#include "base/diagnostics.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "base/fatal_trap.h"
#include "base/file.h"
#include "base/memory.h"
#include "platform/crt/version.h"
#include "platform/debug/debug_output.h"

enum { ReportBufferSize = 400 };

// Every report but the default handlers' prefixes is formatted here; handlers get a pointer into
// it, so their text lives only until the next report.
static char ReportBuffer[ReportBufferSize];

// Formats into a scratch copy first: a handler that reports its own text again passes a pointer
// into ReportBuffer as an argument, and vsnprintf must not read the buffer it writes.
__attribute__((format(printf, 1, 0))) static const char* FormatReport(const char* format,
                                                                      va_list args) {
    char scratch[ReportBufferSize];
    scratch[0] = '\0';
    if (format && std::vsnprintf(scratch, sizeof scratch, format, args) < 0) scratch[0] = '\0';
    // vsnprintf truncates an overlong text at the buffer's end and always terminates it.
    std::memcpy(ReportBuffer, scratch, std::strlen(scratch) + 1);
    return ReportBuffer;
}

__attribute__((format(printf, 1, 2))) static const char* Format(const char* format, ...) {
    va_list args;
    va_start(args, format);
    const char* text = FormatReport(format, args);
    va_end(args);
    return text;
}

static void DefaultWarningHandler(const char* text) {
    OutputDebugStringA("WARNING: ");
    OutputDebugStringA(text);
    OutputDebugStringA("\n");
}

static void DefaultAlertHandler(const char* text) {
    OutputDebugStringA("ALERT: ");
    OutputDebugStringA(text);
    OutputDebugStringA("\n");
    MessageBoxA(nullptr, text, "ALERT", MB_OK);
}

static void DefaultErrorHandler(uint32_t code, const char* text) {
    OutputDebugStringA("ERROR: ");
    OutputDebugStringA(text);
    OutputDebugStringA("\n");
    // A job's bad data ends the job; a broken assertion is the program's own fault.
    if (code != CorvaneCodeAssertion && TrapFatalReport("ERROR", text)) return;
    MessageBoxA(nullptr, text, "ERROR", MB_OK);
    std::abort();
}

static void DefaultTraceHandler(const char* text) {
    OutputDebugStringA(text);
}

// Static data, so reports work before any constructor of the program has run.
static CorvaneTextHandler WarningHandler = DefaultWarningHandler;
static CorvaneTextHandler AlertHandler = DefaultAlertHandler;
static CorvaneErrorHandler ErrorHandler = DefaultErrorHandler;
static CorvaneTextHandler TraceHandler = DefaultTraceHandler;

void CorvaneWarning(const char* format, ...) {
    va_list args;
    va_start(args, format);
    const char* text = FormatReport(format, args);
    va_end(args);
    WarningHandler(text);
}

void CorvaneAlert(const char* format, ...) {
    va_list args;
    va_start(args, format);
    const char* text = FormatReport(format, args);
    va_end(args);
    AlertHandler(text);
}

void CorvaneError(const char* format, ...) {
    va_list args;
    va_start(args, format);
    const char* text = FormatReport(format, args);
    va_end(args);
    ErrorHandler(CorvaneCodeError, text);
}

void CorvaneErrorCode(uint32_t code, const char* format, ...) {
    va_list args;
    va_start(args, format);
    const char* text = FormatReport(format, args);
    va_end(args);
    ErrorHandler(code, text);
}

void CorvaneAssert(const char* file, int line) {
    file = file ? file : "";
    OutputDebugStringA(Format("%s(%d) : ASSERTION FAILED\n", file, line));
    ErrorHandler(CorvaneCodeAssertion, Format("Assertion Failed: %48s(%d)\n", file, line));
}

void CorvaneTrace(const char* text, const char* file, int line) {
    TraceHandler(Format("%s(%d) : TRACE %s\n", file ? file : "", line, text ? text : ""));
}

static void DebugOutput(const char* text) {
    OutputDebugStringA("DEBUG: ");
    OutputDebugStringA(text);
    OutputDebugStringA("\n");
}

void CorvaneDebug(const char* format, ...) {
    va_list args;
    va_start(args, format);
    const char* text = FormatReport(format, args);
    va_end(args);
    DebugOutput(text);
}

// A null handler puts the default back, so a slot never holds nothing.
CorvaneTextHandler CorvaneSetWarningHandler(CorvaneTextHandler handler) {
    CorvaneTextHandler previous = WarningHandler;
    WarningHandler = handler ? handler : DefaultWarningHandler;
    return previous;
}

CorvaneTextHandler CorvaneSetAlertHandler(CorvaneTextHandler handler) {
    CorvaneTextHandler previous = AlertHandler;
    AlertHandler = handler ? handler : DefaultAlertHandler;
    return previous;
}

CorvaneErrorHandler CorvaneSetErrorHandler(CorvaneErrorHandler handler) {
    CorvaneErrorHandler previous = ErrorHandler;
    ErrorHandler = handler ? handler : DefaultErrorHandler;
    return previous;
}

CorvaneTextHandler CorvaneSetTraceHandler(CorvaneTextHandler handler) {
    CorvaneTextHandler previous = TraceHandler;
    TraceHandler = handler ? handler : DefaultTraceHandler;
    return previous;
}

// Channel filter. Mode 0 shows every channel but the excluded ones; mode -1 only the included.
// The lists grow by exactly one element per new channel and are never shrunk.
struct ChannelList {
    uint32_t* channels;
    uint32_t count;
};

static int32_t FilterMode = 0;
static ChannelList IncludeList = {nullptr, 0};
static ChannelList ExcludeList = {nullptr, 0};

static bool ListHolds(const ChannelList& list, uint32_t channel) {
    for (uint32_t i = 0; i < list.count; ++i) {
        if (list.channels[i] == channel) return true;
    }
    return false;
}

static void ListAdd(ChannelList& list, uint32_t channel) {
    if (ListHolds(list, channel)) return;
    size_t oldSize = size_t(list.count) * sizeof(uint32_t);
    void* grown = CvReallocCopy(list.channels, oldSize, oldSize + sizeof(uint32_t));
    list.channels = static_cast<uint32_t*>(grown);
    if (!list.channels) {
        // The old block went with the failed copy; the filter forgets its list.
        list.count = 0;
        return;
    }
    list.channels[list.count++] = channel;
}

static void ListFree(ChannelList& list) {
    if (list.channels) FREE(list.channels);
    list.channels = nullptr;
    list.count = 0;
}

void CorvaneDebugShowAll() {
    ListFree(IncludeList);
    ListFree(ExcludeList);
    FilterMode = 0;
}

void CorvaneDebugShowNone() {
    ListFree(IncludeList);
    ListFree(ExcludeList);
    FilterMode = -1;
}

void CorvaneDebugSetChannel(uint32_t channel, uint8_t enabled) {
    if (FilterMode == 0) {
        if (!enabled) ListAdd(ExcludeList, channel);
    } else {
        if (enabled) ListAdd(IncludeList, channel);
    }
}

void CorvaneDebugGetFilter(int32_t* mode, uint32_t* includeCount, uint32_t* excludeCount) {
    if (mode) *mode = FilterMode;
    if (includeCount) *includeCount = IncludeList.count;
    if (excludeCount) *excludeCount = ExcludeList.count;
}

static bool ChannelShown(uint32_t channel) {
    if (FilterMode == 0) return !ListHolds(ExcludeList, channel);
    return ListHolds(IncludeList, channel);
}

void CorvaneDebugChannel(uint32_t channel, const char* format, ...) {
    if (!ChannelShown(channel)) return;
    va_list args;
    va_start(args, format);
    const char* text = FormatReport(format, args);
    va_end(args);
    DebugOutput(text);
}

void CorvaneInit() {
    // Lists left by an earlier start go back while the tracker still knows their blocks; at the
    // program's first start there are none.
    ListFree(IncludeList);
    ListFree(ExcludeList);
    MemoryInit();
    FilterMode = 0;
}

void CorvaneClose() {
    FileCloseReport();  // files left open are reported and closed first
    ListFree(IncludeList);
    ListFree(ExcludeList);
    MemoryClose();
}

enum : uint32_t {
    VersionInfoExSize = sizeof(OSVERSIONINFOEXA),  // 156
    VersionInfoSize = sizeof(OSVERSIONINFOA),      // 148
};

static uint32_t PlatformCode(uint32_t platformId, uint32_t major, uint32_t minor) {
    switch (platformId) {
        case VER_PLATFORM_WIN32s:
            return 1;
        case VER_PLATFORM_WIN32_WINDOWS:
            return (major > 4 || (major == 4 && minor != 0)) ? 2 : 1;
        case VER_PLATFORM_WIN32_NT:
            return 3;
        default:
            return 0;
    }
}

uint32_t CorvaneGetPlatform() {
    OSVERSIONINFOEXA info;
    std::memset(&info, 0, sizeof info);
    info.base.dwOSVersionInfoSize = VersionInfoExSize;
    if (!GetVersionExA(&info.base)) {
        std::memset(&info, 0, sizeof info);
        info.base.dwOSVersionInfoSize = VersionInfoSize;
        if (!GetVersionExA(&info.base)) {
            CorvaneWarning("CorvaneGetPlatform:\nFailed to obtain system information.");
            return 0;
        }
    }
    uint32_t major = info.base.dwMajorVersion;
    uint32_t minor = info.base.dwMinorVersion;
    return (major & 0xFFu) << 24 | (minor & 0xFFu) << 16 |
           PlatformCode(info.base.dwPlatformId, major, minor);
}
