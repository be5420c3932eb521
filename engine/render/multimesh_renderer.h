// CMultiMeshRenderer: the process-wide queue of multi-mesh draws. A mesh's Render files one entry
// per group and pass; the flush sorts by pass, pool and texture, so render state is set once per
// pass over many meshes and each draw changes at most its textures.
#pragma once

#include <cstdint>

#include "engine/render/mesh_renderer.h"
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

    // The frame's view, as the mesh queue takes it, copied for the frame; viewport is the
    // caller's and is not read here. A multi-mesh's Collect tests against the view's planes,
    // which must stay valid for the frame (null for none).
    void StartFrame(void* viewport, CRenderer* renderer, const MeshFrameView& frameView);
    void EndFrame() {}
    void QueueMultiMesh(CMultiMesh* mesh);
    void FlushMultiMeshQueue();

    void* viewport = nullptr;
    CRenderer* device = nullptr;
    MultiMeshQueueEntry* queue = nullptr;
    int32_t capacity = 0;  // grows by 64
    int32_t count = 0;
    MeshFrameView view{};

private:
    void Append(const MultiMeshQueueEntry& entry);
    void SetPassState(const MultiMeshQueueEntry& entry);
};

// The one queue of the engine.
CMultiMeshRenderer& MultiMeshQueue();

constexpr int32_t MultiMeshQueueGrowth = 64;
