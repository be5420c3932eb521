#include "tool/bake/atomic_write.h"

#include <filesystem>

// A target that exists but is no regular file (a device, a pipe) is written in place: renaming
// over it would replace the device with a plain file.
static bool ReplaceableTarget(const std::string& path) {
    std::error_code error;
    std::filesystem::file_status status = std::filesystem::status(path, error);
    return !std::filesystem::exists(status) || std::filesystem::is_regular_file(status);
}

ReplacingFile::ReplacingFile(const char* path)
    : target(path),
      temporary(ReplaceableTarget(target) ? target + ".partial" : std::string()),
      stream(std::fopen(temporary.empty() ? target.c_str() : temporary.c_str(), "wb")) {}

ReplacingFile::~ReplacingFile() {
    if (!stream) return;
    std::fclose(stream);
    if (!temporary.empty()) std::remove(temporary.c_str());
}

bool ReplacingFile::Commit(bool writtenWell) {
    if (!stream) return false;
    bool closed = std::fclose(stream) == 0;
    stream = nullptr;
    if (temporary.empty()) return writtenWell && closed;
    if (writtenWell && closed && std::rename(temporary.c_str(), target.c_str()) == 0) return true;
    std::remove(temporary.c_str());
    return false;
}

bool WriteFileAtomically(const char* path, const void* data, size_t bytes) {
    ReplacingFile file(path);
    if (!file.Stream()) return false;
    return file.Commit(std::fwrite(data, 1, bytes, file.Stream()) == bytes);
}
