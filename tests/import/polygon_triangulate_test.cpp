// Polygons as the city formats give them: any shape, holes, repeated and collinear corners, laid
// in any plane; damaged ones give what they can and never hang.
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <tuple>
#include <vector>

#include "tool/import/polygon_triangulate.h"

namespace {

using Ring = std::vector<std::pair<double, double>>;

struct PolygonCase {
    std::string name;
    std::vector<Ring> rings;  // the outer ring counter-clockwise, holes either way
    double area;              // what the triangles must cover; -1: not checked
    size_t triangles;         // 0: any number
    bool simple;
    std::vector<std::tuple<double, double, bool>> probes;  // x, y, whether a triangle covers it
};

// Whether a triangle covers (x, y), its edges included, on the polygon's own plane.
bool Covers(const std::vector<DVec3>& p, const std::vector<uint32_t>& t, double x, double y) {
    for (size_t i = 0; i + 2 < t.size(); i += 3) {
        const DVec3 &a = p[t[i]], &b = p[t[i + 1]], &c = p[t[i + 2]];
        auto side = [&](const DVec3& u, const DVec3& v) {
            return (v.x - u.x) * (y - u.y) - (v.y - u.y) * (x - u.x);
        };
        if (side(a, b) >= 0 && side(b, c) >= 0 && side(c, a) >= 0) return true;
    }
    return false;
}

TEST(PolygonTriangulate, CoversEachShapeOnceWoundAsItsOuterRing) {
    const Ring square = {{0, 0}, {10, 0}, {10, 10}, {0, 10}};
    const std::vector<PolygonCase> cases = {
        {"square", {square}, 100, 2, true, {}},
        {"comb with three teeth",
         {{{0, 0}, {10, 0}, {10, 10}, {8, 10}, {8, 2}, {6, 2}, {6, 10}, {4, 10}, {4, 2}, {2, 2},
           {2, 10}, {0, 10}}},
         68, 0, true, {{3, 5, false}, {7, 9, false}, {1, 9, true}, {5, 1, true}}},
        {"hole wound against the outer ring",
         {square, {{3, 3}, {3, 7}, {7, 7}, {7, 3}}},
         84, 8, true, {{5, 5, false}, {0.5, 9.5, true}, {6.9, 3.2, false}}},
        {"hole wound with it, two holes",
         {square, {{1, 1}, {4, 1}, {4, 4}, {1, 4}}, {{6, 6}, {9, 6}, {9, 9}}},
         86.5, 0, true, {{2.5, 2.5, false}, {8.5, 7, false}, {5, 5, true}, {8, 9.5, true}}},
        {"collinear, repeated and closing corners",
         {{{0, 0}, {5, 0}, {5, 0}, {10, 0}, {10, 10}, {0, 10}, {0, 0}}}, 100, 0, true, {}},
        {"a spike out and back", {{{0, 0}, {10, 0}, {20, 0}, {10, 0}, {10, 10}, {0, 10}}}, 100, 2,
         true, {{12, 1, false}}},
        {"all on one line", {{{0, 0}, {5, 0}, {10, 0}}}, 0, 0, true, {}},
        {"hole without area", {square, {{2, 2}, {4, 4}, {6, 6}}}, 100, 2, true, {{5, 4, true}}},
        {"hole outside", {square, {{20, 0}, {20, 5}, {25, 5}}}, 100, 2, false, {}},
        {"bow tie", {{{0, 0}, {10, 0}, {0, 10}, {4, 10}}}, -1, 0, false, {{2, 9.9, false}}},
    };
    // Laid flat, on a wall facing -y, and tilted: the result lies in the polygon's own plane.
    const DVec3 frames[3][3] = {{{1, 0, 0}, {0, 1, 0}, {5, 5, 5}},
                                {{1, 0, 0}, {0, 0, 1}, {8e4, 4e5, 0}},
                                {{0.6, 0, 0.8}, {0, 1, 0}, {-3, 2, 1}}};
    for (const PolygonCase& c : cases)
        for (const auto& frame : frames) {
            SCOPED_TRACE(c.name + ", frame " + std::to_string(&frame - frames));
            std::vector<DVec3> points, flat;
            std::vector<uint32_t> ends, triangles;
            for (const Ring& ring : c.rings) {
                for (auto [x, y] : ring) {
                    flat.push_back({x, y, 0});
                    points.push_back(frame[2] + DVec3{frame[0].x * x + frame[1].x * y,
                                                      frame[0].y * x + frame[1].y * y,
                                                      frame[0].z * x + frame[1].z * y});
                }
                ends.push_back(uint32_t(points.size()));
            }
            PolygonResult result = TriangulatePolygon(points, ends, triangles);
            EXPECT_EQ(result.flat, c.area == 0);
            EXPECT_EQ(result.simple, c.simple);
            if (c.triangles) {
                EXPECT_EQ(triangles.size(), c.triangles * 3);
            }
            DVec3 normal = Cross(frame[0], frame[1]);
            if (c.area != 0) {
                EXPECT_NEAR(Dot(result.normal, normal), 1.0, 1e-9);
            }
            double area = 0;
            for (size_t i = 0; i + 2 < triangles.size(); i += 3) {
                DVec3 n = Cross(flat[triangles[i + 1]] - flat[triangles[i]],
                                flat[triangles[i + 2]] - flat[triangles[i]]);
                EXPECT_GT(n.z, 0) << "triangle " << i / 3 << " is wound against the ring";
                area += n.z / 2;
            }
            if (c.area >= 0) {
                EXPECT_NEAR(area, c.area, 1e-6);
            }
            for (auto [x, y, inside] : c.probes)
                EXPECT_EQ(Covers(flat, triangles, x, y), inside) << x << ", " << y;
        }
}

// Large or hostile rings finish: a ring of thousands of corners around a circle, and one that
// runs around it three times, crossing itself everywhere.
TEST(PolygonTriangulate, BoundedWorkOnLargeAndTangledRings) {
    std::vector<DVec3> circle, tangle;
    const int n = 4000;
    for (int i = 0; i < n; ++i) {
        double a = 2 * M_PI * i / n;
        circle.push_back({std::cos(a), std::sin(a), 0});
    }
    for (int i = 0; i < n; ++i) tangle.push_back(circle[i * 3 % n]);  // three times around
    std::vector<uint32_t> triangles;
    EXPECT_TRUE(TriangulatePolygon(circle, {n}, triangles).simple);
    EXPECT_EQ(triangles.size(), size_t(n - 2) * 3);
    triangles.clear();
    EXPECT_FALSE(TriangulatePolygon(tangle, {n}, triangles).flat);
    for (uint32_t t : triangles) ASSERT_LT(t, uint32_t(n));
}

}  // namespace
