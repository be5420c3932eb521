#include "base/DiskFile.h"

#include <climits>
#include <cstring>

#include "base/diagnostics.h"
#include "platform/crt/replacing_file.h"
#include "platform/crt/win_file.h"

static_assert(SEEK_SET == 0 && SEEK_CUR == 1 && SEEK_END == 2, "origins pass to fseek unchanged");

// A file opened to be written is never reached through a link planted at its name.
static std::FILE* OpenStream(const char* fileName, const char* fileMode) {
    const bool writes = fileMode[0] != 'r' || std::strchr(fileMode, '+');
    return writes ? OpenFileNoFollow(fileName, fileMode) : std::fopen(fileName, fileMode);
}

DiskFile::DiskFile(const char* fileName, const char* fileMode) {
    Open(fileName, fileMode);
}

DiskFile::DiskFile(const char* fileName, const char* fileMode, int32_t start, int32_t length) {
    Open(fileName, fileMode, start, length);
}

DiskFile::~DiskFile() {
    if (IsOpen()) DiskFile::Close();
}

bool DiskFile::Open(const char* fileName, const char* fileMode) {
    ASSERT(fileName && fileMode);
    if (!fileName || !fileMode || !ReadyToOpen()) return IsOpen();
    stream = OpenStream(fileName, fileMode);
    if (!stream) return false;
    if (!Register(fileName, fileMode, 0, int32_t(GetSize()))) {
        bytesWritten = 1;  // no "never used" warning for a file that never was
        Close();
    }
    return IsOpen();
}

bool DiskFile::Open(const char* fileName, const char* fileMode, int32_t start, int32_t length) {
    ASSERT(fileName && fileMode);
    if (!fileName || !fileMode || !ReadyToOpen()) return IsOpen();
    stream = OpenStream(fileName, fileMode);
    if (!stream) return false;
    if (!Register(fileName, fileMode, start, length)) {
        bytesWritten = 1;
        Close();
    }
    return IsOpen();
}

bool DiskFile::Close() {
    if (stream) std::fclose(stream);
    stream = nullptr;
    return File::Close();
}

bool DiskFile::IsEndOfFile() {
    if (!stream) {
        CorvaneError("Cannot EOF closed file\n");
        return true;
    }
    return std::feof(stream) != 0;
}

uint32_t DiskFile::Read(void* buffer, uint32_t count) {
    if (!stream) {
        CorvaneError("Cannot Read from closed file\n");
        return 0;
    }
    ASSERT(buffer || count == 0);
    if (!buffer) return 0;
    const uint32_t got = uint32_t(std::fread(buffer, 1, count, stream));
    bytesRead += got;
    return got;
}

char* DiskFile::Get(char* buffer, uint32_t size) {
    if (!stream) {
        CorvaneError("Cannot Get from closed file\n");
        return nullptr;
    }
    ASSERT(buffer);
    if (!buffer || size == 0) return nullptr;
    const int32_t before = GetPosition();
    char* line = std::fgets(buffer, size > INT_MAX ? INT_MAX : int(size), stream);
    bytesRead += uint32_t(GetPosition() - before);
    return line;
}

uint32_t DiskFile::Write(const void* buffer, uint32_t count) {
    if (!stream) {
        CorvaneError("Cannot Write to closed file\n");
        return 0;
    }
    ASSERT(buffer || count == 0);
    if (!buffer) return 0;
    const uint32_t put = uint32_t(std::fwrite(buffer, 1, count, stream));
    bytesWritten += put;
    return put;
}

int32_t DiskFile::Seek(int32_t origin, int32_t offset) {
    if (!stream) {
        CorvaneError("Cannot Seek on closed file\n");
        return 0;
    }
    std::fseek(stream, offset, origin);
    return int32_t(std::ftell(stream));
}

uint32_t DiskFile::GetSize() {
    if (!stream) {
        CorvaneError("Cannot GetSize closed file\n");
        return 0;
    }
    Commit();
    const long length = _filelength(_fileno(stream));
    return length < 0 ? 0 : uint32_t(length);
}

void DiskFile::Commit() {
    if (!stream) {
        CorvaneError("Cannot Commit to closed file\n");
        return;
    }
    _commit(_fileno(stream));
}

int32_t DiskFile::GetPosition() {
    if (!stream) return 0;
    return int32_t(std::ftell(stream));
}

void DiskFile::SetUnbuffered() {
    if (stream) std::setvbuf(stream, nullptr, _IONBF, 0);
}
