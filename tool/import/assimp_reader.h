// Mesh files through Assimp: every triangle of every node's meshes, with the node transforms
// applied in double, the source's normals and first texture coordinates, and each material's
// colour map as a source for the texture import. Points and lines are left out. With an animation
// in the file, the meshes it moves or morphs are sampled frame by frame (animation_sampler.h).
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tool/import/import_scene.h"

constexpr uint32_t MaxAnimationFrames = 100000;
constexpr double MaxAnimationFps = 1000.0;

struct AnimationOptions {
    double fps = 10.0;
    uint32_t maxFrames = 0;  // 0: every frame the animation lasts
    std::string pick;        // an animation's name or its index from 0; empty: the first
    bool given = false;      // any of them was asked for
};

// path names the input in messages and, for a file on disk, is where Assimp reads from (so an
// OBJ finds its .mtl). Appends to scene; false, with the reason logged, if nothing was taken.
bool ReadModelFile(const std::string& path, const AnimationOptions& animation, ImportScene& scene,
                   ImportLog& log);

// The same for a model in memory (an inflated .gz); hint is the inner extension ("ply").
bool ReadModelMemory(const std::string& path, const std::vector<uint8_t>& bytes,
                     const std::string& hint, const AnimationOptions& animation, ImportScene& scene,
                     ImportLog& log);
