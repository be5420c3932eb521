#include "engine/mesh/mesh.h"
#include "tool/ray_tests.h"
#include "tool/raycast.h"

using namespace raytests;

bool RayCastDown(float ox, float oy, float oz, float tx, float ty, float tz) {
    Vector direction;
    Vector origin = {ox, oy, oz};
    Vector target = {tx, ty, tz};
    VectorSubtract(target, origin, direction);
    double best = VectorNormalize(direction);

    const RayTriangle* found = nullptr;
    const RayMesh* foundRecord = nullptr;
    DownHit hit = {}, foundHit = {};
    for (const RayMesh* record = RayTable.First; record; record = record->Next) {
        if (!InsideBox(*record, ox, oz)) continue;
        for (uint32_t i = 0; i < record->TriangleCount; ++i) {
            const RayTriangle& triangle = record->Triangles[i];
            if (!HitsDown(triangle, ox, oy, oz, direction, best, hit)) continue;
            best = hit.t;  // the test is strict: on equal t the earlier find stays
            found = &triangle;
            foundRecord = record;
            foundHit = hit;
        }
    }
    if (!found) return true;

    RayGround.Position.x = float(ox + best * direction.x);
    RayGround.Position.y = float(oy + best * direction.y);
    RayGround.Position.z = float(oz + best * direction.z);
    RayHitNormal(foundRecord->Mesh, found, foundHit.a, foundHit.b);
    VectorNormalize(RayGround.Normal);
    return false;
}

void RayHitNormal(const CMesh* mesh, const RayTriangle* triangle, double a, double b) {
    InterpolatedNormal(mesh->vertices, *triangle, a, b, RayGround.Normal);
}

bool RayCastToLight(float ox, float oy, float oz, float dx, float dy, float dz) {
    const float o[3] = {ox, oy, oz};
    const float d[3] = {dx, dy, dz};
    if (RayTable.LastBlocker && CylinderMayBlock(*RayTable.LastBlockerMesh, o, d) &&
        HitsTowardsLight(*RayTable.LastBlocker, o, d))
        return false;
    for (RayMesh* record = RayTable.First; record; record = record->Next) {
        if (!CylinderMayBlock(*record, o, d)) continue;
        for (uint32_t i = 0; i < record->TriangleCount; ++i) {
            RayTriangle& triangle = record->Triangles[i];
            if (triangle.Skip == 0 && HitsTowardsLight(triangle, o, d)) {
                RayTable.LastBlocker = &triangle;
                RayTable.LastBlockerMesh = record;
                return false;
            }
        }
    }
    return true;
}
