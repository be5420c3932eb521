// CScene: what is seen. Up to eight layers, each a tree with its own decal chain and near plane,
// up to 100 light records of which at most 8 are on, and the ambient colour.
#pragma once

#include <cstdint>

#include "platform/dx7/d3d_types.h"

class CEntity;
struct DecalSetNode;

enum { SceneLayerCount = 8, SceneLightCount = 100, SceneLightsOnMax = 8 };

enum SceneLightState : uint8_t {
    SceneLightOff = 0,
    SceneLightOn = 1,
    SceneLightUndefined = 255,
};

class CScene {
public:
    CScene();
    virtual ~CScene();
    CScene(const CScene&) = delete;
    CScene& operator=(const CScene&) = delete;

    CEntity* layerRoot[SceneLayerCount];  // owned; [0] made by the constructor
    uint8_t layerEnabled[SceneLayerCount];
    DecalSetNode* layerDecals[SceneLayerCount];
    uint32_t ambient;                     // packed colour
    uint8_t backgroundFog;
    uint32_t background;
    D3DLIGHT7 lights[SceneLightCount];
    uint8_t lightState[SceneLightCount];  // SceneLightState
    uint8_t lightTouched[SceneLightCount];
    uint32_t lightsOn;
    uint8_t lightsChanged;
    float layerNear[SceneLayerCount];     // 0: the camera's
};
