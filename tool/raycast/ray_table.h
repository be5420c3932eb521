// The ray table: a map's triangles with per-mesh bounds, in the form that the two queries of a
// bake (a ray straight down to the ground, a ray towards the light) test against.
//
// Numerical contract, relied on by the bake and by every faster core that must match it bit for
// bit:
// - Each triangle is grown by 0.001 world units away from its centroid before it is projected to
//   2D, so neighbouring triangles overlap and a ray aimed at a shared edge or vertex cannot slip
//   between them.
// - The stored normal is (p0 - p1) x (p2 - p1), which for the engine's winding points away from
//   the visible side. The ground query only hits triangles whose stored normal points down.
// - Arithmetic is in double; values are rounded to float where a record field or a step of the
//   algorithm stores one. Division by zero is part of the algorithm: an edge parallel to the
//   projection axis gives an infinite or NaN fraction that falls out of the tests as no crossing.
#pragma once

#include <cstddef>
#include <cstdint>

#include "engine/scene/maths.h"

class CMesh;

// Axes of the 2D projection: index of a's coordinate plus 4 times b's (x 0, y 1, z 2).
enum RayAxes : uint8_t {
    RayAxesZY = 6,  // normal mostly x
    RayAxesXZ = 8,  // normal mostly y
    RayAxesXY = 4,  // normal mostly z
};

struct RayTriangle {
    Vector Normal;       // unit plane normal from the ungrown corners; zero when degenerate
    float D;             // Normal . p + D = 0 on the plane
    float Corner[3][2];  // grown corners as (a, b) by Axes
    // The corners as given, as (x, z). Neighbours share these exactly, so a ray straight down
    // tested against them, edges included, can't pass between two faces; the grown corners alone
    // don't ensure it, as far from the origin the growth rounds away in one axis and not the
    // other, and in a steep face's own plane the hit point carries the rounding of t.
    float GroundCorner[3][2];
    uint32_t Vertex[3];  // the face's vertex indices, for normal interpolation
    uint8_t Axes;        // RayAxes
    uint8_t Skip;        // non-zero keeps the light query from testing the triangle
};

struct RayMesh {
    uint32_t TriangleCount;
    float Top;                // largest y of any vertex
    double CentreX, CentreZ;  // mean of the grown corners over the vertices that faces use
    double RadiusSquared;     // xz circle about the centre holding the mesh, at least 1.01
    CMesh* Mesh;              // not owned; its vertices give the normals during queries
    RayTriangle* Triangles;   // owned, in face order
    RayMesh* Next;
    float MinX, MinZ, MaxX, MaxZ;  // box of the grown corners in xz
};

struct RayGroundState {
    Vector Position;  // world position of the last hit; kept by a miss
    Vector Normal;    // unit interpolated normal of the last hit; kept by a miss
};

// The table of one bake pass: a record per mesh of the map's tree, newest first. The pass owns
// it and hands it to the queries, which only read it; the records borrow the meshes' vertices,
// so the meshes must outlive the table and keep their arrays while it stands.
class RayTable {
public:
    RayTable() = default;
    ~RayTable() { Free(); }
    RayTable(const RayTable&) = delete;
    RayTable& operator=(const RayTable&) = delete;

    void AddTree(CMesh* mesh);      // the mesh, then each child in list order
    RayMesh* AddMesh(CMesh* mesh);  // null for a mesh without faces
    void Free();

    const RayMesh* First() const { return first; }
    uint64_t TriangleCount() const;
    size_t MemoryBytes() const;

private:
    RayMesh* first = nullptr;
};

void RayBuildTriangle(RayTriangle* record, Vector corners[3]);  // corners come back grown
