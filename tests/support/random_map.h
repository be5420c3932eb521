// Maps of varied shape made from a seed, for tests that compare the ray cores: terrain, boxes
// (so overhangs and steep walls), arches of thin slabs, slivers and degenerate triangles, nested
// meshes, some lying exactly on cell and sample lines.
#pragma once

#include <cstdint>

class CMesh;

// A map within cells x cells (32 units each) of the world; delete the root to free it.
CMesh* BuildRandomMap(uint32_t seed, int cells);
