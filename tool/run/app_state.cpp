#include "tool/run/app_state.h"

CScene* Scene = nullptr;
CEntity* SceneRoot = nullptr;
CMesh* MapMesh = nullptr;
CMesh* ViewerMesh = nullptr;
CTexture* ShadowTexture = nullptr;
char StartDirectory[500] = {};
uint8_t BatchMode = 0;
ResourceManager* Resources = nullptr;
