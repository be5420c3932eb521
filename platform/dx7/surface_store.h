// The memory behind a surface, shared by the surface objects and the GL side of the device.
// The processor's copy is the one the engine locks; the GL copy is made from it when a draw needs
// the surface, and a render target's pixels come back from GL when the processor next reads it.
#pragma once

#include <cstdint>
#include <vector>

#include "platform/dx7/ddraw7.h"

struct DxSurfaceStore {
    uint32_t id = 0;  // creation number, as the call record shows it ("#N")
    DWORD width = 0;
    DWORD height = 0;
    LONG pitch = 0;
    DDPIXELFORMAT format{};  // RGB (with or without alpha), FOURCC DXT blocks, or depth
    DWORD caps = 0;          // DDSCAPS2.dwCaps as created
    DWORD caps2 = 0;
    std::vector<uint8_t> bytes;
    uint64_t cpuVersion = 1;  // raised by every write from the processor side
    uint64_t glVersion = 0;   // the cpuVersion the GL copy was made from
    bool glNewer = false;     // GL drew into it after the processor's last look
    DxSurfaceStore* nextLevel = nullptr;  // the next smaller mip level
};
