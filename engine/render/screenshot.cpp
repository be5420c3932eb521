// CRenderer::SaveScreenShot: the back surface as a 24-bit TGA file, silent on any failure.
#include <algorithm>
#include <bit>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "engine/render/renderer.h"

namespace {

// The movie form's system-memory copy, made once per device and kept until the device closes,
// so that each frame costs one copy out of video memory.
LPDIRECTDRAWSURFACE7 movieSurface = nullptr;
LPDIRECTDRAW7 movieOwner = nullptr;  // the DirectDraw object it belongs to

// The movie form's names have five digits.
std::string FormatName(bool movie, const char* prefix, int number) {
    const int length = std::snprintf(nullptr, 0, movie ? "%s%05d.tga" : "%s%d.tga", prefix, number);
    if (length < 0) return std::string();
    std::vector<char> text(size_t(length) + 1);
    std::snprintf(text.data(), text.size(), movie ? "%s%05d.tga" : "%s%d.tga", prefix, number);
    return std::string(text.data());
}

struct Channel {
    uint32_t mask;
    int position;
    int shift;  // 8 minus the channel's bits

    explicit Channel(uint32_t channelMask)
        : mask(channelMask),
          position(channelMask ? std::countr_zero(channelMask) : 0),
          shift(8 - std::popcount(channelMask)) {}
    uint8_t Of(uint32_t pixel) const {
        const uint32_t value = (pixel & mask) >> position;
        return uint8_t(shift >= 0 ? value << shift : value >> -shift);
    }
};

void DropMovieSurface() {
    if (movieSurface) movieSurface->Release();
    movieSurface = nullptr;
    movieOwner = nullptr;
}

}  // namespace

void CRenderer::ReleaseMovieSurface() {
    if (movieOwner == directDraw) DropMovieSurface();
}

void CRenderer::SaveScreenShot(const char* prefix, int32_t index) {
    if (!prefix) prefix = "ScreenShot";
    if (width <= 0 || height <= 0) return;
    std::vector<uint8_t> outRow(size_t(width) * 3);
    std::vector<uint8_t> pixelRow(size_t(width) * 4);

    std::string name;
    if (index != -1) {
        if (!movieSurface || movieOwner != directDraw) {
            DropMovieSurface();
            movieSurface =
                CreateOffscreen(width, height, DDSCAPS_SYSTEMMEMORY | DDSCAPS_OFFSCREENPLAIN);
            movieOwner = movieSurface ? directDraw : nullptr;
        }
        name = FormatName(true, prefix, index);
    } else {
        for (int number = 0; number >= 0; ++number) {
            name = FormatName(false, prefix, number);
            FILE* existing = std::fopen(name.c_str(), "rb");
            if (!existing) break;
            std::fclose(existing);
        }
    }
    FILE* file = std::fopen(name.c_str(), "wb");
    if (!file) return;

    uint8_t header[18] = {};
    header[2] = 2;  // uncompressed true colour
    header[12] = uint8_t(width);
    header[13] = uint8_t(width >> 8);
    header[14] = uint8_t(height);
    header[15] = uint8_t(height >> 8);
    header[16] = 24;
    std::fwrite(header, 1, sizeof header, file);

    LPDIRECTDRAWSURFACE7 source = flipping;
    if (index != -1) {
        source = movieSurface;
        if (source && flipping) source->Blt(nullptr, flipping, nullptr, DDBLT_WAIT, nullptr);
    }
    DDSURFACEDESC2 desc;
    std::memset(&desc, 0, sizeof desc);
    desc.dwSize = sizeof desc;
    const bool locked = source && SUCCEEDED(source->Lock(nullptr, &desc, DDLOCK_WAIT, nullptr));
    const DWORD bits = displayFormat.dwRGBBitCount;
    if (locked && desc.lpSurface && (displayFormat.dwFlags & DDPF_RGB) && bits > 8) {
        const Channel red(displayFormat.dwRBitMask), green(displayFormat.dwGBitMask),
            blue(displayFormat.dwBBitMask);
        const size_t bytes = bits <= 16 ? 2 : bits <= 24 ? 3 : 4;
        const size_t columns = std::min<size_t>(size_t(width), desc.dwWidth);
        const uint8_t* base = static_cast<const uint8_t*>(desc.lpSurface);
        const bool pitchFits = desc.lPitch > 0 && size_t(desc.lPitch) >= columns * bytes;
        for (int32_t y = height - 1; y >= 0; --y) {
            std::fill(pixelRow.begin(), pixelRow.end(), uint8_t(0));
            if (pitchFits && DWORD(y) < desc.dwHeight)
                std::memcpy(pixelRow.data(), base + size_t(y) * size_t(desc.lPitch),
                            columns * bytes);
            for (size_t x = 0; x < size_t(width); ++x) {
                uint32_t pixel = 0;
                for (size_t k = 0; k < bytes; ++k)
                    pixel |= uint32_t(pixelRow[x * bytes + k]) << (8 * k);
                outRow[x * 3] = blue.Of(pixel);
                outRow[x * 3 + 1] = green.Of(pixel);
                outRow[x * 3 + 2] = red.Of(pixel);
            }
            std::fwrite(outRow.data(), 1, outRow.size(), file);
        }
    }
    if (locked) source->Unlock(nullptr);
    std::fclose(file);
}
