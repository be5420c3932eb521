// CityJSON city models: buildings as solids with semantic surfaces, levels of detail, template
// instances and polygons with holes, seen from above as the bake's ground rays see them; damaged
// files refused with the object and the fault named.
#include <gtest/gtest.h>

#include <cstdio>
#include <set>
#include <string>
#include <vector>

#include "tests/import/import_support.h"
#include "tool/import/cityjson_reader.h"

namespace {

struct CityRead {
    bool read = false;
    std::string messages;
    ImportScene scene;
};

CityRead ReadText(const std::string& text, const std::string& path = "city.json") {
    CityRead result;
    ImportLog log([&](ImportSeverity, const std::string& line) { result.messages += line + "\n"; });
    result.scene.meshes.resize(1);  // what an earlier input left, which a failure must keep
    result.read = ReadCityJson(path, std::vector<uint8_t>(text.begin(), text.end()), result.scene, log);
    return result;
}

// A model in metres, right-handed, Z up: written with integer vertices and a transform that puts
// it where Dutch coordinates lie (2.0), or with plain numbers (1.0, its levels of detail numbers).
struct CityWriter {
    std::vector<DVec3> vertices;
    std::string objects;

    std::string Ring(std::initializer_list<DVec3> corners) {
        std::string ring;
        for (const DVec3& c : corners) {
            ring += (ring.empty() ? "[" : ", ") + std::to_string(vertices.size());
            vertices.push_back(c);
        }
        return ring + "]";
    }
    // A box's six faces, outward: bottom, four walls, top.
    std::string Box(double x0, double y0, double x1, double y1, double height) {
        const DVec3 b[4] = {{x0, y0, 0}, {x1, y0, 0}, {x1, y1, 0}, {x0, y1, 0}};
        auto top = [&](int k) { return DVec3{b[k].x, b[k].y, height}; };
        std::string faces = "[" + Ring({b[0], b[3], b[2], b[1]}) + "]";
        for (int k = 0; k < 4; ++k) faces += ", [" + Ring({b[k], b[(k + 1) % 4], top((k + 1) % 4), top(k)}) + "]";
        return faces + ", [" + Ring({top(0), top(1), top(2), top(3)}) + "]";
    }
    void Object(const std::string& id, const std::string& type, const std::string& geometry) {
        objects += std::string(objects.empty() ? "" : ",\n") + "\"" + id + "\": {\"type\": \"" + type +
                   "\", \"geometry\": [" + geometry + "]}";
    }
    std::string Text(bool transformed, const std::string& more = "") const {
        std::string text = std::string("{\"type\": \"CityJSON\", \"version\": \"") +
                           (transformed ? "2.0" : "1.0") + "\", \"CityObjects\": {" + objects +
                           "}" + more + ",\n\"vertices\": [";
        if (transformed) text = "{\"transform\": {\"scale\": [0.01, 0.01, 0.001], "
                                "\"translate\": [85000, 447000, -1.5]}," + text.substr(1);
        char number[120];
        for (const DVec3& v : vertices) {
            if (transformed)
                std::snprintf(number, sizeof number, "[%.0f, %.0f, %.0f]", v.x * 100, v.y * 100, v.z * 1000);
            else
                std::snprintf(number, sizeof number, "[%.3f, %.3f, %.3f]", v.x + 85000, v.y + 447000, v.z - 1.5);
            text += std::string(&v == vertices.data() ? "" : ", ") + number;
        }
        return text + "]}";
    }
};

std::string Lod(bool transformed, const char* lod) {
    return transformed ? std::string("\"") + lod + "\"" : lod;
}

// A solid with semantic walls and a roof at 12; a building whose LoD 1 block (5 high) is left for
// its LoD 2 (8 high); a roof on posts at 6 with a hole in it, of a type this reader doesn't know;
// a tree placed twice its template's size. Both encodings give the same map.
TEST(CityJson, BuildingsStandOnTheGroundAtTheirHeights) {
    for (bool transformed : {true, false}) {
        SCOPED_TRACE(transformed ? "2.0 with a transform" : "1.0 with plain numbers");
        TempDir dir;
        CityWriter city;
        std::string walls = "{\"surfaces\": [{\"type\": \"GroundSurface\"}, {\"type\": \"WallSurface\"}, "
                            "{\"type\": \"RoofSurface\"}], \"values\": [[0, 1, 1, 1, 1, 2]]}";
        city.Object("tall", "Building", "{\"type\": \"Solid\", \"lod\": " + Lod(transformed, "2") +
                                            ", \"boundaries\": [[" + city.Box(0, 0, 10, 10, 12) +
                                            "]], \"semantics\": " + walls + "}");
        city.Object("block", "Building",
                    "{\"type\": \"Solid\", \"lod\": " + Lod(transformed, "1") + ", \"boundaries\": [[" +
                        city.Box(20, 0, 30, 10, 5) + "]]}, {\"type\": \"Solid\", \"lod\": " +
                        Lod(transformed, "2.2") + ", \"boundaries\": [[" + city.Box(20, 0, 30, 10, 8) +
                        "]], \"semantics\": " + walls + "}");
        city.Object("canopy", "+Canopy",
                    "{\"type\": \"MultiSurface\", \"lod\": " + Lod(transformed, "2") + ", \"boundaries\": [[" +
                        city.Ring({{40, 0, 6}, {60, 0, 6}, {60, 10, 6}, {40, 10, 6}}) + ", " +
                        city.Ring({{44, 2, 6}, {44, 8, 6}, {56, 8, 6}, {56, 2, 6}}) + "]]}");
        std::string base = city.Ring({{70, 5, 0}});
        base = base.substr(1, base.size() - 2);
        city.Object("tree", "SolitaryVegetationObject",
                    "{\"type\": \"GeometryInstance\", \"template\": 0, \"boundaries\": [" + base +
                        "], \"transformationMatrix\": [2, 0, 0, 0, 0, 2, 0, 0, 0, 0, 2, 0, 0, 0, 0, 1]}");
        CityWriter shape;  // the template, a box 2 x 2 x 4 about its foot
        std::string box = shape.Box(-1, -1, 1, 1, 4), points;
        for (const DVec3& v : shape.vertices)
            points += (points.empty() ? "[" : ", [") + std::to_string(v.x) + ", " + std::to_string(v.y) +
                      ", " + std::to_string(v.z) + "]";
        std::string text = city.Text(transformed, ", \"geometry-templates\": {\"templates\": [{\"type\": "
                                                  "\"Solid\", \"lod\": " + Lod(transformed, "2") +
                                                  ", \"boundaries\": [[" + box + "]]}], "
                                                  "\"vertices-templates\": [" + points + "]}");
        CityRead read = ReadText(text);
        ASSERT_TRUE(read.read) << read.messages;
        EXPECT_TRUE(read.scene.groundPlane);
        std::set<std::string> names;
        for (size_t m = 1; m < read.scene.meshes.size(); ++m) {
            names.insert(read.scene.meshes[m].name);
            EXPECT_EQ(read.scene.meshes[m].fileUp, UpAxis::Z);
        }
        EXPECT_EQ(names, (std::set<std::string>{"city.json: Building GroundSurface", "city.json: Building WallSurface",
                                                "city.json: Building RoofSurface", "city.json: +Canopy",
                                                "city.json: SolitaryVegetationObject"}));
        EXPECT_THAT(read.messages, HasSubstr("4 city objects: 1 +Canopy, 2 Building, 1 SolitaryVegetationObject"));
        EXPECT_THAT(read.messages, HasSubstr("1 geometry of a lower level of detail"));

        WriteWholeFile("city.json", text);
        ImportResult result = Import(Request("city.json"));
        ASSERT_TRUE(result.written && result.errors == 0) << result.messages;
        EXPECT_THAT(result.messages, Not(HasSubstr("turned")));
        LoadedMap map("map");
        // Map x is east from the model's west edge, map z north from its north edge.
        for (auto [x, y, height] : std::vector<std::tuple<float, float, float>>{
                 {5, 5, 12}, {25, 5, 8}, {42, 5, 6}, {50, 5, 0}, {15, 5, 0}, {70, 5, 8}, {66, 5, 0}})
            EXPECT_NEAR(map.GroundAt(x, y - 10), height, 1e-3) << "at " << x << ", " << y;
    }
}

// Each fault fails the file with its object and place named, and leaves the scene as it was.
TEST(CityJson, DamagedFilesAreRefusedWithTheFaultNamed) {
    auto file = [](const std::string& geometry, const std::string& more = "",
                   const std::string& last = "0") {
        return "{\"type\": \"CityJSON\", \"version\": \"2.0\"" + more +
               ", \"vertices\": [[0, 0, 0], [1, 0, 0], [1, 1, 0], [0, 1, " + last + "]], \"CityObjects\": "
               "{\"b1\": {\"type\": \"Building\", \"geometry\": [" + geometry + "]}}}";
    };
    auto surfaces = [&](const std::string& boundaries, const std::string& more = "") {
        return file("{\"type\": \"MultiSurface\", \"lod\": \"1\", \"boundaries\": " + boundaries + more + "}");
    };
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"{\"type\": \"CityJSON\", \"vertices\": [1, 2,, 3]}", "city.json: not JSON: at byte 40 (line 1, column 40: syntax error"},
        {"[]", "city.json: not a CityJSON file: the JSON is an array"},
        {"{\"type\": \"FeatureCollection\"}", "city.json: not a CityJSON file: no \"type\": \"CityJSON\""},
        {surfaces("[[[0, 1, 2, 9]]]"),
         "object \"b1\", geometry 0: boundaries[0][0][3]: vertex 9 is out of range; there are 4 vertices"},
        {surfaces("[[[0, 1, 2]], [[0, 1]]]"), "object \"b1\", geometry 0: boundaries[1][0] is a ring of 2 vertices"},
        {surfaces("[[[0, 1, 0]]]"), "boundaries[0][0] is a ring of 2 vertices"},
        {surfaces("[[[0, 1, -2]]]"), "boundaries[0][0][2] is not a whole number from 0 up, not a vertex index"},
        {file("{\"type\": \"Solid\", \"boundaries\": [[[0, 1, 2]]]}"),
         "object \"b1\", geometry 0: boundaries[0][0][0] is a number where a ring"},
        {surfaces("[[[[0, 1, 2]]]]"), "boundaries[0][0][0] is an array where a vertex index belongs: the boundaries nest too deeply"},
        {surfaces("[[[0, 1, 2]]]", ", \"semantics\": {\"surfaces\": [{\"type\": \"RoofSurface\"}], \"values\": [1]}"),
         "object \"b1\", geometry 0: semantics value for boundaries[0] is not one of the 1 surface"},
        {surfaces("[[[0, 1, 2]]]", ", \"semantics\": {\"surfaces\": [], \"values\": [[0]]}"),
         "semantics value for boundaries[0] is an array"},
        {surfaces("[[[0, 1, 2]]]", ", \"semantics\": {\"surfaces\": [], \"values\": [null, null]}"),
         "semantics values for boundaries don't match the boundaries: 2 values for 1 surface"},
        {file("", ", \"transform\": {\"scale\": [1, \"1\", 1], \"translate\": [0, 0, 0]}"),
         "city.json: transform scale[1] is not a number"},
        {file("", ", \"transform\": {\"scale\": [1, 1, 1e308], \"translate\": [0, 0, 0]}", "1e10"),
         "vertex 3 is out of range once scaled and moved by the transform"},
        {file("{\"type\": \"GeometryInstance\", \"template\": 0, \"boundaries\": [0]}"),
         "object \"b1\", geometry 0: a GeometryInstance, but the file has no \"geometry-templates\""},
        {file("{\"type\": \"MultiSurface\", \"lod\": \"two\", \"boundaries\": []}"), "\"lod\" is not a number"},
        {file("{\"type\": \"MultiPoint\", \"boundaries\": [0]}"), "city.json: no surfaces with an area in the file"},
    };
    for (const auto& [text, expected] : cases) {
        CityRead read = ReadText(text);
        EXPECT_FALSE(read.read) << text;
        EXPECT_THAT(read.messages, HasSubstr(expected)) << text;
        EXPECT_EQ(read.scene.meshes.size(), 1u);
        EXPECT_FALSE(read.scene.groundPlane);
    }
}

// The real Delft tile: 570 objects in seven types, 36,271 triangles of which 2 have no area.
TEST(CityJson, TheDelftTileReadsEveryObjectAndTriangle) {
    std::string path = RealData("delft-cityjson/delft.city.json");
    if (path.empty()) GTEST_SKIP() << "no real data";
    std::string bytes = ReadWholeFile(path);
    CityRead read = ReadText(bytes, path);
    ASSERT_TRUE(read.read) << read.messages;
    EXPECT_THAT(read.messages, HasSubstr("CityJSON 2.0, 570 city objects: 3 Bridge, 160 Building, "
                                         "54 GenericCityObject, 81 LandUse, 126 PlantCover, 143 Road, "
                                         "3 WaterBody\n"));
    EXPECT_THAT(read.messages, HasSubstr(": 2 polygons without area left out"));
    size_t triangles = 0;
    for (const ImportMesh& mesh : read.scene.meshes) triangles += mesh.triangles.size() / 3;
    EXPECT_EQ(read.scene.meshes.size(), 1u + 7u);
    EXPECT_EQ(triangles, 36271u - 2u);
}

}  // namespace
