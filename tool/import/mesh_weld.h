// Vertices that stand at the same place. Sources split a vertex wherever its texture coordinates
// or normals change; smoothing and the winding check look past such seams.
#pragma once

#include <cstdint>
#include <vector>

#include "tool/import/import_scene.h"

// For each vertex the index of the first vertex with exactly the same position (+0 and -0 equal).
std::vector<uint32_t> WeldPositions(const std::vector<DVec3>& positions);

// The normal of the visible side of face (a, b, c) as the engine winds it: (c - b) x (a - b),
// twice the face's area long.
inline DVec3 VisibleNormal(const DVec3& a, const DVec3& b, const DVec3& c) {
    return Cross(c - b, a - b);
}
