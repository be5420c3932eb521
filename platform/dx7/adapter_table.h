// What the display layer reports about the machine: drivers, their 3D devices and capabilities,
// display modes, depth and texture formats. By default the table describes what the GL context
// offers (one driver, one hardware device); tests stage their own to reach the engine's choices,
// and switch on faults to reach its recovery paths.
#pragma once

#include <string>
#include <vector>

#include "platform/dx7/d3d7.h"

struct DxDisplayMode {
    DWORD width;
    DWORD height;
    DWORD bitsPerPixel;
};

struct DxDeviceEntry {
    std::string description;
    std::string name;
    D3DDEVICEDESC7 desc;  // desc.deviceGUID names the device
};

struct DxAdapterEntry {
    bool isDefault = false;  // enumerated with a null GUID, as the primary display driver
    GUID guid{};
    std::string description;
    std::string name;
    DWORD caps = DDCAPS_3D;  // DDCAPS.dwCaps
    DWORD videoMemory = 64u << 20;
    DDPIXELFORMAT displayFormat{};  // of the primary surface and the full screen modes
    std::vector<DxDisplayMode> modes;
    std::vector<DxDeviceEntry> devices;
    std::vector<DDPIXELFORMAT> depthFormats;    // EnumZBufferFormats, in this order
    std::vector<DDPIXELFORMAT> textureFormats;  // EnumTextureFormats, in this order
};

struct DxAdapterTable {
    std::vector<DxAdapterEntry> adapters;
};

// Failures on demand. Each counter is the number of coming calls that fail; 0 lets all pass.
struct DxFaults {
    int presents = 0;          // Flip, and Blt to a primary surface: DDERR_SURFACELOST
    int cooperativeTests = 0;  // TestCooperativeLevel: DDERR_NOEXCLUSIVEMODE
    int cooperativeLevels = 0;  // SetCooperativeLevel: DDERR_NOEXCLUSIVEMODE
    int displayModes = 0;      // SetDisplayMode: DDERR_UNSUPPORTEDMODE
    int createDevices = 0;     // IDirect3D7::CreateDevice: DDERR_INVALIDCAPS
    int createSurfaces = 0;    // IDirectDraw7::CreateSurface: DDERR_OUTOFVIDEOMEMORY
    int locks = 0;             // surface and vertex buffer Lock: DDERR_SURFACELOST
    bool surfacesLost = false;  // IsLost reports every surface lost until Restore
};

// The table in force: the staged one, or the one that describes the GL context.
const DxAdapterTable& DxAdapters();
// Replaces the table until the next call; null goes back to the GL context's description.
void DxStageAdapters(const DxAdapterTable* table);
// The GL context's description (one default driver; windowed modes of the desktop).
DxAdapterTable DxDescribeGlContext();

// The fault switches in force; tests set and reset them.
DxFaults& DxFaultSwitches();

// Pixel formats by their masks, for tables and tests.
DDPIXELFORMAT DxRgbFormat(DWORD bits, DWORD red, DWORD green, DWORD blue, DWORD alpha);
DDPIXELFORMAT DxDepthFormat(DWORD bits, DWORD stencilBits);
DDPIXELFORMAT DxFourCcFormat(DWORD fourCc);
