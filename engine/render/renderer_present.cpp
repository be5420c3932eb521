#include <cstring>

#include "base/diagnostics.h"
#include "engine/render/renderer.h"
#include "engine/render/renderer_config.h"
#include "engine/render/vertex_pool.h"
#include "platform/debug/debug_output.h"

namespace {

constexpr DWORD WindowCaptionStyle = 0xC00000;

// Window sizes in this window system are client sizes and the window manager places the frame,
// so the client area starts at the window's own origin.
RECT ClientArea(const CRenderer* renderer) {
    return RECT{0, 0, renderer->width, renderer->height};
}

}  // namespace

void CRenderer::Flip() {
    if (!primary || !flipping) return;
    if (IsWindowed()) {
        RECT client = ClientArea(this);
        if (FAILED(primary->Blt(&client, flipping, nullptr, DDBLT_WAIT, nullptr))) deviceLost = 1;
        return;
    }
    HRESULT result = primary->Flip(nullptr, DDFLIP_WAIT);
    ++frameCount;
    if (SUCCEEDED(result)) return;
    CorvaneDebug("FAILED FIRST FLIP");
    if (FAILED(primary->Flip(nullptr, DDFLIP_WAIT))) deviceLost = 1;
}

void CRenderer::UpdateViewport() {
    if (!IsWindowed()) {
        if (!Has3D()) return;
        OutputDebugStringA("\nWarning :: Invalid attempt to update single viewport.\n");
        OutputDebugStringA("             Current device does not support independent viewports.\n");
        OutputDebugStringA("             Use device a flip instead of viewport updates.\n");
        return;
    }
    if (!primary || !flipping) return;
    RECT client = ClientArea(this);
    if (FAILED(primary->Blt(&client, flipping, nullptr, DDBLT_WAIT, nullptr))) {
        deviceLost = 1;
        ResetDevice();
    }
}

bool CRenderer::CheckDevice() {
    if (deviceLost) {
        if (FAILED(directDraw->TestCooperativeLevel())) {
            CorvaneDebug("FAILED TEST COOP");
            return false;
        }
        ResetDevice();
    }
    deviceLost = 0;
    return true;
}

// The device's own state cannot be trusted after a loss: everything is sent again.
void CRenderer::ResetDevice() {
    CorvaneDebug("RESET DEVICE IN PROGRESS.....");
    directDraw->RestoreAllSurfaces();
    CorvaneDebug("RESET DEVICE :: RestoreAllSurfaces");
    for (VertexBufferPool* pool = pools; pool; pool = pool->next) ReplaceVertexBuffer(pool);
    CorvaneDebug("RESET DEVICE :: VBs");
    ResetStateCache();
    {
        CRendererConfig defaults(this);
        defaults.SetDefaults();
    }
    CorvaneDebug("RESET DEVICE DONE....");
}

void CRenderer::RestoreLostSurfaces() {
    for (VertexBufferPool* pool = pools; pool; pool = pool->next)
        if (pool->lockCount != 0) OutputDebugStringA("VB Locked!\n");
    struct Watched {
        LPDIRECTDRAWSURFACE7 surface;
        const char* line;
    };
    const Watched watched[] = {
        {primary, "Device primary is lost :: Restoring\n"},
        {flipping, "Device flipping (target) is lost :: Restoring\n"},
        {depthBuffer, "Device zbuffer is lost :: Restoring\n"},
    };
    for (const Watched& entry : watched) {
        if (!entry.surface || SUCCEEDED(entry.surface->IsLost())) continue;
        CorvaneDebug("%s", entry.line);
        entry.surface->Restore();
    }
}

// The one Z buffer follows the render target.
void CRenderer::SetTarget(LPDIRECTDRAWSURFACE7 surface) {
    if (!device || !surface) return;
    if (FAILED(surface->IsLost())) surface->Restore();
    DDSCAPS2 depthCaps = {DDSCAPS_ZBUFFER, 0, 0, 0};
    LPDIRECTDRAWSURFACE7 depth = nullptr;
    if (SUCCEEDED(surface->GetAttachedSurface(&depthCaps, &depth)) && depth) {
        if (FAILED(depth->IsLost())) depth->Restore();
        depth->Release();
    } else {
        LPDIRECTDRAWSURFACE7 current = nullptr;
        if (FAILED(device->GetRenderTarget(&current))) current = nullptr;
        if (!current) {
            if (depthBuffer) surface->AddAttachedSurface(depthBuffer);
        } else {
            depth = nullptr;
            if (SUCCEEDED(current->GetAttachedSurface(&depthCaps, &depth)) && depth) {
                current->DeleteAttachedSurface(0, depth);
                surface->AddAttachedSurface(depth);
                depth->Release();
            }
            current->Release();
        }
    }
    device->SetRenderTarget(surface, 0);
}

HRESULT CRenderer::LockSurfaceRetry(LPDIRECTDRAWSURFACE7 surface, RECT* rect, DDSURFACEDESC2* desc,
                                    DWORD flags) {
    HRESULT result = surface->Lock(rect, desc, flags, nullptr);
    if (SUCCEEDED(result)) return result;
    directDraw->RestoreAllSurfaces();
    return surface->Lock(rect, desc, flags, nullptr);
}

HRESULT CRenderer::LockBufferRetry(LPDIRECT3DVERTEXBUFFER7 buffer, DWORD flags, void** data) {
    HRESULT result = buffer->Lock(flags, data, nullptr);
    if (SUCCEEDED(result)) return result;
    directDraw->RestoreAllSurfaces();
    return buffer->Lock(flags, data, nullptr);
}

void CRenderer::ResetDisplay() {
    SetCooperative();
    if (IsWindowed()) return;
    if (FAILED(directDraw->SetDisplayMode(DWORD(width), DWORD(height), DWORD(bitsPerPixel), 0, 0)))
        CorvaneDebug("Failed to reset display mode\n");
}

void CRenderer::ReleaseToDesktop() {
    directDraw->SetCooperativeLevel(nullptr, DDSCL_NORMAL);
}

// The window system has no calls to restyle or move a window, and its frames are drawn by the
// window manager outside the client size: the rectangle is worked out here, centred on the
// desktop, for the window system to apply.
bool CRenderer::FitWindow() {
    if (!IsWindowed() || !directDraw) return false;
    DDSURFACEDESC2 screen;
    std::memset(&screen, 0, sizeof screen);
    screen.dwSize = sizeof screen;
    if (FAILED(directDraw->GetDisplayMode(&screen))) return false;
    if (width <= 0 || height <= 0 || DWORD(width) > screen.dwWidth ||
        DWORD(height) > screen.dwHeight)
        return false;
    windowStyle = WindowCaptionStyle;
    LONG left = LONG(screen.dwWidth - DWORD(width)) / 2;
    LONG top = LONG(screen.dwHeight - DWORD(height)) / 2;
    windowRect = RECT{left, top, left + width, top + height};
    return true;
}
