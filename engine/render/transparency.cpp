#include "engine/render/transparency.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <initializer_list>

#include "base/memory.h"
#include "base/services.h"
#include "engine/render/mesh_renderer.h"
#include "engine/render/poly_buffer.h"
#include "engine/render/renderer.h"
#include "engine/render/vertex_pool.h"
#include "engine/scene/camera.h"
#include "engine/texture/texture.h"

namespace {

constexpr DWORD LockWaitNoSysLock = DDLOCK_WAIT | DDLOCK_NOSYSLOCK;
constexpr size_t TriangleBytes = 3 * sizeof(PolyVertex);

void SetWorld(CRenderer* renderer, const Matrix& world) {
    D3DMATRIX matrix;
    static_assert(sizeof matrix == sizeof world);
    std::memcpy(&matrix, &world, sizeof matrix);
    renderer->device->SetTransform(D3DTRANSFORMSTATE_WORLD, &matrix);
}

LPDIRECT3DVERTEXBUFFER7 MakeSystemBuffer(CRenderer* renderer, DWORD fvf) {
    if (!renderer->direct3D) return nullptr;
    D3DVERTEXBUFFERDESC desc = {sizeof desc, D3DVBCAPS_SYSTEMMEMORY, fvf, AlphaBatchVertices};
    LPDIRECT3DVERTEXBUFFER7 buffer = nullptr;
    if (FAILED(renderer->direct3D->CreateVertexBuffer(&desc, &buffer, 0))) return nullptr;
    return buffer;
}

AlphaBatch* NewBatch(LPDIRECT3DVERTEXBUFFER7 source, LPDIRECT3DVERTEXBUFFER7 target, bool owns) {
    auto* batch = static_cast<AlphaBatch*>(MALLOC(sizeof(AlphaBatch)));
    if (!batch) return nullptr;
    std::memset(batch, 0, sizeof *batch);
    batch->source = source;
    batch->target = target;
    batch->ownsBuffers = owns ? 1 : 0;
    return batch;
}

void UnlockSource(AlphaBatch* batch) {
    if (!batch->sourceLocked) return;
    if (batch->source) batch->source->Unlock();
    batch->sourceLocked = 0;
    batch->sourceLock = nullptr;
}

// Pending world-space triangles of the current batch go through transform and clip into its
// target, behind the finished ones.
void ProcessPending(CRenderer* renderer, TransparencyCache* cache) {
    AlphaBatch* batch = cache->currentBatch;
    if (!batch || cache->pending <= 0) return;
    UnlockSource(batch);
    if (batch->target && batch->source && renderer->device)
        batch->target->ProcessVertices(D3DVOP_TRANSFORM | D3DVOP_CLIP, DWORD(cache->finished * 3),
                                       DWORD(cache->pending * 3), batch->source,
                                       DWORD(cache->finished * 3), renderer->device, 0);
    cache->finished += cache->pending;
    cache->pending = 0;
}

// The batch after the full current one, made if the chain ends; null if none can be made.
AlphaBatch* NextBatch(CRenderer* renderer, TransparencyCache* cache) {
    AlphaBatch* batch = cache->currentBatch;
    UnlockSource(batch);
    ProcessPending(renderer, cache);
    cache->finished = 0;
    if (!batch->next) {
        LPDIRECT3DVERTEXBUFFER7 source = MakeSystemBuffer(renderer, D3DFVF_LVERTEX);
        LPDIRECT3DVERTEXBUFFER7 target = MakeSystemBuffer(renderer, D3DFVF_TLVERTEX);
        AlphaBatch* made = source && target ? NewBatch(source, target, true) : nullptr;
        if (!made) {
            if (source) source->Release();
            if (target) target->Release();
            return nullptr;
        }
        batch->next = made;
    }
    cache->currentBatch = batch->next;
    cache->currentBatch->triangleCount = 0;
    return cache->currentBatch;
}

void LoadIfNeeded(CRenderer* renderer, CTexture* texture) {
    if (texture && !texture->surface) renderer->LoadDeviceTexture(texture);
}

void DrawEntry(CRenderer* renderer, const TransparentEntry& entry, const Matrix& world) {
    SetWorld(renderer, world);
    renderer->ApplyState();
    renderer->device->DrawIndexedPrimitiveVB(D3DPT_TRIANGLELIST, entry.buffer, entry.firstVertex,
                                             entry.vertexCount, const_cast<WORD*>(entry.indices),
                                             entry.indexCount, 0);
}

// A mesh forced into the cache without alpha of its own: two passes that multiply the frame
// with the mesh drawn a little off its place, jittered by the cycle counter.
void DrawShimmer(CRenderer* renderer, const TransparentEntry& entry) {
    renderer->SetRenderState(D3DRENDERSTATE_LIGHTING, 0);
    for (uint32_t mask : {1u, 2u}) {
        Matrix jittered = *entry.world;
        for (int component = 12; component <= 14; ++component) {
            const uint32_t first = uint32_t(ReadCycleCounter());
            const uint32_t second = uint32_t(ReadCycleCounter());
            const int32_t offset = int32_t((first >> 5) & mask) - int32_t((second >> 9) & mask);
            jittered[component] = float(double(jittered[component]) + double(offset));
        }
        renderer->SetRenderState(D3DRENDERSTATE_SRCBLEND, D3DBLEND_DESTCOLOR);
        renderer->SetRenderState(D3DRENDERSTATE_DESTBLEND, D3DBLEND_DESTCOLOR);
        DrawEntry(renderer, entry, jittered);
    }
    renderer->SetRenderState(D3DRENDERSTATE_SRCBLEND, D3DBLEND_SRCALPHA);
    renderer->SetRenderState(D3DRENDERSTATE_DESTBLEND, D3DBLEND_INVSRCALPHA);
}

void FlushCache(CRenderer* renderer, TransparencyCache* cache) {
    for (int32_t bucket = TransparencyBuckets - 1; bucket >= 0; --bucket) {
        // Bounded by the entry count, so a damaged chain cannot loop.
        int32_t steps = 0;
        for (int32_t index = cache->heads[bucket];
             index >= 0 && index < cache->count && steps < cache->count;
             index = cache->entries[index].next, ++steps) {
            const TransparentEntry& entry = cache->entries[index];
            CTexture* texture = entry.texture;
            LoadIfNeeded(renderer, texture);
            const uint32_t textureFlags = texture ? texture->flags : 0;
            SetBlendFromTexture(renderer, textureFlags);
            renderer->RequestStageTexture(texture, 0);
            renderer->SetRenderState(D3DRENDERSTATE_LIGHTING,
                                     (entry.flags & TransparentUnlit) ? 0 : 1);
            renderer->SetRenderState(D3DRENDERSTATE_SHADEMODE, (entry.flags & TransparentFlat)
                                                                   ? D3DSHADE_FLAT
                                                                   : D3DSHADE_GOURAUD);
            if (!(textureFlags & TextureFlagAlpha) && (entry.flags & TransparentForced) &&
                entry.world)
                DrawShimmer(renderer, entry);
            Matrix identity;
            MatrixIdentity(identity);
            DrawEntry(renderer, entry, entry.world ? *entry.world : identity);
        }
    }
    renderer->SetRenderState(D3DRENDERSTATE_SHADEMODE, D3DSHADE_GOURAUD);
    cache->count = 0;
}

// Runs of one texture in each batch, up to the first empty batch.
void FlushBatches(CRenderer* renderer, TransparencyCache* cache) {
    for (AlphaBatch* batch = cache->firstBatch; batch && batch->triangleCount > 0;
         batch = batch->next) {
        const int32_t total = std::min(batch->triangleCount, AlphaBatchTriangles);
        for (int32_t start = 0; start < total;) {
            CTexture* texture = batch->textures[start];
            int32_t end = start + 1;
            while (end < total && batch->textures[end] == texture) ++end;
            LoadIfNeeded(renderer, texture);
            SetBlendFromTexture(renderer, texture ? texture->flags : 0);
            renderer->RequestStageTexture(texture, 0);
            renderer->ApplyState();
            renderer->device->DrawPrimitiveVB(D3DPT_TRIANGLELIST, batch->target, DWORD(3 * start),
                                              DWORD(3 * (end - start)), 0);
            start = end;
        }
        batch->triangleCount = 0;
    }
}

}  // namespace

bool CreateTransparency(CRenderer* renderer) {
    ReleaseTransparency(renderer);
    auto* cache = static_cast<TransparencyCache*>(MALLOC(sizeof(TransparencyCache)));
    if (!cache) return false;
    std::memset(cache, 0, sizeof *cache);
    for (int32_t& head : cache->heads) head = -1;
    cache->bucketScale = 1.0f;
    cache->entries = static_cast<TransparentEntry*>(
        MALLOC(size_t(TransparencyInitialEntries) * sizeof(TransparentEntry)));
    cache->capacity = cache->entries ? TransparencyInitialEntries : 0;
    cache->firstBatch = NewBatch(renderer->alphaSource, renderer->alphaTarget, false);
    cache->currentBatch = cache->firstBatch;
    renderer->transparency = cache;
    return cache->entries && cache->firstBatch;
}

void ReleaseTransparency(CRenderer* renderer) {
    TransparencyCache* cache = renderer->transparency;
    if (!cache) return;
    while (AlphaBatch* batch = cache->firstBatch) {
        cache->firstBatch = batch->next;
        UnlockSource(batch);
        if (batch->ownsBuffers) {
            if (batch->source) batch->source->Release();
            if (batch->target) batch->target->Release();
        }
        FREE(batch);
    }
    if (cache->entries) FREE(cache->entries);
    FREE(cache);
    renderer->transparency = nullptr;
}

void SetBlendFromTexture(CRenderer* renderer, uint32_t textureFlags) {
    DWORD source = D3DBLEND_SRCALPHA, dest = D3DBLEND_INVSRCALPHA;
    if (textureFlags & TextureFlagAdd) {
        source = dest = D3DBLEND_ONE;
    } else if (textureFlags & TextureFlagMultiply) {
        source = D3DBLEND_ZERO;
        dest = D3DBLEND_SRCCOLOR;
    }
    renderer->SetRenderState(D3DRENDERSTATE_SRCBLEND, source);
    renderer->SetRenderState(D3DRENDERSTATE_DESTBLEND, dest);
}

void BeginTransparency(CRenderer* renderer, const CCamera* camera) {
    BeginTransparency(renderer, camera ? camera->farPlane : 0.0f);
}

void BeginTransparency(CRenderer* renderer, float farDistance) {
    TransparencyCache* cache = renderer->transparency;
    if (!cache) return;
    for (int32_t& head : cache->heads) head = -1;
    cache->count = 0;
    cache->bucketScale = float(double(TransparencyBuckets) / double(farDistance));
}

void AddTransparent(CRenderer* renderer, LPDIRECT3DVERTEXBUFFER7 buffer, uint32_t firstVertex,
                    uint32_t vertexCount, uint32_t indexCount, CTexture* texture,
                    const uint16_t* indices, uint32_t flags, const Matrix* world, float depth) {
    TransparencyCache* cache = renderer->transparency;
    if (!cache) return;
    const double scaled = std::round(double(depth) * double(cache->bucketScale));
    // NaN and anything below 0 go to the nearest bucket, anything past the far one to the last.
    int32_t bucket = 0;
    if (scaled >= TransparencyBuckets - 1)
        bucket = TransparencyBuckets - 1;
    else if (scaled > 0)
        bucket = int32_t(scaled);

    if (cache->count >= cache->capacity) {
        const int32_t capacity = cache->capacity + TransparencyGrowth;
        auto* grown = static_cast<TransparentEntry*>(
            CvReallocCopy(cache->entries, size_t(cache->capacity) * sizeof(TransparentEntry),
                          size_t(capacity) * sizeof(TransparentEntry)));
        if (!grown) return;
        cache->entries = grown;
        cache->capacity = capacity;
    }
    const int32_t index = cache->count++;
    TransparentEntry& entry = cache->entries[index];
    entry = {world,       buffer,     texture, indices, firstVertex,
             vertexCount, indexCount, flags,   -1,      depth};

    // Chains run far to near; a newcomer goes in front of an equal depth.
    int32_t* link = &cache->heads[bucket];
    while (*link >= 0 && cache->entries[*link].depth > depth) link = &cache->entries[*link].next;
    entry.next = *link;
    *link = index;
}

void AddAlphaQuads(CRenderer* renderer, const void* quads, int32_t count, CTexture* texture) {
    TransparencyCache* cache = renderer->transparency;
    if (!cache || !cache->currentBatch || !quads || count <= 0) return;
    // Quads land at the finished position: pending triangles must stand in the target first.
    ProcessPending(renderer, cache);
    const auto* corners = static_cast<const PolyVertex*>(quads);
    const int32_t triangles = 2 * count;
    for (int32_t done = 0; done < triangles;) {
        AlphaBatch* batch = cache->currentBatch;
        if (batch->triangleCount >= AlphaBatchTriangles) {
            batch = NextBatch(renderer, cache);
            if (!batch) return;
        }
        void* data = nullptr;
        if (!batch->target ||
            FAILED(renderer->LockBufferRetry(batch->target, LockWaitNoSysLock, &data)))
            return;
        auto* out = static_cast<PolyVertex*>(data) + size_t(cache->finished) * 3;
        while (done < triangles && batch->triangleCount < AlphaBatchTriangles) {
            const PolyVertex* quad = corners + size_t(done / 2) * 4;
            const int second = done & 1;
            out[0] = quad[0];
            out[1] = quad[second ? 2 : 1];
            out[2] = quad[second ? 3 : 2];
            out += 3;
            batch->textures[batch->triangleCount++] = texture;
            ++cache->finished;
            ++done;
        }
        batch->target->Unlock();
    }
}

void* AddAlphaTriangle(CRenderer* renderer, CTexture* texture) {
    TransparencyCache* cache = renderer->transparency;
    if (!cache || !cache->currentBatch) return nullptr;
    AlphaBatch* batch = cache->currentBatch;
    if (batch->triangleCount >= AlphaBatchTriangles) {
        batch = NextBatch(renderer, cache);
        if (!batch) return nullptr;
    }
    if (!batch->sourceLocked) {
        void* data = nullptr;
        if (!batch->source ||
            FAILED(renderer->LockBufferRetry(batch->source, LockWaitNoSysLock, &data)))
            return nullptr;
        batch->sourceLock = static_cast<uint8_t*>(data);
        batch->sourceLocked = 1;
    }
    const int32_t slot = batch->triangleCount++;
    batch->textures[slot] = texture;
    ++cache->pending;
    return batch->sourceLock + size_t(slot) * TriangleBytes;
}

void FlushTransparency(CRenderer* renderer) {
    TransparencyCache* cache = renderer->transparency;
    if (!cache || !renderer->device) return;
    RequestBaseStageState(renderer);
    renderer->SetRenderState(D3DRENDERSTATE_ALPHATESTENABLE, 0);
    renderer->SetStageState(0, D3DTSS_TEXCOORDINDEX, 0);
    ProcessPending(renderer, cache);
    RequestBaseStageState(renderer);
    cache->currentBatch = cache->firstBatch;
    cache->finished = cache->pending = 0;
    if ((!cache->firstBatch || cache->firstBatch->triangleCount == 0) && cache->count == 0) return;

    renderer->SetRenderState(D3DRENDERSTATE_ZWRITEENABLE, 0);
    renderer->SetRenderState(D3DRENDERSTATE_ALPHABLENDENABLE, 1);
    renderer->SetRenderState(D3DRENDERSTATE_ALPHATESTENABLE, 0);
    FlushCache(renderer, cache);
    FlushBatches(renderer, cache);
    renderer->SetRenderState(D3DRENDERSTATE_ALPHABLENDENABLE, 0);
    renderer->SetRenderState(D3DRENDERSTATE_ZWRITEENABLE, 1);
}

void TintViewport(CRenderer* renderer, uint32_t colour, float left, float top, float right,
                  float bottom) {
    if (!(colour >> 24) || !renderer->device) return;
    RequestBaseStageState(renderer);
    renderer->SetRenderState(D3DRENDERSTATE_LIGHTING, 0);
    renderer->SetRenderState(D3DRENDERSTATE_ZENABLE, 0);
    renderer->SetRenderState(D3DRENDERSTATE_ZWRITEENABLE, 0);
    renderer->SetRenderState(D3DRENDERSTATE_ALPHABLENDENABLE, 1);
    renderer->SetRenderState(D3DRENDERSTATE_SRCBLEND, D3DBLEND_ZERO);
    renderer->SetRenderState(D3DRENDERSTATE_DESTBLEND, D3DBLEND_SRCCOLOR);
    renderer->RequestStageTexture(nullptr, 0);
    renderer->ApplyState();
    // Just short of the far plane, with an rhw that no real depth reaches.
    float depth, rhw;
    const uint32_t depthBits = 0x3F7FF972u, rhwBits = 0x39800000u;
    std::memcpy(&depth, &depthBits, sizeof depth);
    std::memcpy(&rhw, &rhwBits, sizeof rhw);
    PolyVertex corners[4] = {
        {left, top, depth, rhw, colour, 0, 0.0f, 0.0f},
        {right, top, depth, rhw, colour, 0, 0.0f, 0.0f},
        {right, bottom, depth, rhw, colour, 0, 0.0f, 0.0f},
        {left, bottom, depth, rhw, colour, 0, 0.0f, 0.0f},
    };
    renderer->device->DrawPrimitive(D3DPT_TRIANGLEFAN, D3DFVF_TLVERTEX, corners, 4, 0);
    renderer->SetRenderState(D3DRENDERSTATE_ALPHABLENDENABLE, 0);
    renderer->SetAlphaMode(false);
    renderer->RequestStageTexture(nullptr, 0);
}
