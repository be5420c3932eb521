#include "engine/texture/texture.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <tuple>
#include <vector>

#include "base/diagnostics.h"
#include "base/memory.h"
#include "base/velmora_log.h"
#include "tests/support/temp_dir.h"

namespace {

std::vector<std::string> Warnings;

// Collects the warnings of one test in order.
class WarningCapture {
public:
    WarningCapture() {
        Warnings.clear();
        old = CorvaneSetWarningHandler([](const char* text) { Warnings.emplace_back(text); });
    }
    ~WarningCapture() { CorvaneSetWarningHandler(old); }

private:
    CorvaneTextHandler old;
};

using Texts = std::vector<std::string>;

TEST(TextureList, CreateAndFreeKeepTheListInStep) {
    int before = CountTextures();
    CTexture* a = CreateTexture(4, 2, TextureFormat8888);
    CTexture* b = CreateTexture(3, 3, TextureFormat5650);
    CTexture* empty = CreateEmptyTexture();
    EXPECT_EQ(empty->pixels, nullptr);
    CTexture stranger;
    FreeTexture(&stranger);  // not in the list: nothing happens
    FreeTexture(nullptr);
    EXPECT_EQ(CountTextures(), before + 3);

    FreeTexture(a);
    FreeTexture(a);  // already gone
    EXPECT_EQ(CountTextures(), before + 2);
    FreeTexture(b);
    FreeTexture(empty);
    EXPECT_EQ(CountTextures(), before);
}

std::vector<CTexture*> Released;
int ReleaseAllCalls = 0;

TEST(TextureList, DeviceHooksHearOfEveryTextureThatGoes) {
    TextureDeviceHooks hooks = {[](CTexture* t) { Released.push_back(t); },
                                [] { ++ReleaseAllCalls; }};
    SetTextureDeviceHooks(&hooks);
    Released.clear();
    ReleaseAllCalls = 0;

    CTexture* a = CreateTexture(1, 1, TextureFormat8888);
    CTexture* b = CreateTexture(1, 1, TextureFormat8888);
    CTexture stranger;
    FreeTexture(&stranger);
    FreeTexture(a);
    EXPECT_EQ(Released, (std::vector<CTexture*>{a}));

    FreeAllTextures();
    EXPECT_EQ(ReleaseAllCalls, 1);
    EXPECT_EQ(Released.back(), b);
    EXPECT_EQ(CountTextures(), 0);
    SetTextureDeviceHooks(nullptr);
}

TEST(TextureList, CloseLogsEveryTextureStillAllocatedWithoutFreeingIt) {
    TempDir dir;
    VelmoraLogBeginRun();
    int before = CountTextures();
    CTexture* a = CreateTexture(1, 1, TextureFormat8880);
    a->SetName("grass.tga");
    CTexture* b = CreateEmptyTexture();
    b->SetName("rock.tga");

    LogTexturesStillAllocated();
    std::string log = ReadWholeFile("velmora.log");
    EXPECT_EQ(log.rfind("LOG: (CloseVelmora()) Texture still allocated rock.tga"
                        "LOG: (CloseVelmora()) Texture still allocated grass.tga",
                        0),
              0u)
        << log;
    EXPECT_EQ(CountTextures(), before + 2);
    FreeTexture(a);
    FreeTexture(b);
}

TEST(Texture, LockTwiceKeepsTheFirstLockAndUnlockWithoutLockOnlyWarns) {
    WarningCapture capture;
    CTexture* texture = CreateTexture(5, 3, TextureFormat8888);
    TextureLock lock = {nullptr, 0, 7};
    EXPECT_EQ(texture->Lock(nullptr, 0, &lock), 4);
    EXPECT_EQ(lock.status, 0);
    EXPECT_EQ(lock.pixels, texture->pixels);
    EXPECT_EQ(lock.pitch, 20);
    EXPECT_TRUE(texture->locked);

    TextureLock second = {nullptr, 0, 0};
    EXPECT_EQ(texture->Lock(nullptr, 0, &second), 0);
    EXPECT_EQ(second.status, -1);
    EXPECT_TRUE(texture->locked);

    texture->Unlock(nullptr, 0);
    EXPECT_FALSE(texture->locked);
    texture->Unlock(nullptr, 0);
    EXPECT_EQ(Warnings,
              (Texts{"Texture already locked!\n", "Unlocking a non-locked texture....\n"}));

    // Going away locked ends the lock quietly; going away unlocked doesn't unlock again.
    Warnings.clear();
    EXPECT_EQ(texture->Lock(nullptr, 0, &lock), 4);
    FreeTexture(texture);
    { CTexture unlocked; }
    EXPECT_EQ(Warnings, Texts{});
}

TEST(Texture, ColourKeyIsLookedForInTheFormatsWithoutAlphaOnly) {
    const struct {
        uint32_t format;
        std::vector<uint8_t> pixels;
        bool keyed;
    } cases[] = {
        {TextureFormat5550, {0x34, 0x12, 0x1E, 0x7C}, false},
        {TextureFormat5550, {0x34, 0x12, 0x1F, 0xFC}, true},  // the unused top bit is ignored
        {TextureFormat5650, {0x1F, 0x7C, 0x1E, 0xF8}, false},
        {TextureFormat5650, {0x1F, 0xF8, 0x1E, 0xF8}, true},
        {TextureFormat8880, {255, 0, 254, 255, 1, 255}, false},
        {TextureFormat8880, {255, 0, 254, 255, 0, 255}, true},
        {TextureFormat8888, {255, 0, 255, 0, 1, 2, 3, 4}, false},
        {TextureFormat4444, {0x0F, 0x0F, 0, 0}, false},
    };
    for (const auto& c : cases) {
        CTexture* texture = CreateTexture(2, 1, c.format);
        std::memcpy(texture->pixels, c.pixels.data(), c.pixels.size());
        EXPECT_EQ(texture->HasColourKey(), c.keyed) << std::hex << c.format << " " << c.keyed;
        FreeTexture(texture);
    }
}

TEST(Texture, CopyHasItsOwnBlockWithEveryMipLevelAndItsOwnName) {
    // 8 x 4 with levels 4 x 2 and 2 x 1: 42 pixels of 3 bytes.
    EXPECT_EQ(TextureBlockSize(8, 4, TextureFormat8880, 2), 126u);
    EXPECT_EQ(TextureBlockSize(8, 4, TextureFormat8880, 9), 126u);  // 1 x 0 holds nothing
    EXPECT_EQ(TextureBlockSize(8, 4, TextureFormat8888, 0), 128u);

    CTexture* source = CreateEmptyTexture();
    source->width = 8;
    source->height = 4;
    source->format = TextureFormat8880;
    source->mipLevels = 2;
    source->pixels = static_cast<uint8_t*>(MALLOC(126));
    for (int i = 0; i < 126; ++i) source->pixels[i] = uint8_t(i * 7 + 1);
    source->flags = TextureFlagKeyed | TextureFlagClamp;
    source->alphaSetting = 85;
    char name[] = "cliff.tga";
    source->SetName(name);
    name[0] = 'X';  // the texture keeps a copy
    int dummy = 0;
    source->surface = source->stagingSurface = &dummy;

    int before = CountTextures();
    CTexture* copy = CopyTexture(source);
    EXPECT_EQ(CountTextures(), before + 1);
    EXPECT_NE(copy->name, source->name);
    EXPECT_STREQ(copy->name, "cliff.tga");
    EXPECT_EQ(std::tie(copy->width, copy->height, copy->format, copy->mipLevels, copy->flags,
                       copy->alphaSetting),
              std::tie(source->width, source->height, source->format, source->mipLevels,
                       source->flags, source->alphaSetting));
    EXPECT_EQ(copy->surface, nullptr);
    EXPECT_EQ(copy->stagingSurface, nullptr);

    source->surface = source->stagingSurface = nullptr;
    std::vector<uint8_t> pixels(source->pixels, source->pixels + 126);
    FreeTexture(source);
    EXPECT_EQ(std::vector<uint8_t>(copy->pixels, copy->pixels + 126), pixels);  // still its own
    FreeTexture(copy);
}

}  // namespace
