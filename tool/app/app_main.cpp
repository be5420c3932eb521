#include "tool/app/app_main.h"

#include "base/diagnostics.h"
#include "base/memory.h"
#include "base/resmanager.h"
#include "engine/render/mesh_renderer.h"
#include "engine/render/renderer.h"
#include "engine/scene/maths.h"
#include "engine/scene/path_list.h"
#include "engine/texture/texture.h"
#include "engine/texture/texture_lookup.h"
#include "platform/crt/paths.h"
#include "platform/ui/window_api.h"
#include "tool/app/setup_dialog.h"
#include "tool/app/viewer_support.h"
#include "tool/bake/message_log.h"
#include "tool/bake/progress.h"
#include "tool/bake/shadow_settings.h"
#include "tool/maps/tool_load_texture.h"
#include "tool/run/app_state.h"
#include "tool/run/bake_run.h"
#include "tool/run/program_session.h"
#include "tool/view/viewer_scene.h"

SetupDialog* Dialog = nullptr;

bool DrainWindowMessages() {
    bool quit = false;
    MSG message;
    while (PeekMessageA(&message, nullptr, 0, 0, PM_REMOVE)) {
        if (message.message == WM_QUIT) {
            quit = true;  // remembered, obeyed only by the main loop
            continue;
        }
        TranslateMessage(&message);
        DispatchMessageA(&message);
    }
    return quit;
}

static void ShowBakeProgress(int percent) {
    if (Dialog) Dialog->SetProgress(percent);
}

static void RedrawViewer() {
    InvalidateRect(ViewerWindow, nullptr, 1);
}

static void BakeRunFinished() {
    if (Dialog) Dialog->RunFinished();
}

bool ApplicationStart(HINSTANCE instance, int showMode) {
    QuitRequested = 0;
    StartProgram({});
    OpenMeshRenderer();
    Resources = NEW ResourceManager("resource.cfg");
    SetToolResourceManager(Resources);
    CreateViewerWindow(instance);
    VectorNormalize(ShadowSettings.Light);
    _getcwd(StartDirectory, sizeof StartDirectory - 1);
    SetTextureLoadFunction(ToolLoadTexture);

    ProgressHooks hooks = {ShowBakeProgress, RedrawViewer, DrainWindowMessages};
    SetProgressHooks(&hooks);
    SetRunFinishedCallback(BakeRunFinished);
    Dialog = NEW SetupDialog(instance, showMode);
    Dialog->TakeFocus();

    TexturePaths = NEW PathList;
    const char* textures = Resources->GetResourcePath("TEXTURE_DATA");
    if (textures) TexturePaths->Push(textures);
    if (!Dialog->Window) return false;
    // Without a device the dialog still bakes; its viewer box says why it can't be ticked.
    OpenViewerDevice();
    Dialog->ShowViewerAvailability();
    return true;
}

void MainLoop() {
    while (!QuitRequested) {
        // While nothing is shown there is nothing to draw: the loop sleeps until the user acts.
        if (ViewerActive)
            ViewerFrame();
        else
            WaitMessage();
        DrainMessages();
        if (BatchMode) break;
    }
}

int ApplicationEnd(HINSTANCE instance) {
    if (TexturePaths) DELETE(TexturePaths);
    TexturePaths = nullptr;
    if (Dialog) DELETE(Dialog);
    Dialog = nullptr;
    SetRunFinishedCallback(nullptr);
    SetProgressHooks(nullptr);
    CloseViewerDevice();
    DestroyViewerWindow(instance);
    CloseMeshRenderer();
    StopProgram();
    return 0;
}

int RunApplication(HINSTANCE instance, int showMode) {
    bool started = ApplicationStart(instance, showMode);
    if (started) MainLoop();
    int code = ApplicationEnd(instance);
    return started ? code : 1;
}
