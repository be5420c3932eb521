// TGA images, types 2 (true colour) and 10 (run-length true colour) at 15, 16, 24 and 32 bits,
// and the settings that fit a loaded image to what a device takes. The loader members of CTexture
// (LoadTGA, LoadFromMemory, SaveAsTGA, Resize, BuildMipLevels) are declared with the class.
//
// Marks in the name given to a load: "!" draws with alpha derived from brightness; "!" with two
// digits NN fixes the alpha at NN x 17 (255 from 16 on); "@" with a "!" adds.
#pragma once

#include <cstdint>

// Load settings; a limit of -1 means none. A forced format overwrites the others at the next
// load, for that and every later one.
extern uint32_t TextureForcedFormat;  // 0, or the format that every texture is brought to
extern bool TexturePowerOfTwo;
extern bool TextureSquare;
extern uint8_t TextureReduceShift;  // halve each side this many times
extern int32_t TextureMinWidth;
extern int32_t TextureMinHeight;
extern int32_t TextureMaxWidth;
extern int32_t TextureMaxHeight;
extern bool TextureKeepTrueColour;  // false: 24 and 32-bit images come down to 16 bits

void ResetTextureLoadSettings();  // all of the above back to their defaults

// The number behind the first "#" of a name; 0 without one.
int32_t MipLevelsFromName(const char* name);

// The largest image a load accepts: each side at most 16384, and at most 256 MiB at 4 bytes a
// pixel. Larger headers are taken as damage, not as pictures.
enum : int32_t { TgaMaxSide = 16384 };
