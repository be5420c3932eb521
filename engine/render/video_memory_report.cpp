// CRenderer::ReportVideoMemory: free and total video memory, with the display's own surfaces
// counted into the video total, since the driver leaves them out.
#include <cstring>
#include <initializer_list>

#include "base/diagnostics.h"
#include "engine/render/renderer.h"

namespace {

void Available(LPDIRECTDRAW7 directDraw, DWORD caps, DWORD* total, DWORD* free) {
    DDSCAPS2 query;
    std::memset(&query, 0, sizeof query);
    query.dwCaps = caps;
    *total = 0;
    *free = 0;
    directDraw->GetAvailableVidMem(&query, total, free);
}

}  // namespace

void CRenderer::ReportVideoMemory(uint32_t* video, uint32_t* localTexture, uint32_t* texture) {
    if (!directDraw) {
        for (uint32_t* out : {video, localTexture, texture})
            if (out) *out = 0;
        return;
    }
    DWORD total = 0, free = 0;
    if (texture) {
        Available(directDraw, DDSCAPS_TEXTURE | DDSCAPS_VIDEOMEMORY, &total, &free);
        CorvaneDebug("TOTAL TEXTURE MEMORY:  %d TOTAL %d FREE", int(total), int(free));
        *texture = total;
    }
    if (localTexture) {
        Available(directDraw, DDSCAPS_TEXTURE | DDSCAPS_VIDEOMEMORY | DDSCAPS_LOCALVIDMEM, &total,
                  &free);
        CorvaneDebug("TOTAL TEXTURE MEMORY:  %d TOTAL %d FREE", int(total), int(free));
        *localTexture = total;
    }
    if (video) {
        Available(directDraw, DDSCAPS_VIDEOMEMORY | DDSCAPS_LOCALVIDMEM, &total, &free);
        for (LPDIRECTDRAWSURFACE7 surface : {primary, flipping, depthBuffer}) {
            if (!surface) continue;
            DDSURFACEDESC2 desc;
            std::memset(&desc, 0, sizeof desc);
            desc.dwSize = sizeof desc;
            if (FAILED(surface->GetSurfaceDesc(&desc))) continue;
            int bytes = 2;
            if (desc.ddpfPixelFormat.dwRGBBitCount == 32)
                bytes = 4;
            else if (desc.ddpfPixelFormat.dwRGBBitCount != 16)
                CorvaneWarning("Unknown bit depth on device");
            CorvaneDebug("W=%d H=%d BPP=%d", int(desc.dwWidth), int(desc.dwHeight), bytes);
            total += desc.dwWidth * desc.dwHeight * DWORD(bytes);
        }
        CorvaneDebug("VIDEO MEMORY:  %d TOTAL %d FREE", int(total), int(free));
        *video = total;
    }
}
