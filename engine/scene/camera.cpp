#include "engine/scene/camera.h"

CCamera::CCamera(CEntity* parentNode, float focal)
    : CFrame(parentNode),
      focalLength(focal),
      roll(0.0f),
      nearPlane(8.0f),
      halfAngle(0.0f),
      farPlane(4096.0f) {
    MatrixIdentity(cameraView);
}
