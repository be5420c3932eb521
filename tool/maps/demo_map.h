#pragma once

class CMesh;

constexpr int DemoMapCells = 64;  // 2048 x 2048 world units

// A small map built in code: rolling ground in 8 x 8 chunk meshes, a flight of steps, a roof on
// four posts, an arch, and a few blocks. Delete the root to free it.
CMesh* BuildDemoMap();
