// Fuzz target: any bytes as a VAF file load or are refused without a crash, and a refused file
// leaves the loading tree as it was. A vertex_light before the vertices is a fatal report by
// design; the trap a run's job holds turns it into a refusal here. Textures come from a stand-in
// loader: the TGA branch ends the process on a name that isn't a TGA, by design.
#include <cstdlib>

#include "base/fatal_trap.h"
#include "engine/mesh/mesh.h"
#include "engine/texture/texture.h"
#include "engine/texture/texture_lookup.h"
#include "tests/fuzz/fuzz_file.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    SetTextureLoadFunction([](const char*) { return CreateTexture(1, 1, 0x8888); });
    {
        const FuzzFile vaf("vaf", data, size);
        FatalReportTrap trap;
        CMesh root(nullptr);
        CMesh* before = new CMesh(&root);
        before->SetName("before");
        bool loaded = root.LoadVAF(vaf.path.c_str(), 1);
        if (!loaded && (root.firstChild != before || before->nextSibling)) std::abort();
        if (loaded) root.SetAnimationFrame(3.0f, 1);  // walk what was built
    }
    FreeAllTextures();
    return 0;
}
