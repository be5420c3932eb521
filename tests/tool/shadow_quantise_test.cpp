#include "tool/bake/shadow_quantise.h"

#include <gtest/gtest.h>

#include "tool/bake/shadow_settings.h"

TEST(ShadowQuantise, SunTermIsQuadraticAndLevelsDivideAsIntegers) {
    const uint32_t v[] = {0, 8, 16, 64, 128, 200, 254, 255};
    const int32_t expected[] = {0, 0, 1, 16, 64, 156, 253, 255};
    for (int i = 0; i < 8; ++i) EXPECT_EQ(SunTerm(v[i]), expected[i]) << "v = " << v[i];

    ShadowSettingsRecord settings = DefaultShadowSettings();
    EXPECT_EQ(LightLevel(0, settings), 128);    // full shadow: the ambient alone
    EXPECT_EQ(LightLevel(255, settings), 255);  // 128 + 255 capped
    settings.Oversample = 2;
    settings.Ambient = 0;
    EXPECT_EQ(LightLevel(255, settings), SunTerm(63));  // 255 / 2 = 127, / 2 = 63
    settings.Oversample = 1;
    settings.Ambient = -300;  // no lower bound
    EXPECT_EQ(LightLevel(0, settings), -300);
}

TEST(ShadowQuantise, TexelColourAndAlpha) {
    ShadowSettingsRecord settings = DefaultShadowSettings();
    settings.LightColour = 0xFFFFFF;
    settings.ShadowColour = 0;
    EXPECT_EQ(ShadowTexel(255, settings), 0x00FEFEFEu);  // white at 255 gives 254, alpha 0
    EXPECT_EQ(ShadowTexel(128, settings), 0x7F7F7F7Fu);  // 255 * 128 >> 8 = 127; alpha 127
    settings.ShadowColour = 0x0A141E;                    // 10 20 30: 264, 274, 284 are all capped
    EXPECT_EQ(ShadowTexel(255, settings), 0x00FFFFFFu);
    settings.LightColour = 0;
    settings.ShadowColour = 0x102030;
    EXPECT_EQ(ShadowTexel(0, settings), 0xFF102030u);
    // Red is everything above bit 16, unmasked: 300 << 16 is still over 255 after the shift.
    settings.LightColour = 300u << 16;
    settings.ShadowColour = 0;
    EXPECT_EQ((ShadowTexel(255, settings) >> 16) & 0xFF, 255u);

    // Alpha is the low byte of -(level + 1).
    EXPECT_EQ(ShadowTexel(63, settings) >> 24, 192u);
    EXPECT_EQ(ShadowTexel(-1, settings) >> 24, 0u);
    EXPECT_EQ(ShadowTexel(-2, settings) >> 24, 1u);

    settings.LightColour = 0;
    uint32_t texels[3] = {0, 255, 64};
    QuantiseShadowMap(texels, 3, settings);
    EXPECT_EQ(texels[0] >> 24, 127u);
    EXPECT_EQ(texels[1] >> 24, 0u);
    EXPECT_EQ(texels[2] >> 24, uint32_t(255 - (128 + 16)));
}
