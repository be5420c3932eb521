// An unbuffered file on disk that can show a span of a larger file: a resource library streams a
// raw entry of its data file this way.
//
// Mode: only the first letter counts, in either case. R opens an existing file for reading, W
// creates or truncates one for writing, A opens or creates one for writing (at its start, as the
// platform does); any other letter is an assertion. Others may read the file while it is open.
//
// Positions are relative to the span's start. Seek (2, n) lands n bytes before the end of the
// span, which for a whole file is its size at open. GetSize gives the span's length, or the whole
// file's present size for a span that starts at 0. Read and Write are not clipped at the span's
// end: a caller that must stay inside asks IsEndOfFile, which is true once Tell reaches GetSize, or
// bounds its counts by GetSize.
#pragma once

#include "base/file.h"
#include "platform/crt/win_file.h"

class WinDiskFile : public File {
public:
    WinDiskFile() = default;
    WinDiskFile(const char* fileName, const char* fileMode);
    WinDiskFile(const char* fileName, const char* fileMode, int32_t start, int32_t length);
    ~WinDiskFile() override;

    bool Open(const char* fileName, const char* fileMode);
    // Fails, leaving the object closed, for a negative value (an assertion) or a start beyond
    // the file's end; length is not checked against the file. Places the file at the span's
    // start.
    bool Open(const char* fileName, const char* fileMode, int32_t start, int32_t length);

    bool Close() override;
    bool IsOpen() const override { return handle != INVALID_HANDLE_VALUE; }
    bool IsEndOfFile() override;
    uint32_t Read(void* buffer, uint32_t count) override;
    uint32_t Write(const void* buffer, uint32_t count) override;
    // -1 where the platform refuses the move (a position before the file's start or beyond
    // 32 bits); the position then stays.
    int32_t Seek(int32_t origin, int32_t offset) override;
    uint32_t GetSize() override;
    void Commit() override;

private:
    bool OpenHandle(const char* fileName, const char* fileMode);

    HANDLE handle = INVALID_HANDLE_VALUE;
};
