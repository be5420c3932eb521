// The accelerated ray core. It answers both queries of the ray table exactly as the literal walk
// does, bit for bit, but only tests triangles that could possibly pass:
//
// - Ground rays are straight down, so a 2D grid over the xz footprints of the triangles that face
//   up lists every candidate of a sample point. Candidates are walked in the literal list order
//   (record, then triangle) with the same strict nearest test, so ties resolve identically.
// - Light rays of one bake are all parallel, so a 2D grid in the plane perpendicular to the light
//   lists every triangle whose shadow can cover a sample point. A candidate counts only if its
//   record passes the literal cylinder test for the ray.
//
// Footprints are widened by a margin larger than any rounding of the exact tests, so a triangle
// that the exact test could accept is never missing from a cell. Each worker thread has its own
// FastRayQuery; the table is read-only once built.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "tool/raycast/literal_walk.h"
#include "tool/raycast/ray_table.h"

// A uniform 2D grid of candidate lists; each cell's list is ascending in the table's global
// triangle order.
struct CandidateGrid {
    double minU = 0.0, minV = 0.0, inverseCell = 1.0;
    int32_t cellsU = 0, cellsV = 0;
    std::vector<uint32_t> offsets;  // cellsU * cellsV + 1
    std::vector<uint32_t> refs;     // global triangle indices

    // The cell of a point, or -1 outside the grid.
    int64_t CellOf(double u, double v) const;
    size_t MemoryBytes() const;
};

// A triangle's footprint in a grid's plane, widened like the grid's cells, in float.
struct FootprintBox {
    float minU, minV, maxU, maxV;
};

class FastRayTable {
public:
    // Indexes the records of the table as they stand. light is the normalised direction that
    // every light query of the pass uses. The table's records must not change afterwards.
    void Build(const RayTable& table, const Vector& light);
    void Clear();
    size_t MemoryBytes() const;

    uint32_t RecordCount() const { return uint32_t(records.size()); }
    uint32_t TriangleCount() const { return uint32_t(triangles.size()); }
    const Vector& Light() const { return light; }

private:
    friend class FastRayQuery;

    std::vector<const RayMesh*> records;        // in list order
    std::vector<const RayTriangle*> triangles;  // global order: record, then triangle
    std::vector<uint32_t> triangleRecord;       // record index of each triangle
    CandidateGrid ground;                       // triangles facing up, by xz footprint
    CandidateGrid groundOther;  // the rest, which can pass only from an origin on their plane
    std::vector<float> groundOtherTop;  // per cell: highest point of those, plus the margin
    CandidateGrid shadow;               // every triangle not skipped, by footprint across the light
    std::vector<FootprintBox> footprints;  // per triangle, across the light: a cell's tighter test
    double shadowAxisU[3] = {}, shadowAxisV[3] = {};
    Vector light = {};
    bool lightIsZero = true;
};

class FastRayQuery {
public:
    explicit FastRayQuery(const FastRayTable& table);

    // The contract of RayCastDown, for rays straight down; a hit goes to Ground().
    bool CastDown(float ox, float oy, float oz, float tx, float ty, float tz);
    // The contract of RayCastToLight under the half-open rule along the table's light direction.
    bool CastToLight(float ox, float oy, float oz);
    const RayGroundState& Ground() const { return ground; }

    RayCounters counters;

private:
    bool CylinderPasses(uint32_t record, const float o[3], const float d[3]);

    const FastRayTable& table;
    RayGroundState ground = {};
    Vector downOffset = {0, 0, 0}, downDirection = {0, 0, 0};  // the last ray down's
    float downLength = 0.0f;
    const RayTriangle* lastBlocker = nullptr;
    uint32_t lastBlockerRecord = 0;
};
