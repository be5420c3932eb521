#include "apps/common/tool_session.h"

#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include <unistd.h>

#include "apps/common/command_line.h"
#include "base/diagnostics.h"
#include "base/quoted_text.h"
#include "platform/crt/replacing_file.h"
#include "tool/bake/progress.h"
#include "tool/run/program_session.h"

namespace {

ToolSessionOptions Session;
int ErrorCount = 0;
std::atomic<int> InterruptCount = 0;  // lock-free, so a signal handler may count

void BeforeMessage() {
    if (Session.beforeMessage) Session.beforeMessage();
}

// Reports carry words from input files: nothing unprintable reaches the terminal, and every
// line of a report starts behind the program's name, so a reader can tell where each came from.
void Print(const char* grade, const char* text) {
    BeforeMessage();
    std::string lines = EscapedText(text ? text : "", true);
    while (!lines.empty() && lines.back() == '\n') lines.pop_back();
    for (size_t at = 0; (at = lines.find('\n', at)) != std::string::npos; at += 2)
        lines.insert(at + 1, "  ");
    std::fprintf(stderr, "%s: %s%s\n", Session.program, grade, lines.c_str());
}

void PrintWarning(const char* text) {
    if (!Session.quiet) Print("warning: ", text);
}

void PrintAlert(const char* text) {
    Print("", text);
}

// A reported error (a bad map's extension, a config without a value) fails the run but lets it
// go on: one bad map never ends a batch. A broken assertion ends the program.
void PrintError(uint32_t code, const char* text) {
    Print("error: ", text);
    if (code == CorvaneCodeAssertion) std::exit(ExitFailed);
    ++ErrorCount;
}

void WriteRaw(const char* text) {
    (void)!write(STDERR_FILENO, text, std::strlen(text));
}

// The first interrupt lets the bake stop between rows and clean up; a second one ends the program
// here, so only what a signal handler may call: write, unlink, _Exit.
void OnInterrupt(int) {
    if (++InterruptCount == 1) return RequestCancel();
    RemovePartialFilesNow();
    WriteRaw("\n");
    WriteRaw(Session.program);
    WriteRaw(": interrupted; stopped at once, no partial file was left\n");
    std::_Exit(ExitInterrupted);
}

// A fatal report has already said what happened; end without a core dump.
void OnAbort(int) {
    std::_Exit(ExitFailed);
}

}  // namespace

ToolSession::ToolSession(const ToolSessionOptions& options) {
    Session = options;
    ErrorCount = 0;
    InterruptCount = 0;
    StartProgram({PrintWarning, PrintAlert, PrintError});
    std::signal(SIGABRT, OnAbort);
    if (options.cancelOnInterrupt) {
        std::signal(SIGINT, OnInterrupt);
        std::signal(SIGTERM, OnInterrupt);
    }
}

ToolSession::~ToolSession() {
    StopProgram(false);
}

int ToolSession::Errors() {
    return ErrorCount;
}

int ToolSession::Interrupts() {
    return InterruptCount;
}
