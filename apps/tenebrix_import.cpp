// tenebrix-import: maps from the formats artists already use, for people at a terminal and for
// build pipelines that turn a level's source files into a map folder.
#include <cstdio>
#include <string>

#include "apps/common/tool_session.h"
#include "apps/import/import_options.h"
#include "tool/import/import_run.h"

namespace {

constexpr const char* Program = "tenebrix-import";

bool Quiet = false;

void PrintReport(ImportSeverity severity, const std::string& text) {
    if (Quiet && severity != ImportSeverity::Error) return;
    const char* grade = severity == ImportSeverity::Error     ? "error: "
                        : severity == ImportSeverity::Warning ? "warning: "
                                                              : "";
    std::fprintf(stderr, "%s: %s%s\n", Program, grade, text.c_str());
}

}  // namespace

int main(int argc, char** argv) {
    ImportOptions options;
    CommandLineOutcome parsed = ParseImportOptions(argc, argv, options);
    if (!parsed.run) return PrintOutcome(parsed);
    Quiet = options.quiet;
    ToolSessionOptions session;
    session.program = Program;
    session.quiet = Quiet;
    ToolSession running(session);

    ImportLog log(PrintReport);
    ImportSummary summary;
    bool written = RunImport(options.request, log, summary);
    if (written && !Quiet) std::printf("%s: %s\n", Program, FormatSummary(summary).c_str());
    if (!written) std::fprintf(stderr, "%s: no map written\n", Program);
    return written && log.Errors() == 0 && ToolSession::Errors() == 0 ? 0 : ExitFailed;
}
