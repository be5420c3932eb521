// The ray-cast core: a table of a map's triangles with per-mesh bounds, and the two queries a bake
// makes for every sample (a ray straight down to the ground, a ray towards the light).
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
    Vector Normal;        // unit plane normal from the ungrown corners; zero when degenerate
    float D;              // Normal . p + D = 0 on the plane
    float Corner[3][2];   // grown corners as (a, b) by Axes
    uint32_t Vertex[3];   // the face's vertex indices, for normal interpolation
    uint8_t Axes;         // RayAxes
    uint8_t Skip;         // non-zero keeps the light query from testing the triangle
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

struct RayTableState {
    RayMesh* First;             // new records go to the front
    RayTriangle* LastBlocker;   // the triangle that blocked the last blocked light ray
    RayMesh* LastBlockerMesh;   // its record
};

struct RayGroundState {
    Vector Position;  // world position of the last hit; kept by a miss
    Vector Normal;    // unit interpolated normal of the last hit; kept by a miss
};

extern RayTableState RayTable;
extern RayGroundState RayGround;

// What a query carries from one ray to the next. The process-wide RayGround and the table's last
// blocker are the state of the plain queries below; each worker thread of a bake has its own.
struct RayQueryState {
    RayGroundState* ground;
    RayTriangle* lastBlocker;
    RayMesh* lastBlockerMesh;
};

void RayTableBegin();             // clears the list without freeing it
void RayTableAddTree(CMesh* mesh);  // the mesh, then each child in list order
RayMesh* RayTableAddMesh(CMesh* mesh);  // null for a mesh without faces
void RayBuildTriangle(RayTriangle* record, Vector corners[3]);  // corners come back grown
void RayTableFree();

// Sets Skip on every triangle whose stored normal faces away from the light direction. Nothing
// turns this on: the bake keeps Skip at 0.
void RayTableCullFacing(const Vector& light);

// True when nothing was hit; only right for a ray straight down (target x, z = origin x, z).
bool RayCastDown(float ox, float oy, float oz, float tx, float ty, float tz);
// True when the way to the light is free. d has unit length; its y may have either sign. The last
// blocker is tried first, but only where the walk would test it (its record passes the cylinder
// test), so the cache saves time and never changes an answer: the result of a ray doesn't depend
// on the rays before it, which is what lets samples run in any order and on any thread.
bool RayCastToLight(float ox, float oy, float oz, float dx, float dy, float dz);
// RayGround.Normal := the unnormalised normal at (a, b) of the triangle, from the mesh's vertices.
void RayHitNormal(const CMesh* mesh, const RayTriangle* triangle, double a, double b);

// The two queries on a worker's own state; the table is only read.
bool RayCastDownIn(RayQueryState& state, float ox, float oy, float oz, float tx, float ty,
                   float tz);
bool RayCastToLightIn(RayQueryState& state, float ox, float oy, float oz, float dx, float dy,
                      float dz);
