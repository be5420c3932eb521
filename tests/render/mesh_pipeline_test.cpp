#include <cstring>
#include <memory>
#include <vector>

#include "engine/mesh/draw_group.h"
#include "engine/mesh/mesh.h"
#include "engine/mesh/render_vertices.h"
#include "engine/render/mesh_prepare.h"
#include "engine/render/mesh_renderer.h"
#include "engine/render/transparency.h"
#include "engine/render/vertex_pool.h"
#include "engine/texture/texture.h"
#include "tests/render/renderer_fixture.h"

namespace {

class MeshPipelineTest : public RendererTest {
protected:
    void SetUp() override {
        RendererTest::SetUp();
        ASSERT_TRUE(Open(OpenWindowed | Open3D));
        OpenMeshRenderer();
        MeshFrameView view = {};
        MatrixIdentity(view.view);
        view.width = 640;
        view.height = 480;
        view.nearDistance = view.focal = 1.0f;
        MeshRenderer().StartFrame(nullptr, renderer, view);
    }
    void TearDown() override {
        meshes.clear();  // before the device: the runs go back to live pools
        CloseMeshRenderer();
        for (CTexture* texture : textures) FreeTexture(texture);
        RendererTest::TearDown();
    }
    CTexture* Texture(uint32_t flags) {
        textures.push_back(CreateTexture(4, 4, 0x8888));
        textures.back()->flags = flags;
        return textures.back();
    }
    // One triangle; a second layer where texture2 is given.
    CMesh* Mesh(CTexture* texture, CTexture* texture2 = nullptr) {
        meshes.push_back(std::make_unique<CMesh>(nullptr));
        CMesh* mesh = meshes.back().get();
        mesh->AllocVertices(3);
        for (int i = 0; i < 3; ++i) mesh->vertices[i] = {{float(i), float(i == 2), 0}, {0, 0, 1}};
        for (int layer = 0; layer < (texture2 ? 2 : 1); ++layer) {
            mesh->AllocFaces(1, layer);
            mesh->faces[layer][0] = {{0, 1, 2}, layer ? texture2 : texture, 0, {0, 0, 1, 0, 1, 1}};
        }
        return mesh;
    }
    std::vector<float> Contents(CMesh* mesh) {
        const float* at = static_cast<float*>(LockVertices(mesh->vertexBuffer, 0));
        std::vector<float> words(at, at + 3 * mesh->vertexFormat->stride);
        UnlockVertices(mesh->vertexBuffer);
        return words;
    }
    static std::string Pool(const CMesh* mesh) { return Ref(mesh->vertexBuffer->pool->buffer); }

    std::vector<CTexture*> textures;
    std::vector<std::unique_ptr<CMesh>> meshes;
};

TEST_F(MeshPipelineTest, QueueDrawsByPoolAndTextureAndSendsOnlyChanges) {
    CTexture* later = Texture(TextureFlagClamp);  // flags sort before addresses
    CTexture* first = Texture(0);
    CMesh* meshes3[3] = {Mesh(later), Mesh(first), Mesh(later)};
    for (CMesh* mesh : meshes3) mesh->Render(nullptr);
    ASSERT_EQ(MeshRenderer().count, 3);
    DxCallRecorder calls;
    MeshRenderer().FlushOpaqueQueue();
    const std::string pool = Pool(meshes3[0]);
    auto draw = [&](const CMesh* mesh) {
        return "DrawIndexedPrimitiveVB(4, " + pool + ", " +
               std::to_string(mesh->drawGroups[0].firstVertex) + ", 3, 3, 0)";
    };
    EXPECT_EQ(
        calls.Only("SetTexture,DrawIndexedPrimitiveVB"),
        (Lines{"SetTexture(0, " + Ref(first->surface) + ")", draw(meshes3[1]),
               "SetTexture(0, " + Ref(later->surface) + ")", draw(meshes3[0]), draw(meshes3[2])}));
    EXPECT_EQ(calls.Only("SetTransform").size(), 3u);
    EXPECT_EQ(MeshRenderer().count, 0);
    calls.Clear();
    MeshRenderer().FlushOpaqueQueue();  // an empty layer changes nothing
    EXPECT_TRUE(calls.Calls().empty());
}

TEST_F(MeshPipelineTest, AlphaOrForcedGroupsGoToTheCacheUntexturedOnesNever) {
    struct Case {
        uint32_t textureFlags;  // all ones: no texture
        uint32_t meshFlags;
        bool transparent;
    };
    const Case cases[] = {{0, 0, false},
                          {TextureFlagAlpha, 0, true},
                          {0, MeshFlagAllTransparent, true},
                          {~0u, MeshFlagAllTransparent, false}};
    for (const Case& c : cases) {
        CMesh* mesh = Mesh(~c.textureFlags ? Texture(c.textureFlags) : nullptr);
        mesh->meshFlags = c.meshFlags;
        mesh->worldCentre = {1, 2, 3};
        float* view = MeshRenderer().viewMatrix.m;
        view[2] = 1, view[6] = 10, view[10] = 100, view[14] = 1000;  // view z: column 2
        const int32_t cached = renderer->transparency->count;
        mesh->Render(nullptr);
        ASSERT_EQ(renderer->transparency->count - cached, c.transparent ? 1 : 0);
        const float depth = c.transparent ? renderer->transparency->entries[cached].depth : 1321;
        EXPECT_EQ(depth, 1321.0f);
        EXPECT_EQ(MeshRenderer().count, c.transparent ? 0 : 1);
        MeshRenderer().FlushOpaqueQueue();
    }
}

TEST_F(MeshPipelineTest, SecondStageFollowsEachDrawsLayers) {
    CMesh* two = Mesh(Texture(0), Texture(TextureFlagMultiply));
    // The two-layer pool is made first, so likely drawn first: stage 1 must then go back.
    for (CMesh* mesh : {two, Mesh(Texture(0)), Mesh(Texture(0))}) mesh->Render(nullptr);
    DWORD before = 0;
    renderer->device->GetTextureStageState(1, D3DTSS_COLOROP, &before);
    std::string stage1 = std::to_string(before) + ")";
    DxCallRecorder calls;
    MeshRenderer().FlushOpaqueQueue();
    int draws = 0;
    for (const std::string& line : calls.Only("SetTextureStageState,DrawIndexedPrimitiveVB")) {
        if (line.rfind("SetTextureStageState(1, 1, ", 0) == 0) stage1 = line.substr(27);
        if (line.rfind("DrawIndexedPrimitiveVB", 0) != 0) continue;
        ++draws;
        // The multiplying second texture turns the blend into a modulate.
        const bool ofTwo = line.find(Pool(two) + ",") != std::string::npos;
        EXPECT_EQ(stage1, ofTwo ? "4)" : "1)") << line;
    }
    EXPECT_EQ(draws, 3);
}

TEST_F(MeshPipelineTest, ResetRefillsAndChangesRebuildOnceThenRefresh) {
    CMesh* mesh = Mesh(Texture(0));
    PrepareForRender(mesh, renderer);
    ASSERT_NE(mesh->vertexBuffer, nullptr);
    const std::vector<float> built = Contents(mesh);
    EXPECT_EQ(built[mesh->vertexFormat->stride], 1.0f);  // x of render vertex 1
    const DrawGroup* groups = mesh->drawGroups;
    for (bool tables : {false, true}) {
        std::memset(LockVertices(mesh->vertexBuffer, 0), 0, built.size() * 4);
        UnlockVertices(mesh->vertexBuffer);
        mesh->vertexBuffer->refill = 1;
        PrepareForRender(mesh, renderer);
        EXPECT_EQ(mesh->vertexBuffer->refill, 0);
        EXPECT_EQ(Contents(mesh), built) << tables;
        if (!tables) {
            EXPECT_EQ(mesh->drawGroups, groups);
        }
        // The first change gives the mesh its tables through a rebuild.
        mesh->vertices[1].position.x = 5.0f;
        mesh->dirtyMask = MeshDirtyPositions;
        PrepareForRender(mesh, renderer);
        EXPECT_NE(mesh->renderVertexSource, nullptr);
        EXPECT_EQ(Contents(mesh)[mesh->vertexFormat->stride], 5.0f);
        mesh->vertices[1].position.x = 1.0f;
    }
    const VertexBufferInfo* info = mesh->vertexBuffer;
    mesh->dirtyMask = MeshDirtyPositions;
    PrepareForRender(mesh, renderer);
    EXPECT_EQ(mesh->vertexBuffer, info);
    EXPECT_EQ(Contents(mesh), built);
}

}  // namespace
