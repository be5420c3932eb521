// The Win32 directory search: the entries of one folder whose names match a pattern, one at a
// time. The pattern's folder may use "/" or "\"; its last part may hold "*" and "?", matched
// without regard to ASCII case, as Windows matches. Entries come in byte order of their names
// without regard to case, so a listing is the same on every run; "." and ".." never come.
#pragma once

#include <cstdint>

#include "platform/crt/win_file.h"  // HANDLE, INVALID_HANDLE_VALUE

enum : uint32_t {
    FILE_ATTRIBUTE_DIRECTORY = 0x10,
};

struct WIN32_FIND_DATAA {
    uint32_t dwFileAttributes;
    uint32_t nFileSizeHigh;
    uint32_t nFileSizeLow;
    char cFileName[260];
};

// INVALID_HANDLE_VALUE when the folder can't be read or nothing matches.
HANDLE FindFirstFileA(const char* pattern, WIN32_FIND_DATAA* data);
bool FindNextFileA(HANDLE search, WIN32_FIND_DATAA* data);  // false once all have come
bool FindClose(HANDLE search);

// Whether name matches the wildcard pattern, without regard to ASCII case.
bool MatchesWildcard(const char* pattern, const char* name);
