// CCamera: a frame with viewing parameters. It draws nothing and adds no operation; the viewport
// reads it each time it sets up a view. It has no Clone of its own, so a copy is a plain CFrame.
#pragma once

#include "engine/scene/entity.h"

class CCamera : public CFrame {
public:
    CCamera(CEntity* parent, float focal);

    float focalLength;  // projection plane distance in viewport pixels: x lands at f * x / z
    float roll;         // degrees about the view direction
    float nearPlane;
    float halfAngle;  // half the field of view in degrees; 0: follows from focalLength
    float farPlane;
    Matrix cameraView;  // world to view, written by the viewport's set-up
};
