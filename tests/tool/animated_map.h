// A map whose block a vertex animation moves, for the tests of animated bakes.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "base/memory.h"
#include "engine/mesh/mesh_animation.h"
#include "tests/support/bake_fixture.h"
#include "tool/maps/map_chunks.h"
#include "tool/maps/mesh_builder.h"

// Per frame, how far right the block stands; none: a packed frame with no data of its own,
// halfway between its neighbours. Key frames' normals are zero, so a pass must rebuild them.
using BlockShifts = std::vector<std::optional<float>>;

inline void AnimateBlock(CMesh* block, const BlockShifts& shifts, bool packed) {
    const int32_t n = block->vertexCount;
    const std::vector<MeshVertex> base(block->vertices, block->vertices + n);
    auto* shape = static_cast<VertexAnimation*>(MALLOC(sizeof(VertexAnimation)));
    *shape = {VertexAnimationOwnsArrays,
              uint32_t(shifts.size()),
              nullptr,
              0,
              nullptr,
              0,
              0,
              static_cast<void**>(MALLOC(shifts.size() * sizeof(void*))),
              static_cast<uint32_t*>(MALLOC(shifts.size() * 4)),
              nullptr};
    for (uint32_t f = 0; f < shifts.size(); ++f)
        if (shifts[f]) shape->keyFrames[shape->keyCount++] = f;
    shape->totalVertices = shape->keyCount * uint32_t(n);
    const size_t stride = size_t(n) * (packed ? 8 : sizeof(MeshVertex));
    if (packed) {
        shape->flags |= VertexAnimationPacked | 2u << VertexAnimationFractionShift;  // quarters
        shape->frameData = MALLOC(shape->keyCount * stride);
    } else {
        block->AllocVertices(int32_t(shape->totalVertices));
        shape->frameData = block->vertices;
        block->vertexCount = n;
    }
    auto* data = static_cast<uint8_t*>(shape->frameData);
    for (uint32_t f = 0, k = 0; f < shifts.size(); ++f) {
        shape->frameTable[f] = shifts[f] ? data + k * stride : nullptr;
        for (int32_t i = 0; shifts[f] && i < n; ++i) {
            const Vector p = {base[size_t(i)].position.x + *shifts[f], base[size_t(i)].position.y,
                              base[size_t(i)].position.z};
            auto* record = reinterpret_cast<int16_t*>(data + k * stride) + i * 4;
            if (packed)
                record[0] = int16_t(p.x * 4), record[1] = int16_t(p.y * 4),
                record[2] = int16_t(p.z * 4), record[3] = 0;
            else
                reinterpret_cast<MeshVertex*>(data + k * stride)[i] = {p, {0, 0, 0}};
        }
        k += shifts[f] ? 1 : 0;
    }
    block->SetVertexAnimation(shape);
}

// 8 by 8 cells of ground and a block 32 wide and 48 high with its left side at x, animated where
// shifts are given, saved as a map of cellsX by cellsY.
inline bool SaveMap(const std::string& path, int32_t cellsX, int32_t cellsY, float x = 64,
                    const BlockShifts& shifts = {}, bool packed = false) {
    CMesh root(nullptr);
    FlatGround(&root, 256.0f);
    MeshBuilder builder;
    builder.AddBox({x, 0, -96}, {x + 32, 48, -64});
    CMesh* block = builder.Build(&root, "block");
    if (!shifts.empty()) AnimateBlock(block, shifts, packed);
    const std::vector<uint8_t> chunks = MakeMapChunks(cellsX, cellsY);
    return root.SaveVBF(path.c_str(), chunks.data(), uint32_t(chunks.size()));
}
