#include "engine/render/renderer_config.h"
#include "engine/texture/texture.h"
#include "tests/render/renderer_fixture.h"

namespace {

constexpr const char* StateCalls = "SetRenderState,SetTextureStageState,SetTexture";

class StateCacheTest : public RendererTest {
protected:
    void SetUp() override {
        RendererTest::SetUp();
        ASSERT_TRUE(Open(OpenWindowed | Open3D));
        renderer->ApplyState();
    }
    CTexture* MakeTexture(uint32_t flags) {
        CTexture* texture = CreateTexture(4, 4, 0x8888);
        texture->flags = flags;
        texture->surface = renderer->flipping;  // any live surface shows in the record
        return texture;
    }
};

TEST_F(StateCacheTest, OnlyRealChangesReachTheDeviceTexturesFirst) {
    CTexture* keyed = MakeTexture(TextureFlagKeyed);
    DxCallRecorder calls;
    renderer->SetRenderState(D3DRENDERSTATE_CULLMODE, D3DCULL_NONE);
    renderer->SetRenderState(D3DRENDERSTATE_ZENABLE, 0);
    renderer->SetRenderState(D3DRENDERSTATE_ZENABLE, 1);  // back to what the device has
    renderer->SetRenderState(D3DRENDERSTATE_CULLMODE, D3DCULL_NONE);
    renderer->SetStageState(1, D3DTSS_COLOROP, D3DTOP_ADD);
    renderer->SetStageState(0, D3DTSS_COLOROP, D3DTOP_MODULATE);  // unchanged
    renderer->RequestStageTexture(keyed, 0);
    renderer->ApplyState();
    renderer->ApplyState();
    // The keyed texture brings the alpha test with it, though nobody asked for it.
    EXPECT_EQ(calls.Only(StateCalls), (Lines{"SetTexture(0, " + Ref(renderer->flipping) + ")",
                                             "SetTextureStageState(1, 1, 7)",
                                             "SetRenderState(15, 1)", "SetRenderState(22, 1)"}));
    FreeTexture(keyed);
}

TEST_F(StateCacheTest, TextureFlagsChooseAddressingFilteringAndAlphaTest) {
    struct Case {
        uint32_t flags;  // all ones: no texture
        uint32_t address, alphaTest, mip, mag, min, anisotropy;
    };
    const Case cases[] = {
        {~0u, 1, 0, 1, 2, 2, 1},
        {TextureFlagClamp | TextureFlagMipChain, 3, 0, 3, 2, 2, 1},
        {TextureFlagAnisotropic | TextureFlagKeyed, 1, 1, 1, 5, 3, 255},
    };
    for (const Case& c : cases) {
        CTexture* texture = ~c.flags ? MakeTexture(c.flags) : nullptr;
        renderer->ApplyStageTexture(texture, 2);
        EXPECT_EQ(renderer->appliedTextures[2], texture);
        const uint32_t got[] = {renderer->GetStageState(2, D3DTSS_ADDRESS),
                                renderer->GetRenderState(D3DRENDERSTATE_ALPHATESTENABLE),
                                renderer->GetStageState(2, D3DTSS_MIPFILTER),
                                renderer->GetStageState(2, D3DTSS_MAGFILTER),
                                renderer->GetStageState(2, D3DTSS_MINFILTER),
                                renderer->GetStageState(2, D3DTSS_MAXANISOTROPY)};
        EXPECT_EQ(
            std::vector<uint32_t>(got, got + 6),
            (std::vector<uint32_t>{c.address, c.alphaTest, c.mip, c.mag, c.min, c.anisotropy}));
        if (texture) FreeTexture(texture);
    }
}

TEST_F(StateCacheTest, AppliedTextureCancelsARequestForcingSendsAgainAndResetForgets) {
    CTexture* first = MakeTexture(0);
    CTexture* second = MakeTexture(0);
    renderer->RequestStageTexture(first, 3);
    renderer->ApplyState();
    DxCallRecorder calls;
    renderer->RequestStageTexture(second, 3);
    renderer->RequestStageTexture(first, 3);
    renderer->ApplyState();
    EXPECT_TRUE(calls.Only("SetTexture").empty());
    renderer->ForceStageTexture(first, 3);
    renderer->ApplyState();
    EXPECT_EQ(calls.Only("SetTexture"), (Lines{"SetTexture(3, " + Ref(renderer->flipping) + ")"}));

    renderer->ResetStateCache();
    calls.Clear();
    renderer->SetRenderState(D3DRENDERSTATE_ZENABLE, 1);
    renderer->SetRenderState(D3DRENDERSTATE_FOGCOLOR, 0xFFFFFFFFu);  // the unknown value itself
    renderer->SetStageState(0, D3DTSS_COLOROP, D3DTOP_MODULATE);
    renderer->ApplyState();
    EXPECT_EQ(calls.Only(StateCalls),
              (Lines{"SetTextureStageState(0, 1, 4)", "SetRenderState(7, 1)"}));
    FreeTexture(first);
    FreeTexture(second);
}

TEST_F(StateCacheTest, ForcedConfigurationSendsAllLazyOnlyDifferences) {
    CRendererConfig config(nullptr);
    config.Capture(renderer);
    EXPECT_EQ(config.stageStates[StageStateCount + D3DTSS_TEXCOORDINDEX], 1u);
    DxCallRecorder calls;
    renderer->Apply(&config, true);
    // Every held state goes out, though the cache believes it applied.
    EXPECT_EQ(calls.Only("SetRenderState").size(), 61u);
    EXPECT_EQ(calls.Only("SetTexture").size(), size_t(StageCount));
    config.Capture(renderer);
    calls.Clear();
    renderer->Apply(&config, false);
    EXPECT_TRUE(calls.Only(StateCalls).empty());

    config.SetRenderState(D3DRENDERSTATE_CULLMODE, D3DCULL_NONE);
    renderer->SetRenderState(D3DRENDERSTATE_FOGENABLE, 1);  // no longer the current one
    renderer->Apply(&config, false);
    renderer->ApplyState();
    EXPECT_EQ(calls.Only(StateCalls), (Lines{"SetRenderState(22, 1)"}));
    EXPECT_EQ(renderer->currentConfig, &config);
}

TEST_F(RendererTest, TextureBlendAndStageValidationAskTheDriver) {
    struct Case {
        DWORD opCaps;
        WORD stages;
        uint32_t blend;
        const char* failure;  // of two stages blending by texture alpha
    };
    const Case cases[] = {
        {0xFFFF, 8, 0xF0000000u, ""},
        {0xEFFF, 8, 0xF0000001u, "DEBUG: FAILED TO VALIDATE\nDEBUG: unsup colour op\n"},
        {0xFFFF, 1, 0, "DEBUG: FAILED TO VALIDATE\nDEBUG: too many\n"},
    };
    const uint32_t block[7] = {2, 1, D3DTOP_BLENDTEXTUREALPHA, 2, 1, 2, 0};
    const uint32_t* blocks[2] = {block, block};
    const uint8_t coordinates[2] = {0, 1};
    CTexture* const textures[2] = {nullptr, nullptr};
    for (const Case& c : cases) {
        DxAdapterTable table = DxDescribeGlContext();
        for (DxDeviceEntry& entry : table.adapters[0].devices) {
            entry.desc.dwTextureOpCaps = c.opCaps;
            entry.desc.wMaxTextureBlendStages = c.stages;
        }
        DxStageAdapters(&table);
        ASSERT_TRUE(Open(OpenWindowed | Open3D));
        int textureCount = CountTextures();
        EXPECT_EQ(renderer->TestTextureBlend(false), c.blend);
        EXPECT_EQ(renderer->textureBlend, c.blend);
        EXPECT_EQ(CountTextures(), textureCount);
        EXPECT_EQ(renderer->deviceTextureCount, 0);
        EXPECT_EQ(renderer->appliedTextures[1], nullptr);
        EXPECT_EQ(renderer->GetStageState(1, D3DTSS_COLOROP), uint32_t(D3DTOP_DISABLE));
        DebugCapture debug;
        EXPECT_EQ(renderer->ValidateStageSetup(2, blocks, coordinates, textures), !*c.failure);
        EXPECT_EQ(debug.Text(), c.failure);
        EXPECT_EQ(renderer->GetStageState(2, D3DTSS_COLOROP), uint32_t(D3DTOP_DISABLE));
        Close();
    }
}

}  // namespace
