// From summed samples to light levels and colours.
#pragma once

#include <cstdint>

struct ShadowSettingsRecord;

// The quadratic sun term of a texel whose averaged sample value is v (0..255): half the light
// gives a quarter of the level.
int32_t SunTerm(uint32_t v);

// Light level of a texel sum: Ambient plus the sun term, capped at 255, with no lower bound.
int32_t LightLevel(uint32_t sum, const ShadowSettingsRecord& settings);

// The texel's colour for the viewer: alpha 255 - level on top, then red, green, blue.
uint32_t ShadowTexel(int32_t level, const ShadowSettingsRecord& settings);

// Turns every texel's sum, in place, into its colour.
void QuantiseShadowMap(uint32_t* texels, uint32_t count, const ShadowSettingsRecord& settings);
