#include "tool/import/import_scene.h"

void ImportLog::Report(ImportSeverity severity, const std::string& text) {
    if (severity == ImportSeverity::Error) ++errors;
    if (sink) sink(severity, text);
}
