// Builds meshes in code: maps for the demo, the tests and the benchmarks. Faces are wound so that
// the visible side faces the given outward direction, as the ray core expects of the engine's
// meshes.
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "engine/mesh/mesh.h"

class MeshBuilder {
public:
    // Flat-shaded: the triangle gets vertices of its own with the outward normal.
    void AddTriangle(Vector a, Vector b, Vector c, Vector outward);
    // Two triangles, a-b-c and a-c-d.
    void AddQuad(Vector a, Vector b, Vector c, Vector d, Vector outward);
    // An axis-aligned box, all six sides facing out (the bottom too, for overhangs).
    void AddBox(Vector min, Vector max);
    // A height field over [x0, x0 + nx*cell] x [z0 - nz*cell, z0], smooth normals shared by
    // neighbouring quads. height(x, z) gives y.
    void AddTerrain(float x0, float z0, int nx, int nz, float cell,
                    const std::function<float(float, float)>& height);

    // Faces added from now on carry this texture (or none), with texture coordinates projected
    // from their positions along the dominant axis of their normal, one repeat per 64 units.
    void SetTexture(CTexture* texture) { currentTexture = texture; }

    bool Empty() const { return faces.empty(); }
    // Moves the geometry into a new mesh under parent and starts afresh.
    CMesh* Build(CEntity* parent, const char* name);

private:
    uint32_t AddVertex(Vector position, Vector normal);
    void AddFace(uint32_t a, uint32_t b, uint32_t c, Vector outward);

    std::vector<MeshVertex> vertices;
    std::vector<MeshFace> faces;
    CTexture* currentTexture = nullptr;
};
