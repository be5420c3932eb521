// The viewer without its window: the display copy of a baked map with the shadow map laid over it
// from above, the camera circling a focus point on the ground, and the drawing of one frame. The
// window, the cursor and the keys only set the state below and call MouseLook and ViewerFrame.
#pragma once

#include <cstdint>

#include "engine/scene/maths.h"

class CCamera;
class CMesh;
class CRenderer;
class CViewport;

extern CRenderer* Device;  // the display device, opened once at program start
extern CCamera* Camera;
extern CViewport* Viewport;
extern uint8_t ViewerActive;
extern Vector Focus;     // the point the camera looks at; back at the origin in each run
extern double Distance;  // of the camera from Focus; kept from run to run
extern uint8_t LeftHeld, RightHeld, ShiftHeld, KeyKHeld, KeyLHeld;

enum : int32_t { ViewerWidth = 640, ViewerHeight = 480 };

// The camera and viewport of a run, on Device (which must be open), and Focus at the origin.
void SetUpViewer(int32_t width = ViewerWidth, int32_t height = ViewerHeight);

// The map's meshes as two-stage multi-meshes under ViewerMesh (made under SceneRoot if null):
// stage 0 their own textures, stage 1 ShadowTexture over the world from above.
void BuildViewerMesh(CMesh* mesh);

// Behind a single bake: the shadow map onto Device and the display copy of MapMesh.
void TakeBakedMap();

// One frame: the camera Distance behind Focus, the scene drawn and flipped. Nothing while
// ViewerActive is 0.
void ViewerFrame();

// Turns the view about the vertical axis through Focus; positive turns the camera to its right.
void TurnView(double degrees);

// A mouse move while the viewer shows: turns the view (Shift), the light (K, L) or pans.
void MouseLook(int32_t dx, int32_t dy);

// The viewer's objects of the run, in the order a run's end frees them: ViewerMesh,
// ShadowTexture, Camera, Viewport, Scene. MapMesh goes too where it stands for the display copy.
void FreeViewerScene();
