#include "engine/scene/scene.h"

#include <cstring>

#include "base/diagnostics.h"
#include "base/memory.h"
#include "engine/scene/entity.h"

int32_t highestLightUsed = 0;

// Callers index fixed arrays with these; a bad index is a caller's slip that must not reach
// memory, so it is refused with a warning rather than asserted.
static bool LightIndexValid(int index) {
    if (index >= 0 && index < SceneLightCount) return true;
    CorvaneWarning("Light index %d out of range\n", index);
    return false;
}

static bool LayerValid(int layer) {
    if (layer >= 0 && layer < SceneLayerCount) return true;
    CorvaneWarning("Layer %d out of range\n", layer);
    return false;
}

CScene::CScene()
    : layerRoot{},
      layerEnabled{},
      layerDecals{},
      ambient(0xFFFFFF),
      backgroundFog(0),
      background(0),
      lights{},
      lightState{},
      lightTouched{},
      lightsOn(0),
      lightsChanged(1),
      layerNear{} {
    layerRoot[0] = NEW CEntity(nullptr);
    std::memset(layerEnabled, 1, sizeof layerEnabled);
    std::memset(lightState, SceneLightUndefined, sizeof lightState);
    highestLightUsed = 0;
}

CScene::~CScene() {
    for (int layer = 0; layer < SceneLayerCount; ++layer) {
        if (layerRoot[layer]) DELETE(layerRoot[layer]);
        layerRoot[layer] = nullptr;
        while (DecalSetNode* node = layerDecals[layer]) {
            layerDecals[layer] = node->next;
            DELETE(node);
        }
    }
}

void CScene::AddDecalSet(CDecalSet* set, int layer) {
    if (!LayerValid(layer)) return;
    layerDecals[layer] = NEW DecalSetNode{set, layerDecals[layer]};
}

void CScene::RemoveDecalSet(CDecalSet* set, int layer) {
    if (!LayerValid(layer)) return;
    for (DecalSetNode** link = &layerDecals[layer]; *link; link = &(*link)->next) {
        if ((*link)->set != set) continue;
        DecalSetNode* node = *link;
        *link = node->next;
        DELETE(node);
        return;
    }
    CorvaneWarning("Failed to find decal list %p\n", static_cast<void*>(set));
}

bool CScene::GetLight(int index, D3DLIGHT7* out) const {
    if (!LightIndexValid(index) || lightState[index] == SceneLightUndefined) return false;
    if (out) *out = lights[index];
    return true;
}

void CScene::SetLight(int index, const D3DLIGHT7* record) {
    ASSERT(record);  // a light is defined from a record, never from nothing
    if (!record || !LightIndexValid(index)) return;
    if (lightState[index] == SceneLightUndefined) lightState[index] = SceneLightOff;
    lights[index] = *record;
    lightTouched[index] = 1;
}

void CScene::RemoveLight(int index) {
    if (!LightIndexValid(index)) return;
    if (lightState[index] == SceneLightOn) DisableLight(index);
    lightState[index] = SceneLightUndefined;
}

bool CScene::EnableLight(int index) {
    if (!LightIndexValid(index)) return false;
    // An undefined light is reported and then falls through to the state test, which refuses it.
    if (lightState[index] == SceneLightUndefined) {
        CorvaneWarning("Attempting to Enable an undefined light %d\n", index);
    }
    if (lightState[index] == SceneLightOn) return true;
    // Counted before the refusals below, so a light that could not go on still raises it.
    if (index > highestLightUsed) highestLightUsed = index;
    if (lightState[index] != SceneLightOff) return false;
    if (lightsOn >= SceneLightsOnMax) return false;
    ++lightsOn;
    lightState[index] = SceneLightOn;
    lightsChanged = 1;
    return true;
}

bool CScene::DisableLight(int index) {
    if (!LightIndexValid(index)) return false;
    if (lightState[index] == SceneLightUndefined) {
        CorvaneWarning("Attempting to Disable an undefined light %d\n", index);
    }
    if (lightState[index] == SceneLightOn) {
        --lightsOn;
        lightState[index] = SceneLightOff;
        lightsChanged = 1;
    }
    return true;
}

bool CScene::IsLightEnabled(int index) const {
    return LightIndexValid(index) && lightState[index] == SceneLightOn;
}

void CScene::SetLayerRoot(int layer, CEntity* root) {
    if (LayerValid(layer)) layerRoot[layer] = root;
}

void CScene::SetLayerNear(int layer, float value) {
    if (LayerValid(layer)) layerNear[layer] = value;
}

float CScene::GetLayerNear(int layer) const {
    return LayerValid(layer) ? layerNear[layer] : 0.0f;
}
