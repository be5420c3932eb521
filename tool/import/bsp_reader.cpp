#include "tool/import/bsp_reader.h"

#include <cstring>
#include <iterator>
#include <utility>

#include "tool/import/bsp_level.h"

bool ReadBspLevel(const std::string& path, const std::vector<uint8_t>& bytes, ImportScene& scene,
                  ImportLog& log) {
    BspFile file(path, bytes, log);
    BspLevel level(file);
    if (bytes.size() < 8)
        return file.Fail(std::to_string(bytes.size()) + " bytes, too short for a BSP header");
    const char* magic = reinterpret_cast<const char*>(bytes.data());
    int32_t version = LoadI32(bytes.data());
    std::string layout;
    bool read = false;
    if (version == 29) {
        layout = "BSP 29";
        read = ReadQuakeLevel(file, false, level);
    } else if (std::memcmp(magic, "BSP2", 4) == 0 || std::memcmp(magic, "2PSB", 4) == 0) {
        layout = std::string(magic, 4);
        read = ReadQuakeLevel(file, true, level);
    } else if (std::memcmp(magic, "IBSP", 4) == 0) {
        int32_t ibspVersion = LoadI32(bytes.data() + 4);
        if (ibspVersion != 46)
            return file.Fail("IBSP version " + std::to_string(ibspVersion) +
                             "; only version 46 is read");
        layout = "IBSP 46";
        read = ReadIbspLevel(file, level);
    } else {
        return file.Fail("not a BSP level of a known layout (version " + std::to_string(version) +
                         "; 29, BSP2, 2PSB and IBSP 46 are read)");
    }
    if (!read) return false;
    log.Note(level.Summary(layout));
    scene.meshes.insert(scene.meshes.end(), std::make_move_iterator(level.scene.meshes.begin()),
                        std::make_move_iterator(level.scene.meshes.end()));
    return true;
}
