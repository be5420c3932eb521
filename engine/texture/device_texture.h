// The device half of textures: a texture's surface is built from its pixels on first use, through
// a staging surface in system memory, refilled after a lock and released with the texture. The
// CRenderer members (LoadDeviceTexture, LockDeviceTexture, FreeDeviceTexture, ...) are declared
// in renderer.h; here are the free functions and the options.
#pragma once

#include <cstdint>

#include "platform/dx7/ddraw7.h"

class CRenderer;
class CTexture;

// Engine-wide options, fixed for a run.
extern uint8_t CompressDeviceTextures;  // DXT where the texture and device allow; default on
extern uint8_t FreePixelsAfterUpload;   // except for dynamic textures; default off

void UnlockDeviceTexture(CTexture* texture);
// Fills the texture's surface from its pixels again, if it has one.
void RefillDeviceTexture(CRenderer* renderer, CTexture* texture);

// The published name of a DirectDraw error that a surface creation can give; null for others.
const char* DirectDrawErrorName(HRESULT result);

// Puts in place the hooks by which CTexture reaches the devices: release, the direct lock of a
// surface and the refill after a lock of the pixels. LoadDeviceTexture does it for each surface
// it makes; an open device may do it at once.
void InstallDeviceTextureHooks();
