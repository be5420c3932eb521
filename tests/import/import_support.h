// What the importer's tests share: small files written by the test (OBJ with its material file,
// greyscale and colour PNG), an import run with its messages captured, and the map read back.
// Header only: the test program takes only *_test.cpp files.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <png.h>

#include <algorithm>
#include <cstdio>
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

#ifndef TENEBRIX_REAL_DATA
#define TENEBRIX_REAL_DATA ""
#endif

// A file of the shared real data, or empty (and the test skips) where the data isn't there.
inline std::string RealData(const std::string& relative) {
    std::string path = std::string(TENEBRIX_REAL_DATA) + "/" + relative;
    std::FILE* file = std::fopen(path.c_str(), "rb");
    if (!file) return "";
    std::fclose(file);
    return path;
}

struct ObjVertex {
    float x, y, z;
};

// A right-handed OBJ as modelling tools write one, of faces given in the map's own axes and
// winding: z is negated and each face's winding reversed, which the import undoes.
struct ObjWriter {
    std::string text;
    size_t vertices = 0, normals = 0;

    // normal, in the map's axes, given to all three corners; null: none.
    void Face(ObjVertex a, ObjVertex b, ObjVertex c, const ObjVertex* normal = nullptr) {
        char line[96];
        for (const ObjVertex& v : {a, c, b}) {
            std::snprintf(line, sizeof line, "v %.9g %.9g %.9g\n", double(v.x), double(v.y),
                          -double(v.z));
            text += line;
        }
        std::string n;
        if (normal) {
            std::snprintf(line, sizeof line, "vn %.9g %.9g %.9g\n", double(normal->x),
                          double(normal->y), -double(normal->z));
            text += line;
            n = "//" + std::to_string(++normals);
        }
        text += "f " + std::to_string(vertices + 1) + n + " " + std::to_string(vertices + 2) + n +
                " " + std::to_string(vertices + 3) + n + "\n";
        vertices += 3;
    }
    // An axis-aligned box, every side seen from outside; reversed: every side seen from inside.
    // With normals, each side's normal points to the side it is seen from.
    void Box(ObjVertex lo, ObjVertex hi, bool reversed = false, bool withNormals = false) {
        // Each side's corners (bit 0: high x, bit 1: high y, bit 2: high z) in the order whose
        // visible side, (c - b) x (a - b) in the engine, faces out; then the side's axis.
        const int sides[6][5] = {{0, 4, 6, 2, 0}, {1, 3, 7, 5, 0}, {0, 1, 5, 4, 1},
                                 {2, 6, 7, 3, 1}, {0, 2, 3, 1, 2}, {4, 5, 7, 6, 2}};
        for (const int* side : sides) {
            ObjVertex c[4];
            for (int k = 0; k < 4; ++k)
                c[k] = {side[k] & 1 ? hi.x : lo.x, side[k] & 2 ? hi.y : lo.y,
                        side[k] & 4 ? hi.z : lo.z};
            if (reversed) std::swap(c[1], c[3]);
            float sign = ((side[0] >> side[4]) & 1 ? 1.0f : -1.0f) * (reversed ? -1.0f : 1.0f);
            ObjVertex normal = {side[4] == 0 ? sign : 0.0f, side[4] == 1 ? sign : 0.0f,
                                side[4] == 2 ? sign : 0.0f};
            Face(c[0], c[1], c[2], withNormals ? &normal : nullptr);
            Face(c[0], c[2], c[3], withNormals ? &normal : nullptr);
        }
    }
    void Save(const std::string& path) const { WriteWholeFile(path, text); }
};

// Greyscale PNG of 8 or 16 bits, samples row by row from the top.
inline bool WriteGreyPng(const std::string& path, uint32_t width, uint32_t height, int bits,
                         const std::vector<uint16_t>& samples) {
    png_image image = {};
    image.version = PNG_IMAGE_VERSION;
    image.width = width;
    image.height = height;
    image.format = bits == 16 ? PNG_FORMAT_LINEAR_Y : PNG_FORMAT_GRAY;
    if (bits == 16)
        return png_image_write_to_file(&image, path.c_str(), 0, samples.data(), 0, nullptr) != 0;
    std::vector<uint8_t> bytes(samples.begin(), samples.end());
    return png_image_write_to_file(&image, path.c_str(), 0, bytes.data(), 0, nullptr) != 0;
}

// Colour PNG from red, green, blue bytes.
inline bool WriteColourPng(const std::string& path, uint32_t width, uint32_t height,
                           const std::vector<uint8_t>& rgb) {
    png_image image = {};
    image.version = PNG_IMAGE_VERSION;
    image.width = width;
    image.height = height;
    image.format = PNG_FORMAT_RGB;
    return png_image_write_to_file(&image, path.c_str(), 0, rgb.data(), 0, nullptr) != 0;
}

inline std::string Base64(const std::string& bytes) {
    static const char* digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string out;
    for (size_t i = 0; i < bytes.size(); i += 3) {
        uint32_t word = uint32_t(uint8_t(bytes[i])) << 16;
        if (i + 1 < bytes.size()) word |= uint32_t(uint8_t(bytes[i + 1])) << 8;
        if (i + 2 < bytes.size()) word |= uint8_t(bytes[i + 2]);
        for (int k = 0; k < 4; ++k)
            out += i * 8 + size_t(k) * 6 < bytes.size() * 8 ? digits[(word >> (18 - 6 * k)) & 63]
                                                            : '=';
    }
    return out;
}

inline std::string Floats(std::initializer_list<float> values) {
    std::string bytes;
    for (float v : values) bytes.append(reinterpret_cast<const char*>(&v), sizeof v);
    return bytes;
}

// One textured triangle as a glTF file with everything inside as data URIs; node holds more of the
// node's JSON (", \"scale\": [2, 2, 2]"), png is the colour map's file (empty: none).
inline void WriteTriangleGltf(const std::string& path, const std::string& node,
                              const std::string& png) {
    std::string buffer = Floats({0, 0, 0, 1, 0, 0, 0, 0, 1}) + Floats({0, 0, 1, 0, 0, 1});
    buffer += std::string("\0\0\2\0\1\0", 6);
    std::string material = png.empty() ? "" : R"(, "material": 0)";
    std::string images =
        png.empty()
            ? ""
            : R"("materials": [{"pbrMetallicRoughness": {"baseColorTexture": {"index": 0}}}],
            "textures": [{"source": 0}],
            "images": [{"uri": "data:image/png;base64,)" +
                  Base64(png) + R"("}],)";
    std::string gltf = R"({"asset": {"version": "2.0"}, "scene": 0, "scenes": [{"nodes": [0]}],
            "nodes": [{"mesh": 0)" +
                       node + R"(}],
            "meshes": [{"primitives": [{"attributes": {"POSITION": 0, "TEXCOORD_0": 1},
                                         "indices": 2)" +
                       material + R"(}]}],)" + images +
                       R"("buffers": [{"byteLength": 66,
                         "uri": "data:application/octet-stream;base64,)" +
                       Base64(buffer) + R"("}],
            "bufferViews": [{"buffer": 0, "byteOffset": 0, "byteLength": 36},
                            {"buffer": 0, "byteOffset": 36, "byteLength": 24},
                            {"buffer": 0, "byteOffset": 60, "byteLength": 6}],
            "accessors": [{"bufferView": 0, "componentType": 5126, "count": 3, "type": "VEC3",
                           "min": [0, 0, 0], "max": [1, 0, 1]},
                          {"bufferView": 1, "componentType": 5126, "count": 3, "type": "VEC2"},
                          {"bufferView": 2, "componentType": 5123, "count": 3,
                           "type": "SCALAR"}]})";
    WriteWholeFile(path, gltf);
}

// An import run through the library, its messages kept.
struct ImportResult {
    bool written = false;
    int errors = 0;
    std::string messages;  // one line a message, "error: " or "warning: " before the text
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

inline ImportRequest Request(const std::vector<std::string>& inputs,
                             const std::string& folder = "map") {
    ImportRequest request;
    request.inputs = inputs;
    request.mapFolder = folder;
    return request;
}

// Every mesh with faces below node, depth first.
inline std::vector<const CMesh*> MeshesBelow(const CEntity* node) {
    std::vector<const CMesh*> found;
    if (node->kind == EntityKindMesh && static_cast<const CMesh*>(node)->faceCount[0])
        found.push_back(static_cast<const CMesh*>(node));
    for (const CEntity* child = node->firstChild; child; child = child->nextSibling)
        for (const CMesh* mesh : MeshesBelow(child)) found.push_back(mesh);
    return found;
}

// A map folder's test.vbf loaded, with its size chunk.
struct LoadedMap {
    CMesh root{nullptr};
    MapSize size = {0, 0};
    bool loaded = false;

    explicit LoadedMap(const std::string& folder) {
        VBFUserData* data = root.LoadVBFWithData((folder + "/test.vbf").c_str());
        if (!data) return;
        const char* error = nullptr;
        loaded = ReadMapChunks(data->bytes, data->size, size, error);
        FreeVBFUserData(data);
    }
    ~LoadedMap() { FreeAllTextures(); }

    std::vector<const CMesh*> Meshes() const { return MeshesBelow(&root); }
    size_t Triangles() const {
        size_t count = 0;
        for (const CMesh* mesh : Meshes()) count += mesh->faceCount[0];
        return count;
    }
    // Every face's colour map, null where it has none.
    std::vector<const CTexture*> FaceTextures() const {
        std::vector<const CTexture*> textures;
        for (const CMesh* mesh : Meshes())
            for (uint32_t f = 0; f < mesh->faceCount[0]; ++f)
                textures.push_back(mesh->faces[0][f].texture);
        return textures;
    }
    // What the ground rays find straight down at (x, z); false for nothing.
    bool Ground(float x, float z, Vector& position, Vector* normal = nullptr) {
        RayTable table;
        table.AddTree(&root);
        RayQueryState state;
        bool missed = RayCastDown(table, state, x, 10000.0f, z, x, -20000.0f, z);
        position = state.Ground.Position;
        if (normal) *normal = state.Ground.Normal;
        return !missed;
    }
    // The height found there, or -1e9 for none.
    float GroundAt(float x, float z) {
        Vector position;
        return Ground(x, z, position) ? position.y : -1e9f;
    }
};
