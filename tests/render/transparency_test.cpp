#include "engine/render/transparency.h"

#include <cstdio>
#include <cstring>
#include <map>
#include <string>
#include <tuple>
#include <vector>

#include "engine/render/poly_buffer.h"
#include "engine/texture/texture.h"
#include "tests/render/renderer_fixture.h"

namespace {

class TransparencyTest : public RendererTest {
protected:
    void SetUp() override {
        RendererTest::SetUp();
        ASSERT_TRUE(Open(OpenWindowed | Open3D));
        MatrixIdentity(world);
        for (uint32_t flags : {0u, 0x80u, 0x200u, 0x280u, 0x4u}) {
            textures.push_back(CreateTexture(4, 4, TextureFormat8888));
            textures.back()->flags = flags;
        }
    }
    void TearDown() override {
        Close();  // the device lets its surfaces go before the textures
        for (CTexture* texture : textures) FreeTexture(texture);
        RendererTest::TearDown();
    }
    void File(uint32_t first, float depth, CTexture* texture, uint32_t flags = 0) {
        AddTransparent(renderer, renderer->alphaTarget, first, 3, 3, texture, indices, flags,
                       &world, depth);
    }
    // Flushes, giving each indexed draw's first vertex with the blend factors, lighting and
    // shading in force.
    using Draw = std::tuple<int, int, int, int, int>;
    std::vector<Draw> Flush() {
        std::map<int, int> state;
        for (int id : {9, 19, 20, 137}) state[id] = int(renderer->appliedRenderStates[id]);
        DxCallRecorder calls;
        FlushTransparency(renderer);
        std::vector<Draw> draws;
        for (const std::string& line : calls.Calls()) {
            int id = 0, value = 0, type = 0, first = 0;
            char buffer[16];
            if (std::sscanf(line.c_str(), "SetRenderState(%d, %d)", &id, &value) == 2)
                state[id] = value;
            if (std::sscanf(line.c_str(), "DrawIndexedPrimitiveVB(%d, %15[^,], %d", &type, buffer,
                            &first) == 3)
                draws.emplace_back(first, state[19], state[20], state[137], state[9]);
        }
        return draws;
    }

    Matrix world;
    uint16_t indices[3] = {0, 1, 2};
    std::vector<CTexture*> textures;
};

TEST_F(TransparencyTest, BucketsDrawFarToNearWithBlendFromTextureFlags) {
    BeginTransparency(renderer, 128.0f);  // one bucket per unit of depth
    File(1, 10.0f, textures[0]);
    File(2, 500.0f, textures[1]);  // past the far distance: the last bucket
    File(3, -4.0f, textures[2], TransparentDecal);
    File(4, 300.0f, textures[3]);
    File(5, 10.0f, textures[0]);   // equal depth: drawn before the earlier one
    File(6, 127.4f, textures[0]);  // rounds into the last bucket, nearer than both above
    File(7, 0.4f, textures[0], TransparentUnlit);  // bucket 0 with the negative one, but farther
    File(8, 9.6f, textures[0]);                    // bucket 10, behind the equal pair
    EXPECT_EQ(Flush(), (std::vector<Draw>{{2, 1, 3, 1, 2},
                                          {4, 2, 2, 1, 2},
                                          {6, 5, 6, 1, 2},
                                          {5, 5, 6, 1, 2},
                                          {1, 5, 6, 1, 2},
                                          {8, 5, 6, 1, 2},
                                          {7, 5, 6, 0, 2},
                                          {3, 2, 2, 0, 1}}));
    EXPECT_EQ(renderer->GetRenderState(D3DRENDERSTATE_ALPHABLENDENABLE), 0u);
    EXPECT_EQ(renderer->GetRenderState(D3DRENDERSTATE_ZWRITEENABLE), 1u);
    renderer->ApplyState();
    DxCallRecorder calls;
    FlushTransparency(renderer);  // the cache was emptied; nothing touches blending or depth
    for (const std::string& line : calls.Calls()) {
        EXPECT_EQ(line.find("SetRenderState(14,"), std::string::npos) << line;
        EXPECT_EQ(line.find("SetRenderState(27,"), std::string::npos) << line;
        EXPECT_EQ(line.find("Draw"), std::string::npos) << line;
    }
}

TEST_F(TransparencyTest, AForcedOpaqueMeshShimmersInTwoMultiplyingPasses) {
    BeginTransparency(renderer, 100.0f);
    File(9, 50.0f, textures[0], TransparentForced);
    File(8, 40.0f, textures[4], TransparentForced);  // its texture has alpha: drawn once
    EXPECT_EQ(Flush(), (std::vector<Draw>{
                           {9, 9, 9, 0, 2}, {9, 9, 9, 0, 2}, {9, 5, 6, 0, 2}, {8, 5, 6, 1, 2}}));
}

TEST_F(TransparencyTest, BatchesCarryOnAcrossTheirLimitAndLoseNoPendingTriangle) {
    std::vector<PolyVertex> quads(4, PolyVertex{0, 2, 0.5f, 1, 0xFF, 0, 0, 0});
    for (int i = 0; i < 4; ++i) quads[size_t(i)].x = float(i);
    for (int i = 0; i < 255; ++i) AddAlphaQuads(renderer, quads.data(), 1, textures[0]);
    AddAlphaQuads(renderer, quads.data(), 1, textures[1]);  // ends exactly at 512
    AddAlphaQuads(renderer, quads.data(), 1, textures[1]);  // the next batch goes on
    AlphaBatch* first = renderer->transparency->firstBatch;
    ASSERT_NE(first->next, nullptr);
    AlphaBatch* second = first->next;
    DxCallRecorder calls;
    for (int i = 0; i < 510; ++i) ASSERT_NE(AddAlphaTriangle(renderer, textures[2]), nullptr);
    for (int i = 0; i < 2; ++i) ASSERT_NE(AddAlphaTriangle(renderer, textures[3]), nullptr);
    AlphaBatch* third = second->next;
    ASSERT_NE(third, nullptr);
    FlushTransparency(renderer);
    const std::string t = Ref(first->target), a = Ref(second->target), b = Ref(third->target);
    // The second batch's world triangles behind its quads go through before the third starts.
    EXPECT_EQ(calls.Only("ProcessVertices"),
              (Lines{"ProcessVertices(" + a + ", 5, 6, 1530, " + Ref(second->source) + ", 6, 0)",
                     "ProcessVertices(" + b + ", 5, 0, 6, " + Ref(third->source) + ", 0, 0)"}));
    EXPECT_EQ(calls.Only("DrawPrimitiveVB"), (Lines{"DrawPrimitiveVB(4, " + t + ", 0, 1530, 0)",
                                                    "DrawPrimitiveVB(4, " + t + ", 1530, 6, 0)",
                                                    "DrawPrimitiveVB(4, " + a + ", 0, 6, 0)",
                                                    "DrawPrimitiveVB(4, " + a + ", 6, 1530, 0)",
                                                    "DrawPrimitiveVB(4, " + b + ", 0, 6, 0)"}));
    void* data = nullptr;
    ASSERT_EQ(second->target->Lock(0, &data, nullptr), D3D_OK);
    const auto* corners = static_cast<const PolyVertex*>(data);
    const float order[6] = {0, 1, 2, 0, 2, 3};  // corners of the triangles (0, 1, 2), (0, 2, 3)
    for (int i = 0; i < 6; ++i) EXPECT_EQ(corners[i].x, order[i]) << i;
    second->target->Unlock();
    calls.Clear();
    AddAlphaQuads(renderer, quads.data(), 1, textures[0]);
    FlushTransparency(renderer);  // the emptied second batch ends the walk
    EXPECT_EQ(calls.Only("DrawPrimitiveVB"), (Lines{"DrawPrimitiveVB(4, " + t + ", 0, 6, 0)"}));
}

TEST_F(TransparencyTest, BlendSelectionAndTint) {
    const std::pair<uint32_t, uint32_t> blends[] = {{5, 6}, {1, 3}, {2, 2}, {2, 2}, {5, 6}};
    for (size_t i = 0; i < textures.size(); ++i) {
        SetBlendFromTexture(renderer, textures[i]->flags);
        EXPECT_EQ(renderer->GetRenderState(D3DRENDERSTATE_SRCBLEND), blends[i].first) << i;
        EXPECT_EQ(renderer->GetRenderState(D3DRENDERSTATE_DESTBLEND), blends[i].second) << i;
    }
    DxCallRecorder calls;
    TintViewport(renderer, 0x00FF8040, 0, 0, 640, 480);  // no alpha byte: no tint
    EXPECT_TRUE(calls.Calls().empty());
    TintViewport(renderer, 0x80FF8040, 0, 0, 640, 480);
    EXPECT_EQ(calls.Only("DrawPrimitive"), (Lines{"DrawPrimitive(6, 452, 4, 0)"}));
    EXPECT_EQ(renderer->GetRenderState(D3DRENDERSTATE_ZENABLE), 0u);
    EXPECT_EQ(renderer->GetRenderState(D3DRENDERSTATE_ALPHABLENDENABLE), 0u);
}

}  // namespace
