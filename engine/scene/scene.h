// CScene: what is seen. Up to eight layers, each a tree with its own decal chain and near plane,
// up to 100 light records of which at most 8 are on, and the ambient colour.
#pragma once

#include <cstdint>

#include "platform/dx7/d3d_types.h"

class CEntity;
class CDecalSet;

enum { SceneLayerCount = 8, SceneLightCount = 100, SceneLightsOnMax = 8 };

enum SceneLightState : uint8_t {
    SceneLightOff = 0,
    SceneLightOn = 1,
    SceneLightUndefined = 255,
};

// One link of a layer's decal chain. The chain owns its nodes, never the sets.
struct DecalSetNode {
    CDecalSet* set;
    DecalSetNode* next;
};

// Highest index EnableLight was asked for on a light not yet on, whether or not it went on.
// Process-wide, beside the one scene; a new scene resets it to 0.
extern int32_t highestLightUsed;

// Indices outside 0..99 and layers outside 0..7 are refused with a warning and touch nothing.
class CScene {
public:
    CScene();
    virtual ~CScene();
    CScene(const CScene&) = delete;
    CScene& operator=(const CScene&) = delete;

    void AddDecalSet(CDecalSet* set, int layer);     // at the head of the layer's chain
    void RemoveDecalSet(CDecalSet* set, int layer);  // frees the node, not the set

    bool GetLight(int index, D3DLIGHT7* out) const;  // false if undefined; out may be null
    void SetLight(int index, const D3DLIGHT7* record);
    void RemoveLight(int index);
    bool EnableLight(int index);   // whether the light is on afterwards
    bool DisableLight(int index);  // true unless the index is out of range
    bool IsLightEnabled(int index) const;

    void SetLayerRoot(int layer, CEntity* root);  // the old root is the caller's to delete
    void SetLayerNear(int layer, float value);
    float GetLayerNear(int layer) const;  // 0 (the camera's) for a layer out of range

    CEntity* layerRoot[SceneLayerCount];  // owned; [0] made by the constructor
    uint8_t layerEnabled[SceneLayerCount];
    DecalSetNode* layerDecals[SceneLayerCount];
    uint32_t ambient;  // packed colour
    uint8_t backgroundFog;
    uint32_t background;
    D3DLIGHT7 lights[SceneLightCount];
    uint8_t lightState[SceneLightCount];    // SceneLightState
    uint8_t lightTouched[SceneLightCount];  // set by SetLight, never cleared
    uint32_t lightsOn;                      // lights in state SceneLightOn, at most 8
    uint8_t lightsChanged;                  // set when a light goes on or off, never cleared
    float layerNear[SceneLayerCount];       // 0: the camera's
};
