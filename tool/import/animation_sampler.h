// One animation of an Assimp scene sampled at a fixed rate: the nodes' transforms and the morph
// target weights of their meshes, frame by frame. Frame f stands at f / fps seconds; the frames
// cover the animation's duration without its end, which is where the loop starts again (2 s at
// 10 fps are frames 0 to 19). Keys are interpolated linearly, rotations along the shorter arc;
// before its first key and after its last a channel holds that key's value.
#pragma once

#include <assimp/anim.h>
#include <assimp/scene.h>

#include <cstddef>
#include <string>
#include <unordered_map>
#include <vector>

#include "tool/import/assimp_reader.h"
#include "tool/import/node_transform.h"

// Vertices in all frames of all animated meshes of one import: bounds the memory of a long
// animation of a dense mesh (the import holds each some 100 bytes at its peak).
constexpr size_t MaxFrameVertices = size_t(1) << 22;

class AnimationSampler {
public:
    // Picks the animation to sample: options.pick, or the first. False, with the reason logged,
    // when the file has animations and none is the one asked for, or too many frames.
    bool Select(const aiScene* scene, const AnimationOptions& options, const std::string& path,
                ImportLog& log);

    // Below 2 the file is imported static.
    uint32_t Frames() const { return frames; }
    const std::string& Name() const { return name; }
    // Whether the animation moves the node (itself or an ancestor) or changes the mesh's shape.
    bool Animates(const aiNode* node, const aiMesh* mesh) const;
    // The node's transform to the scene's root at frame f.
    DMatrix WorldTransform(const aiNode* node, uint32_t frame) const;
    // The mesh's vertices at frame f with the morph targets blended in, normals only where the
    // mesh has them; before the node's transform.
    void Shape(const aiNode* node, const aiMesh* mesh, uint32_t frame,
               std::vector<DVec3>& positions, std::vector<DVec3>& normals) const;

private:
    double Tick(uint32_t frame) const { return frame / fps * ticksPerSecond; }
    const aiMeshMorphAnim* MorphOf(const aiNode* node, const aiMesh* mesh) const;
    DMatrix LocalTransform(const aiNode* node, double tick) const;

    const aiAnimation* animation = nullptr;
    std::string name;
    double fps = 10.0;
    double ticksPerSecond = 1.0;
    uint32_t frames = 0;
    std::unordered_map<std::string, const aiNodeAnim*> channels;     // by node name
    std::unordered_map<std::string, const aiMeshMorphAnim*> morphs;  // by node or mesh name
};
