#include "platform/crt/win_file.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "platform/crt/find_file.h"
#include "platform/crt/paths.h"

namespace {

int Descriptor(HANDLE file) {
    return int(reinterpret_cast<intptr_t>(file));
}

bool Valid(HANDLE file) {
    return file != INVALID_HANDLE_VALUE && Descriptor(file) >= 0;
}

// The path as it stands on disk: separators turned to "/", and, where the name is not there as
// written, the first match in another case.
std::string DiskPath(const char* fileName) {
    std::string path = fileName;
    for (char& c : path) {
        if (c == '\\') c = '/';
    }
    struct stat info;
    if (stat(path.c_str(), &info) == 0) return path;
    char found[_MAX_PATH * 4];
    const bool absolute = path[0] == '/';
    if (FileExistsAnyCase(absolute ? "/" : nullptr, path.c_str() + (absolute ? 1 : 0), found,
                          sizeof found))
        return found;
    return path;
}

int OpenFlags(uint32_t access, uint32_t disposition) {
    int flags = O_CLOEXEC;
    const bool reads = access & GENERIC_READ;
    const bool writes = access & GENERIC_WRITE;
    flags |= reads && writes ? O_RDWR : writes ? O_WRONLY : O_RDONLY;
    if (writes) flags |= O_NOFOLLOW;  // nothing is written through a link planted at the name
    switch (disposition) {
        case CREATE_NEW:
            return flags | O_CREAT | O_EXCL;
        case CREATE_ALWAYS:
            return flags | O_CREAT | O_TRUNC;
        case OPEN_EXISTING:
            return flags;
        case OPEN_ALWAYS:
            return flags | O_CREAT;
        case TRUNCATE_EXISTING:
            return flags | O_TRUNC;
        default:
            return -1;
    }
}

}  // namespace

HANDLE CreateFileA(const char* fileName, uint32_t desiredAccess, uint32_t /*shareMode*/,
                   void* securityAttributes, uint32_t creationDisposition,
                   uint32_t /*flagsAndAttributes*/, HANDLE templateFile) {
    if (!fileName || !*fileName || securityAttributes || templateFile) return INVALID_HANDLE_VALUE;
    const int flags = OpenFlags(desiredAccess, creationDisposition);
    if (flags == -1) return INVALID_HANDLE_VALUE;
    const std::string path = DiskPath(fileName);
    int descriptor;
    do {
        descriptor = open(path.c_str(), flags, 0666);
    } while (descriptor == -1 && errno == EINTR);
    if (descriptor == -1) return INVALID_HANDLE_VALUE;
    struct stat info;
    if (fstat(descriptor, &info) != 0 || S_ISDIR(info.st_mode)) {
        close(descriptor);
        return INVALID_HANDLE_VALUE;
    }
    return reinterpret_cast<HANDLE>(intptr_t(descriptor));
}

int ReadFile(HANDLE file, void* buffer, uint32_t count, uint32_t* done, void* overlapped) {
    if (done) *done = 0;
    if (!Valid(file) || !done || overlapped || (!buffer && count)) return 0;
    auto* bytes = static_cast<uint8_t*>(buffer);
    uint32_t total = 0;
    while (total < count) {
        const ssize_t got = read(Descriptor(file), bytes + total, count - total);
        if (got == -1 && errno == EINTR) continue;
        if (got == -1) {
            *done = total;
            return 0;
        }
        if (got == 0) break;
        total += uint32_t(got);
    }
    *done = total;
    return 1;
}

int WriteFile(HANDLE file, const void* buffer, uint32_t count, uint32_t* done, void* overlapped) {
    if (done) *done = 0;
    if (!Valid(file) || !done || overlapped || (!buffer && count)) return 0;
    const auto* bytes = static_cast<const uint8_t*>(buffer);
    uint32_t total = 0;
    while (total < count) {
        const ssize_t put = write(Descriptor(file), bytes + total, count - total);
        if (put == -1 && errno == EINTR) continue;
        if (put <= 0) {
            *done = total;
            return 0;
        }
        total += uint32_t(put);
    }
    *done = total;
    return 1;
}

uint32_t SetFilePointer(HANDLE file, int32_t distance, int32_t* distanceHigh, uint32_t moveMethod) {
    if (!Valid(file) || distanceHigh) return INVALID_SET_FILE_POINTER;
    const int descriptor = Descriptor(file);
    int64_t base;
    if (moveMethod == FILE_BEGIN) {
        base = 0;
    } else if (moveMethod == FILE_CURRENT) {
        base = lseek(descriptor, 0, SEEK_CUR);
    } else if (moveMethod == FILE_END) {
        struct stat info;
        base = fstat(descriptor, &info) == 0 ? int64_t(info.st_size) : -1;
    } else {
        return INVALID_SET_FILE_POINTER;
    }
    if (base < 0) return INVALID_SET_FILE_POINTER;
    // Checked before the move, so a refused move leaves the position alone. The highest 32-bit
    // position is the failure value and can't be reported.
    const int64_t target = base + distance;
    if (target < 0 || target >= int64_t(INVALID_SET_FILE_POINTER)) return INVALID_SET_FILE_POINTER;
    if (lseek(descriptor, off_t(target), SEEK_SET) != off_t(target))
        return INVALID_SET_FILE_POINTER;
    return uint32_t(target);
}

uint32_t GetFileSize(HANDLE file, uint32_t* sizeHigh) {
    if (sizeHigh) *sizeHigh = 0;
    struct stat info;
    if (!Valid(file) || fstat(Descriptor(file), &info) != 0) return INVALID_FILE_SIZE;
    if (sizeHigh) *sizeHigh = uint32_t(uint64_t(info.st_size) >> 32);
    return uint32_t(uint64_t(info.st_size));
}

// Win32 refuses to flush a handle without write access; so do both stand-ins, which spares
// readers that commit before every size query a trip to the disk.
static bool Writable(int descriptor) {
    const int flags = fcntl(descriptor, F_GETFL);
    return flags != -1 && (flags & O_ACCMODE) != O_RDONLY;
}

int FlushFileBuffers(HANDLE file) {
    if (!Valid(file) || !Writable(Descriptor(file))) return 0;
    return fsync(Descriptor(file)) == 0;
}

int CloseHandle(HANDLE file) {
    if (!Valid(file)) return 0;
    return close(Descriptor(file)) == 0;
}

int _fileno(FILE* stream) {
    return stream ? fileno(stream) : -1;
}

int _commit(int descriptor) {
    if (descriptor < 0 || !Writable(descriptor)) return -1;
    return fsync(descriptor) == 0 ? 0 : -1;
}

long _filelength(int descriptor) {
    struct stat info;
    if (fstat(descriptor, &info) != 0) return -1;
    return long(info.st_size);
}
