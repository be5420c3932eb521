#include <algorithm>

#include "base/diagnostics.h"
#include "base/memory.h"
#include "engine/render/renderer.h"
#include "engine/render/vertex_pool.h"

namespace {

struct DynamicFormat {
    int slot;
    DWORD fvf;
};

// By stream format number 1 to 11; the slots keep the diffuse formats first.
constexpr DynamicFormat DynamicFormats[11] = {
    {0, 0x42},    {1, 0x142}, {4, 0x112}, {8, 0x10112}, {2, 0x242},  {5, 0x212},
    {9, 0x40212}, {3, 0x342}, {6, 0x312}, {7, 0x192},   {10, 0x1D2},
};

LPDIRECT3DVERTEXBUFFER7 MakeBuffer(CRenderer* renderer, DWORD caps, DWORD fvf, int32_t count) {
    if (!renderer->direct3D) return nullptr;
    D3DVERTEXBUFFERDESC desc = {sizeof(D3DVERTEXBUFFERDESC), caps, fvf, DWORD(count)};
    LPDIRECT3DVERTEXBUFFER7 buffer = nullptr;
    if (FAILED(renderer->direct3D->CreateVertexBuffer(&desc, &buffer, 0))) return nullptr;
    return buffer;
}

void Release(LPDIRECT3DVERTEXBUFFER7& buffer) {
    if (buffer) buffer->Release();
    buffer = nullptr;
}

}  // namespace

LPDIRECT3DVERTEXBUFFER7 GetDynamicBuffer(CRenderer* renderer, int streamFormat) {
    if (streamFormat < 1 || streamFormat > 11) {
        CorvaneError("Cannot get a dynamic VB for the format %d", streamFormat);
        return nullptr;
    }
    const DynamicFormat& format = DynamicFormats[streamFormat - 1];
    LPDIRECT3DVERTEXBUFFER7& buffer = renderer->dynamicBuffers[format.slot];
    if (!buffer) {
        // Without hardware transform the device reads the vertices on the processor.
        DWORD caps = D3DVBCAPS_WRITEONLY;
        if (!renderer->HasHardwareTransform()) caps |= D3DVBCAPS_SYSTEMMEMORY;
        buffer = MakeBuffer(renderer, caps, format.fvf, DynamicBufferVertices);
    }
    return buffer;
}

void ReleaseDynamicBuffers(CRenderer* renderer) {
    for (LPDIRECT3DVERTEXBUFFER7& buffer : renderer->dynamicBuffers) Release(buffer);
}

bool CreateFixedBuffers(CRenderer* renderer) {
    const DWORD system = D3DVBCAPS_SYSTEMMEMORY;
    renderer->alphaSource = MakeBuffer(renderer, system, D3DFVF_LVERTEX, AlphaBatchVertices);
    renderer->alphaTarget = MakeBuffer(renderer, system, D3DFVF_TLVERTEX, AlphaBatchVertices);
    renderer->decalSource = MakeBuffer(renderer, system, D3DFVF_VERTEX, DecalVertices);
    renderer->decalTarget = MakeBuffer(renderer, system, D3DFVF_TLVERTEX, DecalVertices);
    renderer->decalQuads =
        MakeBuffer(renderer, system | D3DVBCAPS_WRITEONLY, D3DFVF_TLVERTEX, DecalQuadVertices);
    auto* indices = static_cast<uint16_t*>(MALLOC(DecalQuadIndexCount * sizeof(uint16_t)));
    if (indices) {
        for (int32_t quad = 0; quad < DecalQuadIndexCount / 6; ++quad) {
            const uint16_t v = uint16_t(quad * 4);
            const uint16_t corners[6] = {v, uint16_t(v + 1), uint16_t(v + 2),
                                         v, uint16_t(v + 2), uint16_t(v + 3)};
            std::copy(corners, corners + 6, indices + quad * 6);
        }
    }
    renderer->decalQuadIndices = indices;
    return renderer->alphaSource && renderer->alphaTarget && renderer->decalSource &&
           renderer->decalTarget && renderer->decalQuads && indices;
}

void ReleaseFixedBuffers(CRenderer* renderer) {
    Release(renderer->alphaSource);
    Release(renderer->alphaTarget);
    Release(renderer->decalSource);
    Release(renderer->decalTarget);
    Release(renderer->decalQuads);
    if (renderer->decalQuadIndices) FREE(renderer->decalQuadIndices);
    renderer->decalQuadIndices = nullptr;
}
