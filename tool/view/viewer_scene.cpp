#include "tool/view/viewer_scene.h"

#include "base/memory.h"
#include "engine/mesh/mesh.h"
#include "engine/mesh/multimesh.h"
#include "engine/render/renderer.h"
#include "engine/scene/camera.h"
#include "engine/scene/scene.h"
#include "engine/scene/viewport.h"
#include "engine/texture/texture.h"
#include "tool/bake/shadow_settings.h"
#include "tool/run/app_state.h"

CRenderer* Device = nullptr;
CCamera* Camera = nullptr;
CViewport* Viewport = nullptr;
uint8_t ViewerActive = 0;
Vector Focus = {0, 0, 0};
double Distance = 1290.0;
uint8_t LeftHeld = 0, RightHeld = 0, ShiftHeld = 0, KeyKHeld = 0, KeyLHeld = 0;

namespace {

constexpr double Degree = 0.017453293;
constexpr Vector Vertical = {0, 1, 0};

// Static: the multi-meshes keep the pointers.
const uint32_t MapStage[MultiStageWords] = {2, 1, 2, 2, 1, 1, 0};
const uint32_t ShadowStage[MultiStageWords] = {2, 1, 4, 2, 1, 1, 0};

}  // namespace

// A frame between meshes holds no vertices but may hold meshes.
static void BuildChildren(CEntity* node) {
    for (CEntity* child = node->firstChild; child; child = child->nextSibling) {
        if (child->kind == EntityKindMesh)
            BuildViewerMesh(static_cast<CMesh*>(child));
        else
            BuildChildren(child);
    }
}

void SetUpViewer(int32_t width, int32_t height) {
    Camera = NEW CCamera(nullptr, 1000.0f);
    Viewport = Device->CreateViewport(0, 0, width, height);
    Viewport->clearRed = 198, Viewport->clearGreen = 156, Viewport->clearBlue = 107;
    Camera->SetPosition(0, 0, -800);
    Camera->SetOrientation({0, -0.76874697f, 0.63952601f}, {0, 0.63952601f, 0.76874697f});
    Focus = {0, 0, 0};
}

void BuildViewerMesh(CMesh* mesh) {
    if (!ViewerMesh) ViewerMesh = NEW CMesh(SceneRoot);
    if (mesh->vertexCount > 0) {
        CMultiMesh* m = NEW CMultiMesh(Device, ViewerMesh);
        m->layoutFlags |= MultiLayoutDiffuse;
        m->BuildFromMesh(mesh, 2, 2);
        if (m->Lock()) {
            for (uint32_t i = 0; i < m->vertexTotal; ++i) {
                float x, y, z;
                m->GetVertexPosition(i, &x, &y, &z);
                m->SetVertexUV(i, 1, x * 0.00012207031f, z * -0.00012207031f);
            }
            m->Unlock();
        }
        if (m->stageTextures[1])
            for (uint32_t face = 0; face < m->faceTotal; ++face)
                m->stageTextures[1][face] = ShadowTexture;
        m->SetStageSettings(0, MapStage);
        m->SetStageSettings(1, ShadowStage);
        m->SetStagePass(0, 2, 0);
        m->SetStageCoordinates(0, 0);
        m->SetStageCoordinates(1, 1);
        m->SetFirstStage(0);
        m->SetPassStages(2);
        m->BuildPositionArrays();
    }
    BuildChildren(mesh);
}

void TakeBakedMap() {
    Device->LoadDeviceTexture(ShadowTexture);
    BuildViewerMesh(MapMesh);
}

void ViewerFrame() {
    if (!ViewerActive) return;
    if (LeftHeld) Distance -= 10;
    if (RightHeld) Distance += 10;
    Vector v;
    Camera->GetDirection(v);
    Camera->SetPosition(float(Focus.x - v.x * Distance), float(Focus.y - v.y * Distance),
                        float(Focus.z - v.z * Distance));
    Viewport->Update(Camera, Scene);
    Viewport->Render(Camera, Scene);
    Device->Flip();
}

void TurnView(double degrees) {
    Vector dir, up, p, turnedDir, turnedUp;
    Camera->GetOrientation(&dir, &up);
    Camera->GetPosition(p);
    const float angle = float(degrees * Degree);
    VectorRotate(turnedDir, dir, Vertical, angle);
    VectorRotate(turnedUp, up, Vertical, angle);
    VectorNormalize(p);
    Camera->SetPosition(float(p.x * Distance), float(p.y * Distance), float(p.z * Distance));
    Camera->SetOrientation(turnedDir, turnedUp);
}

void MouseLook(int32_t dx, int32_t dy) {
    if (!Camera) return;
    if (ShiftHeld) {
        TurnView(dx * 0.125);
        return;
    }
    Vector dir, up;
    Camera->GetOrientation(&dir, &up);
    if (!KeyKHeld && !KeyLHeld) {
        const double a = 3.0 * dx, b = 3.0 * dy;
        Focus.z = float(Focus.z - (dir.z * b + dir.x * a));
        Focus.x = float(Focus.x - (dir.x * b - dir.z * a));
        return;
    }
    Vector& light = ShadowSettings.Light;
    Vector right, turned;
    VectorCross(right, dir, up);
    if (KeyKHeld) {
        VectorRotate(turned, light, right, float(dy * 0.125 * -1 * Degree));
        light = turned;
    }
    if (KeyLHeld) {
        VectorRotate(turned, light, Vertical, float(dx * 0.125 * -1 * Degree));
        light = turned;
    }
}

void FreeViewerScene() {
    if (MapMesh == ViewerMesh) MapMesh = nullptr;
    if (ViewerMesh) DELETE(ViewerMesh);
    ViewerMesh = nullptr;
    if (ShadowTexture) FreeTexture(ShadowTexture);
    ShadowTexture = nullptr;
    if (Camera) DELETE(Camera);
    Camera = nullptr;
    if (Viewport) Device->DestroyViewport(Viewport);
    Viewport = nullptr;
    if (Scene) DELETE(Scene);
    Scene = nullptr;
    SceneRoot = nullptr;
}
