#include "engine/render/vertex_animation_buffers.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "base/diagnostics.h"
#include "base/memory.h"
#include "engine/mesh/mesh.h"
#include "engine/mesh/mesh_animation.h"
#include "engine/mesh/packed_frame.h"
#include "engine/render/mesh_prepare.h"
#include "engine/render/renderer.h"
#include "engine/render/vertex_pool.h"

namespace {

constexpr uint32_t FrameBufferCaps = D3DVBCAPS_WRITEONLY | D3DVBCAPS_DONOTCLIP;
constexpr int32_t MostEntries = 0xFFFF;  // frameSlots numbers entries in 16 bits

bool HasFrame(const VertexAnimationBuffers* buffers, uint32_t frame) {
    return frame <= uint32_t(INT32_MAX) && buffers->GetFrameBuffer(int32_t(frame)) != nullptr;
}

void Destroy(VertexAnimationBuffers* buffers) {
    DELETE(buffers);
}

}  // namespace

VertexAnimationBuffers::VertexAnimationBuffers(CMesh* animated, CRenderer* renderer)
    : mesh(animated),
      device(renderer),
      buffers(nullptr),
      bufferCount(0),
      frameSlots(nullptr),
      slotCount(0),
      renderVertexCount(0),
      renderVertices{nullptr, 0},
      weldIndices(nullptr),
      frameVertices(nullptr) {
    FrameBufferOps = {HasFrame, Destroy};
    const VertexAnimation* animation = mesh ? mesh->vertexAnimation : nullptr;
    if (!animation || animation->frameCount == 0) return;
    slotCount = int32_t(animation->frameCount > uint32_t(INT32_MAX) ? uint32_t(INT32_MAX)
                                                                    : animation->frameCount);
    frameSlots = static_cast<uint16_t*>(MALLOC(size_t(slotCount) * sizeof(uint16_t)));
    std::memset(frameSlots, 0, size_t(slotCount) * sizeof(uint16_t));
}

VertexAnimationBuffers::~VertexAnimationBuffers() {
    ReleaseFrameWrites();
    for (int32_t i = 0; i < bufferCount; ++i) FreeVertices(buffers[i]);
    if (buffers) FREE(buffers);
    if (frameSlots) FREE(frameSlots);
}

void VertexAnimationBuffers::PrepareFrameWrites() {
    ReleaseFrameWrites();
    if (!mesh || mesh->vertexCount <= 0 || !mesh->vertices || !mesh->faces[0] ||
        mesh->faceCount[0] == 0)
        return;
    weldIndices = static_cast<uint16_t*>(MALLOC(size_t(mesh->faceCount[0]) * 3 * sizeof(uint16_t)));
    renderVertices = BuildRenderVertices(mesh->vertexCount, mesh->vertices, mesh->faceCount,
                                         mesh->faces, weldIndices);
    renderVertexCount = int32_t(renderVertices.count);
    frameVertexCount = mesh->vertexCount;
    frameVertices = static_cast<MeshVertex*>(MALLOC(size_t(frameVertexCount) * sizeof(MeshVertex)));
}

void VertexAnimationBuffers::ReleaseFrameWrites() {
    FreeRenderVertices(renderVertices);
    if (weldIndices) FREE(weldIndices);
    if (frameVertices) FREE(frameVertices);
    weldIndices = nullptr;
    frameVertices = nullptr;
    frameVertexCount = 0;
}

VertexBufferInfo* VertexAnimationBuffers::GetFrameBuffer(int32_t frame) const {
    if (frame < 0 || frame >= slotCount || !frameSlots) return nullptr;
    const int32_t slot = frameSlots[frame];
    return slot > 0 && slot <= bufferCount ? buffers[slot - 1] : nullptr;
}

// Frames that can't be decoded (a record outside the data, a null entry without two
// neighbours) keep the base pose where they lack their own values.
void VertexAnimationBuffers::DecodeFrame(uint32_t frame) {
    const VertexAnimation* animation = mesh->vertexAnimation;
    const size_t count = size_t(frameVertexCount);
    const bool packed = (animation->flags & VertexAnimationPacked) != 0;
    // The base pose: a packed animation leaves it in vertices, an unpacked one starts its data.
    const auto* base =
        static_cast<const MeshVertex*>(packed ? mesh->vertices : animation->frameData);
    const size_t baseCount =
        packed ? size_t(std::max(mesh->vertexCount, 0)) : size_t(animation->totalVertices);
    std::memset(static_cast<void*>(frameVertices), 0, count * sizeof(MeshVertex));
    if (base) std::memcpy(frameVertices, base, std::min(count, baseCount) * sizeof(MeshVertex));
    if (!animation->frameTable || frame >= animation->frameCount) return;
    const void* entry = animation->frameTable[frame];
    if (!packed) {
        const auto* data = static_cast<const MeshVertex*>(animation->frameData);
        const auto* at = static_cast<const MeshVertex*>(entry);
        if (!at || !data || at < data || size_t(at - data) + count > animation->totalVertices)
            return;
        std::memcpy(frameVertices, at, count * sizeof(MeshVertex));
        return;
    }
    PackedFrame records;
    if (!records.Locate(animation, frame)) return;
    for (size_t s = 0; s < count; ++s) {
        MeshVertex& v = frameVertices[s];
        Vector position, normal;
        if (records.Vertex(uint32_t(s), position, &normal))
            v.position = position, v.normal = normal;
    }
}

void VertexAnimationBuffers::WriteFrame(uint32_t frame, VertexBufferInfo* info) {
    DecodeFrame(frame);
    auto* out = static_cast<float*>(LockVertices(info, 0));
    if (!out) return;
    const MeshVertexFormat* format = SelectVertexFormat(mesh);
    const MeshVertex none = {{0, 0, 0}, {0, 0, 0}};
    for (int32_t r = 0; r < renderVertexCount; ++r) {
        const RenderVertex& rv = renderVertices.vertices[r];
        const MeshVertex& v =
            rv.source < uint32_t(frameVertexCount) ? frameVertices[rv.source] : none;
        PutRenderVertex(mesh, format, rv, v.position, v.normal,
                        out + size_t(r) * size_t(format->stride));
    }
    UnlockVertices(info);
}

void VertexAnimationBuffers::AddFrameRange(int32_t first, int32_t last) {
    CorvaneDebug("Adding Range %d to %d", first, last);
    const VertexAnimation* animation = mesh ? mesh->vertexAnimation : nullptr;
    void* const* table = animation ? animation->frameTable : nullptr;
    if (first < 0) first = 0;
    if (last >= slotCount) last = slotCount - 1;
    if (!table) last = first - 1;
    auto startsRun = [&](int32_t f) { return f == first || table[f] != table[f - 1]; };
    int32_t runs = 0;
    for (int32_t f = first; f <= last; ++f) {
        if (!startsRun(f)) continue;
        if (bufferCount + runs == MostEntries) {
            last = f - 1;  // the rest could not be numbered
            break;
        }
        ++runs;
    }
    const MeshVertexFormat* format = SelectVertexFormat(mesh);
    if (runs > 0) {
        auto* grown = static_cast<VertexBufferInfo**>(
            CvReallocCopy(buffers, size_t(bufferCount) * sizeof(VertexBufferInfo*),
                          size_t(bufferCount + runs) * sizeof(VertexBufferInfo*)));
        if (!grown) return;
        buffers = grown;
        for (int32_t i = bufferCount; i < bufferCount + runs; ++i) buffers[i] = nullptr;
        if (!frameVertices) PrepareFrameWrites();
        D3DVERTEXBUFFERDESC desc = {};
        desc.dwSize = sizeof desc;
        desc.dwCaps =
            FrameBufferCaps |
            (device && device->HasHardwareTransform() ? 0u : uint32_t(D3DVBCAPS_SYSTEMMEMORY));
        desc.dwFVF = DWORD(format->fvf);
        desc.dwNumVertices = DWORD(renderVertexCount);
        int32_t run = -1;
        for (int32_t f = first; f <= last; ++f) {
            if (startsRun(f)) {
                ++run;
                VertexBufferInfo* info =
                    frameSlots[f] || renderVertexCount <= 0 || !frameVertices
                        ? nullptr
                        : AllocateVertices(device, &desc, format->stride, MeshPoolStatic);
                if (info) WriteFrame(uint32_t(f), info);
                buffers[bufferCount + run] = info;
            }
            if (!frameSlots[f]) frameSlots[f] = uint16_t(bufferCount + run + 1);
        }
        bufferCount += runs;
    }
    CorvaneDebug("VETRS=%d @ %dbytes", renderVertexCount, format->stride * 4);
}

void VertexAnimationBuffers::RefillFrame(int32_t frame) {
    VertexBufferInfo* info = GetFrameBuffer(frame);
    if (!info) return;
    info->refill = 0;
    const bool prepared = frameVertices != nullptr;
    if (!prepared) PrepareFrameWrites();
    if (frameVertices) WriteFrame(uint32_t(frame), info);
    if (!prepared) ReleaseFrameWrites();
}

VertexAnimationBuffers* AttachFrameBuffers(CMesh* mesh, CRenderer* device) {
    VertexAnimation* animation = mesh ? mesh->vertexAnimation : nullptr;
    if (!animation || !(animation->flags & VertexAnimationOwnsArrays)) return nullptr;
    if (!animation->frameBuffers)
        animation->frameBuffers = NEW VertexAnimationBuffers(mesh, device);
    return animation->frameBuffers;
}

VertexBufferPool* FrameDrawPool(CMesh* mesh, int32_t* shift) {
    *shift = 0;
    const VertexAnimation* animation = mesh->vertexAnimation;
    if (!animation || !animation->frameBuffers || !mesh->vertexBuffer) return nullptr;
    VertexAnimationBuffers* frames = animation->frameBuffers;
    const int32_t frame = int32_t(animation->currentFrame);
    VertexBufferInfo* info = frames->GetFrameBuffer(frame);
    // A run made from another weld than the mesh's own can't be drawn with its groups.
    if (!info || !info->pool || frames->renderVertexCount != mesh->renderVertexCount)
        return nullptr;
    if (info->refill) frames->RefillFrame(frame);
    *shift = GetVertexStart(info) - GetVertexStart(mesh->vertexBuffer);
    return info->pool;
}
