// Fuzz target: any bytes as a CityJSON file are read or refused without a crash; a model read
// holds only whole triangles over its own vertices, each vertex with a normal and finite, and a
// refused one leaves the scene as it was.
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "tool/import/cityjson_reader.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::vector<uint8_t> bytes(data, data + size);
    ImportScene scene;
    ImportLog silent([](ImportSeverity, const std::string&) {});
    if (!ReadCityJson("fuzz.city.json", bytes, scene, silent)) {
        if (!scene.meshes.empty() || scene.groundPlane || !silent.Errors()) std::abort();
        return 0;
    }
    for (const ImportMesh& mesh : scene.meshes) {
        if (mesh.triangles.size() % 3 || mesh.normals.size() != mesh.positions.size()) std::abort();
        for (uint32_t index : mesh.triangles)
            if (index >= mesh.positions.size()) std::abort();
        for (const DVec3& p : mesh.positions)
            if (!std::isfinite(p.x) || !std::isfinite(p.y) || !std::isfinite(p.z)) std::abort();
    }
    return 0;
}
