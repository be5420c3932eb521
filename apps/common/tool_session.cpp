#include "apps/common/tool_session.h"

#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>

#include "apps/common/command_line.h"
#include "base/diagnostics.h"
#include "tool/bake/progress.h"
#include "tool/run/program_session.h"

namespace {

ToolSessionOptions Session;
int ErrorCount = 0;
std::atomic<int> InterruptCount = 0;  // lock-free, so a signal handler may count

void BeforeMessage() {
    if (Session.beforeMessage) Session.beforeMessage();
}

void PrintWarning(const char* text) {
    if (Session.quiet) return;
    BeforeMessage();
    std::fprintf(stderr, "%s: warning: %s", Session.program, text);
}

void PrintAlert(const char* text) {
    BeforeMessage();
    std::fprintf(stderr, "%s: %s", Session.program, text);
}

// A reported error (a bad map's extension, a config without a value) fails the run but lets it
// go on: one bad map never ends a batch. A broken assertion ends the program.
void PrintError(uint32_t code, const char* text) {
    BeforeMessage();
    std::fprintf(stderr, "%s: error: %s", Session.program, text);
    if (code == CorvaneCodeAssertion) std::exit(ExitFailed);
    ++ErrorCount;
}

void OnInterrupt(int) {
    if (++InterruptCount > 1) std::_Exit(ExitInterrupted);
    RequestCancel();
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
    StopProgram();
}

int ToolSession::Errors() {
    return ErrorCount;
}

int ToolSession::Interrupts() {
    return InterruptCount;
}
