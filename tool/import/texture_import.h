// The materials' colour maps: found beside the model or embedded in it, decoded (PNG through
// libpng, TGA through the engine's reader), and held as textures in the engine's list under the
// names of the TGA files the map folder will get. A colour map that can't be found is a warning
// that names it, and its faces get a plain grey stand-in; one that can't be read is an error that
// names it, and its faces keep no texture.
#pragma once

#include <vector>

#include "tool/import/import_scene.h"

class CTexture;

// Sets each material's texture; one texture for materials that name the same image.
void LoadMaterialTextures(ImportScene& scene, ImportLog& log);

// The distinct textures of the materials, in material order.
std::vector<CTexture*> SceneTextures(const ImportScene& scene);

// Frees them and clears the materials' pointers.
void FreeSceneTextures(ImportScene& scene);
