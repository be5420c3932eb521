// Fuzz target: any bytes as a VBF file must load or be refused without a crash. A header kind
// other than 0 or 1 is a fatal report by design, so such inputs are passed over. Textures come
// from a stand-in loader: the TGA branch ends the process on a name that isn't a TGA, by design.
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "engine/mesh/mesh.h"
#include "engine/texture/texture.h"
#include "engine/texture/texture_lookup.h"
#include "tests/fuzz/fuzz_file.h"

namespace {

CTexture* BlankTexture(const char* /*path*/) {
    return CreateTexture(1, 1, 0x8888);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size >= 4) {
        uint32_t headerKind;
        std::memcpy(&headerKind, data, 4);
        if (headerKind > 1) return 0;
    }
    SetTextureLoadFunction(BlankTexture);
    std::string path = WriteFuzzInput("vbf", data, size);
    {
        CMesh root(nullptr);
        FreeVBFUserData(root.LoadVBFWithData(path.c_str()));
    }
    std::remove(path.c_str());
    FreeAllTextures();
    return 0;
}
