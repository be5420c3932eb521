// Vertex normals for meshes whose source has none, and for single vertices whose source normal is
// unusable (zero length).
#pragma once

#include <cstdint>
#include <vector>

#include "tool/import/import_scene.h"

// The area-weighted mean of the visible-side normals of the faces around each welded position,
// unit length; (0, 1, 0) where no face with an area touches it.
std::vector<DVec3> SmoothNormals(const ImportMesh& mesh, const std::vector<uint32_t>& weld);

// Gives the mesh one unit normal a vertex, in every frame of an animated one: the source's
// where it has them, smooth ones otherwise.
void CompleteNormals(ImportMesh& mesh, const std::vector<uint32_t>& weld);
