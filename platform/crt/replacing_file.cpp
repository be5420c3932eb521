#include "platform/crt/replacing_file.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <cstring>
#include <random>

namespace {

const char TemporaryEnd[] = ".partial";
enum : size_t { RandomLength = 12, NameLimit = 255 };

int OpenRetrying(const char* path, int flags) {
    int descriptor;
    do {
        descriptor = open(path, flags, 0666);
    } while (descriptor == -1 && errno == EINTR);
    return descriptor;
}

FILE* StreamOver(int descriptor, const char* mode) {
    if (descriptor == -1) return nullptr;
    FILE* stream = fdopen(descriptor, mode);
    if (!stream) close(descriptor);
    return stream;
}

// A target that exists but is no regular file (a device, a pipe, /dev/stdout) is written in
// place: renaming over it would replace the device with a plain file.
bool WrittenInPlace(const std::string& target) {
    struct stat info;
    return stat(target.c_str(), &info) == 0 && !S_ISREG(info.st_mode);
}

FILE* OpenInPlace(const std::string& target) {
    int descriptor = OpenRetrying(target.c_str(), O_WRONLY | O_CLOEXEC);
    // A regular file swapped in since the look would be written through whatever link led there.
    struct stat info;
    if (descriptor != -1 && (fstat(descriptor, &info) != 0 || S_ISREG(info.st_mode))) {
        close(descriptor);
        descriptor = -1;
    }
    return StreamOver(descriptor, "wb");
}

// Drawn afresh for every name: no state that forked processes or threads could share.
std::string RandomPart() {
    static const char Letters[] = "abcdefghijklmnopqrstuvwxyz0123456789";
    std::random_device device;
    uint64_t bits = uint64_t(device()) << 32 | device();
    std::string part(RandomLength, ' ');
    for (char& c : part) {
        c = Letters[bits % (sizeof Letters - 1)];
        bits /= sizeof Letters - 1;
    }
    return part;
}

// A replaced file keeps its permissions: a read-only output stays read-only. Set-id bits are
// never carried over to bytes some other program wrote.
void TakeTargetMode(int descriptor, const std::string& target) {
    struct stat info;
    if (lstat(target.c_str(), &info) == 0 && S_ISREG(info.st_mode))
        (void)fchmod(descriptor, info.st_mode & 0777);
}

// The temporaries being written, for removal by a signal handler that ends the process at once.
// Fixed slots of plain bytes: a handler may not allocate or follow pointers into freed strings.
enum : size_t { PendingSlots = 16, PendingPathSize = 4096 };
enum : int { SlotFree, SlotClaimed, SlotReady };
std::atomic<int> PendingState[PendingSlots];
char PendingPaths[PendingSlots][PendingPathSize];

int RegisterPending(const std::string& path) {
    if (path.size() >= PendingPathSize) return -1;
    for (size_t i = 0; i < PendingSlots; ++i) {
        int expected = SlotFree;
        if (PendingState[i].compare_exchange_strong(expected, SlotClaimed)) {
            std::memcpy(PendingPaths[i], path.c_str(), path.size() + 1);
            PendingState[i].store(SlotReady);
            return int(i);
        }
    }
    return -1;  // more writers than slots: those few are left behind by a hard stop
}

void ReleasePending(int slot) {
    if (slot >= 0) PendingState[slot].store(SlotFree);
}

// ".<name>.<random>.partial" in the target's folder, made only if no such name exists, so every
// writer has a file nobody else writes and no link planted there is followed.
FILE* CreateTemporary(const std::string& target, std::string& temporary) {
    const size_t slash = target.rfind('/');
    const size_t nameStart = slash == std::string::npos ? 0 : slash + 1;
    // A long name is cut so the temporary one still fits the file system's limit.
    const size_t room = NameLimit - 2 - RandomLength - (sizeof TemporaryEnd - 1);
    const std::string name = target.substr(nameStart, room);
    for (int attempt = 0; attempt < 100; ++attempt) {
        temporary = target.substr(0, nameStart) + "." + name + "." + RandomPart() + TemporaryEnd;
        int descriptor =
            OpenRetrying(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC);
        if (descriptor != -1) {
            TakeTargetMode(descriptor, target);
            FILE* stream = StreamOver(descriptor, "wb");
            if (!stream) unlink(temporary.c_str());
            return stream;
        }
        if (errno != EEXIST) break;
    }
    temporary.clear();
    return nullptr;
}

}  // namespace

ReplacingFile::ReplacingFile(const char* path) : target(path ? path : ""), stream(nullptr) {
    if (target.empty()) return;
    stream = WrittenInPlace(target) ? OpenInPlace(target) : CreateTemporary(target, temporary);
    if (stream && !temporary.empty()) pendingSlot = RegisterPending(temporary);
}

ReplacingFile::~ReplacingFile() {
    if (!stream) return;
    std::fclose(stream);
    if (!temporary.empty()) unlink(temporary.c_str());
    ReleasePending(pendingSlot);
}

bool ReplacingFile::Commit(bool writtenWell) {
    if (!stream) return false;
    bool closed = std::fclose(stream) == 0;
    stream = nullptr;
    if (temporary.empty()) return writtenWell && closed;
    // rename replaces a link at the target itself, never what it points to.
    bool renamed = writtenWell && closed && rename(temporary.c_str(), target.c_str()) == 0;
    if (!renamed) unlink(temporary.c_str());
    ReleasePending(pendingSlot);
    return renamed;
}

void RemovePartialFilesNow() {
    for (size_t i = 0; i < PendingSlots; ++i)
        if (PendingState[i].load() == SlotReady) unlink(PendingPaths[i]);
}

bool WriteFileAtomically(const char* path, const void* data, size_t bytes) {
    ReplacingFile file(path);
    if (!file.Stream()) return false;
    return file.Commit(std::fwrite(data, 1, bytes, file.Stream()) == bytes);
}

FILE* OpenFileNoFollow(const char* path, const char* mode) {
    if (!path || !mode) return nullptr;
    const bool both = std::strchr(mode, '+') != nullptr;
    int flags = O_NOFOLLOW | O_CLOEXEC | (std::strchr(mode, 'x') ? O_EXCL : 0);
    switch (mode[0]) {
        case 'r':
            flags |= both ? O_RDWR : O_RDONLY;
            break;
        case 'w':
            flags |= (both ? O_RDWR : O_WRONLY) | O_CREAT | O_TRUNC;
            break;
        case 'a':
            flags |= (both ? O_RDWR : O_WRONLY) | O_CREAT | O_APPEND;
            break;
        default:
            errno = EINVAL;
            return nullptr;
    }
    return StreamOver(OpenRetrying(path, flags), mode);
}
