#include "tool/view/view_picture.h"

#include <cstdint>
#include <vector>

#include "base/memory.h"
#include "base/resmanager.h"
#include "engine/mesh/mesh.h"
#include "engine/mesh/mesh_read_fault.h"
#include "engine/render/mesh_renderer.h"
#include "engine/render/renderer.h"
#include "engine/scene/path_list.h"
#include "engine/scene/scene.h"
#include "engine/texture/texture.h"
#include "engine/texture/texture_lookup.h"
#include "platform/dx7/gl_context.h"
#include "tool/bake/png_preview.h"
#include "tool/bake/shadow_map_file.h"
#include "tool/bake/shadow_settings.h"
#include "tool/run/app_state.h"

namespace {

// The render target, rows from the top, as 0xAARRGGBB.
bool ReadTarget(std::vector<uint32_t>& pixels, int width, int height) {
    DDSURFACEDESC2 desc{};
    desc.dwSize = sizeof desc;
    if (Device->LockSurfaceRetry(Device->flipping, nullptr, &desc, DDLOCK_WAIT) != DD_OK)
        return false;
    pixels.resize(size_t(width) * size_t(height));
    for (int y = 0; y < height; ++y) {
        const auto* row = reinterpret_cast<const uint32_t*>(
            static_cast<const uint8_t*>(desc.lpSurface) + size_t(y) * desc.lPitch);
        for (int x = 0; x < width; ++x) pixels[size_t(y) * width + x] = row[x] | 0xFF000000u;
    }
    Device->flipping->Unlock(nullptr);
    return true;
}

bool IsTextMap(const std::string& path) {
    const size_t dot = path.rfind('.');
    return dot != std::string::npos && path.size() - dot == 4 &&
           (path[dot + 2] == 'a' || path[dot + 2] == 'A');
}

// The drawing proper; the device and the scene are left for Draw to free.
std::string Draw(const ViewPicture& picture) {
    std::string error;
    ShadowTexture = ReadShadowMapFile(picture.shadow.c_str(), ShadowSettings, error);
    if (!ShadowTexture) return "shadow map " + picture.shadow + ": " + error;
    if (!DxCurrentGlContext())
        return "no display device for the picture: no GL context: " + DxGlFailure();
    OpenMeshRenderer();
    Device = OpenDevice(reinterpret_cast<void*>(uintptr_t(1)), OpenWindowed | Open3D,
                        picture.width, picture.height, 32);
    if (!Device) return "no display device for the picture (see velmora.log)";
    Scene = NEW CScene;
    SceneRoot = Scene->layerRoot[0];
    SetUpViewer(picture.width, picture.height);
    Distance = picture.distance;
    Focus = {float(picture.focusX), 0, float(picture.focusZ)};
    MapMesh = NEW CMesh(SceneRoot);
    ClearMeshReadFault();
    const bool loaded = IsTextMap(picture.map) ? MapMesh->LoadVAF(picture.map.c_str(), 0)
                                               : MapMesh->LoadVBF(picture.map.c_str());
    if (!loaded) {
        const char* fault = *MeshReadFault() ? MeshReadFault() : "it could not be read";
        return "map " + picture.map + ": " + fault;
    }
    Device->LoadDeviceTexture(ShadowTexture);
    BuildViewerMesh(MapMesh);
    DELETE(MapMesh);
    MapMesh = nullptr;
    TurnView(picture.turn);
    ViewerActive = 1;
    ViewerFrame();
    ViewerActive = 0;
    std::vector<uint32_t> pixels;
    if (!ReadTarget(pixels, picture.width, picture.height))
        return "the frame could not be read back from the display device";
    if (!WriteColourPng(picture.png.c_str(), pixels.data(), picture.width, picture.height))
        return "the picture " + picture.png + " could not be written";
    return "";
}

}  // namespace

std::string DrawViewPicture(const ViewPicture& picture) {
    PathList* const oldPaths = TexturePaths;
    TexturePaths = NEW PathList;
    if (const char* textures = Resources ? Resources->GetResourcePath("TEXTURE_DATA") : nullptr)
        TexturePaths->Push(textures);
    const std::string error = Draw(picture);
    if (MapMesh) DELETE(MapMesh);
    MapMesh = nullptr;
    if (Device) {
        FreeViewerScene();
        CloseDevice(Device);
        Device = nullptr;
    } else if (ShadowTexture) {
        FreeTexture(ShadowTexture);
        ShadowTexture = nullptr;
    }
    CloseMeshRenderer();
    DELETE(TexturePaths);
    TexturePaths = oldPaths;
    return error;
}
