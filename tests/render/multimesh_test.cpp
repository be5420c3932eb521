#include "engine/mesh/multimesh.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "base/diagnostics.h"
#include "base/memory.h"
#include "engine/mesh/mesh.h"
#include "engine/render/multimesh_renderer.h"
#include "engine/render/vertex_pool.h"
#include "engine/texture/texture.h"
#include "tests/render/renderer_fixture.h"

namespace {

class MultiMeshTest : public RendererTest {
protected:
    void SetUp() override {
        RendererTest::SetUp();
        ASSERT_TRUE(Open(OpenWindowed | Open3D));
        for (int i = 0; i < 5; ++i) textures.push_back(CreateTexture(4, 4, TextureFormat8888));
    }
    void TearDown() override {
        Close();
        for (CTexture* texture : textures) FreeTexture(texture);
        RendererTest::TearDown();
    }
    // A strip of faces over 2 + faces vertices; layer 1 only where textures are given for it.
    static void Fill(CMesh& mesh, const std::vector<CTexture*>& layer0,
                     const std::vector<CTexture*>& layer1) {
        const uint32_t faces = uint32_t(layer0.size());
        mesh.AllocVertices(int32_t(faces) + 2);
        for (int32_t v = 0; v < mesh.vertexCount; ++v)
            mesh.vertices[v] = {{float(v), float(v % 2), 0}, {0, 0, 1}};
        for (int layer = 0; layer < (layer1.empty() ? 1 : 2); ++layer) {
            mesh.AllocFaces(faces, layer);
            for (uint32_t f = 0; f < faces; ++f)
                mesh.faces[layer][f] = {{f, f + 1, f + 2},
                                        (layer ? layer1 : layer0)[f],
                                        0,
                                        {0, 0, 1, 0, float(layer + 1), float(f)}};
        }
    }
    std::vector<CTexture*> textures;
};

TEST_F(MultiMeshTest, LayoutsGiveStrideFormatAndCoordinateSets) {
    struct Case {
        uint32_t layout;
        int32_t stages, sets;
        uint32_t stride, fvf;
        std::vector<uint8_t> coordinates;
    };
    const Case cases[] = {{0x20, 2, 2, 8, 0x242, {0, 1}},
                          {0, 2, 2, 10, 0x212, {0, 1}},
                          {0, 3, 2, 10, 0x212, {0, 1, 1}},
                          {0, 3, -1, 12, 0x312, {0, 1, 2}}};
    for (const Case& c : cases) {
        CMultiMesh mesh(renderer, nullptr);
        mesh.layoutFlags = c.layout;
        mesh.Allocate(4, 2, c.stages, c.sets);
        EXPECT_EQ(mesh.strideWords, c.stride);
        EXPECT_EQ(mesh.VertexFormat(), c.fvf);
        EXPECT_EQ(std::vector<uint8_t>(mesh.stageCoordinates, mesh.stageCoordinates + c.stages),
                  c.coordinates);
    }
}

TEST_F(MultiMeshTest, GroupsEndWhereAnyStageChangesTextureAndOneLayerLeavesStageOneBare) {
    CTexture *a = textures[0], *b = textures[1], *x = textures[2], *y = textures[3];
    CMesh source(nullptr);
    Fill(source, {a, a, a, b}, {x, y, y, y});
    CMultiMesh mesh(renderer, nullptr);
    mesh.BuildFromMesh(&source, 2, 2);
    ASSERT_EQ(mesh.multiGroupCount, 3);
    const uint32_t start = uint32_t(GetVertexStart(mesh.vertexBuffer));
    uint32_t materials[3], counts[3];
    for (int g = 0; g < 3; ++g) {
        const MultiDrawGroup& group = mesh.multiGroups[g];
        materials[g] = group.material;
        counts[g] = group.indexCount;
        const auto [low, high] =
            std::minmax_element(group.groupIndices, group.groupIndices + group.indexCount);
        EXPECT_EQ(*low, 0);
        EXPECT_EQ(group.vertexSpan, *high + 1u);  // the draw's vertex count
        EXPECT_GE(group.firstVertex, start);
    }
    EXPECT_EQ(std::vector<uint32_t>(materials, materials + 3), (std::vector<uint32_t>{0, 1, 3}));
    EXPECT_EQ(std::vector<uint32_t>(counts, counts + 3), (std::vector<uint32_t>{3, 6, 3}));
    EXPECT_EQ(mesh.wholeGroup.firstVertex, start);
    EXPECT_EQ(mesh.wholeGroup.indexCount, 12u);
    EXPECT_NE(a->surface, nullptr);  // loaded for drawing
    float u = 0, v = 0;
    mesh.GetVertexUV(mesh.faceIndices[0] + 0, 1, &u, &v);  // group 0 is relative from vertex 0
    EXPECT_EQ(v, 0.0f);
    mesh.GetVertexUV(mesh.vertexTotal - 1, 1, &u, &v);  // last corner of the last face
    EXPECT_EQ(u, 2.0f);

    CMesh single(nullptr);
    Fill(single, {a, a}, {});
    mesh.BuildFromMesh(&single, 2, 2);
    EXPECT_EQ(mesh.multiGroupCount, 1);
    for (uint32_t f = 0; f < mesh.faceTotal; ++f) EXPECT_EQ(mesh.stageTextures[1][f], nullptr);
    for (uint32_t i = 0; i < mesh.vertexTotal; ++i) {
        mesh.GetVertexUV(i, 1, &u, &v);
        EXPECT_EQ(u, 0.0f);
    }
}

TEST_F(MultiMeshTest, ALostBufferIsRefilledFromTheSystemCopy) {
    CMultiMesh mesh(renderer, nullptr);
    mesh.layoutFlags = MultiLayoutDiffuse;
    mesh.Allocate(3, 1, 1, 1);
    ASSERT_TRUE(mesh.Lock());
    for (uint32_t i = 0; i < 3; ++i) {
        mesh.SetVertexPosition(i, float(i), 2, 3);
        mesh.SetVertexUV(i, 0, 0.5f, float(i));
    }
    mesh.Unlock();
    auto* device = static_cast<uint8_t*>(LockVertices(mesh.vertexBuffer, 0));
    ASSERT_NE(device, nullptr);
    const size_t bytes = 3 * mesh.strideWords * sizeof(float);
    EXPECT_EQ(std::memcmp(device, mesh.vertexCopy, bytes), 0);
    std::memset(device, 0x55, bytes);
    UnlockVertices(mesh.vertexBuffer);
    mesh.vertexBuffer->refill = 1;
    mesh.notQueued = 1;  // the refill comes before the mesh is found not to be queued
    MultiMeshQueue().QueueMultiMesh(&mesh);
    EXPECT_EQ(mesh.vertexBuffer->refill, 0);
    device = static_cast<uint8_t*>(LockVertices(mesh.vertexBuffer, 0));
    ASSERT_NE(device, nullptr);
    EXPECT_EQ(std::memcmp(device, mesh.vertexCopy, bytes), 0);
    uint32_t diffuse = 0;
    std::memcpy(&diffuse, device + 3 * sizeof(float), sizeof diffuse);
    EXPECT_EQ(diffuse, 0xFFFFFFFFu);
    UnlockVertices(mesh.vertexBuffer);
    EXPECT_EQ(MultiMeshQueue().count, 0);
}

TEST(MultiMeshStages, PassStagesAboveTheCountStopWithTheAssertion) {
    CMultiMesh mesh(nullptr, nullptr);
    mesh.Allocate(0, 0, 2, 1);
    mesh.SetPassStages(2);
    EXPECT_EQ(mesh.passStages, 2);
    EXPECT_DEATH(mesh.SetPassStages(3), "multimesh");
    EXPECT_DEATH(mesh.SetFirstStage(2), "multimesh");
}

TEST(MultiMeshBounds, SphereThenBoxDecideTheCull) {
    CMultiMesh mesh(nullptr, nullptr);
    mesh.Allocate(8, 0, 1, 1);
    for (uint32_t i = 0; i < 8; ++i)
        mesh.SetVertexPosition(i, float(2 * (i & 1)), float(i & 2), float((i & 4) >> 1));
    mesh.CalculateBox();
    mesh.CalculateBounds();
    mesh.Finalise();
    EXPECT_EQ(mesh.boxMin.x + mesh.boxMin.z + mesh.boxMax.x + mesh.boxMax.y, 4.0f);
    const Vector planes[5] = {{-1, 0, 0}, {1, 0, 0}, {0, -1, 0}, {0, 1, 0}, {0, 0, 1}};
    // Left plane offsets: clear of both, the box alone outside, the sphere already outside.
    const std::pair<float, uint8_t> cases[] = {{1.5f, 0}, {2.5f, 1}, {3.0f, 1}};
    for (const auto& [offset, culled] : cases) {
        const float offsets[5] = {offset, -9, -9, -9, -9};
        mesh.TestFrustum(planes, offsets);
        EXPECT_EQ(mesh.culled, culled) << offset;
    }
    mesh.boundRadius = 0;  // no sphere: never tested
    const float outside[5] = {9, 9, 9, 9, 9};
    mesh.TestFrustum(planes, outside);
    EXPECT_EQ(mesh.culled, 0);
}

TEST(MultiMeshStrips, StripsKeepEachTrianglesWinding) {
    struct Case {
        std::vector<uint16_t> faces, strip;
    };
    const Case cases[] = {{{0, 1, 2, 2, 1, 3}, {0, 1, 2, 3}},
                          {{0, 1, 2, 3, 4, 5}, {0, 1, 2, 2, 4, 4, 3, 5}}};
    for (const Case& c : cases) {
        CMultiMesh mesh(nullptr, nullptr);
        mesh.Allocate(0, 2, 1, 1);
        std::copy(c.faces.begin(), c.faces.end(), mesh.faceIndices);
        mesh.multiGroups = static_cast<MultiDrawGroup*>(MALLOC(sizeof(MultiDrawGroup)));
        mesh.multiGroups[0] = {&mesh.worldMatrix, 0, 6, 6, 0, mesh.faceIndices};
        mesh.multiGroupCount = 1;
        const uint32_t in = StripIndicesIn, out = StripIndicesOut;
        mesh.BuildStrips();
        const MultiDrawGroup& group = mesh.multiGroups[0];
        EXPECT_EQ(std::vector<uint16_t>(group.groupIndices, group.groupIndices + group.indexCount),
                  c.strip);
        EXPECT_EQ(StripIndicesIn - in, 6u);
        EXPECT_EQ(StripIndicesOut - out, uint32_t(c.strip.size()));
        EXPECT_TRUE(mesh.stripped);
    }
}

TEST_F(MultiMeshTest, TheQueueDrawsPassByPassWithTheIdentityWorld) {
    const uint32_t added[MultiStageWords] = {2, 1, D3DTOP_ADD, 2, 1, 2, 0};
    std::vector<CMultiMesh*> meshes;
    std::vector<CMesh*> sources;
    for (int i = 0; i < 2; ++i) {
        sources.push_back(new CMesh(nullptr));
        Fill(*sources.back(), {textures[size_t(i)]}, {textures[size_t(2 + i)]});
        meshes.push_back(new CMultiMesh(renderer, nullptr));
        meshes.back()->BuildFromMesh(sources.back(), 2, 2);
        meshes.back()->SetStageSettings(1, added);
    }
    MultiMeshQueue().StartFrame(nullptr, renderer, {Matrix{}, 640, 480, 1, 1, nullptr, nullptr});
    DxCallRecorder calls;
    for (CMultiMesh* mesh : meshes) MultiMeshQueue().QueueMultiMesh(mesh);
    MultiMeshQueue().FlushMultiMeshQueue();
    // Pass 0 draws both meshes before pass 1's state comes (after its texture), set once.
    Lines order;
    for (const std::string& line : calls.Only("DrawIndexedPrimitiveVB,SetTexture,"
                                              "SetTextureStageState"))
        if (line.rfind("Draw", 0) == 0 || line.rfind("SetTexture(0,", 0) == 0 ||
            line == "SetTextureStageState(0, 1, 7)")
            order.push_back(line.substr(0, line.find(',')));
    Lines expected;
    for (int pass = 0; pass < 2; ++pass) {
        for (int i = 0; i < 2; ++i) {
            expected.push_back("SetTexture(0");
            if (pass == 1 && i == 0) expected.push_back("SetTextureStageState(0");
            expected.push_back("DrawIndexedPrimitiveVB(4");
        }
    }
    EXPECT_EQ(order, expected);
    Lines stage0;
    for (const std::string& line : calls.Only("SetTexture"))
        if (line.rfind("SetTexture(0,", 0) == 0) stage0.push_back(line);
    ASSERT_EQ(stage0.size(), 4u);
    for (int pass = 0; pass < 2; ++pass) {
        Lines wanted, got(stage0.begin() + 2 * pass, stage0.begin() + 2 * pass + 2);
        for (int i = 0; i < 2; ++i)
            wanted.push_back("SetTexture(0, " + Ref(textures[size_t(2 * pass + i)]->surface) + ")");
        std::sort(wanted.begin(), wanted.end());
        std::sort(got.begin(), got.end());
        EXPECT_EQ(got, wanted) << pass;
    }
    EXPECT_EQ(calls.Only("SetTransform").front(),
              "SetTransform(1, 1 0 0 0 0 1 0 0 0 0 1 0 0 0 0 1)");
    EXPECT_EQ(renderer->GetStageState(1, D3DTSS_COLOROP), uint32_t(D3DTOP_DISABLE));
    for (CMultiMesh* mesh : meshes) delete mesh;
    for (CMesh* mesh : sources) delete mesh;
}

std::vector<std::string> Warnings;

TEST_F(MultiMeshTest, FourStagePassesTakeTheSlowPathOnEveryEntry) {
    const auto previous =
        CorvaneSetWarningHandler([](const char* text) { Warnings.push_back(text); });
    CMesh source(nullptr);
    Fill(source, {textures[0], textures[1]}, {textures[2], textures[2]});
    MultiMeshQueue().StartFrame(nullptr, renderer, {Matrix{}, 640, 480, 1, 1, nullptr, nullptr});
    for (uint8_t whole : {0, 1}) {
        CMultiMesh mesh(renderer, nullptr);
        mesh.BuildFromMesh(&source, 4, 2);
        mesh.SetStagePass(0, 4, whole);
        Warnings.clear();
        DxCallRecorder calls;
        MultiMeshQueue().QueueMultiMesh(&mesh);
        MultiMeshQueue().FlushMultiMeshQueue();
        const size_t entries = whole ? 1 : 2;
        EXPECT_EQ(calls.Only("DrawIndexedPrimitiveVB").size(), entries);
        EXPECT_EQ(Warnings, Lines(entries, "Slow Render Path in Multimeshrender"));
        EXPECT_EQ(renderer->GetStageState(3, D3DTSS_COLOROP), uint32_t(D3DTOP_DISABLE));
    }
    CorvaneSetWarningHandler(previous);
}

}  // namespace
