// CViewport: how a scene is seen. A rectangle of the screen, the view and frustum of the current
// camera, a render list per layer, the clear settings and up to 32 poly buffers. A frame is
// Update (walk the layers, fill the lists) then Render (draw them). Made and destroyed by the
// device (CRenderer::CreateViewport, DestroyViewport); its code lives with the renderer.
#pragma once

#include <cstdint>

#include "engine/scene/maths.h"
#include "engine/scene/render_list.h"
#include "platform/dx7/d3d7.h"

class CCamera;
class CPolyBuffer;
class CRenderer;
class CScene;
class CTexture;
class CViewport;

// What a drawable's Render receives: the frame's camera, device and viewport.
class CRenderContext {
public:
    CCamera* camera;
    CRenderer* device;
    CViewport* viewport;
};

enum ViewportPlane : int {
    ViewportPlaneLeft = 0,
    ViewportPlaneRight = 1,
    ViewportPlaneBottom = 2,
    ViewportPlaneTop = 3,
    ViewportPlaneNear = 4,
    ViewportPlaneCount = 5,
};

enum {
    ViewportPolyBufferCount = 32,
    ViewportListCount = 9,  // one per layer, then the background's
    ViewportBackgroundList = 8,
};

// Bits of ProjectPoint's result.
enum ProjectFlags : uint32_t {
    ProjectXPositive = 1,  // screen x above 0
    ProjectXNegative = 2,
    ProjectYPositive = 4,
    ProjectYNegative = 8,
    ProjectNear = 16,  // nearer than the near plane: depth clamped for the projection
};

class CViewport {
public:
    CViewport(CRenderer* renderer, int32_t left, int32_t top, int32_t width, int32_t height);
    ~CViewport();  // the poly buffers, the background quad and the lists; not the software pair
    CViewport(const CViewport&) = delete;
    CViewport& operator=(const CViewport&) = delete;

    // View, frustum and the camera's cameraView. useChain: the camera's placement in the world,
    // otherwise its local one.
    void SetupView(CCamera* camera, bool useChain);
    void Update(CCamera* camera, CScene* scene);
    void Render(CCamera* camera, CScene* scene);
    void RenderToSurface(CCamera* camera, CScene* scene, CTexture* target);
    // The faces of cube that the mask selects (bit 0 +x, then -x, +y, -y, +z, -z), seen from
    // camera's place; faceTextures, if given, holds six backgrounds drawn in place of the clears.
    void RenderCubeMap(CCamera* camera, CScene* scene, CTexture* cube, uint32_t faces,
                       CTexture* const* faceTextures);
    void SetRectangle(int32_t newTop, int32_t newLeft, int32_t newWidth, int32_t newHeight,
                      bool clearOutside);
    void GetScreenRect(RECT* out, const POINT* offset) const;
    // out: screen x, screen y and the true view depth. Returns ProjectFlags.
    uint32_t ProjectPoint(const Vector& world, Vector& out, CCamera* camera, CScene* scene);
    // The camera's view placed relative to the top of its tree; leaves it in viewMatrix too.
    void GetViewMatrixOf(const CCamera* camera, Matrix& out);
    CPolyBuffer* CreatePolyBuffer(int slot, int32_t triangles);  // null for a slot out of range
    void DeletePolyBuffer(int slot);
    CPolyBuffer* GetPolyBuffer(int slot) const;
    void CreateBackgroundQuad();

    RenderList& List(int index) { return layerLists[index]; }

    Vector viewPlanes[ViewportPlaneCount];        // left, right, bottom, top, near; view space
    Vector worldPlanes[ViewportPlaneCount];       // outward, normalised
    float worldPlaneOffsets[ViewportPlaneCount];  // outside distance: normal . p + offset
    Matrix viewMatrix;
    uint8_t clearColour, clearDepth, clearStencil;
    uint32_t clearStencilValue;
    int32_t top, left, width, height;
    float focal;
    float focalInverse;
    float near;          // in force for the frustum
    float nearOverride;  // non-zero: replaces the camera's nearPlane
    float nearInverse;
    CPolyBuffer* backgroundQuad;
    LPDIRECTDRAWSURFACE7 softwareSurface;  // software device only
    int32_t* softwareDepth;                // width * height words, software device only
    CRenderer* device;
    uint8_t clearRed, clearGreen, clearBlue;
    uint32_t overlayColour;  // tint over the frame where its alpha byte is non-zero
    CPolyBuffer* polyBuffers[ViewportPolyBufferCount];
    CRenderContext context;
    RenderList layerLists[ViewportListCount];  // layerItems, layerCapacity, layerCount of each
    uint32_t currentLayer;

private:
    // Placement to viewMatrix: columns x, y, d, row 3 the negated projections of position.
    void BuildViewMatrix(const Vector& position, const Vector& direction, const Vector& up,
                         float roll);
    bool UseChain(const CCamera* camera, const CScene* scene) const;
    void StartFrame(CCamera* camera);
    void EndFrame();
    void SendLights(CScene* scene);
    void DrawLayers(CCamera* camera, CScene* scene, D3DMATRIX& projection);
};
