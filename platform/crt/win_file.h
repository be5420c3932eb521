// Stand-ins for the Win32 file calls of the unbuffered disk file, over POSIX descriptors, and the
// C runtime's descriptor calls that the buffered disk file needs.
//
// Names, argument orders and constants are the published ones; integer types are the fixed-width
// types of the same size. A handle is the descriptor itself, so INVALID_HANDLE_VALUE (-1) is the
// one invalid value. Paths accept "/" and "\" as separators, and a name that is not there as
// written is matched without regard to case in its folder, as on the system the data comes from.
#pragma once

#include <cstdint>
#include <cstdio>

using HANDLE = void*;
// A macro, as published, so that it is a constant wherever it is used.
#define INVALID_HANDLE_VALUE (reinterpret_cast<HANDLE>(intptr_t(-1)))

enum : uint32_t {
    GENERIC_READ = 0x80000000u,
    GENERIC_WRITE = 0x40000000u,

    FILE_SHARE_READ = 0x00000001u,
    FILE_SHARE_WRITE = 0x00000002u,

    CREATE_NEW = 1,
    CREATE_ALWAYS = 2,
    OPEN_EXISTING = 3,
    OPEN_ALWAYS = 4,
    TRUNCATE_EXISTING = 5,

    FILE_ATTRIBUTE_NORMAL = 0x00000080u,
    FILE_FLAG_RANDOM_ACCESS = 0x10000000u,

    FILE_BEGIN = 0,
    FILE_CURRENT = 1,
    FILE_END = 2,

    INVALID_SET_FILE_POINTER = 0xFFFFFFFFu,
    INVALID_FILE_SIZE = 0xFFFFFFFFu,
};

// Sharing, attributes and flags are accepted and have no effect here; a security record and a
// template handle must be null. A directory is not a file and does not open.
HANDLE CreateFileA(const char* fileName, uint32_t desiredAccess, uint32_t shareMode,
                   void* securityAttributes, uint32_t creationDisposition,
                   uint32_t flagsAndAttributes, HANDLE templateFile);

// Both move the whole count unless the file ends (read) or the disk refuses (write); the count
// done goes to *done. overlapped must be null. Non-zero on success, even where less was done.
int ReadFile(HANDLE file, void* buffer, uint32_t count, uint32_t* done, void* overlapped);
int WriteFile(HANDLE file, const void* buffer, uint32_t count, uint32_t* done, void* overlapped);

// Positions are 32 bits wide here: distanceHigh must be null. A move to a negative position, or
// past 4 GB, fails with INVALID_SET_FILE_POINTER and leaves the position where it was.
uint32_t SetFilePointer(HANDLE file, int32_t distance, int32_t* distanceHigh, uint32_t moveMethod);

// The low 32 bits of the size; sizeHigh, if given, receives the high ones. INVALID_FILE_SIZE on
// failure.
uint32_t GetFileSize(HANDLE file, uint32_t* sizeHigh);

// Writes the file's data through to the disk. As on the original system, a handle opened without
// write access fails (and costs nothing), so readers may call it freely.
int FlushFileBuffers(HANDLE file);

int CloseHandle(HANDLE file);

// The C runtime's descriptor calls as the Windows runtime names them.
int _fileno(FILE* stream);         // -1 for a null stream
int _commit(int descriptor);       // 0 on success; -1 on failure, as for a read-only descriptor
long _filelength(int descriptor);  // bytes, or -1 on failure
