// CTexture: the engine's image, a block of pixels in one of six formats plus a flag word. Every
// texture handed out stands in the engine's list, which owns it: release with FreeTexture.
// The pixels never need a device; the surfaces are the device half, made on first draw.
#pragma once

#include <cstddef>
#include <cstdint>

#include "engine/texture/pixel_format.h"

class CRenderer;

enum TextureFlags : uint32_t {
    TextureFlagAlpha = 0x4,
    TextureFlagKeyed = 0x10,       // holds key pixels
    TextureFlagFixedAlpha = 0x40,  // with 0x4 on a format without alpha: alpha is alphaSetting
    TextureFlagMultiply = 0x80,
    TextureFlagClamp = 0x100,
    TextureFlagAdd = 0x200,
    TextureFlagMipChain = 0x400,
    TextureFlagRenderTarget = 0x800,
    TextureFlagNeverCompress = 0x1000,
    TextureFlagAlwaysCompress = 0x2000,
    TextureFlagDynamic = 0x8000,
    TextureFlagCubeMap = 0x100000,
    TextureFlagAnisotropic = 0x200000,
};

// Out record of CTexture::Lock.
struct TextureLock {
    uint8_t* pixels;
    int32_t pitch;   // bytes from one row to the next
    int32_t status;  // 0, or -1 when the texture was locked already
};

class CTexture {
public:
    CTexture();
    ~CTexture();  // ends a lock first
    CTexture(const CTexture&) = delete;
    CTexture& operator=(const CTexture&) = delete;

    void SetName(const char* text);  // stores a copy; null clears
    int32_t GetPitch() const;        // width x bytes per pixel
    bool HasColourKey() const;       // a pixel equals the key value; false for alpha formats

    // A lock of the pixel block gives the bytes per pixel; 0 with status -1 if already locked.
    int Lock(CRenderer* device, uint32_t unused, TextureLock* out);
    void Unlock(CRenderer* device, uint32_t unused);

    // TGA files, resizing and mip levels (tga.cpp). A load that fails leaves the 64 by 64 test
    // pattern and gives false; the texture stays usable either way.
    bool LoadTGA(const char* path);
    bool LoadFromMemory(const uint8_t* image, size_t size, const char* imageName);  // null: pattern
    bool SaveAsTGA(const char* path) const;  // 0x5550, 0x8880 and 0x8888 only
    bool Resize(int32_t newWidth, int32_t newHeight, uint32_t newFormat);
    // Shrinks the top level into the block behind it, which must be TextureBlockSize large.
    int32_t BuildMipLevels(int32_t levels);

    uint8_t* pixels;  // rows from the top, no padding, mip levels behind; owned, may be null
    char* name;       // owned, or null
    int32_t width;
    int32_t height;
    uint32_t flags;         // TextureFlags
    uint32_t alphaSetting;  // from the file name's marks; all ones means a fixed 255
    uint32_t format;        // TextureFormat
    uint32_t mipLevels;     // levels below the top in the block, or for a device to build
    void* stagingSurface;   // device surfaces: null until a device uploads the texture
    void* surface;
    void* depthSurface;
    uint8_t locked;
    CRenderer* lockDevice;  // null for a lock of the pixel block
    uint32_t stage;
    uint32_t decalTally;
};

// Bytes of a block holding the top level and mipLevels levels below it, each halved.
size_t TextureBlockSize(int32_t width, int32_t height, uint32_t format, uint32_t mipLevels);

CTexture* CreateEmptyTexture();  // all fields zero, no pixels
CTexture* CreateTexture(int32_t width, int32_t height, uint32_t format);  // pixels uninitialised
CTexture* CreateTextureFromFile(const char* path);  // the test pattern if it cannot be read
CTexture* CreateTextureFromMemory(const uint8_t* image, size_t size, const char* name);
// Own pixels and name, no surfaces, unlocked. Copies TextureBlockSize bytes with the mip levels,
// so the source's block must hold the levels that mipLevels counts.
CTexture* CopyTexture(const CTexture* texture);
void FreeTexture(CTexture* texture);  // one not in the list is left alone
void FreeAllTextures();
int CountTextures();  // textures in the engine's list
// Visits every texture in the engine's list; visit must not free textures.
void ForEachTexture(void (*visit)(CTexture* texture, void* context), void* context);

// The engine's close: logs each texture still in the list, frees none.
void LogTexturesStillAllocated();

// What the device half does when textures go or are locked. The renderer installs these while it
// has devices; without them textures live in memory only.
struct TextureDeviceHooks {
    void (*releaseTexture)(CTexture* texture);  // out of every device's table, surfaces released
    void (*releaseAllTextures)();               // every device drops all its texture surfaces
    // The direct road of Lock: true, with out filled, where the device's surface has the layout
    // of the texture's format and could be locked.
    bool (*lockSurface)(CRenderer* device, CTexture* texture, TextureLock* out) = nullptr;
    void (*unlockSurface)(CTexture* texture) = nullptr;
    // After a lock of the pixel block: the device's surface is filled again from the pixels.
    void (*refillSurface)(CRenderer* device, CTexture* texture) = nullptr;
};
void SetTextureDeviceHooks(const TextureDeviceHooks* hooks);  // null: no device
