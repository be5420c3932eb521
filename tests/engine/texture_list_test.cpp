#include <gtest/gtest.h>

#include "engine/texture/texture.h"

TEST(TextureList, CreateAndFreeKeepTheListInStep) {
    int before = CountTextures();
    CTexture* a = CreateTexture(4, 2, TextureFormat8888);
    CTexture* b = CreateTexture(3, 3, TextureFormat5650);
    EXPECT_EQ(CountTextures(), before + 2);
    EXPECT_EQ(a->GetPitch(), 16);
    EXPECT_EQ(b->GetPitch(), 6);

    CTexture stranger;
    FreeTexture(&stranger);  // not in the list: nothing happens
    EXPECT_EQ(CountTextures(), before + 2);

    FreeTexture(a);
    EXPECT_EQ(CountTextures(), before + 1);
    FreeTexture(a);  // already gone
    EXPECT_EQ(CountTextures(), before + 1);
    FreeTexture(b);
    EXPECT_EQ(CountTextures(), before);
}

TEST(TextureList, BytesPerPixelOfEveryFormat) {
    EXPECT_EQ(GetTextureBPP(TextureFormat4444), 2);
    EXPECT_EQ(GetTextureBPP(TextureFormat5550), 2);
    EXPECT_EQ(GetTextureBPP(TextureFormat5551), 2);
    EXPECT_EQ(GetTextureBPP(TextureFormat5650), 2);
    EXPECT_EQ(GetTextureBPP(TextureFormat8880), 3);
    EXPECT_EQ(GetTextureBPP(TextureFormat8888), 4);
}
