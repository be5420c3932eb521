// The command line of tenebrix-import.
#pragma once

#include <string>

#include "apps/common/command_line.h"
#include "tool/import/import_run.h"

struct ImportOptions {
    ImportRequest request;
    bool quiet = false;
};

// Reads the arguments into options; without a run, the outcome holds the answer to print or the
// usage error.
CommandLineOutcome ParseImportOptions(int argc, const char* const* argv, ImportOptions& options);
