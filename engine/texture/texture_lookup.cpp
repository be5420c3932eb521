#include "engine/texture/texture_lookup.h"

#include <cctype>
#include <cstdio>
#include <cstring>

#include "base/diagnostics.h"
#include "base/velmora_log.h"
#include "engine/texture/texture.h"
#include "platform/crt/find_file.h"

TextureLoader TextureLoadFunction = nullptr;
uint8_t TextureSearchEnabled = 1;
char MeshFolder[PathBufferSize] = "";

namespace {

bool IsSeparator(char c) {
    return c == '/' || c == '\\';
}

const char* FilePart(const char* path) {
    const char* part = path;
    for (const char* p = path; *p; ++p) {
        if (IsSeparator(*p)) part = p + 1;
    }
    return part;
}

// Copies text into out (PathBufferSize bytes) with "/" for "\"; false if it doesn't fit.
bool CopyPath(const char* text, char* out) {
    const size_t length = std::strlen(text);
    if (length >= PathBufferSize) return false;
    for (size_t i = 0; i <= length; ++i) out[i] = text[i] == '\\' ? '/' : text[i];
    return true;
}

// The name in the folder of the mesh, as written or else in another case. A combination that
// doesn't fit a path buffer names no file we could open, so it counts as not there.
bool FoundBesideMesh(const char* name, char* path) {
    char candidate[PathBufferSize];
    const int written = std::snprintf(candidate, sizeof candidate, "%s%s", MeshFolder, name);
    if (written < 0 || size_t(written) >= sizeof candidate) return false;
    if (std::FILE* file = std::fopen(candidate, "rb")) {
        std::fclose(file);
        std::memcpy(path, candidate, size_t(written) + 1);
        return true;
    }
    return FileExistsAnyCase(MeshFolder, name, path, PathBufferSize);
}

bool IsTgaExtension(const char* extension) {
    if (std::strlen(extension) != 3) return false;
    for (int i = 0; i < 3; ++i) {
        if (std::toupper(static_cast<unsigned char>(extension[i])) != "TGA"[i]) return false;
    }
    return true;
}

// The TGA reader's branch. The extension is the part behind the last "." of the file's own
// name: a dot in a folder ("../maps/") says nothing about the format. A name without one
// ("MISSING" among them) is logged and read as TGA, whose failed open leaves the test pattern:
// a texture that is missing must not end a batch, while a wrong format stays fatal.
CTexture* LoadWithReader(const char* path) {
    CTexture* texture = CreateEmptyTexture();
    const char* dot = std::strrchr(FilePart(path), '.');
    if (!dot) {
        VelmoraLog("VELMORALoadTexture", "Texture %s has no file extension\n", path);
    } else if (!IsTgaExtension(dot + 1)) {
        VelmoraDataFatal("VELMORALoadTexture", "Texture %s is an Invalid File Format", path);
        texture->LoadFromMemory(nullptr, 0, nullptr);  // the test pattern, for the job's end
        return texture;
    }
    texture->LoadTGA(path);
    return texture;
}

}  // namespace

void SetMeshFolderFromPath(const char* meshPath) {
    MeshFolder[0] = '\0';
    if (!meshPath) return;
    const size_t length = size_t(FilePart(meshPath) - meshPath);
    if (length >= PathBufferSize) {
        VelmoraLog("LoadTexture", "Mesh folder too long: %s\n", meshPath);
        return;
    }
    for (size_t i = 0; i < length; ++i) MeshFolder[i] = meshPath[i] == '\\' ? '/' : meshPath[i];
    MeshFolder[length] = '\0';
}

CTexture* VALoadTexture(const char* name) {
    if (!name || !*name) name = "MISSING";
    char asked[PathBufferSize];
    if (!CopyPath(name, asked)) {
        // Refused rather than cut: a cut name could find some other file.
        VelmoraLog("LoadTexture", "Texture name too long: %s\n", name);
        CTexture* texture = CreateEmptyTexture();
        texture->LoadFromMemory(nullptr, 0, nullptr);
        texture->SetName(name);
        return texture;
    }

    // Both searches write path only on a hit, so a miss leaves the name as the path.
    char path[PathBufferSize];
    std::memcpy(path, asked, sizeof path);
    if (TextureSearchEnabled) {
        if ((!MeshFolder[0] || !FoundBesideMesh(asked, path)) && TexturePaths &&
            !TexturePaths->FindFile(asked, path)) {
            CorvaneDebug("VALoadTexture: Find failed to locate texture: %s.\n", name);
        }
    }

    CTexture* texture = nullptr;
    if (TextureLoadFunction) {
        texture = TextureLoadFunction(path);
        if (!texture || texture->width == 0) {
            VelmoraLog("LoadTexture", "User load function failed to find texture %s", path);
        }
    } else {
        texture = LoadWithReader(path);
    }
    if (!texture) return nullptr;
    if (!texture->name) texture->SetName(name);
    return texture;
}

void SetTextureLoadFunction(TextureLoader function) {
    TextureLoadFunction = function;
}

void SetTextureSearch(uint8_t enabled) {
    TextureSearchEnabled = enabled;
}
