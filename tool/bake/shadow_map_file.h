// The files a bake writes: the shadow map (one byte per texel, 255 - level, no header) and the
// height file (one little-endian float per map cell corner).
#pragma once

#include <cstdint>
#include <string>
#include <vector>

class CTexture;

// The top-left width x height texels' alpha bytes, row by row from z = 0. False if not written.
bool WriteShadowMapFile(const CTexture* texture, int32_t width, int32_t height, const char* path);

// The heights as little-endian floats. False if not written.
bool WriteHeightFile(const std::vector<float>& heights, const char* path);

// The height file's name: the shadow map's with its last character made 'h' ("texture.dat"
// gives "texture.dah"); empty for an empty name.
std::string HeightFilePath(const std::string& shadowMapPath);
