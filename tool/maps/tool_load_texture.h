// The tool's texture load function: every texture is read from the one folder of the resource key
// "TEXTURE_DATA", whatever folder the mesh named, and each file is loaded once and then shared by
// every mesh that names it.
#pragma once

class CTexture;
class ResourceManager;

// Installed with SetTextureLoadFunction. Never null: a file that can't be read gives the test
// pattern, which is cached like any other texture.
CTexture* ToolLoadTexture(const char* path);

// The manager whose "TEXTURE_DATA" folder the loads use; without one they read from the current
// directory.
void SetToolResourceManager(ResourceManager* manager);

// Frees the cache's records. The textures stay: the engine's list owns them.
void ToolTextureCacheClear();
