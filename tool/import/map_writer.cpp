#include "tool/import/map_writer.h"

#include <cstdio>
#include <filesystem>

#include "engine/mesh/mesh.h"
#include "engine/texture/texture.h"
#include "tool/maps/map_chunks.h"

namespace fs = std::filesystem;

namespace {

// The writers open their files themselves, so the temporary name is theirs to fill.
template <typename Write>
bool WriteReplacing(const fs::path& target, Write write) {
    fs::path temporary = target;
    temporary += ".partial";
    std::error_code error;
    if (!write(temporary.string())) {
        fs::remove(temporary, error);
        return false;
    }
    fs::rename(temporary, target, error);
    if (!error) return true;
    std::error_code ignored;
    fs::remove(temporary, ignored);
    return false;
}

}  // namespace

bool WriteMapFolder(const std::string& folder, const CMesh* root, int32_t cellsX, int32_t cellsY,
                    const std::vector<CTexture*>& textures, ImportLog& log) {
    std::error_code error;
    fs::create_directories(folder, error);
    if (error || !fs::is_directory(folder, error))
        return log.Error(folder + ": cannot make the map folder: " + error.message());
    for (const CTexture* texture : textures) {
        fs::path path = fs::path(folder) / texture->name;
        if (!WriteReplacing(path,
                            [&](const std::string& to) { return texture->SaveAsTGA(to.c_str()); }))
            return log.Error(path.string() + ": cannot be written");
    }
    std::vector<uint8_t> chunks = MakeMapChunks(cellsX, cellsY);
    fs::path map = fs::path(folder) / "test.vbf";
    if (!WriteReplacing(map, [&](const std::string& to) {
            return root->SaveVBF(to.c_str(), chunks.data(), uint32_t(chunks.size()));
        }))
        return log.Error(map.string() + ": cannot be written");
    return true;
}
