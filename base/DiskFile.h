// A file on disk through the standard buffered stream.
//
// The mode goes to the stream open unchanged ("rb", "wt", "a+b", ...). The span given to the
// second Open is recorded but not applied: positions are the stream's own, and Seek (2, n) lands
// n bytes past the end of the file. GetSize commits the descriptor first and reports its length,
// which leaves out what still waits in the stream's buffer.
#pragma once

#include <cstdio>

#include "base/file.h"

class DiskFile : public File {
public:
    DiskFile() = default;
    DiskFile(const char* fileName, const char* fileMode);
    DiskFile(const char* fileName, const char* fileMode, int32_t start, int32_t length);
    ~DiskFile() override;

    bool Open(const char* fileName, const char* fileMode);
    bool Open(const char* fileName, const char* fileMode, int32_t start, int32_t length);

    bool Close() override;
    bool IsOpen() const override { return stream != nullptr; }
    bool IsEndOfFile() override;
    uint32_t Read(void* buffer, uint32_t count) override;
    // The stream's line read: as File::Get, but a 13 is kept as the stream gives it.
    char* Get(char* buffer, uint32_t size) override;
    uint32_t Write(const void* buffer, uint32_t count) override;
    int32_t Seek(int32_t origin, int32_t offset) override;
    uint32_t GetSize() override;
    void Commit() override;

    // The stream's position; 0 when closed, without a report.
    virtual int32_t GetPosition();
    // Turns the stream's buffering off; nothing when closed.
    virtual void SetUnbuffered();

private:
    FILE* stream = nullptr;  // null while closed
};
