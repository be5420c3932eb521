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

using Floats = std::vector<float>;
using VertexAnimationBuffersTest = RendererTest;

TEST_F(VertexAnimationBuffersTest, RunsOfEqualFramesShareOneWrittenRunThatTheDrawTakes) {
    ASSERT_TRUE(Open(OpenWindowed | Open3D));
    OpenMeshRenderer();
    MeshRenderer().StartFrame(nullptr, renderer, MeshFrameView{});
    // Seven packed frames of 4 fraction bits: 0 and 1 share block A, 2 is B, 3 is halfway, 4 and
    // 5 share C, 6 is halfway to A. Block k: vertex i at (2k, i, k), normal +z, +x, -y.
    auto mesh = std::make_unique<CMesh>(nullptr);
    mesh->AllocVertices(3);
    mesh->AllocFaces(1, 0);
    mesh->faces[0][0] = {{0, 1, 2}, nullptr, 0, {0, 0, 1, 0, 1, 1}};
    auto* packed = static_cast<int16_t*>(MALLOC(72));
    const int16_t normals[3] = {15 << 10, 15, 15 << 5 | 1 << 9};
    for (int r = 0; r < 9; ++r) {  // record r: vertex r % 3 of block r / 3
        const int16_t record[4] = {int16_t(32 * (r / 3)), int16_t(16 * (r % 3)),
                                   int16_t(16 * (r / 3)), normals[r / 3]};
        std::memcpy(packed + r * 4, record, sizeof record);
    }
    auto** table = static_cast<void**>(MALLOC(7 * sizeof(void*)));
    const int blocks[7] = {0, 0, 1, -1, 2, 2, -1};
    for (int f = 0; f < 7; ++f) table[f] = blocks[f] < 0 ? nullptr : packed + blocks[f] * 12;
    const uint32_t flags = VertexAnimationOwnsArrays | VertexAnimationPacked | 4u << 24;
    auto* shape = static_cast<VertexAnimation*>(MALLOC(sizeof(VertexAnimation)));
    *shape = {flags, 7, packed, 0, table[0], 0, 9, table, nullptr, nullptr};
    mesh->SetVertexAnimation(shape);  // which gives the frames' runs back
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
    EXPECT_EQ(AttachFrameBuffers(std::make_unique<CMesh>(nullptr).get(), renderer), nullptr);
    DxCallRecorder calls;
    frames->AddFrameRange(0, 4);  // A, B, halfway, C: one write each
    DebugCapture capture;
    frames->AddFrameRange(1, 7);  // frames with a run keep it; 5 starts none of its own
    EXPECT_EQ(capture.Text(), "DEBUG: Adding Range 1 to 7\nDEBUG: VETRS=3 @ 32bytes\n");
    EXPECT_EQ(calls.Only("Lock").size(), 5u);
    EXPECT_EQ(std::vector<uint16_t>(frames->frameSlots, frames->frameSlots + 7),
              (std::vector<uint16_t>{1, 1, 2, 3, 4, 8, 9}));
    // Frame, position x and normal: a halfway frame has the normal of the frame before.
    const float want[5][5] = {
        {0, 0, 0, 0, 1}, {2, 2, 1, 0, 0}, {3, 3, 1, 0, 0}, {4, 4, 0, -1, 0}, {6, 2, 0, -1, 0}};
    for (const auto& w : want) {
        VertexBufferInfo* info = frames->GetFrameBuffer(int32_t(w[0]));
        const float* v = static_cast<float*>(LockVertices(info, 0));
        for (int i = 0; i < 3; ++i, v += 8)
            EXPECT_EQ(Floats(v, v + 6), (Floats{w[1], float(i), w[1] / 2, w[2], w[3], w[4]}))
                << w[0];
        UnlockVertices(info);
    }
    // A frame with a run draws from it and leaves the mesh's run alone; one without falls back.
    mesh->SetAnimationFrame(3, 0);
    EXPECT_EQ(mesh->dirtyMask, 0u);
    EXPECT_EQ(draw(3), drawFrom(frames->GetFrameBuffer(3)));
    mesh->SetAnimationFrame(5, 0);
    EXPECT_EQ(mesh->dirtyMask, uint32_t(MeshDirtyAnimationFrame));
    const std::string own = draw(5);  // the first change also rebuilds the mesh's run
    EXPECT_EQ(own, drawFrom(mesh->vertexBuffer));
    mesh->AllocColours(3);  // colours take the normals' place: vertex 1 of frame 2 gets (4, 5, 6)
    for (int i = 0; i < 9; ++i) mesh->colours[i] = uint8_t(i + 1);
    VertexAnimationBuffers coloured(mesh.get(), renderer);
    coloured.AddFrameRange(2, 2);
    const auto* words = static_cast<uint32_t*>(LockVertices(coloured.GetFrameBuffer(2), 0));
    EXPECT_EQ(words[6 + 3], 0x040506u);
    UnlockVertices(coloured.GetFrameBuffer(2));
    mesh.reset();  // before the renderer goes
    CloseMeshRenderer();
}
