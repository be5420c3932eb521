#include "platform/dx7/gl/gl_pixels.h"

#include <cstddef>

namespace {

struct Channel {
    int shift;
    uint64_t max;  // the mask shifted down; 0 for a channel the format lacks
};

Channel MakeChannel(DWORD mask) {
    if (mask == 0) return {0, 0};
    int shift = 0;
    while (!(mask >> shift & 1)) ++shift;
    return {shift, uint64_t(mask >> shift)};
}

struct Layout {
    Channel channels[4];  // red, green, blue, alpha
    size_t bytesPerPixel;
    size_t pitch;
};

bool GetLayout(const DxSurfaceStore& store, Layout& layout) {
    const DDPIXELFORMAT& f = store.format;
    if (store.width == 0 || store.height == 0) return false;
    if (f.dwFlags & DDPF_FOURCC) {
        layout.channels[0] = MakeChannel(0x00FF0000);
        layout.channels[1] = MakeChannel(0x0000FF00);
        layout.channels[2] = MakeChannel(0x000000FF);
        layout.channels[3] = MakeChannel(0xFF000000);
        layout.bytesPerPixel = 4;
        layout.pitch = size_t(store.width) * 4;  // packed ARGB, whatever the block pitch says
    } else {
        if (!(f.dwFlags & DDPF_RGB) || f.dwRGBBitCount % 8 || f.dwRGBBitCount == 0 ||
            f.dwRGBBitCount > 32)
            return false;
        layout.channels[0] = MakeChannel(f.dwRBitMask);
        layout.channels[1] = MakeChannel(f.dwGBitMask);
        layout.channels[2] = MakeChannel(f.dwBBitMask);
        layout.channels[3] = MakeChannel(f.dwFlags & DDPF_ALPHAPIXELS ? f.dwRGBAlphaBitMask : 0);
        layout.bytesPerPixel = f.dwRGBBitCount / 8;
        if (store.pitch < 0) return false;
        layout.pitch = size_t(store.pitch);
        if (layout.pitch < size_t(store.width) * layout.bytesPerPixel) return false;
    }
    size_t needed = layout.pitch * (store.height - 1) + size_t(store.width) * layout.bytesPerPixel;
    return store.bytes.size() >= needed;
}

}  // namespace

bool DxIsArgb8888(const DDPIXELFORMAT& f) {
    return (f.dwFlags & DDPF_RGB) && (f.dwFlags & DDPF_ALPHAPIXELS) && f.dwRGBBitCount == 32 &&
           f.dwRBitMask == 0x00FF0000 && f.dwGBitMask == 0x0000FF00 && f.dwBBitMask == 0x000000FF &&
           f.dwRGBAlphaBitMask == 0xFF000000;
}

bool DxIsXrgb8888(const DDPIXELFORMAT& f) {
    return (f.dwFlags & DDPF_RGB) && !(f.dwFlags & DDPF_FOURCC) && f.dwRGBBitCount == 32 &&
           f.dwRBitMask == 0x00FF0000 && f.dwGBitMask == 0x0000FF00 && f.dwBBitMask == 0x000000FF &&
           (!(f.dwFlags & DDPF_ALPHAPIXELS) || f.dwRGBAlphaBitMask == 0);
}

bool DxStoreToRgba(const DxSurfaceStore& store, std::vector<uint8_t>& rgba) {
    Layout layout;
    if (!GetLayout(store, layout)) return false;
    rgba.resize(size_t(store.width) * store.height * 4);
    uint8_t* out = rgba.data();
    for (DWORD y = 0; y < store.height; ++y) {
        const uint8_t* row = store.bytes.data() + layout.pitch * y;
        for (DWORD x = 0; x < store.width; ++x, out += 4) {
            const uint8_t* p = row + x * layout.bytesPerPixel;
            uint32_t v = 0;
            for (size_t b = 0; b < layout.bytesPerPixel; ++b) v |= uint32_t(p[b]) << (8 * b);
            for (int c = 0; c < 4; ++c) {
                const Channel& ch = layout.channels[c];
                if (ch.max == 0) {
                    out[c] = c == 3 ? 255 : 0;
                    continue;
                }
                uint64_t value = (v >> ch.shift) & ch.max;
                out[c] = uint8_t((value * 255 + ch.max / 2) / ch.max);
            }
        }
    }
    return true;
}

bool DxRgbaToStore(const uint8_t* rgba, DxSurfaceStore& store) {
    Layout layout;
    if (!GetLayout(store, layout)) return false;
    const uint8_t* in = rgba;
    for (DWORD y = 0; y < store.height; ++y) {
        uint8_t* row = store.bytes.data() + layout.pitch * y;
        for (DWORD x = 0; x < store.width; ++x, in += 4) {
            uint32_t v = 0;
            for (int c = 0; c < 4; ++c) {
                const Channel& ch = layout.channels[c];
                if (ch.max) v |= uint32_t((in[c] * ch.max + 127) / 255) << ch.shift;
            }
            uint8_t* p = row + x * layout.bytesPerPixel;
            for (size_t b = 0; b < layout.bytesPerPixel; ++b) p[b] = uint8_t(v >> (8 * b));
        }
    }
    return true;
}
