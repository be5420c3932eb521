#include "tool/bake/shadow_map_file.h"

#include <cstring>

#include "engine/texture/texture.h"
#include "platform/crt/replacing_file.h"

bool WriteShadowMapFile(const CTexture* texture, int32_t width, int32_t height, const char* path) {
    std::vector<uint8_t> bytes(size_t(width) * size_t(height));
    const uint8_t* pixels = texture->pixels;
    for (int32_t y = 0; y < height; ++y)
        for (int32_t x = 0; x < width; ++x)  // 0x8888 keeps alpha in the fourth byte
            bytes[size_t(y) * width + x] = pixels[(size_t(y) * texture->width + x) * 4 + 3];
    return WriteFileAtomically(path, bytes.data(), bytes.size());
}

bool WriteHeightFile(const std::vector<float>& heights, const char* path) {
    std::vector<uint8_t> bytes(heights.size() * 4);
    uint8_t* out = bytes.data();
    for (float height : heights) {
        uint32_t bits;
        std::memcpy(&bits, &height, 4);
        for (int k = 0; k < 4; ++k) *out++ = uint8_t(bits >> (8 * k));
    }
    return WriteFileAtomically(path, bytes.data(), bytes.size());
}

std::string HeightFilePath(const std::string& shadowMapPath) {
    std::string path = shadowMapPath;
    if (!path.empty()) path.back() = 'h';
    return path;
}
