#include "engine/render/poly_buffer.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "base/diagnostics.h"
#include "engine/render/vertex_pool.h"
#include "engine/texture/texture.h"
#include "tests/render/renderer_fixture.h"

namespace {

using Lines = std::vector<std::string>;

class PolyBufferTest : public RendererTest {
protected:
    void SetUp() override {
        RendererTest::SetUp();
        ASSERT_TRUE(Open(OpenWindowed | Open3D));
    }
    std::string Draw(const CPolyBuffer& buffer, int first, int count) const {
        return "DrawPrimitiveVB(4, #" +
               std::to_string(DxObjectNumber(buffer.vertices->pool->buffer)) + ", " +
               std::to_string(GetVertexStart(buffer.vertices) + first) + ", " +
               std::to_string(count) + ", 0)";
    }
};

TEST_F(PolyBufferTest, RunsDrawOneAfterAnotherAndEmptyRunsAskForNothing) {
    CTexture* added = CreateTexture(4, 4, TextureFormat8888);
    CTexture* unused = CreateTexture(4, 4, TextureFormat8888);
    std::memset(added->pixels, 0x80, 64);
    added->flags = TextureFlagAlpha | TextureFlagAdd;
    CPolyBuffer buffer(renderer, 8);
    buffer.flags = PolyBufferNoDepthTest;
    buffer.SetRunCount(0, 2);
    buffer.SetTexture(unused, 1);
    buffer.SetTexture(added, 2);
    buffer.SetRunCount(2, 9);  // only 6 of the 8 triangles are left for it
    buffer.SetTexture(nullptr, 40);
    EXPECT_EQ(buffer.runCapacity, 48);
    DxCallRecorder calls;
    renderer->RenderPolyBuffer(&buffer);
    EXPECT_EQ(calls.Only("DrawPrimitiveVB"), (Lines{Draw(buffer, 0, 6), Draw(buffer, 6, 18)}));
    EXPECT_EQ(unused->surface, nullptr);
    const std::string texture = "SetTexture(0, #" + std::to_string(DxObjectNumber(added->surface));
    EXPECT_EQ(calls.Only("SetTexture").back(), texture + ")");
    const Lines states = calls.Only("SetRenderState");
    for (const char* state : {"SetRenderState(7, 0)", "SetRenderState(19, 2)",
                              "SetRenderState(20, 2)", "SetRenderState(27, 1)"})
        EXPECT_NE(std::find(states.begin(), states.end(), state), states.end()) << state;
    EXPECT_EQ(renderer->GetRenderState(D3DRENDERSTATE_ZENABLE), 1u);
    EXPECT_EQ(renderer->GetRenderState(D3DRENDERSTATE_ALPHABLENDENABLE), 0u);
    FreeTexture(added);
    FreeTexture(unused);
}

TEST_F(PolyBufferTest, AfterAResetTheCopyRefillsTheBufferOnce) {
    CPolyBuffer before(renderer, 1);
    CPolyBuffer buffer(renderer, 2);
    FillBackgroundQuad(&buffer, 640, 480);
    const PolyVertex quad[6] = {
        {-0.5f, -0.5f, 1, 1, 0xFFFFFFFF, 0, 0, 0},  {639.5f, -0.5f, 1, 1, 0xFFFFFFFF, 0, 1, 0},
        {-0.5f, 479.5f, 1, 1, 0xFFFFFFFF, 0, 0, 1}, {-0.5f, 479.5f, 1, 1, 0xFFFFFFFF, 0, 0, 1},
        {639.5f, -0.5f, 1, 1, 0xFFFFFFFF, 0, 1, 0}, {639.5f, 479.5f, 1, 1, 0xFFFFFFFF, 0, 1, 1}};
    EXPECT_EQ(std::memcmp(buffer.shadow, quad, sizeof(quad)), 0);
    EXPECT_EQ(buffer.GetRunCount(0), 2);
    // An optimised buffer is made anew at a reset, empty until the copy comes back.
    OptimiseVertices(buffer.vertices->pool);
    ReplaceVertexBuffer(buffer.vertices->pool);
    DxCallRecorder calls;
    renderer->RenderPolyBuffer(&buffer);
    renderer->RenderPolyBuffer(&buffer);
    EXPECT_EQ(calls.Only("Lock").size(), 1u);
    EXPECT_EQ(calls.Only("DrawPrimitiveVB").size(), 2u);
    // Read as the device lays the buffer out, behind the other poly buffer's triangle.
    void* device = nullptr;
    LPDIRECT3DVERTEXBUFFER7 shared = buffer.vertices->pool->buffer;
    ASSERT_EQ(shared->Lock(DDLOCK_WAIT, &device, nullptr), D3D_OK);
    const auto* first = static_cast<const PolyVertex*>(device) + GetVertexStart(buffer.vertices);
    EXPECT_EQ(std::memcmp(first, quad, sizeof(quad)), 0);
    shared->Unlock();

    static std::vector<std::string> warnings;
    CorvaneTextHandler previous =
        CorvaneSetWarningHandler([](const char* text) { warnings.push_back(text); });
    buffer.Unlock(0);
    EXPECT_NE(buffer.Lock(), nullptr);
    EXPECT_EQ(buffer.Lock(), nullptr);
    CorvaneSetWarningHandler(previous);
    EXPECT_EQ(warnings, (Lines{"CPolyBuffer::Trying to unlock a poly buffer that is not locked",
                               "Failed to lock PolyBuffer"}));
}

}  // namespace
