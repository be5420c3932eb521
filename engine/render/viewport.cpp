// CViewport's view, frustum, lists and poly buffers, and its making by the device. The frame's
// drawing is in viewport_render.cpp.
#include "engine/scene/viewport.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>

#include "base/diagnostics.h"
#include "base/memory.h"
#include "engine/render/poly_buffer.h"
#include "engine/render/renderer.h"
#include "engine/scene/camera.h"
#include "engine/scene/scene.h"

namespace {

constexpr double DegreesToRadians = 0.017453292;
constexpr DWORD SoftwareSurfaceCaps = DDSCAPS_OFFSCREENPLAIN | DDSCAPS_SYSTEMMEMORY;
constexpr int32_t BackgroundTriangles = 2;

// The software device draws into memory of the viewport's size: a surface and depth words.
void MakeSoftwareBuffers(CViewport* viewport) {
    CRenderer* renderer = viewport->device;
    if (viewport->width <= 0 || viewport->height <= 0) return;
    viewport->softwareSurface =
        renderer->CreateOffscreen(viewport->width, viewport->height, SoftwareSurfaceCaps);
    if (!viewport->softwareSurface)
        CorvaneWarning("Failed to create the software surface %dx%d\n", viewport->width,
                       viewport->height);
    const size_t words = size_t(viewport->width) * size_t(viewport->height);
    viewport->softwareDepth = static_cast<int32_t*>(MALLOC(words * sizeof(int32_t)));
}

void ReleaseSoftwareBuffers(CViewport* viewport) {
    if (viewport->softwareSurface) viewport->softwareSurface->Release();
    viewport->softwareSurface = nullptr;
    if (viewport->softwareDepth) FREE(viewport->softwareDepth);
    viewport->softwareDepth = nullptr;
}

// A black strip of rows [from, to) of the old rectangle, on one surface.
void FillStrip(LPDIRECTDRAWSURFACE7 surface, LONG left, LONG right, LONG from, LONG to) {
    if (!surface || from >= to || left >= right) return;
    RECT strip{left, from, right, to};
    DDBLTFX fill;
    std::memset(&fill, 0, sizeof fill);
    fill.dwSize = sizeof fill;
    fill.dwFillColor = 0;
    surface->Blt(&strip, nullptr, nullptr, DDBLT_COLORFILL | DDBLT_WAIT, &fill);
}

}  // namespace

CViewport::CViewport(CRenderer* renderer, int32_t newLeft, int32_t newTop, int32_t newWidth,
                     int32_t newHeight)
    : viewPlanes{},
      worldPlanes{},
      worldPlaneOffsets{},
      viewMatrix{},
      clearColour(1),
      clearDepth(1),
      clearStencil(1),
      clearStencilValue(0),
      top(newTop),
      left(newLeft),
      width(newWidth),
      height(newHeight),
      focal(0.0f),
      focalInverse(0.0f),
      near(0.0f),
      nearOverride(0.0f),
      nearInverse(0.0f),
      backgroundQuad(nullptr),
      softwareSurface(nullptr),
      softwareDepth(nullptr),
      device(renderer),
      clearRed(0),
      clearGreen(0),
      clearBlue(0),
      overlayColour(0),
      polyBuffers{},
      context{nullptr, renderer, this},
      currentLayer(0) {
    MatrixIdentity(viewMatrix);
}

CViewport::~CViewport() {
    for (int slot = 0; slot < ViewportPolyBufferCount; ++slot) DeletePolyBuffer(slot);
    if (backgroundQuad) DELETE(backgroundQuad);
}

void CViewport::BuildViewMatrix(const Vector& position, const Vector& direction, const Vector& up,
                                float roll) {
    Vector d = direction, x, y;
    VectorCross(x, up, d);
    VectorCross(y, d, x);
    VectorNormalize(x);
    VectorNormalize(y);
    VectorNormalize(d);
    MatrixIdentity(viewMatrix);
    const Vector* columns[3] = {&x, &y, &d};
    for (int c = 0; c < 3; ++c) {
        viewMatrix[c] = columns[c]->x;
        viewMatrix[4 + c] = columns[c]->y;
        viewMatrix[8 + c] = columns[c]->z;
        viewMatrix[12 + c] = -VectorDot(*columns[c], position);
    }
    if (roll != 0.0f) {
        const double a = double(roll) * DegreesToRadians;
        Matrix turn;
        MatrixIdentity(turn);
        turn[0] = float(std::cos(a));
        turn[1] = float(std::sin(a));
        turn[4] = float(-std::sin(a));
        turn[5] = float(std::cos(a));
        MatrixPostMultiply(viewMatrix, turn);
    }
}

void CViewport::SetupView(CCamera* camera, bool useChain) {
    if (!camera) return;
    focal = camera->focalLength;
    focalInverse = float(1.0 / double(focal));
    near = nearOverride != 0.0f ? nearOverride : camera->nearPlane;
    nearInverse = float(1.0 / double(near));

    const float halfWidth = float(double(width) / 2), halfHeight = float(double(height) / 2);
    viewPlanes[ViewportPlaneLeft] = Vector{-focal, 0.0f, -halfWidth};
    viewPlanes[ViewportPlaneRight] = Vector{focal, 0.0f, -halfWidth};
    viewPlanes[ViewportPlaneBottom] = Vector{0.0f, -focal, -halfHeight};
    viewPlanes[ViewportPlaneTop] = Vector{0.0f, focal, -halfHeight};
    viewPlanes[ViewportPlaneNear] = Vector{0.0f, 0.0f, -1.0f};
    for (Vector& plane : viewPlanes) VectorNormalize(plane);

    Vector position, direction, up;
    if (useChain) {
        camera->GetPositionIn(nullptr, position);
        camera->GetOrientationIn(nullptr, &direction, &up);
    } else {
        camera->GetPosition(position);
        camera->GetOrientation(&direction, &up);
    }
    BuildViewMatrix(position, direction, up, camera->roll);
    MatrixCopy(viewMatrix, camera->cameraView);

    // Back to the world by the transposed rotation: row j of the matrix against the normal.
    for (int p = 0; p < ViewportPlaneCount; ++p) {
        const Vector& n = viewPlanes[p];
        Vector& w = worldPlanes[p];
        const float* m = viewMatrix.m;
        w.x = float(double(n.x) * m[0] + double(n.y) * m[1] + double(n.z) * m[2]);
        w.y = float(double(n.x) * m[4] + double(n.y) * m[5] + double(n.z) * m[6]);
        w.z = float(double(n.x) * m[8] + double(n.y) * m[9] + double(n.z) * m[10]);
        VectorNormalize(w);
        const double along = VectorDot(w, position);
        worldPlaneOffsets[p] = float(p == ViewportPlaneNear ? double(near) - along : -along);
    }
}

bool CViewport::UseChain(const CCamera* camera, const CScene* scene) const {
    return camera->parent && scene->layerRoot[0];
}

void CViewport::GetViewMatrixOf(const CCamera* camera, Matrix& out) {
    if (!camera) return;
    const CEntity* topOfTree = camera;
    while (topOfTree->parent) topOfTree = topOfTree->parent;
    Vector position, direction, up;
    if (topOfTree == camera) {
        camera->GetPosition(position);
        camera->GetOrientation(&direction, &up);
    } else {
        camera->GetPositionIn(topOfTree, position);
        camera->GetOrientationIn(topOfTree, &direction, &up);
    }
    BuildViewMatrix(position, direction, up, camera->roll);
    MatrixCopy(viewMatrix, out);
}

void CViewport::Update(CCamera* camera, CScene* scene) {
    if (!camera || !scene) return;
    layerLists[ViewportBackgroundList].Clear();
    SetupView(camera, UseChain(camera, scene));
    StartFrame(camera);
    // Disabled layers are walked too: their world matrices stay current for picks and moves.
    for (int layer = 0; layer < SceneLayerCount; ++layer) {
        layerLists[layer].Clear();
        CEntity* root = scene->layerRoot[layer];
        if (!root) continue;
        currentLayer = uint32_t(layer);
        root->Collect(&layerLists[layer], 1);
    }
    EndFrame();
}

uint32_t CViewport::ProjectPoint(const Vector& world, Vector& out, CCamera* camera, CScene* scene) {
    if (!camera || !scene) return 0;
    SetupView(camera, UseChain(camera, scene));
    Vector v;
    MatrixApply(viewMatrix, world, v);
    uint32_t flags = 0;
    float depth = v.z;
    if (depth < near) {
        depth = near;
        flags = ProjectNear;
    }
    // A reciprocal seeded from the float's bits and refined once, as the engine's own.
    const float seed = std::bit_cast<float>(0x7F000000u - std::bit_cast<uint32_t>(depth));
    const float reciprocal = float((2.0 - double(seed) * depth) * seed);
    const float scale = float(double(focal) * reciprocal);
    out.x = float(double(scale) * v.x + double(width >> 1));
    out.y = float(double(height >> 1) - double(scale) * v.y);
    out.z = v.z;
    if (out.x > 0.0f) flags |= ProjectXPositive;
    if (out.x < 0.0f) flags |= ProjectXNegative;
    if (out.y > 0.0f) flags |= ProjectYPositive;
    if (out.y < 0.0f) flags |= ProjectYNegative;
    return flags;
}

void CViewport::SetRectangle(int32_t newTop, int32_t newLeft, int32_t newWidth, int32_t newHeight,
                             bool clearOutside) {
    if (clearOutside) {
        const LONG oldBottom = top + height, newBottom = newTop + newHeight;
        for (LPDIRECTDRAWSURFACE7 surface : {device->flipping, device->primary}) {
            FillStrip(surface, left, left + width, top, std::min<LONG>(newTop, oldBottom));
            FillStrip(surface, left, left + width, std::max<LONG>(newBottom, top), oldBottom);
        }
    }
    const bool resized = newWidth != width || newHeight != height;
    top = newTop;
    left = newLeft;
    width = newWidth;
    height = newHeight;
    // The software pair is sized to the rectangle: a new size needs a new pair.
    if (resized && !device->Has3D()) {
        ReleaseSoftwareBuffers(this);
        MakeSoftwareBuffers(this);
    }
}

void CViewport::GetScreenRect(RECT* out, const POINT* offset) const {
    if (!out) return;
    const LONG dx = offset ? offset->x : 0, dy = offset ? offset->y : 0;
    *out = RECT{left + dx, top + dy, left + width + dx, top + height + dy};
}

CPolyBuffer* CViewport::CreatePolyBuffer(int slot, int32_t triangles) {
    if (slot < 0 || slot >= ViewportPolyBufferCount) return nullptr;
    DeletePolyBuffer(slot);
    polyBuffers[slot] = NEW CPolyBuffer(device, triangles);
    return polyBuffers[slot];
}

void CViewport::DeletePolyBuffer(int slot) {
    if (slot < 0 || slot >= ViewportPolyBufferCount) return;
    if (polyBuffers[slot]) DELETE(polyBuffers[slot]);
    polyBuffers[slot] = nullptr;
}

CPolyBuffer* CViewport::GetPolyBuffer(int slot) const {
    return slot >= 0 && slot < ViewportPolyBufferCount ? polyBuffers[slot] : nullptr;
}

void CViewport::CreateBackgroundQuad() {
    if (backgroundQuad) DELETE(backgroundQuad);
    backgroundQuad = NEW CPolyBuffer(device, BackgroundTriangles);
    FillBackgroundQuad(backgroundQuad, width, height);
}

CViewport* CRenderer::CreateViewport(int32_t newLeft, int32_t newTop, int32_t newWidth,
                                     int32_t newHeight) {
    CViewport* viewport = NEW CViewport(this, newLeft, newTop, newWidth, newHeight);
    if (Has3D()) {
        if (device) {
            D3DVIEWPORT7 rectangle{DWORD(newLeft),   DWORD(newTop), DWORD(newWidth),
                                   DWORD(newHeight), 0.0f,          1.0f};
            device->SetViewport(&rectangle);
        }
    } else {
        MakeSoftwareBuffers(viewport);
    }
    return viewport;
}

void CRenderer::DestroyViewport(CViewport* viewport) {
    if (!viewport) return;
    if (!Has3D()) ReleaseSoftwareBuffers(viewport);
    DELETE(viewport);
}
