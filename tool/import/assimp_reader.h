// Mesh files through Assimp: every triangle of every node's meshes, with the node transforms
// applied in double, the source's normals and first texture coordinates, and each material's
// colour map as a source for the texture import. Points and lines are left out.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tool/import/import_scene.h"

// path names the input in messages and, for a file on disk, is where Assimp reads from (so an
// OBJ finds its .mtl). Appends to scene; false, with the reason logged, if nothing was taken.
bool ReadModelFile(const std::string& path, ImportScene& scene, ImportLog& log);

// The same for a model in memory (an inflated .gz); hint is the inner extension ("ply").
bool ReadModelMemory(const std::string& path, const std::vector<uint8_t>& bytes,
                     const std::string& hint, ImportScene& scene, ImportLog& log);
