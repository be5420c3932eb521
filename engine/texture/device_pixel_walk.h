// The conversion of a texture's pixels into a device surface's format. It needs only a target
// address, a pitch and a format record, so it runs and is tested without a device.
#pragma once

#include <cstdint>

#include "engine/render/renderer.h"

class CTexture;

// Reads one engine format pixel by pixel, widening each channel to 8 bits. Next gives true for
// the key pixel. One shared instance per format: only one fill can run at a time.
class CTexturePixelWalk {
public:
    virtual ~CTexturePixelWalk() = default;
    virtual bool Next(uint8_t& red, uint8_t& green, uint8_t& blue, uint8_t& alpha) = 0;

    const uint8_t* cursor = nullptr;
};

class CTexturePixelWalk555 : public CTexturePixelWalk {
public:
    bool Next(uint8_t& red, uint8_t& green, uint8_t& blue, uint8_t& alpha) override;
};
class CTexturePixelWalk565 : public CTexturePixelWalk {
public:
    bool Next(uint8_t& red, uint8_t& green, uint8_t& blue, uint8_t& alpha) override;
};
class CTexturePixelWalk888 : public CTexturePixelWalk {
public:
    bool Next(uint8_t& red, uint8_t& green, uint8_t& blue, uint8_t& alpha) override;
};
class CTexturePixelWalk5551 : public CTexturePixelWalk {
public:
    bool Next(uint8_t& red, uint8_t& green, uint8_t& blue, uint8_t& alpha) override;
};
class CTexturePixelWalk4444 : public CTexturePixelWalk {
public:
    bool Next(uint8_t& red, uint8_t& green, uint8_t& blue, uint8_t& alpha) override;
};
class CTexturePixelWalk8888 : public CTexturePixelWalk {
public:
    bool Next(uint8_t& red, uint8_t& green, uint8_t& blue, uint8_t& alpha) override;
};

// True if a plain row copy can serve: the record has just the layout of the texture's format and
// the texture holds no key pixels. 0x5551 never counts as plain.
bool IsTextureLayout(const TextureFormatRecord* format, const CTexture* texture);

// Converts the texture's top level into the locked surface: derived alpha where the texture asks
// for it, key pixels coloured from their neighbours. Rows and columns beyond the description's
// size are left out.
void FillTextureSurface(const TextureFormatRecord* format, const DDSURFACEDESC2* desc,
                        CTexture* texture);
