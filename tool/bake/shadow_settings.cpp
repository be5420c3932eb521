#include "tool/bake/shadow_settings.h"

ShadowSettingsRecord DefaultShadowSettings() {
    ShadowSettingsRecord settings{};
    settings.Light = {1.0f, 1.0f, 1.0f};
    settings.ShadowColour = 0;
    settings.LightColour = 0x00FFFFFF;
    settings.Ambient = 128;
    settings.Oversample = 1;
    settings.TextureSize = 2048;
    settings.MapCellsX = 256;
    settings.MapCellsY = 256;
    settings.FrameCount = 0;
    settings.WriteHeightData = 0;
    return settings;
}

ShadowSettingsRecord ShadowSettings = DefaultShadowSettings();
