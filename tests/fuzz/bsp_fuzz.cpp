// Fuzz target: any bytes as a BSP level are read or refused without a crash; a level read holds
// only whole triangles over its own vertices, and a refused one leaves the scene as it was.
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "tool/import/bsp_reader.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::vector<uint8_t> bytes(data, data + size);
    ImportScene scene;
    ImportLog silent([](ImportSeverity, const std::string&) {});
    if (!ReadBspLevel("fuzz.bsp", bytes, scene, silent)) {
        if (!scene.meshes.empty()) std::abort();
        return 0;
    }
    for (const ImportMesh& mesh : scene.meshes) {
        if (mesh.triangles.size() % 3 || mesh.normals.size() != mesh.positions.size()) std::abort();
        for (uint32_t index : mesh.triangles)
            if (index >= mesh.positions.size()) std::abort();
    }
    return 0;
}
