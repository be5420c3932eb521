// A map made by the project's generator, exported as a modelling tool would (a right-handed OBJ
// with normals, texture coordinates and TGA colour maps), comes back as the same triangles.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <map>
#include <string>
#include <tuple>
#include <vector>

#include "tests/import/import_support.h"
#include "tool/map_generator.h"

namespace {

struct Corner {
    float x, y, z;     // in the map's world
    float nx, ny, nz;  // unit normal
    float u, v;
};

struct Triangle {
    Corner c[3];  // in winding order, lowest position first
    std::string texture;
};

bool Degenerate(const Corner& a, const Corner& b, const Corner& c) {
    double u[3] = {double(c.x) - b.x, double(c.y) - b.y, double(c.z) - b.z};
    double w[3] = {double(a.x) - b.x, double(a.y) - b.y, double(a.z) - b.z};
    double n[3] = {u[1] * w[2] - u[2] * w[1], u[2] * w[0] - u[0] * w[2], u[0] * w[1] - u[1] * w[0]};
    return n[0] * n[0] + n[1] * n[1] + n[2] * n[2] == 0.0;
}

auto PositionOf(const Corner& c) {
    return std::make_tuple(c.x, c.y, c.z);
}

// Every face with an area, each rotated to begin at its lowest corner, sorted; shifted by dx, dz.
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
            if (Degenerate(t.c[0], t.c[1], t.c[2])) continue;
            t.texture = face.texture && face.texture->name ? face.texture->name : "";
            int first = 0;
            for (int k = 1; k < 3; ++k)
                if (PositionOf(t.c[k]) < PositionOf(t.c[first])) first = k;
            std::rotate(t.c, t.c + first, t.c + 3);
            all.push_back(t);
        }
    std::sort(all.begin(), all.end(), [](const Triangle& a, const Triangle& b) {
        for (int k = 0; k < 3; ++k)
            if (PositionOf(a.c[k]) != PositionOf(b.c[k]))
                return PositionOf(a.c[k]) < PositionOf(b.c[k]);
        return false;
    });
    return all;
}

std::vector<const CMesh*> MeshesOf(const CMesh* root) {
    std::vector<const CMesh*> found;
    std::vector<const CEntity*> stack = {root};
    while (!stack.empty()) {
        const CEntity* node = stack.back();
        stack.pop_back();
        if (node->kind == EntityKindMesh && static_cast<const CMesh*>(node)->faceCount[0])
            found.push_back(static_cast<const CMesh*>(node));
        for (const CEntity* child = node->firstChild; child; child = child->nextSibling)
            stack.push_back(child);
    }
    return found;
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
    MapSpec spec;
    spec.cells = 8;
    spec.chunks = 2;
    spec.quadsPerCell = 2;
    spec.buildings = 4;
    spec.arches = 1;
    spec.bridges = 1;
    spec.roofsOnPosts = 1;
    spec.seed = 3;
    MapTextures textures = CreateMapTextures();
    for (CTexture* texture :
         {textures.grass, textures.rock, textures.wall, textures.roof, textures.wood})
        ASSERT_TRUE(texture->SaveAsTGA(dir.File(texture->name).c_str()));
    CMesh* generated = GenerateMap(spec, &textures);
    std::vector<const CMesh*> meshes = MeshesOf(generated);
    WriteObj(meshes, "generated");

    // The importer moves the model's box to x = 0 and z = 0; so does the expectation.
    double minX = HUGE_VAL, maxZ = -HUGE_VAL, maxX = -HUGE_VAL, minZ = HUGE_VAL;
    for (const CMesh* mesh : meshes)
        for (int32_t i = 0; i < mesh->vertexCount; ++i) {
            minX = std::min(minX, double(mesh->vertices[i].position.x));
            maxX = std::max(maxX, double(mesh->vertices[i].position.x));
            minZ = std::min(minZ, double(mesh->vertices[i].position.z));
            maxZ = std::max(maxZ, double(mesh->vertices[i].position.z));
        }
    std::vector<Triangle> expected = Triangles(meshes, -minX, -maxZ);
    delete generated;
    FreeAllTextures();
    ASSERT_GT(expected.size(), 500u);

    ImportResult result = Import(Request({"generated.obj"}));
    ASSERT_TRUE(result.written) << result.messages;
    EXPECT_EQ(result.errors, 0) << result.messages;
    EXPECT_EQ(result.messages.find("turned"), std::string::npos) << result.messages;
    LoadedMap map("map");
    ASSERT_TRUE(map.loaded);
    EXPECT_EQ(map.size.cellsX, int32_t(std::ceil((maxX - minX) / 32 - 1e-6)));
    EXPECT_EQ(map.size.cellsY, int32_t(std::ceil((maxZ - minZ) / 32 - 1e-6)));
    std::vector<Triangle> imported = Triangles(map.Meshes());
    ASSERT_EQ(imported.size(), expected.size());
    size_t wrong = 0;
    for (size_t i = 0; i < expected.size() && wrong < 5; ++i) {
        const Triangle& a = expected[i];
        const Triangle& b = imported[i];
        bool same = a.texture == b.texture;
        for (int k = 0; k < 3; ++k) {
            const Corner& p = a.c[k];
            const Corner& q = b.c[k];
            // Positions and texture coordinates to within the rounding of a decimal round trip.
            same = same && std::fabs(p.x - q.x) <= 1e-4f && std::fabs(p.y - q.y) <= 1e-4f &&
                   std::fabs(p.z - q.z) <= 1e-4f && std::fabs(p.u - q.u) <= 1e-5f &&
                   std::fabs(p.v - q.v) <= 1e-5f && std::fabs(p.nx - q.nx) <= 1e-5f &&
                   std::fabs(p.ny - q.ny) <= 1e-5f && std::fabs(p.nz - q.nz) <= 1e-5f;
        }
        if (!same) {
            ++wrong;
            ADD_FAILURE() << "triangle " << i << ": (" << a.c[0].x << ", " << a.c[0].y << ", "
                          << a.c[0].z << ") " << a.texture << " came back as (" << b.c[0].x << ", "
                          << b.c[0].y << ", " << b.c[0].z << ") " << b.texture;
        }
    }
}

}  // namespace
