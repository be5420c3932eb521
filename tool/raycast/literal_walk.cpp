#include "engine/mesh/mesh.h"
#include "tool/raycast/ray_predicates.h"
#include "tool/raycast/ray_table.h"

using namespace raypredicates;

bool RayCastDownIn(RayQueryState& state, float ox, float oy, float oz, float tx, float ty,
                   float tz) {
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

    RayGroundState& ground = *state.ground;
    ground.Position.x = float(ox + best * direction.x);
    ground.Position.y = float(oy + best * direction.y);
    ground.Position.z = float(oz + best * direction.z);
    InterpolatedNormal(foundRecord->Mesh->vertices, *found, foundHit.a, foundHit.b, ground.Normal);
    VectorNormalize(ground.Normal);
    return false;
}

bool RayCastToLightIn(RayQueryState& state, float ox, float oy, float oz, float dx, float dy,
                      float dz) {
    const float o[3] = {ox, oy, oz};
    const float d[3] = {dx, dy, dz};
    if (state.lastBlocker && CylinderMayBlock(*state.lastBlockerMesh, o, d) &&
        HitsTowardsLight(*state.lastBlocker, o, d))
        return false;
    for (RayMesh* record = RayTable.First; record; record = record->Next) {
        if (!CylinderMayBlock(*record, o, d)) continue;
        for (uint32_t i = 0; i < record->TriangleCount; ++i) {
            RayTriangle& triangle = record->Triangles[i];
            if (triangle.Skip == 0 && HitsTowardsLight(triangle, o, d)) {
                state.lastBlocker = &triangle;
                state.lastBlockerMesh = record;
                return false;
            }
        }
    }
    return true;
}

// The plain queries work on the process-wide state.
bool RayCastDown(float ox, float oy, float oz, float tx, float ty, float tz) {
    RayQueryState state = {&RayGround, RayTable.LastBlocker, RayTable.LastBlockerMesh};
    return RayCastDownIn(state, ox, oy, oz, tx, ty, tz);
}

bool RayCastToLight(float ox, float oy, float oz, float dx, float dy, float dz) {
    RayQueryState state = {&RayGround, RayTable.LastBlocker, RayTable.LastBlockerMesh};
    bool free = RayCastToLightIn(state, ox, oy, oz, dx, dy, dz);
    RayTable.LastBlocker = state.lastBlocker;
    RayTable.LastBlockerMesh = state.lastBlockerMesh;
    return free;
}

void RayHitNormal(const CMesh* mesh, const RayTriangle* triangle, double a, double b) {
    InterpolatedNormal(mesh->vertices, *triangle, a, b, RayGround.Normal);
}
