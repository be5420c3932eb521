// CityJSON city models (.json, .city.json; versions 1.0, 1.1 and 2.0): the surfaces of every city
// object at its highest level of detail, triangulated, one mesh per object type and semantic
// surface type ("delft.city.json: Building RoofSurface", "delft.city.json: Road"). The format is
// Z up and right-handed with surfaces wound counter-clockwise seen from outside; the model stands
// on the ground, so the importer adds a ground plane under it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tool/import/import_scene.h"

// Larger files are refused: parsed, JSON takes many times its size in memory.
constexpr uint64_t MaxCityJsonBytes = uint64_t(512) << 20;

// False, with an error naming the file, the object and the fault, when the file can't be read;
// the scene is changed only on success.
bool ReadCityJson(const std::string& path, const std::vector<uint8_t>& bytes, ImportScene& scene,
                  ImportLog& log);
