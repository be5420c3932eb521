// CityJSON city models: buildings as solids with semantic surfaces, levels of detail, template
// instances and polygons with holes, seen from above as the bake's ground rays see them; damaged
// files refused with the object and the fault named.
#include <gtest/gtest.h>

#include <cmath>
#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <vector>

#include "tests/import/import_support.h"
#include "tool/import/cityjson_reader.h"

namespace {

using Json = nlohmann::json;

// A read into a scene that holds an earlier input's mesh, which a failure must leave alone.
struct CityRead {
    explicit CityRead(const std::string& text, const std::string& path = "city.json") {
        ImportLog log([this](ImportSeverity, const std::string& line) { messages += line + "\n"; });
        scene.meshes.resize(1);
        read = ReadCityJson(path, std::vector<uint8_t>(text.begin(), text.end()), scene, log);
    }
    bool read;
    std::string messages;
    ImportScene scene;
};

// A box as one shell: bottom, top, then four walls, each counter-clockwise seen from outside.
Json Box(Json& vertices, double x0, double y0, double x1, double y1, double height) {
    size_t b = vertices.size();
    const double corners[4][2] = {{x0, y0}, {x1, y0}, {x1, y1}, {x0, y1}};
    for (double z : {0.0, height})
        for (const auto& corner : corners) vertices.push_back({corner[0], corner[1], z});
    Json shell = {Json::array({{b, b + 3, b + 2, b + 1}}),
                  Json::array({{b + 4, b + 5, b + 6, b + 7}})};
    for (size_t k = 0; k < 4; ++k)
        shell.push_back(Json::array({{b + k, b + (k + 1) % 4, b + 4 + (k + 1) % 4, b + 4 + k}}));
    return Json::array({shell});
}

// Solid walls and a roof at 12; a block whose LoD 1 (5 high) gives way to its LoD 2 (8 high); a
// roof on posts at 6 with a hole, of a type no reader knows; a tree from a template box 2 x 3 x 4,
// mirrored, turned, doubled and moved to stand over x 67 .. 73, y 3 .. 7; a group without geometry.
// In 2.0 with integer vertices and a transform to Dutch coordinates, or in 1.0 with plain numbers.
std::string CityModel(bool transformed) {
    Json v = Json::array(), shape = Json::array();
    auto lod = [&](double level) {
        return transformed ? Json(std::to_string(level)) : Json(level);
    };
    Json semantics = {
        {"surfaces",
         {{{"type", "GroundSurface"}}, {{"type", "WallSurface"}}, {{"type", "RoofSurface"}}}},
        {"values", {{0, 2, 1, 1, 1, 1}}}};
    auto solid = [&](Json boundaries, double level) {
        return Json{{"type", "Solid"}, {"lod", lod(level)}, {"boundaries", boundaries}};
    };
    Json tall = solid(Box(v, 0, 0, 10, 10, 12), 2), block = solid(Box(v, 20, 0, 30, 10, 8), 2.2);
    tall["semantics"] = block["semantics"] = semantics;
    size_t c = v.size();
    const int corners[9][2] = {{40, 0}, {60, 0}, {60, 10}, {40, 10}, {44, 2},
                               {44, 8}, {56, 8}, {56, 2},  {70, 5}};  // outer ring, hole, tree
    for (const auto& corner : corners) v.push_back({corner[0], corner[1], corner[0] == 70 ? 0 : 6});
    Json canopy = {{"type", "MultiSurface"},
                   {"lod", lod(2)},
                   {"boundaries", {{{c, c + 1, c + 2, c + 3}, {c + 4, c + 5, c + 6, c + 7}}}}};
    Json tree = {{"type", "GeometryInstance"},
                 {"template", 0},
                 {"boundaries", Json::array({c + 8})},
                 {"transformationMatrix", {0, -2, 0, 1, -2, 0, 0, 0, 0, 0, 2, 0, 0, 0, 0, 1}}};
    Json file = {
        {"type", "CityJSON"},
        {"version", transformed ? "2.0" : "1.0"},
        {"CityObjects",
         {{"tall", {{"type", "Building"}, {"geometry", Json::array({tall})}}},
          {"block",
           {{"type", "Building"}, {"geometry", {solid(Box(v, 20, 0, 30, 10, 5), 1), block}}}},
          {"canopy", {{"type", "+Canopy"}, {"geometry", Json::array({canopy})}}},
          {"tree", {{"type", "SolitaryVegetationObject"}, {"geometry", Json::array({tree})}}},
          {"group", {{"type", "CityObjectGroup"}}}}},
        {"geometry-templates",
         {{"templates", Json::array({solid(Box(shape, -1, -1, 1, 2, 4), 2)})},
          {"vertices-templates", shape}}}};
    const double scale[3] = {0.01, 0.01, 0.001}, offset[3] = {85000, 447000, -1.5};
    for (Json& vertex : v)
        for (int k = 0; k < 3; ++k)
            vertex[k] = transformed ? Json(std::lround(vertex[k].get<double>() / scale[k]))
                                    : Json(vertex[k].get<double>() + offset[k]);
    file["vertices"] = v;
    if (transformed) file["transform"] = {{"scale", scale}, {"translate", offset}};
    return file.dump();
}

TEST(CityJson, BuildingsStandOnTheGroundAtTheirHeights) {
    for (bool transformed : {true, false}) {
        SCOPED_TRACE(transformed ? "2.0 with a transform" : "1.0 with plain numbers");
        TempDir dir;
        std::string text = CityModel(transformed);
        CityRead read(text);
        ASSERT_TRUE(read.read) << read.messages;
        std::set<std::string> names;
        for (const ImportMesh& mesh : read.scene.meshes) {
            if (mesh.fileUp == UpAxis::Z) names.insert(mesh.name);
            // A roof meets its walls at 90 degrees: its corners keep the roof's own normal.
            bool roof = mesh.name.ends_with("RoofSurface");
            for (const DVec3& n : mesh.normals) EXPECT_TRUE(!roof || n.z == 1.0) << mesh.name;
        }
        EXPECT_EQ(names, (std::set<std::string>{
                             "city.json: Building GroundSurface", "city.json: Building WallSurface",
                             "city.json: Building RoofSurface", "city.json: +Canopy",
                             "city.json: SolitaryVegetationObject"}));
        EXPECT_THAT(read.messages,
                    HasSubstr("5 city objects: 1 +Canopy, 2 Building, 1 CityObjectGroup, "
                              "1 SolitaryVegetationObject (1 without geometry)"));
        EXPECT_THAT(read.messages, HasSubstr("1 geometry of a lower level of detail"));

        WriteWholeFile("city.json", text);
        ImportResult result = Import(Request("city.json"));
        ASSERT_TRUE(result.written && result.errors == 0) << result.messages;
        EXPECT_THAT(result.messages, Not(HasSubstr("warning: ")));
        LoadedMap map("map");
        // x, y and the height seen there; map x runs east from x = 0, map z north from y = 10.
        const float probes[][3] = {{5, 5, 12},   {25, 5, 8}, {42, 5, 6},   {50, 5, 0},  {15, 5, 0},
                                   {67.5, 5, 8}, {70, 8, 0}, {73.5, 5, 0}, {70, 6.5, 8}};
        for (const auto& p : probes)
            EXPECT_NEAR(map.GroundAt(p[0], p[1] - 10), p[2], 1e-3) << p[0] << ", " << p[1];
    }
}

// Each fault fails the file with its object and place named, and leaves the scene as it was.
TEST(CityJson, DamagedFilesAreRefusedWithTheFaultNamed) {
    auto file = [](const std::string& geometry, const std::string& more = "") {
        return R"({"type": "CityJSON", "version": "2.0")" + more +
               R"(, "vertices": [[0, 0, 0], [1, 0, 0], [1, 1, 0], [0, 1, 0]], "CityObjects":
               {"b1": {"type": "Building", "geometry": [)" +
               geometry + "]}}}";
    };
    auto surfaces = [&](const std::string& boundaries, const std::string& more = "") {
        return file(R"({"type": "MultiSurface", "boundaries": )" + boundaries + more + "}");
    };
    const std::string transform = R"(, "transform": {"translate": [1e308, 0, 0], "scale": )";
    const std::vector<std::pair<std::string, std::string>> cases = {
        {R"({"type": "CityJSON", "vertices": [1, 2,, 3]})",
         "city.json: not JSON: at byte 40 (line 1, column 40: syntax error"},
        {"[]", "city.json: not a CityJSON file: the JSON is an array"},
        {R"({"type": "Feature"})", "city.json: not a CityJSON file: no \"type\": \"CityJSON\""},
        {surfaces("[[[0, 1, 2, 9]]]"),
         "city.json: object \"b1\", geometry 0: boundaries[0][0][3]: "
         "vertex 9 is out of range; there are 4 vertices"},
        {surfaces("[[[0, 1, 2]], [[0, 1, 0]]]"), "[1][0] is a ring of 2 vertices; a ring needs"},
        {surfaces("[[[0, 1, -2]]]"), "[0][0][2] is not a whole number from 0 up, not a vertex"},
        {file(R"({"type": "Solid", "boundaries": [[[0, 1, 2]]]})"),
         "\"b1\", geometry 0: boundaries[0][0][0] is a number where a ring"},
        {surfaces("[[[[0, 1, 2]]]]"), "[0][0][0] is an array where a vertex index belongs"},
        {surfaces("[[[0, 1, 2]]]",
                  R"(, "semantics": {"surfaces": [{"type": "R"}], "values": [1]})"),
         "\"b1\", geometry 0: semantics value for boundaries[0] is not one of the 1 surface"},
        {surfaces("[[[0, 1, 2]]]", R"(, "semantics": {"surfaces": [], "values": [null, null]})"),
         "semantics values for boundaries don't match the boundaries: 2 values for 1 surface"},
        {file("", transform + R"([1, "1", 1]})"), "city.json: transform scale[1] is not a number"},
        {file("", transform + "[1e308, 1, 1]}"),
         "vertex 1 is out of range once scaled and moved by"},
        {file(R"({"type": "GeometryInstance", "template": 0, "boundaries": [0]})"),
         "\"b1\", geometry 0: a GeometryInstance, but the file has no \"geometry-templates\""},
        {file(R"({"type": "MultiSurface", "lod": "two", "boundaries": []})"), "\"lod\" is not a"},
        {file(R"({"type": "MultiPoint", "boundaries": [0]})"), "no surfaces with an area"},
    };
    for (const auto& [text, expected] : cases) {
        CityRead read(text);
        EXPECT_FALSE(read.read) << text;
        EXPECT_THAT(read.messages, HasSubstr(expected)) << text;
        EXPECT_EQ(read.scene.meshes.size(), 1u);
        EXPECT_FALSE(read.scene.groundPlane);
    }
}

// The real Delft tile: 570 objects of seven types, 36,271 triangles of which 2 have no area.
TEST(CityJson, TheDelftTileReadsEveryObjectAndTriangle) {
    std::string path = RealData("delft-cityjson/delft.city.json");
    if (path.empty()) GTEST_SKIP() << "no real data";
    CityRead read(ReadWholeFile(path), path);
    ASSERT_TRUE(read.read) << read.messages;
    EXPECT_THAT(read.messages, HasSubstr("CityJSON 2.0, 570 city objects: 3 Bridge, 160 Building, "
                                         "54 GenericCityObject, 81 LandUse, 126 PlantCover, "
                                         "143 Road, 3 WaterBody\n"));
    EXPECT_THAT(read.messages, HasSubstr(": 2 polygons without area left out"));
    size_t triangles = 0;
    for (const ImportMesh& mesh : read.scene.meshes) triangles += mesh.triangles.size() / 3;
    EXPECT_EQ(read.scene.meshes.size(), 1u + 7u);
    EXPECT_EQ(triangles, 36271u - 2u);
}

}  // namespace
