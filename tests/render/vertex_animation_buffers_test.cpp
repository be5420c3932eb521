#include "engine/render/vertex_animation_buffers.h"

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "base/memory.h"
#include "engine/mesh/mesh.h"
#include "engine/mesh/mesh_animation.h"
#include "engine/render/mesh_renderer.h"
#include "engine/render/vertex_pool.h"
#include "tests/render/renderer_fixture.h"

namespace {

template <typename T>
T* Zeroed(size_t count) {
    auto* block = static_cast<T*>(MALLOC(count * sizeof(T)));
    std::memset(static_cast<void*>(block), 0, count * sizeof(T));
    return block;
}

// One triangle with a packed animation of seven frames, 4 fraction bits: frames 0 and 1 share
// block A, 2 is B, 3 lies halfway, 4 and 5 share C, 6 lies halfway to A. Block k puts vertex i at
// (2k, i, 0), with normal +z, +x, -y.
std::unique_ptr<CMesh> PackedMesh() {
    auto mesh = std::make_unique<CMesh>(nullptr);
    mesh->AllocVertices(3);
    std::memset(static_cast<void*>(mesh->vertices), 0, 3 * sizeof(MeshVertex));
    mesh->AllocFaces(1, 0);
    mesh->faces[0][0] = {{0, 1, 2}, nullptr, 0, {0, 0, 1, 0, 1, 1}};
    auto* shape = Zeroed<VertexAnimation>(1);
    *shape = {VertexAnimationOwnsArrays | VertexAnimationPacked | 4u << 24,
              7,
              nullptr,
              0,
              nullptr,
              0,
              9,
              Zeroed<void*>(7),
              nullptr,
              nullptr};
    auto* packed = Zeroed<int16_t>(36);
    const int16_t normals[3] = {15 << 10, 15, 15 << 5 | 1 << 9};
    for (int r = 0; r < 9; ++r) {  // record r: vertex r % 3 of block r / 3
        const int16_t record[4] = {int16_t(32 * (r / 3)), int16_t(16 * (r % 3)), 0, normals[r / 3]};
        std::memcpy(packed + r * 4, record, sizeof record);
    }
    const int blocks[7] = {0, 0, 1, -1, 2, 2, -1};
    for (int f = 0; f < 7; ++f)
        shape->frameTable[f] = blocks[f] < 0 ? nullptr : packed + blocks[f] * 12;
    shape->frameData = packed;
    shape->currentData = shape->frameTable[0];
    mesh->SetVertexAnimation(shape);
    return mesh;
}

using VertexAnimationBuffersTest = RendererTest;

}  // namespace

TEST_F(VertexAnimationBuffersTest, RunsOfEqualFramesShareOneWrittenRunThatTheDrawTakes) {
    ASSERT_TRUE(Open(OpenWindowed | Open3D));
    OpenMeshRenderer();
    MeshRenderer().StartFrame(nullptr, renderer, MeshFrameView{});
    std::unique_ptr<CMesh> mesh = PackedMesh();  // its animation gives the frames' runs back
    auto draw = [&](int frame) {
        mesh->SetAnimationFrame(float(frame), 0);
        mesh->Render(nullptr);
        DxCallRecorder calls;
        MeshRenderer().FlushOpaqueQueue();
        return calls.Only("DrawIndexedPrimitiveVB").at(0);
    };
    auto drawFrom = [](const VertexBufferInfo* info) {
        return "DrawIndexedPrimitiveVB(4, " + Ref(info->pool->buffer) + ", " +
               std::to_string(GetVertexStart(info)) + ", 3, 3, 0)";
    };
    draw(0);
    VertexAnimationBuffers* frames = AttachFrameBuffers(mesh.get(), renderer);
    ASSERT_EQ(AttachFrameBuffers(mesh.get(), renderer), frames);
    CMesh still(nullptr);
    EXPECT_EQ(AttachFrameBuffers(&still, renderer), nullptr);
    DxCallRecorder calls;
    DebugCapture capture;
    frames->AddFrameRange(0, 4);
    EXPECT_EQ(calls.Only("Lock").size(), 4u);  // A, B, halfway, C: one write each
    calls.Clear();
    frames->AddFrameRange(1, 6);  // frames with a run keep it; 5 starts none of its own
    EXPECT_EQ(calls.Only("Lock").size(), 1u);
    EXPECT_EQ(capture.Text(),
              "DEBUG: Adding Range 0 to 4\nDEBUG: VETRS=3 @ 32bytes\n"
              "DEBUG: Adding Range 1 to 6\nDEBUG: VETRS=3 @ 32bytes\n");
    EXPECT_EQ(std::vector<uint16_t>(frames->frameSlots, frames->frameSlots + 7),
              (std::vector<uint16_t>{1, 1, 2, 3, 4, 8, 9}));
    EXPECT_EQ(frames->bufferCount, 9);
    EXPECT_EQ(frames->GetFrameBuffer(5), nullptr);
    EXPECT_EQ(frames->GetFrameBuffer(7), nullptr);

    // Frame, position x and normal: a halfway frame has the normal of the frame before.
    const float want[5][5] = {
        {0, 0, 0, 0, 1}, {2, 2, 1, 0, 0}, {3, 3, 1, 0, 0}, {4, 4, 0, -1, 0}, {6, 2, 0, -1, 0}};
    for (const auto& w : want) {
        VertexBufferInfo* info = frames->GetFrameBuffer(int32_t(w[0]));
        const float* at = static_cast<float*>(LockVertices(info, 0));
        for (int i = 0; i < 3; ++i)
            EXPECT_EQ(std::vector<float>(at + i * 8, at + i * 8 + 6),
                      (std::vector<float>{w[1], float(i), 0, w[2], w[3], w[4]}))
                << "frame " << w[0] << " vertex " << i;
        UnlockVertices(info);
    }

    // A frame with a run draws from it and leaves the mesh's run alone; one without falls back.
    EXPECT_EQ(draw(3), drawFrom(frames->GetFrameBuffer(3)));
    EXPECT_EQ(mesh->dirtyMask, 0u);
    mesh->SetAnimationFrame(5, 0);
    EXPECT_EQ(mesh->dirtyMask, uint32_t(MeshDirtyAnimationFrame));
    const std::string own = draw(5);  // the first change also rebuilds the mesh's run
    EXPECT_EQ(own, drawFrom(mesh->vertexBuffer));

    // With colours a vertex carries its own colour in place of the normal.
    mesh->AllocColours(3);
    for (int i = 0; i < 9; ++i) mesh->colours[i] = uint8_t(i + 1);
    VertexAnimationBuffers coloured(mesh.get(), renderer);
    coloured.AddFrameRange(2, 2);
    const float* at = static_cast<float*>(LockVertices(coloured.GetFrameBuffer(2), 0));
    for (uint32_t i = 0; i < 3; ++i) {
        uint32_t word;
        std::memcpy(&word, at + i * 6 + 3, sizeof word);
        EXPECT_EQ(at[i * 6], 2.0f);
        EXPECT_EQ(word, (i * 3 + 1) << 16 | (i * 3 + 2) << 8 | (i * 3 + 3)) << i;
    }
    UnlockVertices(coloured.GetFrameBuffer(2));
    mesh.reset();  // before the renderer goes
    CloseMeshRenderer();
}
