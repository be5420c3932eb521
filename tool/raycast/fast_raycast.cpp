#include "tool/raycast/fast_raycast.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <functional>

#include "engine/mesh/mesh.h"
#include "tool/raycast/ray_predicates.h"

namespace {

// Footprints are widened by more than the rounding of the exact tests can move a hit point: the
// grown corners are 0.001 out, float corners and the float t of a plane crossing add a few ulps of
// the coordinates, and the crossing tests themselves a few ulps of the edge lengths.
double MarginFor(double largestCoordinate) {
    return 0.01 + 1e-5 * largestCoordinate;
}

// A triangle with a zero or non-finite normal fails every exact test of both queries.
bool CanBeHit(const RayTriangle& triangle) {
    const Vector& n = triangle.Normal;
    return std::fabs(n.x) + std::fabs(n.y) + std::fabs(n.z) > 0.0f &&
           std::isfinite(n.x + n.y + n.z);
}

struct Box2 {
    double minU, minV, maxU, maxV;
};

// Chooses a grid over the bounds with about two cells per triangle, coarsened until the
// references stay within a budget, so a few huge triangles can't blow the memory up.
template <typename BoxOf>
void LayOutGrid(CandidateGrid& grid, const Box2& bounds, uint32_t count, BoxOf boxOf,
                const std::vector<uint32_t>& members) {
    double width = std::max(bounds.maxU - bounds.minU, 1e-3);
    double height = std::max(bounds.maxV - bounds.minV, 1e-3);
    double cells = std::max(1.0, 2.0 * count);
    double cell = std::sqrt(width * height / cells);
    cell = std::max(cell, std::max(width, height) / 4096.0);
    const uint64_t budget = 16ull * count + (1u << 20);
    for (;;) {
        grid.minU = bounds.minU;
        grid.minV = bounds.minV;
        grid.inverseCell = 1.0 / cell;
        grid.cellsU = int32_t(std::min(4096.0, std::floor(width / cell) + 1));
        grid.cellsV = int32_t(std::min(4096.0, std::floor(height / cell) + 1));
        uint64_t refs = 0;
        for (uint32_t g : members) {
            Box2 box = boxOf(g);
            int64_t u0 = int64_t((box.minU - grid.minU) * grid.inverseCell);
            int64_t u1 = int64_t((box.maxU - grid.minU) * grid.inverseCell);
            int64_t v0 = int64_t((box.minV - grid.minV) * grid.inverseCell);
            int64_t v1 = int64_t((box.maxV - grid.minV) * grid.inverseCell);
            refs += uint64_t(std::min<int64_t>(u1, grid.cellsU - 1) - u0 + 1) *
                    uint64_t(std::min<int64_t>(v1, grid.cellsV - 1) - v0 + 1);
        }
        if (refs <= budget || (grid.cellsU == 1 && grid.cellsV == 1)) break;
        cell *= 2.0;
    }
}

// Fills the grid's lists; members are in ascending global order, so every list is too.
template <typename BoxOf>
void FillGrid(CandidateGrid& grid, BoxOf boxOf, const std::vector<uint32_t>& members) {
    size_t cellCount = size_t(grid.cellsU) * size_t(grid.cellsV);
    grid.offsets.assign(cellCount + 1, 0);
    auto forEachCell = [&](uint32_t g, auto&& visit) {
        Box2 box = boxOf(g);
        int32_t u0 = int32_t((box.minU - grid.minU) * grid.inverseCell);
        int32_t u1 = std::min(int32_t((box.maxU - grid.minU) * grid.inverseCell), grid.cellsU - 1);
        int32_t v0 = int32_t((box.minV - grid.minV) * grid.inverseCell);
        int32_t v1 = std::min(int32_t((box.maxV - grid.minV) * grid.inverseCell), grid.cellsV - 1);
        for (int32_t v = v0; v <= v1; ++v)
            for (int32_t u = u0; u <= u1; ++u) visit(size_t(v) * size_t(grid.cellsU) + size_t(u));
    };
    for (uint32_t g : members) forEachCell(g, [&](size_t cell) { ++grid.offsets[cell + 1]; });
    for (size_t c = 0; c < cellCount; ++c) grid.offsets[c + 1] += grid.offsets[c];
    grid.refs.resize(grid.offsets[cellCount]);
    std::vector<uint32_t> cursor(grid.offsets.begin(), grid.offsets.end() - 1);
    for (uint32_t g : members) forEachCell(g, [&](size_t cell) { grid.refs[cursor[cell]++] = g; });
}

Box2 Union(const Box2& a, const Box2& b) {
    return {std::min(a.minU, b.minU), std::min(a.minV, b.minV), std::max(a.maxU, b.maxU),
            std::max(a.maxV, b.maxV)};
}

constexpr Box2 EmptyBox = {1e300, 1e300, -1e300, -1e300};

// A box in float that holds the double one: its sides are rounded outwards.
FootprintBox Outward(const Box2& box) {
    auto below = [](double v) {
        float f = float(v);
        return double(f) > v ? std::nextafter(f, -INFINITY) : f;
    };
    auto above = [](double v) {
        float f = float(v);
        return double(f) < v ? std::nextafter(f, INFINITY) : f;
    };
    return {below(box.minU), below(box.minV), above(box.maxU), above(box.maxV)};
}

}  // namespace

int64_t CandidateGrid::CellOf(double u, double v) const {
    double fu = (u - minU) * inverseCell;
    double fv = (v - minV) * inverseCell;
    if (!(fu >= 0.0 && fv >= 0.0)) return -1;  // NaN too
    if (fu >= cellsU || fv >= cellsV) return -1;
    return int64_t(fv) * cellsU + int64_t(fu);
}

size_t CandidateGrid::MemoryBytes() const {
    return offsets.capacity() * sizeof(uint32_t) + refs.capacity() * sizeof(uint32_t);
}

void FastRayTable::Clear() {
    *this = FastRayTable();
}

size_t FastRayTable::MemoryBytes() const {
    return records.capacity() * sizeof(void*) + triangles.capacity() * sizeof(void*) +
           triangleRecord.capacity() * sizeof(uint32_t) + ground.MemoryBytes() +
           groundOther.MemoryBytes() + groundOtherTop.capacity() * sizeof(float) +
           shadow.MemoryBytes() + footprints.capacity() * sizeof(FootprintBox);
}

void FastRayTable::Build(const RayTable& table, const Vector& lightDirection) {
    Clear();
    light = lightDirection;
    lightIsZero = light.x == 0.0f && light.y == 0.0f && light.z == 0.0f;

    double largest = 8192.0;
    for (const RayMesh* record = table.First(); record; record = record->Next) {
        uint32_t index = uint32_t(records.size());
        records.push_back(record);
        const MeshVertex* vertices = record->Mesh->vertices;
        for (uint32_t i = 0; i < record->TriangleCount; ++i) {
            const RayTriangle& triangle = record->Triangles[i];
            triangles.push_back(&triangle);
            triangleRecord.push_back(index);
            for (uint32_t v : triangle.Vertex) {
                const Vector& p = vertices[v].position;
                double m = std::max(
                    {std::fabs(double(p.x)), std::fabs(double(p.y)), std::fabs(double(p.z))});
                if (std::isfinite(m)) largest = std::max(largest, m);
            }
        }
    }
    const double margin = MarginFor(largest);

    auto corner = [&](uint32_t g, int k) -> const Vector& {
        return records[triangleRecord[g]]->Mesh->vertices[triangles[g]->Vertex[k]].position;
    };

    // Ground: footprints in xz.
    std::vector<uint32_t> facingUp, others;
    Box2 upBounds = EmptyBox, otherBounds = EmptyBox;
    auto xzBox = [&](uint32_t g) {
        Box2 box = EmptyBox;
        for (int k = 0; k < 3; ++k) {
            const Vector& p = corner(g, k);
            box = Union(box, {p.x, p.z, p.x, p.z});
        }
        return Box2{box.minU - margin, box.minV - margin, box.maxU + margin, box.maxV + margin};
    };
    for (uint32_t g = 0; g < triangles.size(); ++g) {
        if (!CanBeHit(*triangles[g])) continue;
        bool up = triangles[g]->Normal.y < 0.0f;
        (up ? facingUp : others).push_back(g);
        Box2& bounds = up ? upBounds : otherBounds;
        bounds = Union(bounds, xzBox(g));
    }
    if (!facingUp.empty()) {
        LayOutGrid(ground, upBounds, uint32_t(facingUp.size()), xzBox, facingUp);
        FillGrid(ground, xzBox, facingUp);
    }
    // The rest can pass only from an origin on their plane: a grid of its own, usually small,
    // with the highest point of each cell so that most rays skip it.
    if (!others.empty()) {
        LayOutGrid(groundOther, otherBounds, uint32_t(others.size()), xzBox, others);
        FillGrid(groundOther, xzBox, others);
        groundOtherTop.assign(size_t(groundOther.cellsU) * groundOther.cellsV, -INFINITY);
        for (size_t c = 0; c + 1 < groundOther.offsets.size(); ++c)
            for (uint32_t r = groundOther.offsets[c]; r < groundOther.offsets[c + 1]; ++r) {
                uint32_t g = groundOther.refs[r];
                for (int k = 0; k < 3; ++k)
                    groundOtherTop[c] = std::max(groundOtherTop[c], float(corner(g, k).y + margin));
            }
    }

    // Light: footprints on the plane across the light direction.
    if (lightIsZero) return;
    double d[3] = {light.x, light.y, light.z};
    double helper[3] = {0.0, 1.0, 0.0};
    if (std::fabs(d[1]) > 0.9) helper[0] = 1.0, helper[1] = 0.0;
    double* u = shadowAxisU;
    double* v = shadowAxisV;
    u[0] = helper[1] * d[2] - helper[2] * d[1];
    u[1] = helper[2] * d[0] - helper[0] * d[2];
    u[2] = helper[0] * d[1] - helper[1] * d[0];
    double length = std::sqrt(u[0] * u[0] + u[1] * u[1] + u[2] * u[2]);
    for (double& c : shadowAxisU) c /= length;
    v[0] = d[1] * u[2] - d[2] * u[1];
    v[1] = d[2] * u[0] - d[0] * u[2];
    v[2] = d[0] * u[1] - d[1] * u[0];

    std::vector<uint32_t> casters;
    Box2 shadowBounds = EmptyBox;
    footprints.assign(triangles.size(), FootprintBox{1.0f, 1.0f, 0.0f, 0.0f});
    auto acrossBox = [&](uint32_t g) {
        Box2 box = EmptyBox;
        for (int k = 0; k < 3; ++k) {
            const Vector& p = corner(g, k);
            double pu = p.x * u[0] + p.y * u[1] + p.z * u[2];
            double pv = p.x * v[0] + p.y * v[1] + p.z * v[2];
            box = Union(box, {pu, pv, pu, pv});
        }
        return Box2{box.minU - margin, box.minV - margin, box.maxU + margin, box.maxV + margin};
    };
    for (uint32_t g = 0; g < triangles.size(); ++g) {
        if (!CanBeHit(*triangles[g]) || triangles[g]->Skip) continue;
        casters.push_back(g);
        shadowBounds = Union(shadowBounds, acrossBox(g));
        footprints[g] = Outward(acrossBox(g));
    }
    if (casters.empty()) return;
    LayOutGrid(shadow, shadowBounds, uint32_t(casters.size()), acrossBox, casters);
    FillGrid(shadow, acrossBox, casters);
}

FastRayQuery::FastRayQuery(const FastRayTable& fastTable) : table(fastTable) {}

bool FastRayQuery::CastDown(float ox, float oy, float oz, float tx, float ty, float tz) {
    ++counters.groundRays;
    Vector origin = {ox, oy, oz};
    Vector target = {tx, ty, tz};
    Vector offset;
    VectorSubtract(target, origin, offset);
    // Every ray of a bake has the same offset: its direction and length are made once.
    if (std::memcmp(&offset, &downOffset, sizeof offset) != 0) {
        downOffset = downDirection = offset;
        downLength = VectorNormalize(downDirection);
    }
    const Vector& direction = downDirection;
    double best = downLength;

    const uint32_t* up = nullptr;
    const uint32_t* upEnd = nullptr;
    int64_t cell = table.ground.CellOf(ox, oz);
    if (cell >= 0) {
        up = table.ground.refs.data() + table.ground.offsets[cell];
        upEnd = table.ground.refs.data() + table.ground.offsets[cell + 1];
    }
    const uint32_t* other = nullptr;
    const uint32_t* otherEnd = nullptr;
    int64_t otherCell = table.groundOther.CellOf(ox, oz);
    if (otherCell >= 0 && oy <= table.groundOtherTop[otherCell]) {
        other = table.groundOther.refs.data() + table.groundOther.offsets[otherCell];
        otherEnd = table.groundOther.refs.data() + table.groundOther.offsets[otherCell + 1];
    }

    uint32_t found = UINT32_MAX;
    raypredicates::DownHit hit = {}, foundHit = {};
    // Both lists ascend in list order; walking them merged keeps the literal tie rule.
    while (up != upEnd || other != otherEnd) {
        uint32_t g = (other == otherEnd || (up != upEnd && *up < *other)) ? *up++ : *other++;
        const RayMesh& record = *table.records[table.triangleRecord[g]];
        if (!raypredicates::InsideBox(record, ox, oz)) continue;
        ++counters.groundTriangleTests;
        if (raypredicates::HitsDown(*table.triangles[g], ox, oy, oz, direction, best, hit)) {
            best = hit.t;
            found = g;
            foundHit = hit;
        }
    }
    if (found == UINT32_MAX) return true;

    ground.Position.x = float(ox + best * direction.x);
    ground.Position.y = float(oy + best * direction.y);
    ground.Position.z = float(oz + best * direction.z);
    const RayMesh& record = *table.records[table.triangleRecord[found]];
    raypredicates::InterpolatedNormal(record.Mesh->vertices, *table.triangles[found], foundHit.a,
                                      foundHit.b, ground.Normal);
    VectorNormalize(ground.Normal);
    return false;
}

bool FastRayQuery::CylinderPasses(uint32_t record, const float o[3], const float d[3]) {
    ++counters.cylinderTests;
    return raypredicates::CylinderMayBlock(*table.records[record], o, d);
}

// A candidate blocks where its triangle is hit and its record passes the cylinder test, as in
// the walk; both tests are pure, so the cheaper triangle test goes first and the cylinder is
// tried only behind a hit.
bool FastRayQuery::CastToLight(float ox, float oy, float oz) {
    ++counters.lightRays;
    if (table.lightIsZero) return true;
    const float o[3] = {ox, oy, oz};
    const float d[3] = {table.light.x, table.light.y, table.light.z};

    // The last blocker is only a cache: it counts where the walk would have tested it.
    if (lastBlocker && raypredicates::HitsTowardsLight(*lastBlocker, o, d) &&
        CylinderPasses(lastBlockerRecord, o, d)) {
        ++counters.lastBlockerHits;
        return false;
    }
    const double* u = table.shadowAxisU;
    const double* v = table.shadowAxisV;
    const double pu = ox * u[0] + oy * u[1] + double(oz) * u[2];
    const double pv = ox * v[0] + oy * v[1] + double(oz) * v[2];
    int64_t cell = table.shadow.CellOf(pu, pv);
    if (cell < 0) return true;
    for (uint32_t r = table.shadow.offsets[cell]; r < table.shadow.offsets[cell + 1]; ++r) {
        uint32_t g = table.shadow.refs[r];
        const FootprintBox& box = table.footprints[g];
        if (pu < box.minU || pu > box.maxU || pv < box.minV || pv > box.maxV) continue;
        ++counters.lightTriangleTests;
        const RayTriangle* triangle = table.triangles[g];
        if (!raypredicates::HitsTowardsLight(*triangle, o, d)) continue;
        uint32_t record = table.triangleRecord[g];
        if (!CylinderPasses(record, o, d)) continue;
        lastBlocker = triangle;
        lastBlockerRecord = record;
        return false;
    }
    return true;
}
