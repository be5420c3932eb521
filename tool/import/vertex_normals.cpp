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

}  // namespace

std::vector<DVec3> SmoothNormals(const ImportMesh& mesh, const std::vector<uint32_t>& weld) {
    std::vector<DVec3> sums(mesh.positions.size(), DVec3{0.0, 0.0, 0.0});
    const std::vector<uint32_t>& t = mesh.triangles;
    for (size_t f = 0; f + 2 < t.size(); f += 3) {
        DVec3 n =
            VisibleNormal(mesh.positions[t[f]], mesh.positions[t[f + 1]], mesh.positions[t[f + 2]]);
        for (int k = 0; k < 3; ++k) {
            DVec3& sum = sums[weld[t[f + k]]];
            sum = sum + n;
        }
    }
    std::vector<DVec3> normals(mesh.positions.size());
    for (size_t i = 0; i < normals.size(); ++i) {
        DVec3 n = sums[weld[i]];
        normals[i] = Normalise(n) ? n : DVec3{0.0, 1.0, 0.0};
    }
    return normals;
}

void CompleteNormals(ImportMesh& mesh, const std::vector<uint32_t>& weld) {
    bool complete = mesh.normals.size() == mesh.positions.size();
    for (size_t i = 0; complete && i < mesh.normals.size(); ++i)
        complete = Normalise(mesh.normals[i]);
    if (complete) return;
    std::vector<DVec3> smooth = SmoothNormals(mesh, weld);
    if (mesh.normals.size() != mesh.positions.size()) {
        mesh.normals = std::move(smooth);
        return;
    }
    for (size_t i = 0; i < mesh.normals.size(); ++i)
        if (!Normalise(mesh.normals[i])) mesh.normals[i] = smooth[i];
}
