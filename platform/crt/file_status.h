// The C runtime's _stat as the Windows runtime names it: what kind of thing a path names.
#pragma once

#include <cstdint>

enum : unsigned short {
    _S_IFMT = 0xF000,
    _S_IFDIR = 0x4000,
    _S_IFREG = 0x8000,
};

struct _stat {
    unsigned short st_mode;  // _S_IFDIR, _S_IFREG or another kind, with the permission bits
    int64_t st_size;
};

// The function shares its name with the record, as in the runtime it stands in for.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wshadow"
int _stat(const char* path, struct _stat* buffer);  // 0 if the path names something, else -1
#pragma GCC diagnostic pop
