// Fuzz target: any bytes as a VBF file load or are refused without a crash. A header kind other
// than 0 or 1 is a fatal report by design, so such inputs are passed over. Textures come from a
// stand-in loader: the TGA branch ends the process on a name that isn't a TGA, by design.
#include <cstring>

#include "engine/mesh/mesh.h"
#include "engine/texture/texture.h"
#include "engine/texture/texture_lookup.h"
#include "tests/fuzz/fuzz_file.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    uint32_t headerKind = 0;
    if (size >= 4) std::memcpy(&headerKind, data, 4);
    if (headerKind > 1) return 0;
    SetTextureLoadFunction([](const char*) { return CreateTexture(1, 1, 0x8888); });
    {
        const FuzzFile vbf("vbf", data, size);
        CMesh root(nullptr);
        FreeVBFUserData(root.LoadVBFWithData(vbf.path.c_str()));
    }
    FreeAllTextures();
    return 0;
}
