#include "base/reslibrary_shared.h"

#include <chrono>
#include <filesystem>
#include <system_error>

#include "base/memory.h"

namespace {

std::mutex Lock;
uint32_t InstanceCount = 0;
uint8_t* Scratch = nullptr;
uint32_t ScratchCapacity = 0;

bool IsSeparator(char c) {
    return c == '/' || c == '\\';
}

}  // namespace

std::mutex& ResourceLock() {
    return Lock;
}

uint8_t* ResourceScratch(uint32_t size) {
    if (size > ScratchCapacity || !Scratch) {
        const uint32_t capacity = size ? size : 1;
        Scratch = static_cast<uint8_t*>(CvReallocCopy(Scratch, 0, capacity));
        ScratchCapacity = Scratch ? capacity : 0;
    }
    return Scratch;
}

void ResourceLibraryCreated() {
    std::lock_guard<std::mutex> guard(Lock);
    ++InstanceCount;
}

void ResourceLibraryDestroyed() {
    std::lock_guard<std::mutex> guard(Lock);
    if (InstanceCount > 0 && --InstanceCount == 0) {
        if (Scratch) FREE(Scratch);
        Scratch = nullptr;
        ScratchCapacity = 0;
    }
}

std::string ResourceDiskPath(const char* path) {
    std::string disk = path ? path : "";
    for (char& c : disk) {
        if (c == '\\') c = '/';
    }
    return disk;
}

bool ResourceFileStatus(const char* path, uint32_t* size, int32_t* time) {
    namespace fs = std::filesystem;
    std::error_code error;
    const fs::path disk = ResourceDiskPath(path);
    if (!fs::is_regular_file(disk, error) || error) return false;
    const uintmax_t bytes = fs::file_size(disk, error);
    if (error || bytes >= 0xFFFFFFFFu) return false;
    const fs::file_time_type written = fs::last_write_time(disk, error);
    if (error) return false;
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(
        std::chrono::file_clock::to_sys(written).time_since_epoch());
    *size = uint32_t(bytes);
    *time = int32_t(seconds.count());
    return true;
}

const char* ResourceNameBehindRoot(const char* root, const char* path) {
    if (!root || !path) return nullptr;
    size_t i = 0;
    for (; root[i]; ++i) {
        const bool same = root[i] == path[i] || (IsSeparator(root[i]) && IsSeparator(path[i]));
        if (!same) return nullptr;
    }
    return IsSeparator(path[i]) && path[i + 1] ? path + i + 1 : nullptr;
}
