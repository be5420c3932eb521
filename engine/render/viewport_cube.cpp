// CViewport's cube map: six square frames from one place, one into each face of a cube texture.
#include <iterator>

#include "engine/render/poly_buffer.h"
#include "engine/render/renderer.h"
#include "engine/scene/camera.h"
#include "engine/scene/scene.h"
#include "engine/scene/viewport.h"
#include "engine/texture/texture.h"

namespace {

struct CubeFace {
    DWORD caps2;
    Vector direction;
    Vector up;
};

// In mask order: bit 0 is +x. The ups give the faces the layout that cube samplers read.
constexpr CubeFace CubeFaces[] = {
    {DDSCAPS2_CUBEMAP_POSITIVEX, {1, 0, 0}, {0, 1, 0}},
    {DDSCAPS2_CUBEMAP_NEGATIVEX, {-1, 0, 0}, {0, 1, 0}},
    {DDSCAPS2_CUBEMAP_POSITIVEY, {0, 1, 0}, {0, 0, -1}},
    {DDSCAPS2_CUBEMAP_NEGATIVEY, {0, -1, 0}, {0, 0, 1}},
    {DDSCAPS2_CUBEMAP_POSITIVEZ, {0, 0, 1}, {0, 1, 0}},
    {DDSCAPS2_CUBEMAP_NEGATIVEZ, {0, 0, -1}, {0, 1, 0}},
};

}  // namespace

void CViewport::RenderCubeMap(CCamera* camera, CScene* scene, CTexture* cube, uint32_t faces,
                              CTexture* const* faceTextures) {
    if (!camera || !scene || !cube || !cube->surface) return;
    auto* cubeSurface = static_cast<LPDIRECTDRAWSURFACE7>(cube->surface);
    if (FAILED(cubeSurface->IsLost())) {
        cubeSurface->Restore();
        return;
    }
    // Half the side as the focal length opens each face to 90 degrees.
    CCamera eye(scene->layerRoot[0], float(double(cube->width) / 2));
    Vector place;
    camera->GetPositionIn(nullptr, place);
    const uint8_t keptColour = clearColour, keptDepth = clearDepth;

    for (int index = 0; index < int(std::size(CubeFaces)); ++index) {
        if (!(faces & (1u << index))) continue;
        const CubeFace& face = CubeFaces[index];
        DDSCAPS2 caps{DDSCAPS_TEXTURE, DDSCAPS2_CUBEMAP | face.caps2, 0, 0};
        LPDIRECTDRAWSURFACE7 found = nullptr;
        if (FAILED(cubeSurface->GetAttachedSurface(&caps, &found))) found = nullptr;
        // The root is the first face made and is not attached to itself.
        LPDIRECTDRAWSURFACE7 target = found ? found : index == 0 ? cubeSurface : nullptr;
        if (!target) continue;

        Vector at = place;
        eye.SetPositionIn(nullptr, at);
        eye.SetOrientationIn(nullptr, face.direction, face.up);
        if (faceTextures) {
            if (!backgroundQuad) CreateBackgroundQuad();
            backgroundQuad->SetTexture(faceTextures[index], 0);
            clearColour = clearDepth = 0;
        }
        Update(&eye, scene);
        device->SetTarget(target);
        Render(&eye, scene);
        device->SetTarget(device->flipping);
        clearColour = keptColour;
        clearDepth = keptDepth;
        if (found) found->Release();
    }
}
