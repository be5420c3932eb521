// What the importer's tests share: small files written by the test (OBJ, PNG, glTF), an import
// run with its messages captured, and the map read back. Header only: the test program takes only
// *_test.cpp files.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <png.h>

#include <cstdio>
#include <filesystem>
#include <initializer_list>
#include <string>
#include <vector>

#include "engine/mesh/mesh.h"
#include "engine/texture/texture.h"
#include "tests/support/temp_dir.h"
#include "tool/import/import_run.h"
#include "tool/maps/map_chunks.h"
#include "tool/raycast/literal_walk.h"

using testing::HasSubstr;
using testing::Not;

// A file of the shared real data, or empty (and the test skips) where the data isn't there.
inline std::string RealData(const std::string& relative) {
    std::string path = std::string(TENEBRIX_REAL_DATA) + "/" + relative;
    return std::filesystem::exists(path) ? path : "";
}

// A right-handed OBJ as modelling tools write one, of faces given in the map's axes, winding and
// texture coordinates: z negated, each face's winding reversed and v counted from the image's
// bottom, which the import undoes.
struct ObjWriter {
    std::string text;
    size_t vertices = 0, normals = 0, uvs = 0;

    void Add(const char* key, std::initializer_list<double> values) {
        char number[32];
        text += key;
        for (double v : values) text.append(number, std::snprintf(number, sizeof number, " %.9g", v));
        text += "\n";
    }
    // n: the corners' normals, uv: their u, v; null: none.
    void Face(Vector a, Vector b, Vector c, const Vector* n = nullptr, const float* uv = nullptr) {
        const Vector p[3] = {a, b, c};
        std::string face = "f";
        for (int k : {0, 2, 1}) {
            Add("v", {p[k].x, p[k].y, -double(p[k].z)});
            face += " " + std::to_string(++vertices);
            if (uv) Add("vt", {uv[2 * k], 1.0 - uv[2 * k + 1]});
            if (uv || n) face += "/" + (uv ? std::to_string(++uvs) : "");
            if (n) Add("vn", {n[k].x, n[k].y, -double(n[k].z)});
            if (n) face += "/" + std::to_string(++normals);
        }
        text += face + "\n";
    }
    // An axis-aligned box, every side seen from outside; reversed: every side seen from inside.
    // With normals, each side's normal points to the side it is seen from.
    void Box(Vector lo, Vector hi, bool reversed = false, bool withNormals = false) {
        // Each side's corners (bit 0: high x, bit 1: high y, bit 2: high z) in the order whose
        // visible side faces out; then the side's axis.
        const int sides[6][5] = {{0, 4, 6, 2, 0}, {1, 3, 7, 5, 0}, {0, 1, 5, 4, 1},
                                 {2, 6, 7, 3, 1}, {0, 2, 3, 1, 2}, {4, 5, 7, 6, 2}};
        for (const int* side : sides) {
            Vector c[4];
            for (int k = 0; k < 4; ++k)
                c[k] = {side[k] & 1 ? hi.x : lo.x, side[k] & 2 ? hi.y : lo.y, side[k] & 4 ? hi.z : lo.z};
            if (reversed) std::swap(c[1], c[3]);
            float sign = ((side[0] >> side[4]) & 1 ? 1.0f : -1.0f) * (reversed ? -1.0f : 1.0f);
            Vector n = {side[4] == 0 ? sign : 0.0f, side[4] == 1 ? sign : 0.0f, side[4] == 2 ? sign : 0.0f};
            const Vector corners[3] = {n, n, n};
            Face(c[0], c[1], c[2], withNormals ? corners : nullptr);
            Face(c[0], c[2], c[3], withNormals ? corners : nullptr);
        }
    }
    void Save(const std::string& path) const { WriteWholeFile(path, text); }
};

// format: PNG_FORMAT_GRAY (bytes), PNG_FORMAT_LINEAR_Y (16-bit samples) or PNG_FORMAT_RGB.
inline bool WritePng(const std::string& path, uint32_t width, uint32_t height, uint32_t format,
                     const void* pixels) {
    png_image image = {};
    image.version = PNG_IMAGE_VERSION;
    image.width = width;
    image.height = height;
    image.format = format;
    return png_image_write_to_file(&image, path.c_str(), 0, pixels, 0, nullptr) != 0;
}

// One triangle as a glTF file with its buffer in NAME.bin beside it; node holds more of the node's
// JSON (", \"scale\": [2, 2, 2]"), png the colour map's file, held in the buffer (empty: none).
inline void WriteTriangleGltf(const std::string& name, const std::string& node, const std::string& png) {
    const float data[15] = {0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 1, 0, 0, 1};
    std::string bin(reinterpret_cast<const char*>(data), sizeof data);
    WriteWholeFile(name + ".bin", bin + std::string("\0\0\2\0\1\0\0\0", 8) + png);
    auto view = [](size_t at, size_t size) {
        return R"({"buffer": 0, "byteOffset": )" + std::to_string(at) + R"(, "byteLength": )" +
               std::to_string(size) + "}";
    };
    std::string material = png.empty() ? "" : R"(, "material": 0)", images = png.empty() ? "" : R"(
        "materials": [{"pbrMetallicRoughness": {"baseColorTexture": {"index": 0}}}],
        "textures": [{"source": 0}], "images": [{"bufferView": 3, "mimeType": "image/png"}],)";
    WriteWholeFile(name + ".gltf", R"({"asset": {"version": "2.0"}, "scene": 0, "scenes": [{"nodes": [0]}],
        "nodes": [{"mesh": 0)" + node + R"(}], "meshes": [{"primitives": [{"attributes":
        {"POSITION": 0, "TEXCOORD_0": 1}, "indices": 2)" +
                                       material + "}]}]," + images + R"(
        "buffers": [{"uri": ")" + name +
                                       R"(.bin", "byteLength": )" + std::to_string(68 + png.size()) + R"(}],
        "bufferViews": [)" + view(0, 36) +
                                       ", " + view(36, 24) + ", " + view(60, 6) +
                                       (png.empty() ? "" : ", " + view(68, png.size())) + R"(],
        "accessors": [{"bufferView": 0, "componentType": 5126, "count": 3, "type": "VEC3",
        "min": [0, 0, 0], "max": [1, 0, 1]}, {"bufferView": 1, "componentType": 5126, "count": 3,
        "type": "VEC2"}, {"bufferView": 2, "componentType": 5123, "count": 3, "type": "SCALAR"}]})");
}

// An import run through the library, its messages kept.
struct ImportResult {
    bool written = false;
    int errors = 0;
    std::string messages;  // a line a message, "error: " or "warning: " before the text
    ImportSummary summary;
};

inline ImportResult Import(const ImportRequest& request) {
    ImportResult result;
    ImportLog log([&](ImportSeverity severity, const std::string& text) {
        result.messages += severity == ImportSeverity::Error     ? "error: "
                           : severity == ImportSeverity::Warning ? "warning: "
                                                                 : "";
        result.messages += text + "\n";
    });
    result.written = RunImport(request, log, result.summary);
    result.errors = log.Errors();
    return result;
}

inline ImportRequest Request(const std::string& input, const std::string& folder = "map") {
    ImportRequest request;
    request.inputs = {input};
    request.mapFolder = folder;
    return request;
}

// Every mesh with faces below node, depth first.
inline void MeshesBelow(const CEntity* node, std::vector<const CMesh*>& found) {
    if (node->kind == EntityKindMesh && static_cast<const CMesh*>(node)->faceCount[0])
        found.push_back(static_cast<const CMesh*>(node));
    for (const CEntity* child = node->firstChild; child; child = child->nextSibling)
        MeshesBelow(child, found);
}

// A map folder's test.vbf loaded, with its size chunk.
struct LoadedMap {
    CMesh root{nullptr};
    MapSize size = {0, 0};
    std::vector<const CMesh*> meshes;
    std::vector<const CTexture*> faceTextures;  // null where a face has none

    explicit LoadedMap(const std::string& folder) {
        VBFUserData* data = root.LoadVBFWithData((folder + "/test.vbf").c_str());
        const char* error = nullptr;
        EXPECT_TRUE(data && ReadMapChunks(data->bytes, data->size, size, error)) << folder;
        if (data) FreeVBFUserData(data);
        MeshesBelow(&root, meshes);
        for (const CMesh* mesh : meshes)
            for (uint32_t f = 0; f < mesh->faceCount[0]; ++f)
                faceTextures.push_back(mesh->faces[0][f].texture);
    }
    ~LoadedMap() { FreeAllTextures(); }

    // The box around every vertex: low x, y, z, then high.
    std::vector<float> Bounds() const {
        std::vector<float> box = {1e30f, 1e30f, 1e30f, -1e30f, -1e30f, -1e30f};
        for (const CMesh* mesh : meshes)
            for (int32_t i = 0; i < mesh->vertexCount; ++i) {
                const Vector& p = mesh->vertices[i].position;
                box = {std::min(box[0], p.x), std::min(box[1], p.y), std::min(box[2], p.z),
                       std::max(box[3], p.x), std::max(box[4], p.y), std::max(box[5], p.z)};
            }
        return box;
    }
    // The height the ground rays find straight down at (x, z), or -1e9 for none.
    float GroundAt(float x, float z) {
        RayTable table;
        table.AddTree(&root);
        RayQueryState state;
        return RayCastDown(table, state, x, 10000.0f, z, x, -20000.0f, z) ? -1e9f : state.Ground.Position.y;
    }
};
