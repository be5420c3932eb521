// A read-only file over bytes in memory: how a packed or compressed library entry looks like a
// file.
//
// Open with a size of 0 leaves the file closed and unregistered: a closed memory file is simply
// at its end, so Read gives 0 and IsEndOfFile true without a report. Data that the file owns must
// come from MALLOC; Close frees it, and frees it as well when the open does not succeed. Data
// that it does not own stays where it is.
//
// Mode: a second letter T (either case, as in "rt") makes it a text file, whose Read leaves out
// every byte 13 while the position still moves over it. Write is always an assertion.
// Seek (2, n) lands n bytes before the end; a position beyond the size gives -1 and stays, and a
// read there delivers 0.
#pragma once

#include "base/file.h"

class ResourceLibrary;

class MemoryFile : public File {
public:
    MemoryFile() = default;
    MemoryFile(const char* fileName, const char* fileMode, const void* bytes, uint32_t byteCount,
               bool ownsBytes) {
        Open(fileName, fileMode, bytes, byteCount, ownsBytes);
    }
    MemoryFile(const char* fileName, const char* fileMode, ResourceLibrary* library) {
        Open(fileName, fileMode, library);
    }
    ~MemoryFile() override;

    bool Open(const char* fileName, const char* fileMode, const void* bytes, uint32_t byteCount,
              bool ownsBytes);
    // Extracts the entry fileName of the library into a block of its own and opens over it.
    // Defined beside ResourceLibrary, whose Extract it calls; it then goes on as the Open above
    // with ownsBytes set.
    bool Open(const char* fileName, const char* fileMode, ResourceLibrary* library);

    bool Close() override;
    bool IsOpen() const override { return size > 0; }
    bool IsEndOfFile() override { return position >= size; }
    uint32_t Read(void* buffer, uint32_t count) override;
    uint32_t Write(const void* buffer, uint32_t count) override;
    int32_t Seek(int32_t origin, int32_t offset) override;
    uint32_t GetSize() override { return size; }

    const uint8_t* GetData() const { return data; }  // null while closed

private:
    bool IsText() const;

    bool ownsData = false;
    const uint8_t* data = nullptr;
    uint32_t size = 0;  // 0 while closed
    uint32_t position = 0;
};
