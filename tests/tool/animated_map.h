// Maps with a block that a vertex animation moves, for the tests of animated bakes.
#pragma once

#include <algorithm>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "base/memory.h"
#include "engine/mesh/mesh.h"
#include "engine/mesh/mesh_animation.h"
#include "tests/support/bake_fixture.h"
#include "tool/maps/map_chunks.h"
#include "tool/maps/mesh_builder.h"

// Per frame, how far right of its place the block stands; none: a packed frame with no data of
// its own, halfway between its neighbours.
using BlockShifts = std::vector<std::optional<float>>;

// Key frames are the block's vertices moved along x, their normals zeroed so that a pass must
// rebuild them from the frame it bakes. Packed positions are in quarter units.
inline void AnimateBlock(CMesh* block, const BlockShifts& shifts, bool packed) {
    const int32_t n = block->vertexCount;
    const std::vector<MeshVertex> base(block->vertices, block->vertices + n);
    const auto keys = uint32_t(std::count_if(shifts.begin(), shifts.end(),
                                             [](const auto& shift) { return shift.has_value(); }));
    auto* animation = static_cast<VertexAnimation*>(MALLOC(sizeof(VertexAnimation)));
    *animation = {VertexAnimationOwnsArrays,
                  uint32_t(shifts.size()),
                  nullptr,
                  0,
                  nullptr,
                  keys,
                  keys * uint32_t(n),
                  static_cast<void**>(MALLOC(shifts.size() * sizeof(void*))),
                  static_cast<uint32_t*>(MALLOC(keys * 4)),
                  nullptr};
    const size_t stride = size_t(n) * (packed ? 8 : sizeof(MeshVertex));
    if (packed) {
        animation->flags |= VertexAnimationPacked | 2u << VertexAnimationFractionShift;
        animation->frameData = MALLOC(keys * stride);
    } else {
        block->AllocVertices(int32_t(keys) * n);
        animation->frameData = block->vertices;
        block->vertexCount = n;
    }
    auto* data = static_cast<uint8_t*>(animation->frameData);
    for (uint32_t f = 0, k = 0; f < shifts.size(); ++f) {
        animation->frameTable[f] = shifts[f] ? data + k * stride : nullptr;
        if (!shifts[f]) continue;
        animation->keyFrames[k] = f;
        for (int32_t i = 0; i < n; ++i) {
            Vector p = base[size_t(i)].position;
            p.x += *shifts[f];
            auto* record = reinterpret_cast<int16_t*>(data + k * stride) + i * 4;
            if (packed)
                record[0] = int16_t(p.x * 4), record[1] = int16_t(p.y * 4),
                record[2] = int16_t(p.z * 4), record[3] = 0;
            else
                reinterpret_cast<MeshVertex*>(data + k * stride)[i] = {p, {0, 0, 0}};
        }
        ++k;
    }
    block->SetVertexAnimation(animation);
}

// A block 32 wide and 48 high with its left side at x, under root.
inline CMesh* Block(CEntity* root, float x) {
    MeshBuilder builder;
    builder.AddBox({x, 0, -96}, {x + 32, 48, -64});
    return builder.Build(root, "block");
}

// 8 by 8 cells of ground and what geometry adds, saved as a map of cellsX by cellsY.
inline bool SaveMap(const std::string& path, int32_t cellsX, int32_t cellsY,
                    const std::function<void(CMesh*)>& geometry = nullptr) {
    CMesh root(nullptr);
    FlatGround(&root, 256.0f);
    if (geometry) geometry(&root);
    const std::vector<uint8_t> chunks = MakeMapChunks(cellsX, cellsY);
    return root.SaveVBF(path.c_str(), chunks.data(), uint32_t(chunks.size()));
}
