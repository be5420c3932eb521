// Maps of varied shape made from a seed, for tests that compare the ray cores: terrain, boxes
// (so overhangs and steep walls), slivers and degenerate triangles, kites with a corner level with
// a sample line, nested meshes, many vertices exactly on the 4-unit sample lattice.
#pragma once

#include <cstdint>

class CMesh;

// A map within cells x cells (32 units each) of the world; delete the root to free it.
CMesh* BuildRandomMap(uint32_t seed, int cells);
