// Path services of the C runtime as the Windows runtime names them. Paths here accept both "/"
// and "\" as separators; there are no drive letters, so the drive part is always empty.
#pragma once

#include <cstddef>

enum : size_t {
    _MAX_PATH = 260,
    _MAX_DRIVE = 3,
    _MAX_DIR = 256,
    _MAX_FNAME = 256,
    _MAX_EXT = 256,
};

// Splits path into drive, directory (with its trailing separator), file name and extension
// (from the last dot of the file name, dot included). Any output may be null; each is cut to its
// buffer size (_MAX_DRIVE, _MAX_DIR, _MAX_FNAME, _MAX_EXT).
void _splitpath(const char* path, char* drive, char* dir, char* fname, char* ext);

int _chdir(const char* path);              // 0 on success, -1 on failure
char* _getcwd(char* buffer, int maxLength);  // null if it doesn't fit

// Win32 file operations: true on success. CopyFileA with failIfExists false overwrites.
bool CopyFileA(const char* source, const char* target, bool failIfExists);
bool DeleteFileA(const char* path);
