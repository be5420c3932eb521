#include "engine/texture/texture.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
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

void Set16(CTexture* texture, int index, uint16_t value) {
    texture->pixels[index * 2] = uint8_t(value);
    texture->pixels[index * 2 + 1] = uint8_t(value >> 8);
}

TEST(TextureList, CreateAndFreeKeepTheListInStep) {
    int before = CountTextures();
    CTexture* a = CreateTexture(4, 2, TextureFormat8888);
    CTexture* b = CreateTexture(3, 3, TextureFormat5650);
    CTexture* empty = CreateEmptyTexture();
    EXPECT_EQ(CountTextures(), before + 3);
    EXPECT_EQ(a->GetPitch(), 16);
    EXPECT_EQ(b->GetPitch(), 6);
    EXPECT_EQ(empty->pixels, nullptr);
    EXPECT_EQ(empty->format, 0u);

    CTexture stranger;
    FreeTexture(&stranger);  // not in the list: nothing happens
    FreeTexture(nullptr);
    EXPECT_EQ(CountTextures(), before + 3);

    FreeTexture(a);
    EXPECT_EQ(CountTextures(), before + 2);
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

TEST(Texture, SetNameKeepsItsOwnCopy) {
    CTexture texture;
    char text[] = "wall!05.tga";
    texture.SetName(text);
    text[0] = 'X';
    EXPECT_STREQ(texture.name, "wall!05.tga");
    texture.SetName(nullptr);
    EXPECT_EQ(texture.name, nullptr);
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
    EXPECT_EQ(texture->lockDevice, nullptr);

    TextureLock second = {nullptr, 0, 0};
    EXPECT_EQ(texture->Lock(nullptr, 0, &second), 0);
    EXPECT_EQ(second.status, -1);
    EXPECT_TRUE(texture->locked);
    EXPECT_EQ(Warnings, (Texts{"Texture already locked!\n"}));

    texture->Unlock(nullptr, 0);
    EXPECT_FALSE(texture->locked);
    EXPECT_EQ(Warnings.size(), 1u);
    texture->Unlock(nullptr, 0);
    EXPECT_FALSE(texture->locked);
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
    CTexture* t555 = CreateTexture(2, 1, TextureFormat5550);
    Set16(t555, 0, 0x1234);
    Set16(t555, 1, 0x7C1E);
    EXPECT_FALSE(t555->HasColourKey());
    Set16(t555, 1, 0xFC1F);  // the unused top bit doesn't hide the key here
    EXPECT_TRUE(t555->HasColourKey());

    CTexture* t565 = CreateTexture(2, 1, TextureFormat5650);
    Set16(t565, 0, 0x7C1F);
    Set16(t565, 1, 0xF81E);
    EXPECT_FALSE(t565->HasColourKey());
    Set16(t565, 0, 0xF81F);
    EXPECT_TRUE(t565->HasColourKey());

    CTexture* t888 = CreateTexture(1, 2, TextureFormat8880);
    const uint8_t nearKey[6] = {255, 0, 254, 255, 1, 255};
    std::memcpy(t888->pixels, nearKey, 6);
    EXPECT_FALSE(t888->HasColourKey());
    t888->pixels[5] = 255, t888->pixels[4] = 0;
    EXPECT_TRUE(t888->HasColourKey());

    CTexture* t8888 = CreateTexture(1, 1, TextureFormat8888);
    const uint8_t magenta[4] = {255, 0, 255, 0};
    std::memcpy(t8888->pixels, magenta, 4);
    EXPECT_FALSE(t8888->HasColourKey());
    CTexture* t4444 = CreateTexture(1, 1, TextureFormat4444);
    Set16(t4444, 0, 0x0F0F);
    EXPECT_FALSE(t4444->HasColourKey());

    for (CTexture* t : {t555, t565, t888, t8888, t4444}) FreeTexture(t);
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
    source->stage = 2;
    source->SetName("cliff.tga");
    int dummy = 0;
    source->surface = &dummy;
    source->stagingSurface = &dummy;

    int before = CountTextures();
    CTexture* copy = CopyTexture(source);
    EXPECT_EQ(CountTextures(), before + 1);
    EXPECT_NE(copy->pixels, source->pixels);
    EXPECT_EQ(std::memcmp(copy->pixels, source->pixels, 126), 0);
    EXPECT_NE(copy->name, source->name);
    EXPECT_STREQ(copy->name, "cliff.tga");
    EXPECT_EQ(copy->width, 8);
    EXPECT_EQ(copy->height, 4);
    EXPECT_EQ(copy->format, uint32_t(TextureFormat8880));
    EXPECT_EQ(copy->mipLevels, 2u);
    EXPECT_EQ(copy->flags, uint32_t(TextureFlagKeyed | TextureFlagClamp));
    EXPECT_EQ(copy->alphaSetting, 85u);
    EXPECT_EQ(copy->stage, 2u);
    EXPECT_EQ(copy->surface, nullptr);
    EXPECT_EQ(copy->stagingSurface, nullptr);
    EXPECT_EQ(copy->depthSurface, nullptr);

    source->surface = source->stagingSurface = nullptr;
    FreeTexture(source);
    EXPECT_EQ(copy->pixels[125], uint8_t(125 * 7 + 1));  // still its own after the source went
    FreeTexture(copy);
}

}  // namespace
