#include "tool/atomic_write.h"

ReplacingFile::ReplacingFile(const char* path)
    : target(path), temporary(target + ".partial"), stream(std::fopen(temporary.c_str(), "wb")) {}

ReplacingFile::~ReplacingFile() {
    if (!stream) return;
    std::fclose(stream);
    std::remove(temporary.c_str());
}

bool ReplacingFile::Commit(bool writtenWell) {
    if (!stream) return false;
    bool closed = std::fclose(stream) == 0;
    stream = nullptr;
    if (writtenWell && closed && std::rename(temporary.c_str(), target.c_str()) == 0) return true;
    std::remove(temporary.c_str());
    return false;
}

bool WriteFileAtomically(const char* path, const void* data, size_t bytes) {
    ReplacingFile file(path);
    if (!file.Stream()) return false;
    return file.Commit(std::fwrite(data, 1, bytes, file.Stream()) == bytes);
}
