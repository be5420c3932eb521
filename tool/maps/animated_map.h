// The animated sample: a small map with one moving part, whose shadow moves from frame to frame
// of an animated bake. The generator's ground and a few of its buildings, and a windmill whose
// four sails turn about a horizontal axis in a vertex animation of one key frame a frame.
#pragma once

#include <string>
#include <vector>

class CMesh;
struct MapTextures;

constexpr int AnimatedMapCells = 16;
constexpr int AnimatedMapFrames = 8;

// The map's tree under a new root; textures may be null (untextured faces). The sails turn a
// quarter turn over the frames, so the loop closes. Delete the root to free it.
CMesh* GenerateAnimatedMap(const MapTextures* textures);

// A text file that goes with the map: its name relative to the map folder, and its contents.
struct MapTextFile {
    const char* name;
    std::string text;
};

// resource.cfg, the shadow script lit/animated.ssf that bakes every frame under a sun low enough
// for the sails' shadow to fall on open ground, and the light description lit/animated.lit.
std::vector<MapTextFile> AnimatedMapFiles();
