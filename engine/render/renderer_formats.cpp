#include <algorithm>
#include <bit>
#include <cstring>

#include "base/diagnostics.h"
#include "base/memory.h"
#include "base/velmora_log.h"
#include "engine/render/renderer.h"
#include "platform/debug/debug_output.h"

namespace {

uint32_t LowestBit(uint32_t mask) {
    return mask ? uint32_t(std::countr_zero(mask)) : 0;
}

struct DxtCode {
    DWORD fourCc;
    uint32_t bit;
    const char* line;
};

constexpr DxtCode DxtCodes[] = {
    {FOURCC_DXT1, DxtSupport1, "Device Supports DXT1"},
    {FOURCC_DXT2, DxtSupport2, "Device Supports DXT2"},
    {FOURCC_DXT3, DxtSupport3, "Device Supports DXT3"},
    {FOURCC_DXT4, DxtSupport4, "Device Supports DXT4"},
    {FOURCC_DXT5, DxtSupport5, "Device Supports DXT5"},
};

HRESULT TakeTextureFormat(LPDDPIXELFORMAT format, LPVOID context) {
    CRenderer* renderer = static_cast<CRenderer*>(context);
    if (format->dwFlags & (DDPF_ALPHA | DDPF_LUMINANCE | DDPF_BUMPLUMINANCE | DDPF_BUMPDUDV))
        return DDENUMRET_OK;
    if (format->dwFlags & DDPF_FOURCC) {
        for (const DxtCode& code : DxtCodes) {
            if (format->dwFourCC != code.fourCc) continue;
            renderer->dxtSupport |= code.bit;
            CorvaneDebug("%s", code.line);
        }
        return DDENUMRET_OK;
    }
    if (!(format->dwFlags & DDPF_RGB) || format->dwRGBBitCount < 16) return DDENUMRET_OK;

    TextureFormatRecord* record = NEW TextureFormatRecord;
    record->format = *format;
    record->bytesPerPixel = int32_t(format->dwRGBBitCount / 8);
    record->redMask = format->dwRBitMask;
    record->greenMask = format->dwGBitMask;
    record->blueMask = format->dwBBitMask;
    record->alphaMask = format->dwFlags & DDPF_ALPHAPIXELS ? format->dwRGBAlphaBitMask : 0;
    record->redShift = LowestBit(record->redMask);
    record->greenShift = LowestBit(record->greenMask);
    record->blueShift = LowestBit(record->blueMask);
    record->alphaShift = LowestBit(record->alphaMask);
    record->redBits = uint32_t(std::popcount(record->redMask));
    record->greenBits = uint32_t(std::popcount(record->greenMask));
    record->blueBits = uint32_t(std::popcount(record->blueMask));
    record->alphaBits = uint32_t(std::popcount(record->alphaMask));
    record->next = renderer->textureFormats;
    renderer->textureFormats = record;
    return DDENUMRET_OK;
}

struct WantedBits {
    uint32_t code;
    int red, green, blue, alpha;
    bool needsAlpha;
};

constexpr WantedBits WantedByFormat[] = {
    {0x5650, 5, 6, 5, 0, false}, {0x5550, 5, 5, 5, 0, false}, {0x5551, 5, 5, 5, 1, true},
    {0x4444, 4, 4, 4, 4, true},  {0x8880, 8, 8, 8, 0, false}, {0x8888, 8, 8, 8, 8, true},
};

// Wanted minus offered, channel by channel: red, green, blue, alpha.
void Shortfalls(const WantedBits& wanted, const TextureFormatRecord* record, int out[4]) {
    out[0] = wanted.red - int(record->redBits);
    out[1] = wanted.green - int(record->greenBits);
    out[2] = wanted.blue - int(record->blueBits);
    out[3] = wanted.alpha - int(record->alphaBits);
}

}  // namespace

void CRenderer::EnumerateTextureFormats() {
    if (device) device->EnumTextureFormats(TakeTextureFormat, this);
}

const TextureFormatRecord* CRenderer::GetBestTextureFormat(uint32_t format, bool keyed,
                                                           bool alpha) {
    if (!textureFormats) VelmoraFatal("GetBestTextureFormat", "No Valid Texture Formats Found!\n");
    const WantedBits* found = nullptr;
    for (const WantedBits& entry : WantedByFormat)
        if (entry.code == format) found = &entry;
    if (!found) VelmoraFatal("GetBestTextureFormat", "Invalid Pixel Format %x\n", format);

    WantedBits wanted = *found;
    if (!wanted.needsAlpha && alpha) {
        wanted.needsAlpha = true;
        wanted.alpha = std::max({wanted.red, wanted.green, wanted.blue});
    } else if (!wanted.needsAlpha && keyed) {
        wanted.needsAlpha = true;
        wanted.alpha = 1;
    }

    const TextureFormatRecord* kept = nullptr;
    int keptShortfall = 0;
    for (const TextureFormatRecord* record = textureFormats; record; record = record->next) {
        if ((record->alphaMask != 0) != wanted.needsAlpha) continue;
        int shortfall[4];
        Shortfalls(wanted, record, shortfall);
        if (!shortfall[0] && !shortfall[1] && !shortfall[2] && !shortfall[3]) return record;
        if (*std::min_element(shortfall, shortfall + 4) < 0) continue;  // deeper than wanted
        int largest = *std::max_element(shortfall, shortfall + 4);
        if (!kept || largest < keptShortfall) {
            kept = record;
            keptShortfall = largest;
        }
    }
    if (kept) return kept;

    int bestDifference = 255;
    for (const TextureFormatRecord* record = textureFormats; record; record = record->next) {
        if ((record->alphaMask != 0) != wanted.needsAlpha) continue;
        int difference[4];
        Shortfalls(wanted, record, difference);
        int largest = 0;
        for (int channel : difference)
            largest = std::max(largest, channel < 0 ? -channel : channel);
        if (largest < bestDifference) {
            kept = record;
            bestDifference = largest;
        }
    }
    if (!kept)
        VelmoraFatal("GetBestTextureFormat", "Utterly Failed to find any matching texture for %x\n",
                     format);
    return kept;
}

const DeviceLimits* CRenderer::GetDeviceLimits() {
    if (!device) return nullptr;
    if (limits) return limits;
    auto orUnknown = [](DWORD value) { return value ? int32_t(value) : -1; };
    limits = NEW DeviceLimits;
    limits->maxTextureWidth = orUnknown(deviceDesc.dwMaxTextureWidth);
    limits->maxTextureHeight = orUnknown(deviceDesc.dwMaxTextureHeight);
    limits->minTextureWidth = orUnknown(deviceDesc.dwMinTextureWidth);
    limits->minTextureHeight = orUnknown(deviceDesc.dwMinTextureHeight);
    limits->blendStages = deviceDesc.wMaxTextureBlendStages;
    limits->simultaneousTextures = deviceDesc.wMaxSimultaneousTextures;
    limits->powerOfTwoOnly = deviceDesc.dpcTriCaps.dwTextureCaps & D3DPTEXTURECAPS_POW2 ? 1 : 0;
    limits->squareOnly = deviceDesc.dpcTriCaps.dwTextureCaps & D3DPTEXTURECAPS_SQUAREONLY ? 1 : 0;
    return limits;
}

uint32_t CRenderer::PackColour(uint8_t red, uint8_t green, uint8_t blue) const {
    uint32_t r = red, g = green, b = blue;
    if (softwareFormat == 0x5550) return ((r >> 3) << 8 | (g & ~7u)) * 4 | b >> 3;
    if (softwareFormat == 0x5650) return ((r >> 3) << 8 | (g & ~3u)) * 8 | b >> 3;
    OutputDebugStringA("Unknown Pixel Format.....\n");
    return r << 16 | g << 8 | b;
}

LPDIRECTDRAWSURFACE7 CRenderer::CreateOffscreen(int32_t surfaceWidth, int32_t surfaceHeight,
                                                DWORD caps) {
    if (!directDraw) return nullptr;
    DDSURFACEDESC2 desc;
    std::memset(&desc, 0, sizeof desc);
    desc.dwSize = sizeof desc;
    desc.dwFlags = DDSD_CAPS | DDSD_WIDTH | DDSD_HEIGHT | DDSD_PIXELFORMAT;
    desc.dwWidth = DWORD(surfaceWidth);
    desc.dwHeight = DWORD(surfaceHeight);
    desc.ddpfPixelFormat = displayFormat;
    desc.ddsCaps.dwCaps = caps;
    LPDIRECTDRAWSURFACE7 surface = nullptr;
    if (FAILED(directDraw->CreateSurface(&desc, &surface, nullptr))) return nullptr;
    return surface;
}
