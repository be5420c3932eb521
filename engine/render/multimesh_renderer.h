// CMultiMeshRenderer: the process-wide queue of multi-mesh draws. A mesh's Render files one entry
// per group and pass; the flush sorts by pass, pool and texture, so render state is set once per
// pass over many meshes and each draw changes at most its textures.
#pragma once

#include <cstdint>

#include "engine/scene/maths.h"

class CMultiMesh;
class CRenderer;
class CTexture;
struct MultiDrawGroup;
struct VertexBufferPool;

struct MultiMeshQueueEntry {
    CMultiMesh* mesh;
    VertexBufferPool* pool;
    const MultiDrawGroup* group;
    CTexture* texture;  // the pass's first texture
    int32_t pass;       // the pass's first stage in the mesh
    int32_t stages;     // stages the pass uses
};

class CMultiMeshRenderer {
public:
    CMultiMeshRenderer() = default;
    ~CMultiMeshRenderer();
    CMultiMeshRenderer(const CMultiMeshRenderer&) = delete;
    CMultiMeshRenderer& operator=(const CMultiMeshRenderer&) = delete;

    // The frame's view, copied for the frame; viewport is the caller's and is not read here.
    // planes, planeOffsets: the five outward world planes (left, right, bottom, top, near) that
    // a multi-mesh's Collect tests against; they must stay valid for the frame, null for none.
    void StartFrame(void* viewport, CRenderer* renderer, const Matrix& view, float frameWidth,
                    float frameHeight, float near, const Vector* planes, const float* planeOffsets);
    void EndFrame() {}
    void QueueMultiMesh(CMultiMesh* mesh);
    void FlushMultiMeshQueue();

    void* viewport = nullptr;
    CRenderer* device = nullptr;
    MultiMeshQueueEntry* queue = nullptr;
    int32_t capacity = 0;  // grows by 64
    int32_t count = 0;
    Matrix viewMatrix{};
    float halfWidth = 0.0f;
    float halfHeight = 0.0f;
    float width = 0.0f;
    float height = 0.0f;
    float nearDistance = 0.0f;
    const Vector* planes = nullptr;
    const float* planeOffsets = nullptr;

private:
    void Append(const MultiMeshQueueEntry& entry);
    void SetPassState(const MultiMeshQueueEntry& entry);
};

// The one queue of the engine.
CMultiMeshRenderer& MultiMeshQueue();

constexpr int32_t MultiMeshQueueGrowth = 64;
