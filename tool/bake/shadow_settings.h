// The one record of run settings. A script overwrites only what it names, so values persist from
// the defaults or an earlier script of the same process.
#pragma once

#include <cstdint>

#include "engine/scene/maths.h"

struct ShadowSettingsRecord {
    Vector Light;           // from the ground towards the light; normalised at start and per pass
    uint32_t ShadowColour;  // 0x00RRGGBB, added to every texel
    uint32_t LightColour;   // 0x00RRGGBB, scaled by the light level
    int32_t Ambient;        // 0..255 scale, not range-checked
    int32_t Oversample;     // samples per texel along each axis: 1, 2, 4, 8 or 16
    int32_t TextureSize;    // side of the shadow map in texels; no script key sets it
    int32_t MapCellsX;      // map size in 32-unit cells, from the map file
    int32_t MapCellsY;
    char LitFile[260];   // light description, relative to the LIT folder
    int32_t FrameCount;  // 0: one bake; above 0: that many animation frames
    uint8_t WriteHeightData;
};

extern ShadowSettingsRecord ShadowSettings;

// The static initial values; tests use them to start from a known state.
ShadowSettingsRecord DefaultShadowSettings();
