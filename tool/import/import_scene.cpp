#include "tool/import/import_scene.h"

#include <cstdio>

void ImportLog::Report(ImportSeverity severity, const std::string& text) {
    if (severity == ImportSeverity::Error) ++errors;
    if (sink) sink(severity, text);
}

std::string Number(double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%.6g", value + 0.0);  // no "-0"
    return text;
}
