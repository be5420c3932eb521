// Fuzz target: any bytes as a TGA image load or are refused without a crash, and always give a
// usable texture.
#include <cstdint>
#include <cstdlib>

#include "engine/texture/texture.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    CTexture* texture = CreateTextureFromMemory(data, size, "fuzz.tga");
    if (!texture || !texture->pixels) std::abort();
    FreeTexture(texture);
    return 0;
}
