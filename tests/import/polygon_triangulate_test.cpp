// Polygons as the city formats give them: any shape, holes, repeated and collinear corners, laid
// in any plane; damaged ones give what they can and never hang.
#include <gtest/gtest.h>

#include <cmath>
#include <sstream>
#include <string>
#include <vector>

#include "tool/import/polygon_triangulate.h"

namespace {

struct PolygonCase {
    const char* rings;  // "x y x y ... | hole | hole": the outer ring counter-clockwise
    double area;        // what the triangles cover; -1: not checked
    size_t triangles;   // 0: any number
    bool simple;
    const char* inside;  // "x y ...": points a triangle covers
    const char* outside;
};

std::vector<double> Numbers(const std::string& text) {
    std::istringstream in(text);
    std::vector<double> numbers;
    for (std::string word; in >> word;) numbers.push_back(word == "|" ? NAN : std::stod(word));
    return numbers;
}

// Whether a triangle covers (x, y), its edges included.
bool Covers(const std::vector<DVec3>& p, const std::vector<uint32_t>& t, double x, double y) {
    for (size_t i = 0; i + 2 < t.size(); i += 3) {
        bool in = true;
        for (size_t k = 0; k < 3; ++k) {
            const DVec3 &u = p[t[i + k]], &v = p[t[i + (k + 1) % 3]];
            in = in && (v.x - u.x) * (y - u.y) - (v.y - u.y) * (x - u.x) >= 0;
        }
        if (in) return true;
    }
    return false;
}

TEST(PolygonTriangulate, CoversEachShapeOnceWoundAsItsOuterRing) {
    const std::vector<PolygonCase> cases = {
        {"0 0 10 0 10 10 0 10", 100, 2, true, "1 9", ""},
        {"0 0 10 0 10 10 8 10 8 2 6 2 6 10 4 10 4 2 2 2 2 10 0 10", 68, 0, true, "1 9 5 1",
         "3 5 7 9"},
        {"0 0 10 0 10 10 0 10 | 3 3 3 7 7 7 7 3", 84, 8, true, "0.5 9.5", "5 5 6.9 3.2"},
        {"0 0 10 0 10 10 0 10 | 1 1 4 1 4 4 1 4 | 6 6 9 6 9 9", 86.5, 0, true, "5 5 8 9.5",
         "2.5 2.5 8.5 7"},
        {"0 0 5 0 5 0 10 0 10 10 0 10 0 0", 100, 0, true, "", ""},        // repeated, collinear
        {"0 0 10 0 20 0 10 0 10 10 0 10", 100, 2, true, "", "12 1"},      // a spike out and back
        {"0 0 5 0 10 0", 0, 0, true, "", ""},                             // on one line
        {"0 0 10 0 10 10 0 10 | 2 2 4 4 6 6", 100, 2, true, "5 4", ""},   // a hole without area
        {"0 0 10 0 10 10 0 10 | 20 0 20 5 25 5", 100, 2, false, "", ""},  // a hole outside
        {"0 0 10 0 0 10 4 10", -1, 0, false, "", "2 9.9"},                // a bow tie
    };
    // Laid flat, on a wall facing -y far from the origin, and tilted.
    const DVec3 frames[3][3] = {{{1, 0, 0}, {0, 1, 0}, {5, 5, 5}},
                                {{1, 0, 0}, {0, 0, 1}, {8e4, 4e5, 0}},
                                {{0.6, 0, 0.8}, {0, 1, 0}, {-3, 2, 1}}};
    for (const PolygonCase& c : cases)
        for (const auto& f : frames) {
            SCOPED_TRACE(std::string(c.rings) + ", frame " + std::to_string(&f - frames));
            std::vector<DVec3> points, flat;
            std::vector<uint32_t> ends, triangles;
            std::vector<double> n = Numbers(std::string(c.rings) + " |");
            for (size_t i = 0; i < n.size(); i += std::isnan(n[i]) ? 1 : 2) {
                if (std::isnan(n[i])) {
                    ends.push_back(uint32_t(points.size()));
                    continue;
                }
                double x = n[i], y = n[i + 1];
                flat.push_back({x, y, 0});
                points.push_back(f[2] + DVec3{f[0].x * x + f[1].x * y, f[0].y * x + f[1].y * y,
                                              f[0].z * x + f[1].z * y});
            }
            PolygonResult result = TriangulatePolygon(points, ends, triangles);
            EXPECT_EQ(result.flat, c.area == 0);
            EXPECT_EQ(result.simple, c.simple);
            EXPECT_TRUE(!c.triangles || triangles.size() == c.triangles * 3) << triangles.size();
            double facing = Dot(result.normal, Cross(f[0], f[1]));
            EXPECT_NEAR(facing, c.area == 0 ? facing : 1.0, 1e-9);
            double area = 0;
            for (size_t i = 0; i + 2 < triangles.size(); i += 3) {
                DVec3 z = Cross(flat[triangles[i + 1]] - flat[triangles[i]],
                                flat[triangles[i + 2]] - flat[triangles[i]]);
                EXPECT_GT(z.z, 0) << "triangle " << i / 3 << " is wound against the ring";
                area += z.z / 2;
            }
            EXPECT_NEAR(c.area < 0 ? area : c.area, area, 1e-6);
            for (bool in : {true, false}) {
                std::vector<double> probes = Numbers(in ? c.inside : c.outside);
                for (size_t i = 0; i + 1 < probes.size(); i += 2)
                    EXPECT_EQ(Covers(flat, triangles, probes[i], probes[i + 1]), in)
                        << probes[i] << ", " << probes[i + 1];
            }
        }
}

}  // namespace
