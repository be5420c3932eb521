#include "platform/crt/paths.h"

#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "platform/crt/replacing_file.h"

static bool IsSeparator(char c) {
    return c == '/' || c == '\\';
}

static void CopyCut(char* out, size_t outSize, const char* begin, const char* end) {
    if (!out) return;
    size_t length = size_t(end - begin);
    if (length >= outSize) length = outSize - 1;
    std::memcpy(out, begin, length);
    out[length] = '\0';
}

void _splitpath(const char* path, char* drive, char* dir, char* fname, char* ext) {
    if (!path) path = "";
    const char* end = path + std::strlen(path);
    const char* nameStart = path;
    for (const char* p = path; p < end; ++p)
        if (IsSeparator(*p)) nameStart = p + 1;
    const char* dot = end;
    for (const char* p = end; p > nameStart; --p)
        if (p[-1] == '.') {
            dot = p - 1;
            break;
        }
    CopyCut(drive, _MAX_DRIVE, path, path);
    CopyCut(dir, _MAX_DIR, path, nameStart);
    CopyCut(fname, _MAX_FNAME, nameStart, dot);
    CopyCut(ext, _MAX_EXT, dot, end);
}

int _chdir(const char* path) {
    return path && chdir(path) == 0 ? 0 : -1;
}

char* _getcwd(char* buffer, int maxLength) {
    if (!buffer || maxLength <= 0) return nullptr;
    return getcwd(buffer, size_t(maxLength));
}

bool CopyFileA(const char* source, const char* target, bool failIfExists) {
    if (!source || !target) return false;
    if (failIfExists && access(target, F_OK) == 0) return false;
    FILE* in = std::fopen(source, "rb");
    if (!in) return false;
    // A reader of the target sees the old copy or the new, never half of one.
    ReplacingFile out(target);
    bool good = out.Stream() != nullptr;
    char block[65536];
    size_t got;
    while (good && (got = std::fread(block, 1, sizeof block, in)) > 0)
        good = std::fwrite(block, 1, got, out.Stream()) == got;
    good = good && !std::ferror(in);
    std::fclose(in);
    return out.Commit(good);
}

bool DeleteFileA(const char* path) {
    return path && unlink(path) == 0;
}
