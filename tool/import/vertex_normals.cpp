#include "tool/import/vertex_normals.h"

#include <cmath>
#include <utility>

#include "tool/import/mesh_weld.h"

namespace {

bool Normalise(DVec3& v) {
    double length = std::sqrt(Dot(v, v));
    if (!(length > 0.0) || !std::isfinite(length)) return false;
    v = {v.x / length, v.y / length, v.z / length};
    return true;
}

// positions: count of them, a frame of the mesh's.
std::vector<DVec3> SmoothNormals(const DVec3* positions, size_t count,
                                 const std::vector<uint32_t>& t,
                                 const std::vector<uint32_t>& weld) {
    std::vector<DVec3> sums(count, DVec3{0.0, 0.0, 0.0});
    for (size_t f = 0; f + 2 < t.size(); f += 3) {
        DVec3 n = VisibleNormal(positions[t[f]], positions[t[f + 1]], positions[t[f + 2]]);
        for (int k = 0; k < 3; ++k) {
            DVec3& sum = sums[weld[t[f + k]]];
            sum = sum + n;
        }
    }
    std::vector<DVec3> normals(count);
    for (size_t i = 0; i < normals.size(); ++i) {
        DVec3 n = sums[weld[i]];
        normals[i] = Normalise(n) ? n : DVec3{0.0, 1.0, 0.0};
    }
    return normals;
}

// normals: count of them, or null where the source has none.
void Complete(const DVec3* positions, DVec3* normals, size_t count,
              const std::vector<uint32_t>& triangles, const std::vector<uint32_t>& weld,
              std::vector<DVec3>& made) {
    bool complete = normals != nullptr;
    for (size_t i = 0; complete && i < count; ++i) complete = Normalise(normals[i]);
    if (complete) return;
    std::vector<DVec3> smooth = SmoothNormals(positions, count, triangles, weld);
    if (!normals) {
        made.insert(made.end(), smooth.begin(), smooth.end());
        return;
    }
    for (size_t i = 0; i < count; ++i)
        if (!Normalise(normals[i])) normals[i] = smooth[i];
}

}  // namespace

std::vector<DVec3> SmoothNormals(const ImportMesh& mesh, const std::vector<uint32_t>& weld) {
    return SmoothNormals(mesh.positions.data(), mesh.positions.size(), mesh.triangles, weld);
}

void CompleteNormals(ImportMesh& mesh, const std::vector<uint32_t>& weld) {
    size_t count = mesh.positions.size();
    bool given = mesh.normals.size() == count;
    std::vector<DVec3> made;
    Complete(mesh.positions.data(), given ? mesh.normals.data() : nullptr, count, mesh.triangles,
             weld, made);
    if (!given) mesh.normals = std::move(made);
    if (!mesh.frameCount) return;
    // Every frame as frame 0 was made, from its own positions; the weld stays frame 0's.
    given = mesh.frameNormals.size() == mesh.framePositions.size();
    made.clear();
    for (size_t f = 0; f < mesh.frameCount && (f + 1) * count <= mesh.framePositions.size(); ++f)
        Complete(mesh.framePositions.data() + f * count,
                 given ? mesh.frameNormals.data() + f * count : nullptr, count, mesh.triangles,
                 weld, made);
    if (!given) mesh.frameNormals = std::move(made);
}
