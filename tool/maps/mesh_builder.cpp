#include "tool/maps/mesh_builder.h"

#include <cmath>
#include <cstring>

uint32_t MeshBuilder::AddVertex(Vector position, Vector normal) {
    vertices.push_back({position, normal});
    return uint32_t(vertices.size() - 1);
}

// The visible side's normal is (c - b) x (a - b); swap two corners if it faces the wrong way.
void MeshBuilder::AddFace(uint32_t a, uint32_t b, uint32_t c, Vector outward) {
    Vector u, v, n;
    VectorSubtract(vertices[c].position, vertices[b].position, u);
    VectorSubtract(vertices[a].position, vertices[b].position, v);
    VectorCross(n, u, v);
    if (VectorDot(n, outward) < 0.0f) std::swap(a, c);
    MeshFace face = {};
    face.vertex[0] = a;
    face.vertex[1] = b;
    face.vertex[2] = c;
    face.texture = currentTexture;
    float ax = std::fabs(outward.x), ay = std::fabs(outward.y), az = std::fabs(outward.z);
    for (int k = 0; k < 3; ++k) {
        const Vector& p = vertices[face.vertex[k]].position;
        float s = ay >= ax && ay >= az ? p.x : (ax >= az ? p.z : p.x);
        float t = ay >= ax && ay >= az ? p.z : p.y;
        face.uv[2 * k] = s / 64.0f;
        face.uv[2 * k + 1] = t / 64.0f;
    }
    faces.push_back(face);
}

void MeshBuilder::AddTriangle(Vector a, Vector b, Vector c, Vector outward) {
    Vector normal = outward;
    VectorNormalize(normal);
    uint32_t ia = AddVertex(a, normal), ib = AddVertex(b, normal), ic = AddVertex(c, normal);
    AddFace(ia, ib, ic, outward);
}

void MeshBuilder::AddQuad(Vector a, Vector b, Vector c, Vector d, Vector outward) {
    AddTriangle(a, b, c, outward);
    AddTriangle(a, c, d, outward);
}

void MeshBuilder::AddBox(Vector lo, Vector hi) {
    auto p = [&](int x, int y, int z) {
        return Vector{x ? hi.x : lo.x, y ? hi.y : lo.y, z ? hi.z : lo.z};
    };
    AddQuad(p(0, 1, 0), p(1, 1, 0), p(1, 1, 1), p(0, 1, 1), {0, 1, 0});
    AddQuad(p(0, 0, 0), p(1, 0, 0), p(1, 0, 1), p(0, 0, 1), {0, -1, 0});
    AddQuad(p(0, 0, 0), p(0, 1, 0), p(0, 1, 1), p(0, 0, 1), {-1, 0, 0});
    AddQuad(p(1, 0, 0), p(1, 1, 0), p(1, 1, 1), p(1, 0, 1), {1, 0, 0});
    AddQuad(p(0, 0, 0), p(1, 0, 0), p(1, 1, 0), p(0, 1, 0), {0, 0, -1});
    AddQuad(p(0, 0, 1), p(1, 0, 1), p(1, 1, 1), p(0, 1, 1), {0, 0, 1});
}

void MeshBuilder::AddTerrain(float x0, float z0, int nx, int nz, float cell,
                             const std::function<float(float, float)>& height) {
    uint32_t first = uint32_t(vertices.size());
    auto at = [&](int i, int k) { return first + uint32_t(k * (nx + 1) + i); };
    for (int k = 0; k <= nz; ++k)
        for (int i = 0; i <= nx; ++i) {
            float x = x0 + i * cell, z = z0 - k * cell;
            // Normal from central differences of the height field.
            float e = cell * 0.5f;
            Vector n = {height(x - e, z) - height(x + e, z), 2.0f * e,
                        height(x, z - e) - height(x, z + e)};
            VectorNormalize(n);
            AddVertex({x, height(x, z), z}, n);
        }
    for (int k = 0; k < nz; ++k)
        for (int i = 0; i < nx; ++i) {
            AddFace(at(i, k), at(i + 1, k), at(i + 1, k + 1), {0, 1, 0});
            AddFace(at(i, k), at(i + 1, k + 1), at(i, k + 1), {0, 1, 0});
        }
}

CMesh* MeshBuilder::Build(CEntity* parent, const char* name) {
    CMesh* mesh = new CMesh(parent);
    mesh->SetName(name);
    mesh->AllocVertices(int32_t(vertices.size()));
    if (!vertices.empty())
        std::memcpy(mesh->vertices, vertices.data(), vertices.size() * sizeof(MeshVertex));
    mesh->AllocFaces(uint32_t(faces.size()), 0);
    if (!faces.empty()) std::memcpy(mesh->faces[0], faces.data(), faces.size() * sizeof(MeshFace));
    vertices.clear();
    faces.clear();
    return mesh;
}
