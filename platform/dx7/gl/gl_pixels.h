// Pixel conversion between a surface's memory and the RGBA8 copies the GL side keeps. Rows are
// top first on both sides, so a copy made from memory and a render target read back line up.
#pragma once

#include <cstdint>
#include <vector>

#include "platform/dx7/surface_store.h"

// The store's pixels as width * height RGBA8 values, bytes R, G, B, A; alpha 255 for a format
// without alpha. An RGB format takes any masks; a FOURCC store holds 32-bit ARGB pixels, rows
// packed. False, with rgba untouched, for a format without pixels (depth, palette) or memory too
// short for its size.
bool DxStoreToRgba(const DxSurfaceStore& store, std::vector<uint8_t>& rgba);

// Writes width * height RGBA8 values into the store's memory in its RGB format; bits outside the
// masks become 0. False, with the memory untouched, where DxStoreToRgba would be.
bool DxRgbaToStore(const uint8_t* rgba, DxSurfaceStore& store);

// 32-bit ARGB with 8 bits of alpha, as the GL side can upload straight from memory.
bool DxIsArgb8888(const DDPIXELFORMAT& format);

// The same colour masks without alpha: the top byte unused.
bool DxIsXrgb8888(const DDPIXELFORMAT& format);
