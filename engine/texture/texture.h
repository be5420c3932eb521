// CTexture: the engine's image, a block of pixels in one of six formats plus a flag word. Every
// texture handed out stands in the engine's list, which owns it: release with FreeTexture.
#pragma once

#include <cstdint>

// Format codes: four hex digits give the bit widths of red, green, blue and alpha.
enum TextureFormat : uint32_t {
    TextureFormat4444 = 0x4444,
    TextureFormat5550 = 0x5550,
    TextureFormat5551 = 0x5551,
    TextureFormat5650 = 0x5650,
    TextureFormat8880 = 0x8880,
    TextureFormat8888 = 0x8888,
};

enum TextureFlags : uint32_t {
    TextureFlagAlpha = 0x4,
    TextureFlagKeyed = 0x10,
    TextureFlagFixedAlpha = 0x40,
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

class CTexture {
public:
    CTexture();
    ~CTexture();
    CTexture(const CTexture&) = delete;
    CTexture& operator=(const CTexture&) = delete;

    void SetName(const char* text);
    int32_t GetPitch() const;

    uint8_t* pixels;        // rows from the top, no padding; owned
    char* name;             // owned, or null
    int32_t width;
    int32_t height;
    uint32_t flags;         // TextureFlags
    uint32_t alphaSetting;  // from the file name's marks
    uint32_t format;        // TextureFormat
    uint32_t mipLevels;
    void* stagingSurface;   // device surfaces: null until a device uploads the texture
    void* surface;
    void* depthSurface;
    uint8_t locked;
    void* lockDevice;
    uint32_t stage;
    uint32_t decalTally;
};

// Bytes per pixel of a format; an unknown format is fatal.
int GetTextureBPP(uint32_t format);

CTexture* CreateEmptyTexture();
CTexture* CreateTexture(int32_t width, int32_t height, uint32_t format);  // pixels uninitialised
void FreeTexture(CTexture* texture);  // one not in the list is left alone
void FreeAllTextures();
int CountTextures();  // textures in the engine's list
