// The files a bake writes: the shadow map (one byte per texel, 255 - level, no header) and the
// height file (one little-endian float per map cell corner).
#pragma once

#include <cstdint>
#include <string>
#include <vector>

class CTexture;
struct ShadowSettingsRecord;

// The top-left width x height texels' alpha bytes, row by row from z = 0. False if not written.
bool WriteShadowMapFile(const CTexture* texture, int32_t width, int32_t height, const char* path);

// A single bake's shadow map file back as the bake left its texture: square, the side from the
// file's length (1 to 8192), each texel coloured from its level as settings colour a bake. Null,
// with the reason in error, for a file that can't be read or isn't such a square.
CTexture* ReadShadowMapFile(const char* path, const ShadowSettingsRecord& settings,
                            std::string& error);

// The heights as little-endian floats. False if not written.
bool WriteHeightFile(const std::vector<float>& heights, const char* path);

// The height file's name: the shadow map's with its last character made 'h' ("texture.dat"
// gives "texture.dah"); empty for an empty name.
std::string HeightFilePath(const std::string& shadowMapPath);
