// The application's process-wide objects, one instance each.
#pragma once

#include <cstdint>

class CEntity;
class CMesh;
class CScene;
class CTexture;
class ResourceManager;

extern CScene* Scene;               // scene of the current run
extern CEntity* SceneRoot;          // root of the scene's first layer; parent of the run's meshes
extern CMesh* MapMesh;              // the mesh being baked
extern CMesh* ViewerMesh;           // root of the display copy of the map
extern CTexture* ShadowTexture;     // the shadow map, kept between runs while its size fits
extern char StartDirectory[500];    // current directory at program start
extern uint8_t BatchMode;           // non-zero while a job list drives the bake run
extern ResourceManager* Resources;  // the folders of resource.cfg, for the whole run
