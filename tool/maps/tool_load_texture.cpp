#include "tool/maps/tool_load_texture.h"

#include <cstdio>
#include <cstring>

#include "base/diagnostics.h"
#include "base/memory.h"
#include "base/resmanager.h"
#include "base/services.h"
#include "base/velmora_log.h"
#include "engine/scene/path_list.h"
#include "engine/texture/texture.h"
#include "platform/crt/find_file.h"

namespace {

struct ToolTextureRecord {
    CTexture* texture;  // owned by the engine's list
    char* path;         // owned; the full path the texture was asked for under
    ToolTextureRecord* next;
};

ToolTextureRecord* ToolTextureCache = nullptr;  // new records at the head
ResourceManager* ToolResources = nullptr;

const char* FilePart(const char* path) {
    const char* part = path;
    for (const char* p = path; *p; ++p) {
        if (*p == '/' || *p == '\\') part = p + 1;
    }
    return part;
}

bool CanOpen(const char* path) {
    std::FILE* file = std::fopen(path, "rb");
    if (file) std::fclose(file);
    return file != nullptr;
}

// What a texture that can't be read shows.
CTexture* TestPattern() {
    CTexture* texture = CreateEmptyTexture();
    texture->LoadFromMemory(nullptr, 0, nullptr);
    return texture;
}

}  // namespace

void SetToolResourceManager(ResourceManager* manager) {
    ToolResources = manager;
}

CTexture* ToolLoadTexture(const char* path) {
    ASSERT(path);  // the lookup always passes a name, "MISSING" at worst
    if (!path) path = "";
    const char* folder = ToolResources ? ToolResources->GetResourcePath("TEXTURE_DATA") : nullptr;
    if (!folder) folder = "";
    const char* file = FilePart(path);

    char full[PathBufferSize];
    const size_t folderLength = std::strlen(folder);
    const char* between = folderLength && folder[folderLength - 1] != '/' ? "/" : "";
    const int written = std::snprintf(full, sizeof full, "%s%s%s", folder, between, file);
    if (written < 0 || size_t(written) >= sizeof full) {
        // Refused rather than cut: a cut path could find some other file.
        VelmoraLog("Load Texture", "Texture path too long: %s\n", path);
        return TestPattern();
    }

    for (const ToolTextureRecord* record = ToolTextureCache; record; record = record->next) {
        if (std::strcmp(record->path, full) == 0) return record->texture;
    }

    // The type is judged by the first "." of the file's own name, so a dot in a folder doesn't
    // count. A name without one ("MISSING" among them) is logged and loads the test pattern: a
    // texture that is missing must not end a batch.
    const char* dot = std::strchr(file, '.');
    if (!dot) {
        VelmoraLog("Load Texture", "Texture %s has no file extension\n", path);
    } else if (dot[1] != 't' && dot[1] != 'T') {
        VelmoraDataFatal("Load Texture", "Invalid Texture Type %s\n", path);
        return TestPattern();  // the job ends after its load
    }

    // Windows data names files in any case; the record keeps the path as asked, so the next
    // request in that spelling hits the cache.
    char onDisk[PathBufferSize];
    const char* source = full;
    if (!CanOpen(full) && FileExistsAnyCase(folder, file, onDisk, sizeof onDisk)) source = onDisk;
    CTexture* texture = CreateTextureFromFile(source);
    ToolTextureCache = NEW ToolTextureRecord{texture, CopyString(full), ToolTextureCache};
    return texture;
}

void ToolTextureCacheClear() {
    while (ToolTextureRecord* record = ToolTextureCache) {
        ToolTextureCache = record->next;
        if (record->path) FREE(record->path);
        DELETE(record);
    }
}
