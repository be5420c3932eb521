#include "engine/texture/device_texture.h"

#include <cstring>
#include <string>
#include <vector>

#include "engine/texture/texture.h"
#include "tests/render/renderer_fixture.h"

namespace {

using Lines = std::vector<std::string>;

class DeviceTextureTest : public RendererTest {
protected:
    void SetUp() override {
        RendererTest::SetUp();
        ASSERT_TRUE(Open(OpenWindowed | Open3D));
    }
    static CTexture* Make(int32_t width, int32_t height, uint32_t format, uint32_t flags) {
        CTexture* texture = CreateTexture(width, height, format);
        for (size_t i = 0; i < TextureBlockSize(width, height, format, 0); ++i)
            texture->pixels[i] = uint8_t(i * 7 + 1);
        texture->flags = flags;
        texture->SetName("wall");
        return texture;
    }
    static std::string Ref(uint32_t number) { return "#" + std::to_string(number); }
    static DWORD FourCc(const CTexture* texture) {
        DDSURFACEDESC2 desc{};
        desc.dwSize = sizeof(desc);
        static_cast<LPDIRECTDRAWSURFACE7>(texture->surface)->GetSurfaceDesc(&desc);
        return desc.ddpfPixelFormat.dwFourCC;
    }
};

TEST_F(DeviceTextureTest, UploadGoesThroughStagingAndLocksTakeTheDirectRoadOrRefill) {
    CTexture* texture = Make(8, 4, TextureFormat5650, TextureFlagDynamic);
    DxCallRecorder calls;
    renderer->LoadDeviceTexture(texture);
    renderer->LoadDeviceTexture(texture);  // in the table: nothing more
    ASSERT_NE(texture->surface, nullptr);
    const uint32_t surface = DxObjectNumber(texture->surface);
    EXPECT_EQ(calls.Only("CreateSurface,Lock,Unlock,Blt,Load"),
              (Lines{"CreateSurface(caps 0x1800, 8x4)", "Lock(" + Ref(surface - 1) + ", 1)",
                     "Unlock(" + Ref(surface - 1) + ")", "CreateSurface(caps 0x1000, 8x4)",
                     "Blt(" + Ref(surface) + ", " + Ref(surface - 1) + ", 16777216)"}));
    EXPECT_EQ(texture->stagingSurface, nullptr);

    // Same layout: the lock gives the surface itself, which holds the pixels.
    TextureLock lock;
    ASSERT_EQ(texture->Lock(renderer, 0, &lock), 1);
    EXPECT_EQ(texture->lockDevice, renderer);
    for (int y = 0; y < 4; ++y)
        EXPECT_EQ(std::memcmp(lock.pixels + y * lock.pitch, texture->pixels + y * 16, 16), 0);
    texture->Unlock(renderer, 0);
    // With key pixels it is the pixel block, and the surface is filled again at the unlock.
    texture->flags |= TextureFlagKeyed;
    calls.Clear();
    ASSERT_EQ(texture->Lock(renderer, 0, &lock), 2);
    EXPECT_EQ(lock.pixels, texture->pixels);
    texture->Unlock(renderer, 0);
    EXPECT_EQ(calls.Only("Lock,Unlock"),
              (Lines{"Lock(" + Ref(surface) + ", 2081)", "Unlock(" + Ref(surface) + ")"}));

    calls.Clear();
    FreeTexture(texture);
    EXPECT_EQ(calls.Only("SetTexture").size(), 8u);
    EXPECT_FALSE(renderer->IsOnDevice(texture));
}

TEST_F(DeviceTextureTest, CompressionFollowsFlagsSizeAndFormat) {
    const struct {
        int32_t width;
        uint32_t format, flags;
        DWORD fourCc;
    } cases[] = {
        {8, TextureFormat5650, 0, FOURCC_DXT1},
        {6, TextureFormat5650, 0, 0},
        {8, TextureFormat8888, 0, FOURCC_DXT5},
        {8, TextureFormat5550, TextureFlagAlpha, 0},
        {8, TextureFormat5550, TextureFlagAlpha | TextureFlagAlwaysCompress, FOURCC_DXT5},
        {8, TextureFormat5650, TextureFlagNeverCompress, 0},
        {8, TextureFormat5650, TextureFlagDynamic, 0},
        {8, TextureFormat5650, TextureFlagMipChain, 0},
    };
    ASSERT_EQ(renderer->dxtSupport & (DxtSupport1 | DxtSupport5), DxtSupport1 | DxtSupport5);
    for (const auto& c : cases) {
        CTexture* texture = Make(c.width, 8, c.format, c.flags);
        renderer->LoadDeviceTexture(texture);
        ASSERT_NE(texture->surface, nullptr);
        EXPECT_EQ(FourCc(texture), c.fourCc) << c.width << " " << std::hex << c.flags;
        FreeTexture(texture);
    }
}

TEST_F(DeviceTextureTest, EveryMipLevelIsScaledFromTheFullSizeImage) {
    CTexture* texture = Make(16, 16, TextureFormat8888, 0);
    texture->mipLevels = 8;  // more than the width allows: 16 to 1 are 5
    renderer->mipmapMode = 1;
    DxCallRecorder calls;
    renderer->LoadDeviceTexture(texture);
    EXPECT_TRUE(texture->flags & TextureFlagMipChain);
    const Lines made = calls.Only("CreateSurface");
    ASSERT_EQ(made.size(), 3u);
    EXPECT_EQ(made[0], "CreateSurface(caps 0x401808, 16x16)");
    EXPECT_EQ(made[1], "CreateSurface(caps 0x840, 16x16)");
    const Lines blits = calls.Only("Blt");
    ASSERT_EQ(blits.size(), 5u);
    const std::string source = blits[0].substr(blits[0].find(", #"));
    for (const std::string& blit : blits) EXPECT_EQ(blit.substr(blit.find(", #")), source);
    EXPECT_EQ(calls.Only("Load").size(), 1u);
    FreeTexture(texture);
}

TEST_F(DeviceTextureTest, FailuresAreReportedAndNotRetried) {
    CTexture* texture = Make(8, 8, TextureFormat5650, 0);
    DebugCapture debug;
    DxFaultSwitches().createSurfaces = 1;
    renderer->LoadDeviceTexture(texture);
    DxCallRecorder calls;
    renderer->LoadDeviceTexture(texture);
    EXPECT_TRUE(calls.Calls().empty());
    EXPECT_TRUE(renderer->IsOnDevice(texture));
    EXPECT_EQ(texture->surface, nullptr);
    // A render target has no staging surface: the faults fall on the surface itself.
    CTexture* target = Make(64, 64, TextureFormat5650, TextureFlagRenderTarget);
    CTexture* lost = Make(64, 64, TextureFormat5650, TextureFlagRenderTarget);
    DxFaultSwitches().createSurfaces = 1;
    renderer->LoadDeviceTexture(target);
    DxFaultSwitches().createSurfaces = 2;
    renderer->LoadDeviceTexture(lost);
    EXPECT_NE(target->surface, nullptr);
    EXPECT_EQ(target->depthSurface, nullptr);  // the device's own serves
    EXPECT_EQ(lost->surface, nullptr);
    CTexture* large = Make(1024, 512, TextureFormat5650, TextureFlagRenderTarget);
    renderer->LoadDeviceTexture(large);
    EXPECT_NE(large->depthSurface, nullptr);
    EXPECT_EQ(debug.Text(),
              "WARNING: Texture Creation Failed For wall\n\n"
              "DEBUG: Initial attempt failed to allocate Texture surface....\n\n"
              "DEBUG: DDERR_OUTOFVIDEOMEMORY\nDEBUG: \n\nDEBUG: Attempting second method\n\n"
              "DEBUG: Initial attempt failed to allocate Texture surface....\n\n"
              "DEBUG: DDERR_OUTOFVIDEOMEMORY\nDEBUG: \n\nDEBUG: Attempting second method\n\n"
              "DEBUG: Second attempt failed to allocate Texture surface....Sorry!\n\n"
              "DEBUG: DDERR_OUTOFVIDEOMEMORY\nDEBUG: \n\n");
    for (CTexture* made : {texture, target, lost, large}) FreeTexture(made);
}

}  // namespace
