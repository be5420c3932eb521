#include "tool/bake/shadow_quantise.h"

#include <cstddef>
#include <vector>

#include "tool/bake/shadow_settings.h"

static constexpr float OneOver255 = 0.003921569f;

int32_t SunTerm(uint32_t v) {
    double f = v * double(OneOver255);
    return -int32_t(f * f * -255.0);
}

int32_t LightLevel(uint32_t sum, const ShadowSettingsRecord& settings) {
    uint32_t oversample = uint32_t(settings.Oversample);
    uint32_t v = sum / oversample / oversample;
    int64_t level = int64_t(settings.Ambient) + SunTerm(v);
    return level > 255 ? 255 : int32_t(level);
}

// Light scaled by the level (shifted by 8, so white at 255 gives 254), plus the shadow colour,
// capped at 255. Red is all of the packed value above bit 16: script colours are not masked.
static uint32_t Channel(uint32_t light, uint32_t shadow, int32_t level) {
    int64_t value = ((int64_t(light) * level) >> 8) + int64_t(shadow);
    if (value > 255) value = 255;
    return uint32_t(value) & 0xFF;
}

uint32_t ShadowTexel(int32_t level, const ShadowSettingsRecord& settings) {
    uint32_t light = settings.LightColour, shadow = settings.ShadowColour;
    uint32_t red = Channel(light >> 16, shadow >> 16, level);
    uint32_t green = Channel((light >> 8) & 0xFF, (shadow >> 8) & 0xFF, level);
    uint32_t blue = Channel(light & 0xFF, shadow & 0xFF, level);
    uint32_t alpha = uint32_t(-(int64_t(level) + 1)) & 0xFF;
    return alpha << 24 | red << 16 | green << 8 | blue;
}

void QuantiseShadowMap(uint32_t* texels, uint32_t count, const ShadowSettingsRecord& settings) {
    // A texel sums at most 255 for each of its samples: every colour comes from a short table.
    uint64_t oversample = uint64_t(settings.Oversample > 0 ? settings.Oversample : 1);
    std::vector<uint32_t> colours(size_t(255 * oversample * oversample + 1));
    for (size_t sum = 0; sum < colours.size(); ++sum)
        colours[sum] = ShadowTexel(LightLevel(uint32_t(sum), settings), settings);
    for (uint32_t i = 0; i < count; ++i)
        texels[i] = texels[i] < colours.size()
                        ? colours[texels[i]]
                        : ShadowTexel(LightLevel(texels[i], settings), settings);
}
