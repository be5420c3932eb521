#include "tool/bake/shadow_map_file.h"

#include <cstring>
#include <vector>

#include "engine/texture/texture.h"
#include "tool/bake/atomic_write.h"
#include "tool/raycast/ray_table.h"

static constexpr float NoGroundHeight = -10000.0f;

bool WriteShadowMapFile(const CTexture* texture, int32_t width, int32_t height, const char* name) {
    std::vector<uint8_t> bytes(size_t(width) * size_t(height));
    const uint8_t* pixels = texture->pixels;
    for (int32_t y = 0; y < height; ++y)
        for (int32_t x = 0; x < width; ++x)  // 0x8888 keeps alpha in the fourth byte
            bytes[size_t(y) * width + x] = pixels[(size_t(y) * texture->width + x) * 4 + 3];
    return WriteFileAtomically(name, bytes.data(), bytes.size());
}

bool WriteHeightFile(int32_t cellsX, int32_t cellsY, char* name) {
    std::vector<uint8_t> bytes(size_t(cellsX) * size_t(cellsY) * 4);
    uint8_t* out = bytes.data();
    for (int32_t r = 0; r < cellsY; ++r)
        for (int32_t c = 0; c < cellsX; ++c) {
            float x = float(32 * c), z = float(-32 * r);
            bool missed = RayCastDown(x, 10000.0f, z, x, -10000.0f, z);
            float height = missed ? NoGroundHeight : RayGround.Position.y;
            uint32_t bits;
            std::memcpy(&bits, &height, 4);
            for (int k = 0; k < 4; ++k) *out++ = uint8_t(bits >> (8 * k));
        }
    size_t length = std::strlen(name);
    if (length == 0) return false;
    name[length - 1] = 'h';
    return WriteFileAtomically(name, bytes.data(), bytes.size());
}
