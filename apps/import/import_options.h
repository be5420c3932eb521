// The command line of tenebrix-import.
#pragma once

#include <string>

#include "tool/import/import_run.h"

struct ImportOptions {
    ImportRequest request;
    bool quiet = false;
};

enum class ImportCommand { Run, Help, Version, UsageError };

// Reads the arguments; on a usage error the reason is in error.
ImportCommand ParseImportOptions(int argc, const char* const* argv, ImportOptions& options,
                                 std::string& error);

const char* ImportUsage();
