// The files a bake writes: the shadow map (one byte per texel, 255 - level, no header) and the
// height file (one little-endian float per map cell corner).
#pragma once

#include <cstdint>

class CTexture;

// The top-left width x height texels' alpha bytes, row by row from z = 0. False if not written.
bool WriteShadowMapFile(const CTexture* texture, int32_t width, int32_t height, const char* name);

// Casts a ray down at each cell corner (x = 32c, z = -32r) through the standing ray table and
// writes the heights; a corner with no ground holds -10000. The last character of name becomes
// 'h' in place. False if not written.
bool WriteHeightFile(int32_t cellsX, int32_t cellsY, char* name);
