#include "engine/scene/scene.h"

#include <cstring>

#include "base/memory.h"
#include "engine/scene/entity.h"

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
}

CScene::~CScene() {
    for (CEntity*& root : layerRoot) {
        DELETE(root);
        root = nullptr;
    }
}
