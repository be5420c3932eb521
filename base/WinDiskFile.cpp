#include "base/WinDiskFile.h"

#include "base/diagnostics.h"

WinDiskFile::WinDiskFile(const char* fileName, const char* fileMode) {
    Open(fileName, fileMode);
}

WinDiskFile::WinDiskFile(const char* fileName, const char* fileMode, int32_t start,
                         int32_t length) {
    Open(fileName, fileMode, start, length);
}

WinDiskFile::~WinDiskFile() {
    if (IsOpen()) WinDiskFile::Close();
}

bool WinDiskFile::OpenHandle(const char* fileName, const char* fileMode) {
    uint32_t access;
    uint32_t disposition;
    switch (fileMode[0]) {
        case 'r':
        case 'R':
            access = GENERIC_READ;
            disposition = OPEN_EXISTING;
            break;
        case 'w':
        case 'W':
            access = GENERIC_WRITE;
            disposition = CREATE_ALWAYS;
            break;
        case 'a':
        case 'A':
            access = GENERIC_WRITE;
            disposition = OPEN_ALWAYS;
            break;
        default:
            ASSERT(!"mode must start with r, w or a");
            return false;
    }
    handle = CreateFileA(fileName, access, FILE_SHARE_READ, nullptr, disposition,
                         FILE_ATTRIBUTE_NORMAL | FILE_FLAG_RANDOM_ACCESS, nullptr);
    return IsOpen();
}

bool WinDiskFile::Open(const char* fileName, const char* fileMode) {
    ASSERT(fileName && fileMode);
    if (!fileName || !fileMode || !ReadyToOpen()) return IsOpen();
    if (!OpenHandle(fileName, fileMode)) return false;
    const uint32_t size = GetFileSize(handle, nullptr);
    if (!Register(fileName, fileMode, 0, int32_t(size))) {
        CloseHandle(handle);
        handle = INVALID_HANDLE_VALUE;
    }
    return IsOpen();
}

bool WinDiskFile::Open(const char* fileName, const char* fileMode, int32_t start, int32_t length) {
    ASSERT(fileName && fileMode);
    ASSERT(start >= 0 && length >= 0);
    if (!fileName || !fileMode || start < 0 || length < 0 || !ReadyToOpen()) return IsOpen();
    if (!OpenHandle(fileName, fileMode)) return false;
    // The start is checked before the file is registered, so a refused span leaves no trace.
    const uint32_t size = GetFileSize(handle, nullptr);
    if (size == INVALID_FILE_SIZE || uint32_t(start) > size ||
        !Register(fileName, fileMode, start, length)) {
        CloseHandle(handle);
        handle = INVALID_HANDLE_VALUE;
        return false;
    }
    Seek(0, 0);
    return true;
}

bool WinDiskFile::Close() {
    if (IsOpen()) CloseHandle(handle);
    handle = INVALID_HANDLE_VALUE;
    return File::Close();
}

bool WinDiskFile::IsEndOfFile() {
    if (!IsOpen()) {
        CorvaneError("Cannot EOF closed file\n");
        return true;
    }
    return int64_t(Tell()) >= int64_t(GetSize());
}

uint32_t WinDiskFile::Read(void* buffer, uint32_t count) {
    if (!IsOpen()) {
        CorvaneError("Cannot Read from closed file\n");
        return 0;
    }
    ASSERT(buffer || count == 0);
    if (!buffer) return 0;
    uint32_t done = 0;
    ReadFile(handle, buffer, count, &done, nullptr);
    bytesRead += done;
    return done;
}

uint32_t WinDiskFile::Write(const void* buffer, uint32_t count) {
    if (!IsOpen()) {
        CorvaneError("Cannot Write to closed file\n");
        return 0;
    }
    ASSERT(buffer || count == 0);
    if (!buffer) return 0;
    uint32_t done = 0;
    WriteFile(handle, buffer, count, &done, nullptr);
    bytesWritten += done;
    return done;
}

int32_t WinDiskFile::Seek(int32_t origin, int32_t offset) {
    if (!IsOpen()) {
        CorvaneError("Cannot Seek on closed file\n");
        return 0;
    }
    // Worked out in 64 bits: a position that does not fit the platform's 32-bit distance is
    // refused rather than wrapped.
    int64_t distance;
    uint32_t method = FILE_BEGIN;
    switch (origin) {
        case 0:
            distance = int64_t(offset) + spanStart;
            break;
        case 1:
            distance = offset;
            method = FILE_CURRENT;
            break;
        case 2:
            distance = int64_t(spanLength) - offset + spanStart;
            break;
        default:
            ASSERT(origin >= 0 && origin <= 2);  // origin is 0, 1 or 2
            return -1;
    }
    if (distance < INT32_MIN || distance > INT32_MAX) return -1;
    const uint32_t position = SetFilePointer(handle, int32_t(distance), nullptr, method);
    if (position == INVALID_SET_FILE_POINTER) return -1;
    return int32_t(int64_t(position) - spanStart);
}

uint32_t WinDiskFile::GetSize() {
    if (!IsOpen()) {
        CorvaneError("Cannot GetSize closed file\n");
        return 0;
    }
    Commit();
    if (spanStart == 0) {
        const uint32_t size = GetFileSize(handle, nullptr);
        return size == INVALID_FILE_SIZE ? 0 : size;
    }
    return uint32_t(spanLength);
}

void WinDiskFile::Commit() {
    if (!IsOpen()) {
        CorvaneError("Cannot Commit to closed file\n");
        return;
    }
    FlushFileBuffers(handle);
}
