#include "tool/run/map_path.h"

#include <filesystem>
#include <vector>

#include "tool/run/app_state.h"
#include "tool/run/bake_run.h"

namespace fs = std::filesystem;

bool MapTypeReadable(const std::string& spelling, const std::string& file) {
    std::string ext = fs::path(file).extension().string();
    return ext.size() >= 3 && MapTypeLetter(spelling.c_str()) == ext[2];
}

std::string MapPathForRun(const std::string& file) {
    std::error_code error;
    std::vector<std::string> spellings = {
        fs::relative(file, StartDirectory, error).lexically_normal().string(),
        fs::absolute(file, error).lexically_normal().string()};
    for (const std::string& spelling : spellings)
        if (!spelling.empty() && MapTypeReadable(spelling, file)) return spelling;
    return spellings.back();
}
