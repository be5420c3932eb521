// CMeshRenderer: takes CMesh draw groups to the device. While a layer is walked a mesh draws
// nothing: its opaque groups go into a queue, its transparent ones into the transparency cache.
// The flush sorts the queue by pool, texture flags and texture, so that vertex buffer and texture
// changes stay few, and every request goes through the state cache.
#pragma once

#include <cstdint>

#include "engine/scene/maths.h"

class CEntity;
class CMesh;
class CRenderer;
class CTexture;
struct DrawGroup;
struct VertexBufferPool;

struct OpaqueEntry {
    CMesh* mesh;
    CTexture* texture;  // first stage, or null
    VertexBufferPool* pool;
    const DrawGroup* group;
};

// What a frame start takes from the camera and the viewport.
struct MeshFrameView {
    Matrix view;  // world to view
    int32_t width, height;
    float nearDistance;
    float focal;                // projection scale
    const Vector* planes;       // 5 outward world planes: left, right, bottom, top, near
    const float* planeOffsets;  // 5; a point p lies outside by normal . p + offset
};

class CMeshRenderer {
public:
    CMeshRenderer() = default;
    ~CMeshRenderer();
    CMeshRenderer(const CMeshRenderer&) = delete;
    CMeshRenderer& operator=(const CMeshRenderer&) = delete;

    // viewport is the caller's and not read here. planes and planeOffsets must stay valid for
    // the frame.
    void StartFrame(void* viewport, CRenderer* renderer, const MeshFrameView& view);
    void EndFrame() {}

    // Files the mesh's groups: opaque into the queue, transparent into the transparency cache.
    void Render(CMesh* mesh);
    void FlushOpaqueQueue();

    // True when the sphere lies outside one of the five planes; true never without planes.
    bool SphereOutside(const Vector& centre, float radius) const;

    void* viewport = nullptr;
    CRenderer* device = nullptr;
    OpaqueEntry* queue = nullptr;
    int32_t capacity = 0;  // grows by 32, never shrinks
    int32_t count = 0;
    uint8_t use3D = 0;  // the device's 3D flag at the frame start
    Matrix viewMatrix{};
    int32_t width = 0;
    int32_t height = 0;
    float nearDistance = 0.0f;
    float nearInverse = 0.0f;
    float focal = 0.0f;
    float focalInverse = 0.0f;
    float halfWidth = 0.0f;
    float halfHeight = 0.0f;
    const Vector* planes = nullptr;
    const float* planeOffsets = nullptr;

private:
    void Queue(CMesh* mesh);
    void Append(const OpaqueEntry& entry);
};

constexpr int32_t OpaqueQueueGrowth = 32;

// The engine's one instance: made on first use (and by OpenMeshRenderer, which also installs the
// mesh hooks and the frustum test), freed by CloseMeshRenderer at the engine's close.
CMeshRenderer& MeshRenderer();
void OpenMeshRenderer();
void CloseMeshRenderer();

// The stage state every flush starts from: stage 0 modulates the texture with the current colour
// and selects the texture's alpha, stage 1 is off, coordinate sets 0 and 1.
void RequestBaseStageState(CRenderer* renderer);
// The base stage state plus blending off, depth writes on and lighting on.
void RequestBaseState(CRenderer* renderer);

// The frustum test of a mesh's Collect: culled when its sphere (if it has one) lies outside the
// frame's planes. Other kinds are left visible.
void MeshVisibilityTest(CEntity* entity, uint8_t valid);
