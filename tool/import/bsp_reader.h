// Game levels in the BSP formats of the first and third engine generations: version 29, BSP2
// (and 2PSB) and IBSP version 46. Every face a player could stand on or under is taken, in the
// file's Z-up Quake units, one mesh per texture; sky, trigger, clip and tool surfaces are left out,
// as are billboards. Every vertex carries its face's front normal and every triangle is wound to
// agree with it, so the winding check keeps the author's sides. Untextured: the embedded textures
// need a palette the file doesn't hold.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tool/import/import_scene.h"

// path names the input in messages. Appends to scene and notes a summary; false, with the reason
// logged and scene untouched, for a damaged or unknown file.
bool ReadBspLevel(const std::string& path, const std::vector<uint8_t>& bytes, ImportScene& scene,
                  ImportLog& log);
