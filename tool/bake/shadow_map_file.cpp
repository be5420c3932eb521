#include "tool/bake/shadow_map_file.h"

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>

#include "engine/texture/texture.h"
#include "platform/crt/replacing_file.h"
#include "tool/bake/shadow_quantise.h"
#include "tool/bake/shadow_settings.h"

bool WriteShadowMapFile(const CTexture* texture, int32_t width, int32_t height, const char* path) {
    std::vector<uint8_t> bytes(size_t(width) * size_t(height));
    const uint8_t* pixels = texture->pixels;
    for (int32_t y = 0; y < height; ++y)
        for (int32_t x = 0; x < width; ++x)  // 0x8888 keeps alpha in the fourth byte
            bytes[size_t(y) * width + x] = pixels[(size_t(y) * texture->width + x) * 4 + 3];
    return WriteFileAtomically(path, bytes.data(), bytes.size());
}

CTexture* ReadShadowMapFile(const char* path, const ShadowSettingsRecord& settings,
                            std::string& error) {
    std::FILE* file = std::fopen(path, "rb");
    if (!file) {
        error = std::strerror(errno);
        return nullptr;
    }
    std::vector<uint8_t> bytes;
    uint8_t block[65536];
    size_t got;
    constexpr size_t Largest = size_t(8192) * 8192;
    while ((got = std::fread(block, 1, sizeof block, file)) > 0 && bytes.size() <= Largest)
        bytes.insert(bytes.end(), block, block + got);
    const bool failed = std::ferror(file) != 0;
    std::fclose(file);
    if (failed) {
        error = "it could not be read";
        return nullptr;
    }
    const auto side = int32_t(std::lround(std::sqrt(double(bytes.size()))));
    if (bytes.empty() || bytes.size() > Largest || size_t(side) * size_t(side) != bytes.size()) {
        error = std::to_string(bytes.size()) +
                " bytes are not a square shadow map of 1 to 8192 texels a side";
        return nullptr;
    }
    CTexture* texture = CreateTexture(side, side, TextureFormat8888);
    if (!texture) {
        error = "no memory for its texture";
        return nullptr;
    }
    texture->flags = TextureFlagMultiply | 0x20 | TextureFlagAlpha;  // as the bake makes it
    uint32_t colours[256];
    for (int32_t level = 0; level < 256; ++level) colours[level] = ShadowTexel(level, settings);
    auto* texels = reinterpret_cast<uint32_t*>(texture->pixels);
    for (size_t i = 0; i < bytes.size(); ++i) texels[i] = colours[255 - bytes[i]];
    return texture;
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
