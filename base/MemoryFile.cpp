#include "base/MemoryFile.h"

#include <cstring>

#include "base/diagnostics.h"
#include "base/memory.h"

MemoryFile::~MemoryFile() {
    if (IsOpen()) MemoryFile::Close();
}

bool MemoryFile::Open(const char* fileName, const char* fileMode, const void* bytes,
                      uint32_t byteCount, bool ownsBytes) {
    ASSERT(bytes && fileMode && fileName);
    const bool ready = bytes && fileMode && fileName && ReadyToOpen();
    if (!ready || byteCount == 0) {
        // A block handed over is the file's to free, whether or not the open comes about; the
        // object itself stays as it was.
        if (ownsBytes && bytes && bytes != data) FREE(const_cast<void*>(bytes));
        return IsOpen();
    }
    data = static_cast<const uint8_t*>(bytes);
    ownsData = ownsBytes;
    size = byteCount;
    position = 0;
    if (!Register(fileName, fileMode, 0, int32_t(byteCount))) {
        if (ownsData && data) FREE(const_cast<uint8_t*>(data));
        data = nullptr;
        size = 0;
        ownsData = false;
    }
    return IsOpen();
}

bool MemoryFile::Close() {
    if (ownsData && data) FREE(const_cast<uint8_t*>(data));
    data = nullptr;
    size = 0;
    position = 0;
    ownsData = false;
    return File::Close();
}

bool MemoryFile::IsText() const {
    return mode && mode[0] && (mode[1] == 't' || mode[1] == 'T');
}

uint32_t MemoryFile::Read(void* buffer, uint32_t count) {
    if (IsEndOfFile()) return 0;
    ASSERT(buffer || count == 0);
    if (!buffer) return 0;
    const uint32_t amount = count < size - position ? count : size - position;
    const uint8_t* from = data + position;
    uint32_t kept = amount;
    if (IsText()) {
        auto* to = static_cast<uint8_t*>(buffer);
        kept = 0;
        for (uint32_t i = 0; i < amount; ++i) {
            if (from[i] != 13) to[kept++] = from[i];
        }
    } else {
        std::memcpy(buffer, from, amount);
    }
    // The position and the count move over the dropped 13s as well.
    position += amount;
    bytesRead += amount;
    return kept;
}

uint32_t MemoryFile::Write(const void* /*buffer*/, uint32_t /*count*/) {
    ASSERT(!"a memory file is read-only");
    return 0;
}

int32_t MemoryFile::Seek(int32_t origin, int32_t offset) {
    if (!IsOpen()) {
        CorvaneError("Cannot Seek on closed file\n");
        return -1;
    }
    // Unsigned arithmetic: a move before the start wraps to a position beyond the size, which
    // the result and every later read treat as outside the data.
    switch (origin) {
        case 0:
            position = uint32_t(offset);
            break;
        case 1:
            position += uint32_t(offset);
            break;
        case 2:
            position = size - uint32_t(offset);
            break;
        default:
            ASSERT(origin >= 0 && origin <= 2);  // origin is 0, 1 or 2
            return -1;
    }
    if (position > size || position > uint32_t(INT32_MAX)) return -1;
    return int32_t(position);
}
