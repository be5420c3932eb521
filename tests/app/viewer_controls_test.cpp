// The viewer's mouse and keys on a record-only device: where the camera, the focus, the distance
// and the light end up.
#include <gtest/gtest.h>

#include <cmath>

#include "base/memory.h"
#include "engine/render/renderer.h"
#include "engine/scene/camera.h"
#include "engine/scene/scene.h"
#include "platform/dx7/call_recorder.h"
#include "tool/bake/shadow_settings.h"
#include "tool/run/app_state.h"
#include "tool/view/viewer_scene.h"

namespace {

const double S = std::sin(0.017453293), C = std::cos(0.017453293);  // of one degree
constexpr float DirY = -0.76874697f, DirZ = 0.63952601f;              // the start direction

struct Control {
    const char* name;
    uint8_t shift, k, l, left, right;
    int dx, dy, frames;
    double distance;  // starting; 1000 unless a row tests passing zero
    Vector focus, light, dir;
    double endDistance;
};

TEST(ViewerControls, MouseKeysAndButtons) {
    const Vector up = {0, 1, 0}, start = {0, DirY, DirZ};
    const Control table[] = {
        {"shift +8 turns 1 degree right", 1, 0, 0, 0, 0, 8, 5, 1, 1000, {0, 0, 0}, up,
         {float(DirZ * S), DirY, float(DirZ * C)}, 1000},
        {"pan +8 sideways", 0, 0, 0, 0, 0, 8, 0, 1, 1000, {24 * DirZ, 0, 0}, up, start, 1000},
        {"pan +8 back", 0, 0, 0, 0, 0, 0, 8, 1, 1000, {0, 0, -24 * DirZ}, up, start, 1000},
        {"K turns by dy only", 0, 1, 0, 0, 0, 40, 8, 1, 1000, {0, 0, 0},
         {0, float(C), float(S)}, start, 1000},
        {"L leaves a vertical light", 0, 0, 1, 0, 0, 8, 8, 1, 1000, {0, 0, 0}, up, start, 1000},
        {"K then L", 0, 1, 1, 0, 0, 8, 8, 1, 1000, {0, 0, 0},
         {float(-S * S), float(C), float(S * C)}, start, 1000},
        {"left held 3 frames", 0, 0, 0, 1, 0, 0, 0, 3, 1000, {0, 0, 0}, up, start, 970},
        {"right held 2 frames", 0, 0, 0, 0, 1, 0, 0, 2, 1000, {0, 0, 0}, up, start, 1020},
        {"left through zero", 0, 0, 0, 1, 0, 0, 0, 2, 15, {0, 0, 0}, up, start, -5},
    };
    DxSetRendering(DxRendering::RecordOnly);
    Device = OpenDevice(reinterpret_cast<void*>(uintptr_t(7)), OpenWindowed | Open3D, 640, 480, 32);
    ASSERT_TRUE(Device);
    const Vector oldLight = ShadowSettings.Light;
    for (const Control& c : table) {
        Scene = NEW CScene;
        SceneRoot = Scene->layerRoot[0];
        SetUpViewer();
        ShadowSettings.Light = up;
        Distance = c.distance;
        ShiftHeld = c.shift, KeyKHeld = c.k, KeyLHeld = c.l, LeftHeld = c.left, RightHeld = c.right;
        MouseLook(c.dx, c.dy);
        ViewerActive = 1;
        for (int f = 0; f < c.frames; ++f) ViewerFrame();
        ViewerActive = ShiftHeld = KeyKHeld = KeyLHeld = LeftHeld = RightHeld = 0;
        Vector dir, position;
        Camera->GetDirection(dir);
        Camera->GetPosition(position);
        // The camera's matrix keeps about four figures; the light's order shows in the fifth.
        auto near = [](const Vector& a, const Vector& b, double within = 1e-3) {
            return std::abs(a.x - b.x) < within && std::abs(a.y - b.y) < within &&
                   std::abs(a.z - b.z) < within;
        };
        EXPECT_TRUE(near(dir, c.dir)) << c.name << ": " << dir.x << " " << dir.y << " " << dir.z;
        EXPECT_TRUE(near(Focus, c.focus)) << c.name << ": " << Focus.x << " " << Focus.z;
        EXPECT_TRUE(near(ShadowSettings.Light, c.light, 2e-5))
            << c.name << ": " << ShadowSettings.Light.x << " " << ShadowSettings.Light.y << " "
            << ShadowSettings.Light.z;
        EXPECT_EQ(Distance, c.endDistance) << c.name;
        const float d = float(c.endDistance);  // the camera stands Distance behind the focus
        EXPECT_TRUE(near(position, {Focus.x - dir.x * d, Focus.y - dir.y * d,
                                    Focus.z - dir.z * d})) << c.name;
        FreeViewerScene();
    }
    ShadowSettings.Light = oldLight;
    Distance = 1290.0;
    CloseDevice(Device);
    Device = nullptr;
}

}  // namespace
