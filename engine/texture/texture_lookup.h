// Texture lookup: turns the bare file name that a mesh gives into a CTexture. The name is looked
// for beside the mesh being loaded, then along TexturePaths, and the path found goes to the
// application's load function or, without one, to the TGA reader. A file found nowhere still
// gives a texture: the test pattern under the name asked for, so a missing texture shows on the
// model and never stops a load.
#pragma once

#include <cstdint>

#include "engine/scene/path_list.h"

class CTexture;

using TextureLoader = CTexture* (*)(const char* path);

extern TextureLoader TextureLoadFunction;  // null: the TGA reader loads
extern uint8_t TextureSearchEnabled;       // 0: the name is taken as the path, nothing searched
// Drive and folder, with the trailing "/", of the mesh file that started to load last; empty
// until a mesh loads, and never cleared.
extern char MeshFolder[PathBufferSize];

// The mesh readers call this as a file starts to load. Either separator is accepted; the folder
// is kept with "/". A path without a folder empties MeshFolder, and so does one whose folder
// doesn't fit (with a line in the engine log).
void SetMeshFolderFromPath(const char* meshPath);

// The texture for name (null or empty: "MISSING"), named as asked. Null only where an installed
// load function gives null.
CTexture* VALoadTexture(const char* name);
void SetTextureLoadFunction(TextureLoader function);
void SetTextureSearch(uint8_t enabled);
