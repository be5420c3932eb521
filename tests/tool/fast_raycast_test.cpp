#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "engine/mesh/mesh.h"
#include "tests/support/random_map.h"
#include "tool/maps/demo_map.h"
#include "tool/raycast/fast_raycast.h"
#include "tool/raycast/ray_predicates.h"
#include "tool/raycast/ray_table.h"

namespace {

int Intensity() {
    const char* value = std::getenv("TENEBRIX_TEST_INTENSITY");
    int n = value ? std::atoi(value) : 1;
    return n > 1 ? n : 1;
}

bool SameBits(const Vector& a, const Vector& b) {
    return std::memcmp(&a, &b, sizeof a) == 0;
}

// Casts both queries at every sample of a grid over the map with the literal walk and with the
// fast core, and counts the answers that differ in any bit.
struct Comparison {
    int samples = 0, groundDiffers = 0, lightDiffers = 0, ghosts = 0, lit = 0, hits = 0;
};

// The light test counts edge crossings with both ends of an edge included, so a point level with
// a triangle's vertex can count that vertex twice and read as inside though it lies far outside
// the triangle. The fast core's footprints don't hold those far points yet: a sample that only
// such a "ghost" crossing blocks is the one known difference, and it is counted, not failed.
bool OnlyGhostsBlock(float ox, float oy, float oz, const Vector& light) {
    const float o[3] = {ox, oy, oz};
    const float d[3] = {light.x, light.y, light.z};
    bool ghost = false;
    for (const RayMesh* record = RayTable.First; record; record = record->Next) {
        if (!raypredicates::CylinderMayBlock(*record, o, d)) continue;
        for (uint32_t i = 0; i < record->TriangleCount; ++i) {
            const RayTriangle& t = record->Triangles[i];
            if (!raypredicates::HitsTowardsLight(t, o, d)) continue;
            float den = float(double(d[2]) * t.Normal.z + double(d[0]) * t.Normal.x +
                              double(d[1]) * t.Normal.y);
            float at = float(-(double(o[2]) * t.Normal.z + double(o[0]) * t.Normal.x +
                               double(o[1]) * t.Normal.y + t.D) /
                             den);
            int ia = t.Axes & 3, ib = t.Axes >> 2;
            double a = o[ia] + double(at) * d[ia], b = o[ib] + double(at) * d[ib];
            double minA = 1e30, maxA = -1e30, minB = 1e30, maxB = -1e30;
            for (const float* c : t.Corner) {
                minA = std::min(minA, double(c[0])), maxA = std::max(maxA, double(c[0]));
                minB = std::min(minB, double(c[1])), maxB = std::max(maxB, double(c[1]));
            }
            bool inside =
                a >= minA - 0.01 && a <= maxA + 0.01 && b >= minB - 0.01 && b <= maxB + 0.01;
            if (inside) return false;  // a real blocker: the fast core must have found it
            ghost = true;
        }
    }
    return ghost;
}

Comparison CompareCores(CMesh* map, Vector light, float span, float step) {
    VectorNormalize(light);
    RayTableBegin();
    RayTableAddTree(map);
    FastRayTable fast;
    fast.Build(RayTable, light);
    FastRayQuery query(fast);
    Comparison result;
    for (float z = 0.0f; z > -span; z -= step)
        for (float x = 0.0f; x < span; x += step) {
            ++result.samples;
            RayGround = {{1, 2, 3}, {4, 5, 6}};
            query.ground = RayGround;
            bool literalMiss = RayCastDown(x, 10000.0f, z, x, -20000.0f, z);
            bool fastMiss = query.CastDown(x, 10000.0f, z, x, -20000.0f, z);
            if (literalMiss != fastMiss || !SameBits(RayGround.Position, query.ground.Position) ||
                !SameBits(RayGround.Normal, query.ground.Normal)) {
                ++result.groundDiffers;
                ADD_FAILURE() << "ground differs at x " << x << " z " << z;
                continue;
            }
            if (literalMiss) continue;
            ++result.hits;
            const Vector& n = RayGround.Normal;
            float ox = float(x + n.x * 0.01), oy = float(RayGround.Position.y + n.y * 0.01),
                  oz = float(z + n.z * 0.01);
            bool literalFree = RayCastToLight(ox, oy, oz, light.x, light.y, light.z);
            bool fastFree = query.CastToLight(ox, oy, oz);
            if (literalFree != fastFree) {
                if (fastFree && OnlyGhostsBlock(ox, oy, oz, light)) {
                    ++result.ghosts;
                } else {
                    ++result.lightDiffers;
                    ADD_FAILURE() << "light differs at x " << x << " z " << z;
                }
            }
            result.lit += literalFree;
        }
    RayTableFree();
    return result;
}

const Vector Lights[] = {
    {0.0f, 1.0f, 0.0f},     // overhead
    {0.55f, 0.45f, 0.35f},  // afternoon
    {-1.0f, 0.05f, 0.2f},   // grazing
    {0.3f, -0.2f, -0.7f},   // below the horizon
    {0.0f, 0.0f, 0.0f},     // zero
    {1.0f, 1.0f, 0.0f},     // exactly diagonal
};

}  // namespace

TEST(FastRayCore, MatchesTheLiteralWalkOnTheDemoMap) {
    CMesh* map = BuildDemoMap();
    for (const Vector& light : Lights) {
        Comparison c = CompareCores(map, light, DemoMapCells * 32.0f, 12.0f);
        EXPECT_EQ(c.groundDiffers + c.lightDiffers, 0);
        EXPECT_LE(c.ghosts * 10000, c.samples);  // ghosts are rare accidents of rounding
        EXPECT_GT(c.hits, c.samples / 2);
    }
    delete map;
}

TEST(FastRayCore, MatchesTheLiteralWalkOnRandomMaps) {
    const int maps = 50 * Intensity();
    int lit = 0, shadowed = 0, ghosts = 0;
    for (int seed = 1; seed <= maps; ++seed) {
        int cells = 2 + seed % 5;
        CMesh* map = BuildRandomMap(uint32_t(seed), cells);
        const Vector& light = Lights[seed % 6];
        Comparison c = CompareCores(map, light, cells * 32.0f, 2.0f);
        EXPECT_EQ(c.groundDiffers + c.lightDiffers, 0) << "seed " << seed;
        ghosts += c.ghosts;
        lit += c.lit;
        shadowed += c.hits - c.lit;
        delete map;
    }
    RecordProperty("ghosts", ghosts);
    EXPECT_GT(lit, 0);  // the maps exercise both answers
    EXPECT_GT(shadowed, 0);
}
