#include "base/velmora_log.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>

#include "base/fatal_trap.h"
#include "platform/crt/replacing_file.h"
#include "platform/debug/debug_output.h"

enum { VelmoraMessageSize = 400 };

// The first message of a run makes the file afresh, and so does the message after a failed open.
static bool LastOpenSucceeded = false;

void VelmoraLogBeginRun() {
    LastOpenSucceeded = false;
}

void VelmoraLog(const char* tag, const char* format, ...) {
    tag = tag ? tag : "";
    char message[VelmoraMessageSize];
    va_list args;
    va_start(args, format);
    if (std::vsnprintf(message, sizeof message, format, args) < 0) message[0] = '\0';
    va_end(args);

    // Never through a link: a fresh file replaces one planted before the run, and a message
    // that meets one planted since is dropped from the file.
    if (LastOpenSucceeded) {
        FILE* file = OpenFileNoFollow("velmora.log", "a");
        LastOpenSucceeded = file != nullptr;
        if (file) {
            std::fprintf(file, "LOG: (%s) ", tag);
            std::fputs(message, file);
            std::fclose(file);
        }
    } else {
        ReplacingFile file("velmora.log");
        LastOpenSucceeded =
            file.Stream() && file.Commit(std::fprintf(file.Stream(), "LOG: (%s) ", tag) >= 0 &&
                                         std::fputs(message, file.Stream()) >= 0);
    }
    OutputDebugStringA("LOG: (");
    OutputDebugStringA(tag);
    OutputDebugStringA(") ");
    OutputDebugStringA(message);
    OutputDebugStringA("\n");
}

__attribute__((format(printf, 2, 0))) static void FormatFatal(char (&message)[VelmoraMessageSize],
                                                              const char* format, va_list args) {
    if (std::vsnprintf(message, sizeof message, format, args) < 0) message[0] = '\0';
}

[[noreturn]] static void ShowAndAbort(const char* tag, const char* message) {
    MessageBoxA(nullptr, message, tag, MB_OK);
    std::abort();
}

void VelmoraFatal(const char* tag, const char* format, ...) {
    char message[VelmoraMessageSize];
    va_list args;
    va_start(args, format);
    FormatFatal(message, format, args);
    va_end(args);
    ShowAndAbort(tag, message);
}

void VelmoraDataFatal(const char* tag, const char* format, ...) {
    char message[VelmoraMessageSize];
    va_list args;
    va_start(args, format);
    FormatFatal(message, format, args);
    va_end(args);
    if (!TrapFatalReport(tag, message)) ShowAndAbort(tag, message);
}
