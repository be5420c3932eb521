// The map folder: test.vbf with the map size chunk, and the textures it names as TGA files beside
// it. Each file is written under a temporary name and renamed into place once whole, textures
// first, so a map never names a texture that isn't there.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tool/import/import_scene.h"

class CMesh;
class CTexture;

// False, with the file and the reason logged, if the folder or a file could not be written.
bool WriteMapFolder(const std::string& folder, const CMesh* root, int32_t cellsX, int32_t cellsY,
                    const std::vector<CTexture*>& textures, ImportLog& log);
