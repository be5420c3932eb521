#include "tool/import/map_writer.h"

#include <filesystem>

#include "engine/mesh/mesh.h"
#include "engine/texture/texture.h"
#include "tool/maps/map_chunks.h"

namespace fs = std::filesystem;

bool WriteMapFolder(const std::string& folder, const CMesh* root, int32_t cellsX, int32_t cellsY,
                    const std::vector<CTexture*>& textures, ImportLog& log) {
    std::error_code error;
    fs::create_directories(folder, error);
    if (error || !fs::is_directory(folder, error))
        return log.Error(folder + ": cannot make the map folder: " + error.message());
    for (const CTexture* texture : textures) {
        fs::path path = fs::path(folder) / texture->name;
        if (!texture->SaveAsTGA(path.string().c_str()))
            return log.Error(path.string() + ": cannot be written");
    }
    std::vector<uint8_t> chunks = MakeMapChunks(cellsX, cellsY);
    fs::path map = fs::path(folder) / "test.vbf";
    if (!root->SaveVBF(map.string().c_str(), chunks.data(), uint32_t(chunks.size())))
        return log.Error(map.string() + ": cannot be written");
    return true;
}
