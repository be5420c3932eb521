#include "tool/view/bake_view.h"

#include "base/memory.h"
#include "base/resmanager.h"
#include "engine/mesh/mesh.h"
#include "engine/mesh/mesh_read_fault.h"
#include "engine/render/mesh_renderer.h"
#include "engine/render/renderer.h"
#include "engine/scene/path_list.h"
#include "engine/scene/scene.h"
#include "engine/texture/texture.h"
#include "platform/dx7/call_recorder.h"
#include "platform/dx7/gl_context.h"
#include "tool/bake/shadow_map_file.h"
#include "tool/bake/shadow_settings.h"
#include "tool/run/app_state.h"

namespace {

PathList* CallersPaths = nullptr;  // put back by CloseBakeView

bool IsTextMap(const std::string& path) {
    const size_t dot = path.rfind('.');
    return dot != std::string::npos && path.size() - dot == 4 &&
           (path[dot + 2] == 'a' || path[dot + 2] == 'A');
}

}  // namespace

std::string OpenBakeView(const BakeView& view, void* window, int32_t bitsPerPixel) {
    CallersPaths = TexturePaths;
    TexturePaths = NEW PathList;
    if (const char* textures = Resources ? Resources->GetResourcePath("TEXTURE_DATA") : nullptr)
        TexturePaths->Push(textures);
    OpenMeshRenderer();
    std::string error;
    ShadowTexture = ReadShadowMapFile(view.shadow.c_str(), ShadowSettings, error);
    if (!ShadowTexture) return "shadow map " + view.shadow + ": " + error;
    if (DxGetRendering() == DxRendering::GlWhenAvailable && !DxCurrentGlContext())
        return "no display device: no GL context: " + DxGlFailure();
    Device = OpenDevice(window, OpenWindowed | Open3D, view.width, view.height, bitsPerPixel);
    if (!Device) return "no display device (see velmora.log)";
    Scene = NEW CScene;
    SceneRoot = Scene->layerRoot[0];
    SetUpViewer(view.width, view.height);
    Distance = view.distance;
    Focus = {float(view.focusX), 0, float(view.focusZ)};
    MapMesh = NEW CMesh(SceneRoot);
    ClearMeshReadFault();
    const bool loaded = IsTextMap(view.map) ? MapMesh->LoadVAF(view.map.c_str(), 0)
                                            : MapMesh->LoadVBF(view.map.c_str());
    if (!loaded) {
        const char* fault = *MeshReadFault() ? MeshReadFault() : "it could not be read";
        return "map " + view.map + ": " + fault;
    }
    TakeBakedMap();
    DELETE(MapMesh);
    MapMesh = nullptr;
    TurnView(view.turn);
    return "";
}

void CloseBakeView() {
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
    if (TexturePaths) DELETE(TexturePaths);
    TexturePaths = CallersPaths;
    CallersPaths = nullptr;
}
