#include "engine/render/poly_buffer.h"

#include <algorithm>
#include <cstring>

#include "base/diagnostics.h"
#include "base/memory.h"
#include "engine/render/renderer.h"
#include "engine/render/transparency.h"
#include "engine/render/vertex_pool.h"
#include "engine/texture/texture.h"

namespace {

constexpr int32_t VerticesPerTriangle = 3;
constexpr size_t TriangleBytes = VerticesPerTriangle * sizeof(PolyVertex);
constexpr int32_t PolyBufferKind = 1;
constexpr int32_t MaxTriangles = int32_t(D3DMAXNUMVERTICES / VerticesPerTriangle);

}  // namespace

CPolyBuffer::CPolyBuffer(CRenderer* owner, int32_t triangles)
    : triangleCapacity(std::clamp(triangles, 0, MaxTriangles)),
      locked(0),
      textures(nullptr),
      runCounts(nullptr),
      runCapacity(0),
      runsInUse(0),
      flags(0),
      renderer(owner),
      vertices(nullptr),
      indices(nullptr),
      shadow(nullptr),
      layer(-1) {
    DWORD caps = D3DVBCAPS_WRITEONLY;
    if (renderer && !renderer->HasHardwareTransform()) caps |= D3DVBCAPS_SYSTEMMEMORY;
    const DWORD vertexCount = DWORD(triangleCapacity * VerticesPerTriangle);
    D3DVERTEXBUFFERDESC desc = {sizeof(D3DVERTEXBUFFERDESC), caps, D3DFVF_TLVERTEX, vertexCount};
    vertices = AllocateVertices(renderer, &desc, sizeof(PolyVertex) / 4, PolyBufferKind);
    shadow = static_cast<PolyVertex*>(MALLOC(size_t(triangleCapacity) * TriangleBytes + 1));
    if (shadow) std::memset(shadow, 0, size_t(triangleCapacity) * TriangleBytes);
    indices = static_cast<uint16_t*>(MALLOC((vertexCount + 1) * sizeof(uint16_t)));
    for (DWORD i = 0; indices && i < vertexCount; ++i) indices[i] = uint16_t(i);
    SetTexture(nullptr, 0);
}

CPolyBuffer::~CPolyBuffer() {
    if (locked) Unlock(0);
    if (textures) FREE(textures);
    if (runCounts) FREE(runCounts);
    if (shadow) FREE(shadow);
    FreeVertices(vertices);
    if (indices) FREE(indices);
}

PolyVertex* CPolyBuffer::Lock() {
    if (!vertices || locked || !shadow) {
        CorvaneWarning("Failed to lock PolyBuffer");
        return nullptr;
    }
    locked = 1;
    return shadow;
}

void CPolyBuffer::Unlock(DWORD lockFlags) {
    if (!vertices) {
        CorvaneWarning("CPolyBuffer::Trying to unlock a vertex buffer that doesn't exist");
        return;
    }
    if (!locked) {
        CorvaneWarning("CPolyBuffer::Trying to unlock a poly buffer that is not locked");
        return;
    }
    CopyToDevice(lockFlags);
    locked = 0;
}

void CPolyBuffer::CopyToDevice(DWORD lockFlags) {
    void* target = LockVertices(vertices, lockFlags);
    if (!target) return;
    std::memcpy(target, shadow, size_t(triangleCapacity) * TriangleBytes);
    UnlockVertices(vertices);
}

bool CPolyBuffer::GrowRuns(int32_t run) {
    if (run < 0 || run >= MaxTriangles) return false;
    if (run < runCapacity) return true;
    const int32_t capacity = runCapacity + ((run - runCapacity + 16) & ~15);
    auto* newTextures = static_cast<CTexture**>(CvReallocCopy(
        textures, size_t(runCapacity) * sizeof(CTexture*), size_t(capacity) * sizeof(CTexture*)));
    auto* newCounts = static_cast<int32_t*>(CvReallocCopy(
        runCounts, size_t(runCapacity) * sizeof(int32_t), size_t(capacity) * sizeof(int32_t)));
    textures = newTextures;
    runCounts = newCounts;
    if (!textures || !runCounts) {
        runCapacity = runsInUse = 0;
        return false;
    }
    std::fill(textures + runCapacity, textures + capacity, nullptr);
    std::fill(runCounts + runCapacity, runCounts + capacity, 0);
    runCapacity = capacity;
    return true;
}

void CPolyBuffer::SetTexture(CTexture* texture, int32_t run) {
    if (!GrowRuns(run)) return;
    textures[run] = texture;
    runsInUse = std::max(runsInUse, run + 1);
}

void CPolyBuffer::SetRunCount(int32_t run, int32_t triangles) {
    if (!GrowRuns(run)) return;
    runCounts[run] = std::max(triangles, 0);
}

CTexture* CPolyBuffer::GetTexture(int32_t run) const {
    return run >= 0 && run < runCapacity ? textures[run] : nullptr;
}

int32_t CPolyBuffer::GetRunCount(int32_t run) const {
    return run >= 0 && run < runCapacity ? runCounts[run] : 0;
}

void CPolyBuffer::Refill() {
    if (!vertices || !vertices->refill) return;
    vertices->refill = 0;
    CopyToDevice(0);
}

void CRenderer::RenderPolyBuffer(CPolyBuffer* buffer) {
    if (!buffer || !buffer->vertices || !buffer->vertices->pool || !device) return;
    buffer->Refill();
    SetRenderState(D3DRENDERSTATE_ZENABLE, 1);
    LPDIRECT3DVERTEXBUFFER7 deviceBuffer = buffer->vertices->pool->buffer;
    const int32_t start = GetVertexStart(buffer->vertices);
    int32_t drawn = 0;
    for (int32_t run = 0; run < buffer->runsInUse; ++run) {
        // Counts past the buffer's end are cut back to what it holds.
        const int32_t count = std::min(buffer->runCounts[run], buffer->triangleCapacity - drawn);
        if (count <= 0) continue;
        CTexture* texture = buffer->textures[run];
        if (texture && !texture->surface) LoadDeviceTexture(texture);
        RequestStageTexture(texture, 0);
        SetDefaultStages(false);
        SetRenderState(D3DRENDERSTATE_ALPHABLENDENABLE, 0);
        SetRenderState(D3DRENDERSTATE_ZWRITEENABLE, 1);
        SetRenderState(D3DRENDERSTATE_ZENABLE, (buffer->flags & PolyBufferNoDepthTest) ? 0 : 1);
        const bool alpha = texture && (texture->flags & TextureFlagAlpha);
        if (alpha) {
            SetBlendFromTexture(this, texture->flags);
            SetAlphaMode(true);
        }
        ApplyState();
        device->DrawPrimitiveVB(D3DPT_TRIANGLELIST, deviceBuffer,
                                DWORD(start + drawn * VerticesPerTriangle),
                                DWORD(count * VerticesPerTriangle), 0);
        if (alpha) SetAlphaMode(false);
        drawn += count;
    }
    if (GetRenderState(D3DRENDERSTATE_ZENABLE) == 0) SetRenderState(D3DRENDERSTATE_ZENABLE, 1);
}

void FillBackgroundQuad(CPolyBuffer* buffer, int32_t width, int32_t height) {
    if (!buffer || buffer->triangleCapacity < 2) return;
    PolyVertex* out = buffer->Lock();
    if (!out) return;
    // Pixel centres lie on whole numbers: the half pixel makes the quad cover the edge pixels.
    const float left = float(-0.5), top = float(-0.5);
    const float right = float(double(width) - 0.5), bottom = float(double(height) - 0.5);
    const PolyVertex corners[4] = {
        {left, top, 1.0f, 1.0f, 0xFFFFFFFF, 0, 0.0f, 0.0f},
        {right, top, 1.0f, 1.0f, 0xFFFFFFFF, 0, 1.0f, 0.0f},
        {left, bottom, 1.0f, 1.0f, 0xFFFFFFFF, 0, 0.0f, 1.0f},
        {right, bottom, 1.0f, 1.0f, 0xFFFFFFFF, 0, 1.0f, 1.0f},
    };
    const int order[6] = {0, 1, 2, 2, 1, 3};
    for (int i = 0; i < 6; ++i) out[i] = corners[order[i]];
    buffer->Unlock(0);
    buffer->SetRunCount(0, 2);
}
