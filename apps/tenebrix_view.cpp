// tenebrix-view: a finished bake as the viewer shows it, drawn off screen into a picture.
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "apps/common/tool_session.h"
#include "apps/view/view_options.h"
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
#include "platform/crt/paths.h"
#include "platform/dx7/call_recorder.h"
#include "platform/dx7/gl_context.h"
#include "tool/bake/png_preview.h"
#include "tool/bake/shadow_map_file.h"
#include "tool/bake/shadow_settings.h"
#include "tool/maps/tool_load_texture.h"
#include "tool/run/app_state.h"
#include "tool/view/viewer_scene.h"

namespace fs = std::filesystem;

namespace {

constexpr const char* Program = "tenebrix-view";

int Fail(const std::string& message) {
    std::fprintf(stderr, "%s: error: %s\n", Program, message.c_str());
    return ExitFailed;
}

// The map's textures come through the TEXTURE_DATA folder of the resource.cfg beside it.
void UseMapResources(const fs::path& folder) {
    _chdir(folder.c_str());
    if (fs::is_regular_file("resource.cfg")) Resources = NEW ResourceManager("resource.cfg");
    SetToolResourceManager(Resources);
    SetTextureLoadFunction(ToolLoadTexture);
    TexturePaths = NEW PathList;
    if (const char* textures = Resources ? Resources->GetResourcePath("TEXTURE_DATA") : nullptr)
        TexturePaths->Push(textures);
}

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

// Draws the picture; the status to exit with. The device and scene are left for the caller.
int DrawPicture(const ViewOptions& options, const fs::path& mapFile, const fs::path& shadowFile,
                const fs::path& pngFile) {
    std::string error;
    ShadowTexture = ReadShadowMapFile(shadowFile.c_str(), ShadowSettings, error);
    if (!ShadowTexture) return Fail("shadow map " + shadowFile.string() + ": " + error);
    if (!DxCurrentGlContext())
        return Fail("no display device for the picture: no GL context: " + DxGlFailure());
    UseMapResources(mapFile.parent_path());
    OpenMeshRenderer();
    Device = OpenDevice(reinterpret_cast<void*>(uintptr_t(1)), OpenWindowed | Open3D,
                        options.width, options.height, 32);
    if (!Device) return Fail("no display device for the picture (see velmora.log)");
    Scene = NEW CScene;
    SceneRoot = Scene->layerRoot[0];
    SetUpViewer(options.width, options.height);
    Distance = options.distance;
    Focus = {float(options.focusX), 0, float(options.focusZ)};
    MapMesh = NEW CMesh(SceneRoot);
    if (!MapMesh->LoadVBF(mapFile.c_str())) {
        const char* fault = *MeshReadFault() ? MeshReadFault() : "it could not be read";
        return Fail("map " + mapFile.string() + ": " + fault);
    }
    Device->LoadDeviceTexture(ShadowTexture);
    BuildViewerMesh(MapMesh);
    DELETE(MapMesh);
    MapMesh = ViewerMesh;
    TurnView(options.turn);
    ViewerActive = 1;
    ViewerFrame();
    ViewerActive = 0;
    std::vector<uint32_t> pixels;
    if (!ReadTarget(pixels, options.width, options.height))
        return Fail("the frame could not be read back from the display device");
    if (!WriteColourPng(pngFile.c_str(), pixels.data(), options.width, options.height))
        return Fail("the picture " + pngFile.string() + " could not be written");
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    ViewOptions options;
    CommandLineOutcome parsed = ParseViewOptions(argc, argv, options);
    if (!parsed.run) return PrintOutcome(parsed);
    if (options.png.empty()) {
        std::fprintf(stderr,
                     "%s: the viewer's window comes in a later version; give --png FILE for a "
                     "picture\n",
                     Program);
        return ExitUsage;
    }
    fs::path mapFile = fs::absolute(options.map);
    if (fs::is_directory(mapFile)) mapFile /= "test.vbf";
    if (!fs::is_regular_file(mapFile)) return Fail("map " + mapFile.string() + ": no such file");
    if (mapFile.extension() != ".vbf" && mapFile.extension() != ".VBF")
        return Fail("map " + mapFile.string() + ": not a .vbf map");
    const fs::path shadowFile = options.shadow.empty() ? mapFile.parent_path() / "texture.dat"
                                                       : fs::absolute(options.shadow);
    const fs::path pngFile = fs::absolute(options.png);

    ToolSessionOptions session;
    session.program = Program;
    ToolSession running(session);
    DxSetRendering(DxRendering::GlWhenAvailable);
    int status = DrawPicture(options, mapFile, shadowFile, pngFile);
    if (status == 0 && ToolSession::Errors() > 0) status = ExitFailed;
    if (status == 0) std::printf("%s\n", pngFile.c_str());
    if (MapMesh && MapMesh != ViewerMesh) DELETE(MapMesh);
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
    TexturePaths = nullptr;
    return status;
}
