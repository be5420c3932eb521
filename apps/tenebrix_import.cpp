// tenebrix-import: maps from the formats artists already use, for people at a terminal and for
// build pipelines that turn a level's source files into a map folder.
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "apps/import/import_options.h"
#include "base/diagnostics.h"
#include "engine/texture/texture.h"
#include "tool/import/import_run.h"

namespace {

constexpr const char* Program = "tenebrix-import";
constexpr int ExitFailed = 1, ExitUsage = 2;

bool Quiet = false;

void PrintReport(ImportSeverity severity, const std::string& text) {
    if (Quiet && severity != ImportSeverity::Error) return;
    const char* grade = severity == ImportSeverity::Error     ? "error: "
                        : severity == ImportSeverity::Warning ? "warning: "
                                                              : "";
    std::fprintf(stderr, "%s: %s%s\n", Program, grade, text.c_str());
}

// The engine's own reports (a texture it can't save, an assertion) end up on the terminal; an
// error fails the run.
int EngineErrors = 0;
void PrintWarning(const char* text) {
    if (!Quiet) std::fprintf(stderr, "%s: warning: %s", Program, text);
}
void PrintAlert(const char* text) {
    std::fprintf(stderr, "%s: %s", Program, text);
}
void PrintError(uint32_t code, const char* text) {
    std::fprintf(stderr, "%s: error: %s", Program, text);
    if (code == CorvaneCodeAssertion) std::exit(ExitFailed);
    ++EngineErrors;
}
void OnAbort(int) {
    std::_Exit(ExitFailed);
}

}  // namespace

int main(int argc, char** argv) {
    ImportOptions options;
    std::string error;
    switch (ParseImportOptions(argc, argv, options, error)) {
        case ImportCommand::Help:
            std::fputs(ImportUsage(), stdout);
            return 0;
        case ImportCommand::Version:
            std::printf("%s 0.1.0\n", Program);
            return 0;
        case ImportCommand::UsageError:
            std::fprintf(stderr, "%s: %s\nTry '%s --help'.\n", Program, error.c_str(), Program);
            return ExitUsage;
        case ImportCommand::Run:
            break;
    }
    Quiet = options.quiet;
    CorvaneInit();
    CorvaneSetWarningHandler(PrintWarning);
    CorvaneSetAlertHandler(PrintAlert);
    CorvaneSetErrorHandler(PrintError);
    std::signal(SIGABRT, OnAbort);

    ImportLog log(PrintReport);
    ImportSummary summary;
    bool written = RunImport(options.request, log, summary);
    if (written && !Quiet) std::printf("%s: %s\n", Program, FormatSummary(summary).c_str());
    if (!written) std::fprintf(stderr, "%s: no map written\n", Program);
    FreeAllTextures();
    CorvaneClose();
    return written && log.Errors() == 0 && EngineErrors == 0 ? 0 : ExitFailed;
}
