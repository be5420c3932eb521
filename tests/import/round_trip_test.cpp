// A map made by the project's generator, exported as a modelling tool would (a right-handed OBJ
// with normals, texture coordinates and TGA colour maps), comes back as the same triangles.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include "tests/import/import_support.h"
#include "tool/maps/map_generator.h"

namespace {

// A face as compared: each corner's position in the map's world, unit normal and texture
// coordinates, the corners in winding order from the lowest position; and its colour map.
struct Triangle {
    std::array<std::array<float, 8>, 3> c;
    std::string texture;
    bool operator<(const Triangle& other) const { return c < other.c; }
};

// Every face with an area, sorted; shifted by dx, dz.
std::vector<Triangle> Triangles(const std::vector<const CMesh*>& meshes, double dx = 0.0,
                                double dz = 0.0) {
    std::vector<Triangle> all;
    for (const CMesh* mesh : meshes)
        for (uint32_t f = 0; f < mesh->faceCount[0]; ++f) {
            const MeshFace& face = mesh->faces[0][f];
            Triangle t;
            for (int k = 0; k < 3; ++k) {
                const MeshVertex& v = mesh->vertices[face.vertex[k]];
                t.c[k] = {float(v.position.x + dx),
                          v.position.y,
                          float(v.position.z + dz),
                          v.normal.x,
                          v.normal.y,
                          v.normal.z,
                          face.uv[2 * k],
                          face.uv[2 * k + 1]};
            }
            const auto &a = t.c[0], &b = t.c[1], &c = t.c[2];
            double u[3] = {double(c[0]) - b[0], double(c[1]) - b[1], double(c[2]) - b[2]};
            double w[3] = {double(a[0]) - b[0], double(a[1]) - b[1], double(a[2]) - b[2]};
            if (u[1] * w[2] == u[2] * w[1] && u[2] * w[0] == u[0] * w[2] &&
                u[0] * w[1] == u[1] * w[0])
                continue;  // no area: the importer drops it
            t.texture = face.texture && face.texture->name ? face.texture->name : "";
            std::rotate(t.c.begin(), std::min_element(t.c.begin(), t.c.end()), t.c.end());
            all.push_back(t);
        }
    std::sort(all.begin(), all.end());
    return all;
}

// The OBJ and its material file as a right-handed tool writes them: z negated, faces reversed,
// v counted up from the bottom of the image.
void WriteObj(const std::vector<const CMesh*>& meshes, const std::string& stem) {
    std::string obj = "mtllib " + stem + ".mtl\n", mtl = "newmtl plain\nKd 1 1 1\n";
    std::map<const CTexture*, std::string> materials;
    size_t base = 0, uvs = 0;
    char line[160];
    for (const CMesh* mesh : meshes) {
        for (int32_t i = 0; i < mesh->vertexCount; ++i) {
            const MeshVertex& v = mesh->vertices[i];
            std::snprintf(line, sizeof line, "v %.9g %.9g %.9g\nvn %.9g %.9g %.9g\n",
                          double(v.position.x), double(v.position.y), -double(v.position.z),
                          double(v.normal.x), double(v.normal.y), -double(v.normal.z));
            obj += line;
        }
        std::string current;
        for (uint32_t f = 0; f < mesh->faceCount[0]; ++f) {
            const MeshFace& face = mesh->faces[0][f];
            std::string material = "plain";
            if (face.texture) {
                std::string name = face.texture->name;
                material = name.substr(0, name.find('.'));
                if (!materials.count(face.texture)) {
                    materials[face.texture] = material;
                    mtl += "newmtl " + material + "\nKd 1 1 1\nmap_Kd " + name + "\n";
                }
            }
            if (material != current) obj += "usemtl " + material + "\n";
            current = material;
            for (int k = 0; k < 3; ++k) {
                std::snprintf(line, sizeof line, "vt %.9g %.9g\n", double(face.uv[2 * k]),
                              1.0 - double(face.uv[2 * k + 1]));
                obj += line;
            }
            obj += "f";
            for (int k : {0, 2, 1}) {
                size_t v = base + face.vertex[k] + 1, t = uvs + size_t(k) + 1;
                obj += " " + std::to_string(v) + "/" + std::to_string(t) + "/" + std::to_string(v);
            }
            obj += "\n";
            uvs += 3;
        }
        base += size_t(mesh->vertexCount);
    }
    WriteWholeFile(stem + ".obj", obj);
    WriteWholeFile(stem + ".mtl", mtl);
}

TEST(RoundTrip, AGeneratedMapExportedAsObjImportsAsTheSameTriangles) {
    TempDir dir;
    MapRecipe recipe = {.cells = 8,
                    .chunks = 2,
                    .quadsPerCell = 2,
                    .buildings = 4,
                    .arches = 1,
                    .bridges = 1,
                    .roofsOnPosts = 1,
                    .seed = 3};
    MapTextures textures = CreateMapTextures();
    for (CTexture* texture :
         {textures.grass, textures.rock, textures.wall, textures.roof, textures.wood})
        ASSERT_TRUE(texture->SaveAsTGA(dir.File(texture->name).c_str()));
    CMesh* generated = GenerateMap(recipe, &textures);
    std::vector<const CMesh*> meshes = MeshesBelow(generated);
    WriteObj(meshes, "generated");

    // The importer moves the model's box to x = 0 and z = 0; so does the expectation.
    double minX = HUGE_VAL, maxZ = -HUGE_VAL, maxX = -HUGE_VAL, minZ = HUGE_VAL;
    for (const CMesh* mesh : meshes)
        for (int32_t i = 0; i < mesh->vertexCount; ++i) {
            const Vector& p = mesh->vertices[i].position;
            minX = std::min(minX, double(p.x));
            maxX = std::max(maxX, double(p.x));
            minZ = std::min(minZ, double(p.z));
            maxZ = std::max(maxZ, double(p.z));
        }
    std::vector<Triangle> expected = Triangles(meshes, -minX, -maxZ);
    delete generated;
    FreeAllTextures();
    ASSERT_GT(expected.size(), 500u);

    ImportResult result = Import(Request({"generated.obj"}));
    ASSERT_TRUE(result.written) << result.messages;
    EXPECT_EQ(result.errors, 0) << result.messages;
    EXPECT_THAT(result.messages, Not(HasSubstr("turned")));
    LoadedMap map("map");
    ASSERT_TRUE(map.loaded);
    EXPECT_EQ(map.size.cellsX, int32_t(std::ceil((maxX - minX) / 32 - 1e-6)));
    EXPECT_EQ(map.size.cellsY, int32_t(std::ceil((maxZ - minZ) / 32 - 1e-6)));
    std::vector<Triangle> imported = Triangles(map.Meshes());
    ASSERT_EQ(imported.size(), expected.size());
    size_t wrong = 0;
    for (size_t i = 0; i < expected.size() && wrong < 5; ++i) {
        const Triangle &a = expected[i], &b = imported[i];
        // To within the rounding of a decimal round trip.
        bool same = a.texture == b.texture;
        for (int k = 0; k < 3; ++k)
            for (int j = 0; j < 8; ++j)
                same = same && std::fabs(a.c[k][j] - b.c[k][j]) <= (j < 3 ? 1e-4f : 1e-5f);
        if (!same)
            ADD_FAILURE() << "triangle " << i << " (wrong " << ++wrong << "): (" << a.c[0][0]
                          << ", " << a.c[0][1] << ", " << a.c[0][2] << ") " << a.texture
                          << " came back as (" << b.c[0][0] << ", " << b.c[0][1] << ", "
                          << b.c[0][2] << ") " << b.texture;
    }
}

}  // namespace
