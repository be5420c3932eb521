// CViewport's frame on the device: viewport, clears, projection and view, lights, then the
// layers in turn, each over the last with its queues flushed before the next begins.
#include <algorithm>
#include <cmath>
#include <cstring>

#include "base/diagnostics.h"
#include "engine/render/mesh_renderer.h"
#include "engine/render/multimesh_renderer.h"
#include "engine/render/poly_buffer.h"
#include "engine/render/renderer.h"
#include "engine/render/transparency.h"
#include "engine/scene/camera.h"
#include "engine/scene/entity.h"
#include "engine/scene/scene.h"
#include "engine/scene/viewport.h"
#include "engine/texture/texture.h"

namespace {

constexpr double DegreesToRadians = 0.017453292;
constexpr uint32_t AlphaReference = 0x80;
constexpr uint32_t FogVertexLinear = D3DFOG_LINEAR;

uint32_t FloatBits(float value) {
    uint32_t bits;
    std::memcpy(&bits, &value, sizeof bits);
    return bits;
}

void ToDevice(const Matrix& from, D3DMATRIX& to) {
    std::memcpy(&to, from.m, sizeof to);
}

// The far and near terms of the projection: row 2 and 3 of its third column.
void SetDepthRange(D3DMATRIX& projection, double nearPlane, double farPlane) {
    const double q = farPlane / (farPlane - nearPlane);
    projection.m[2][2] = float(q);
    projection.m[3][2] = float(-q * nearPlane);
}

void RenderEntries(const RenderList& list, CRenderContext* context) {
    for (uint32_t i = 0; i < list.count && i < list.capacity; ++i) list.items[i]->Render(context);
}

void SetFog(CRenderer* renderer) {
    renderer->SetRenderState(D3DRENDERSTATE_FOGENABLE, 1);
    if (renderer->fogMode == 0) {
        renderer->SetRenderState(D3DRENDERSTATE_FOGSTART, FloatBits(renderer->fogStart));
        renderer->SetRenderState(D3DRENDERSTATE_FOGEND, FloatBits(renderer->fogEnd));
        renderer->SetRenderState(D3DRENDERSTATE_FOGCOLOR, renderer->fogColour);
        renderer->SetRenderState(D3DRENDERSTATE_FOGTABLEMODE, D3DFOG_NONE);
        renderer->SetRenderState(D3DRENDERSTATE_FOGVERTEXMODE, FogVertexLinear);
        renderer->SetRenderState(D3DRENDERSTATE_RANGEFOGENABLE, 1);
    } else {
        renderer->SetRenderState(D3DRENDERSTATE_FOGCOLOR, renderer->fogColour);
        renderer->SetRenderState(D3DRENDERSTATE_FOGTABLEMODE, D3DFOG_NONE);
        renderer->SetRenderState(D3DRENDERSTATE_FOGDENSITY, FloatBits(renderer->fogDensity));
    }
}

}  // namespace

// The queues copy the view; the planes are read through pointers for the whole frame.
void CViewport::StartFrame(CCamera* camera) {
    context = CRenderContext{camera, device, this};
    const MeshFrameView view{viewMatrix, width,       height,           near,
                             focal,      worldPlanes, worldPlaneOffsets};
    MeshRenderer().StartFrame(this, device, view);
    MultiMeshQueue().StartFrame(this, device, view);
}

void CViewport::EndFrame() {
    MeshRenderer().EndFrame();
    MultiMeshQueue().EndFrame();
}

// Device light numbers are dense: the lights that are on take 0, 1, ... in slot order, and the
// numbers behind them that an earlier frame may have used are switched off.
void CViewport::SendLights(CScene* scene) {
    LPDIRECT3DDEVICE7 d3d = device->device;
    DWORD next = 0;
    for (int slot = 0; slot < SceneLightCount; ++slot) {
        if (scene->lightState[slot] != SceneLightOn) continue;
        if (scene->lightsChanged || scene->lightTouched[slot]) {
            d3d->SetLight(next, &scene->lights[slot]);
            d3d->LightEnable(next, 1);
        }
        ++next;
    }
    const int32_t last = std::min<int32_t>(highestLightUsed, SceneLightCount - 1);
    for (int32_t number = int32_t(next); number <= last; ++number)
        d3d->LightEnable(DWORD(number), 0);
}

void CViewport::DrawLayers(CCamera* camera, CScene* scene, D3DMATRIX& projection) {
    LPDIRECT3DDEVICE7 d3d = device->device;
    float currentNear = camera->nearPlane;
    for (int layer = 0; layer < SceneLayerCount; ++layer) {
        if (!scene->layerRoot[layer] || !scene->layerEnabled[layer]) continue;
        const float layerNear = scene->layerNear[layer];
        if (layerNear != 0.0f && layerNear != currentNear) {
            currentNear = layerNear;
            SetDepthRange(projection, currentNear, camera->farPlane);
            d3d->SetTransform(D3DTRANSFORMSTATE_PROJECTION, &projection);
        }
        BeginTransparency(device, camera);
        RenderEntries(layerLists[layer], &context);
        // Decal chains join here once the decal renderer exists.
        MultiMeshQueue().FlushMultiMeshQueue();
        MeshRenderer().FlushOpaqueQueue();
        FlushTransparency(device);
        for (CPolyBuffer* buffer : polyBuffers)
            if (buffer && buffer->layer == layer) device->RenderPolyBuffer(buffer);
    }
}

void CViewport::Render(CCamera* camera, CScene* scene) {
    if (!camera || !scene || !device->CheckDevice()) return;
    SetupView(camera, UseChain(camera, scene));
    StartFrame(camera);
    LPDIRECT3DDEVICE7 d3d = device->device;
    if (!device->Has3D() || !d3d) {
        // The software device's frame belongs to the software renderer.
        EndFrame();
        return;
    }

    D3DVIEWPORT7 rectangle{DWORD(left), DWORD(top), DWORD(width), DWORD(height), 0.0f, 1.0f};
    d3d->SetViewport(&rectangle);

    DWORD clearFlags = 0;
    if (clearColour) clearFlags |= D3DCLEAR_TARGET;
    if (clearDepth) clearFlags |= D3DCLEAR_ZBUFFER;
    const bool stencil = device->depthBuffer && (device->depthFormat.dwFlags & DDPF_STENCILBUFFER);
    if (clearStencil && stencil) clearFlags |= D3DCLEAR_STENCIL;
    if (scene->background == 0 && clearFlags) {
        D3DRECT area{left, top, left + width, top + height};
        const D3DCOLOR colour = D3DCOLOR(clearRed) << 16 | D3DCOLOR(clearGreen) << 8 | clearBlue;
        if (FAILED(d3d->Clear(1, &area, clearFlags, colour, 1.0f, clearStencilValue)))
            CorvaneDebug("Clear Failed on Device");
    }

    // The horizontal angle reaches the viewport's edge; the vertical one is scaled from it by
    // the sides' ratio, not through the tangent.
    double horizontal, vertical;
    if (camera->halfAngle == 0.0f) {
        const double half = double(width / 2), f = camera->focalLength;
        horizontal = std::asin(half / std::sqrt(f * f + half * half));
        vertical = horizontal * double(height) / double(width);
    } else {
        horizontal = vertical = double(camera->halfAngle) * DegreesToRadians;
    }
    D3DMATRIX projection{};
    projection.m[0][0] = float(std::cos(horizontal) / std::sin(horizontal));
    projection.m[1][1] = float(std::cos(vertical) / std::sin(vertical));
    projection.m[2][3] = 1.0f;
    SetDepthRange(projection, camera->nearPlane, camera->farPlane);
    d3d->SetTransform(D3DTRANSFORMSTATE_PROJECTION, &projection);

    viewMatrix[3] = viewMatrix[7] = viewMatrix[11] = 0.0f;
    viewMatrix[15] = 1.0f;
    D3DMATRIX view;
    ToDevice(viewMatrix, view);
    d3d->SetTransform(D3DTRANSFORMSTATE_VIEW, &view);
    device->SetRenderState(D3DRENDERSTATE_ZENABLE, 1);
    device->SetRenderState(D3DRENDERSTATE_ZWRITEENABLE, 1);
    device->SetRenderState(D3DRENDERSTATE_AMBIENT, scene->ambient);
    device->RestoreLostSurfaces();
    SendLights(scene);

    if (FAILED(d3d->BeginScene())) {
        CorvaneDebug("Failed to begin scene!\n");
        EndFrame();
        return;
    }
    bool fogDone = false;
    if (scene->background != 0) {
        fogDone = scene->backgroundFog == 1 && device->fogEnable;
        if (fogDone)
            SetFog(device);
        else
            device->SetRenderState(D3DRENDERSTATE_FOGENABLE, 0);
        device->SetRenderState(D3DRENDERSTATE_ZFUNC, D3DCMP_ALWAYS);
        BeginTransparency(device, camera);
        RenderEntries(layerLists[ViewportBackgroundList], &context);
        FlushTransparency(device);
    }
    if (!fogDone && device->fogEnable) SetFog(device);
    if (device->separateMemories) {
        device->SetRenderState(D3DRENDERSTATE_ALPHAFUNC, D3DCMP_NOTEQUAL);
        device->SetRenderState(D3DRENDERSTATE_ALPHAREF, 0);
    } else {
        device->SetRenderState(D3DRENDERSTATE_ALPHAREF, AlphaReference);
        device->SetRenderState(D3DRENDERSTATE_ALPHAFUNC, D3DCMP_GREATER);
    }
    if (backgroundQuad) {
        device->SetRenderState(D3DRENDERSTATE_ZFUNC, D3DCMP_ALWAYS);
        device->RenderPolyBuffer(backgroundQuad);
    }
    device->SetRenderState(D3DRENDERSTATE_ZFUNC, D3DCMP_LESSEQUAL);

    DrawLayers(camera, scene, projection);

    for (CPolyBuffer* buffer : polyBuffers)
        if (buffer && buffer->layer == -1) device->RenderPolyBuffer(buffer);
    if (overlayColour >> 24)
        TintViewport(device, overlayColour, float(left), float(top), float(left + width),
                     float(top + height));
    d3d->EndScene();
    EndFrame();
}

void CViewport::RenderToSurface(CCamera* camera, CScene* scene, CTexture* target) {
    if (!target || !target->surface) return;
    device->SetTarget(static_cast<LPDIRECTDRAWSURFACE7>(target->surface));
    Render(camera, scene);
    device->SetTarget(device->flipping);
}
