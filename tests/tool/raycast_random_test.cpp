// Seeded random rays against closed shapes and terrains whose answers are known. The counts grow
// with TENEBRIX_TEST_INTENSITY (a number above 1 multiplies them).
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <functional>
#include <map>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "tool/maps/mesh_builder.h"
#include "tool/raycast/literal_walk.h"

namespace {

int Count(int base) {
    const char* text = std::getenv("TENEBRIX_TEST_INTENSITY");
    double factor = text ? std::strtod(text, nullptr) : 1.0;
    return factor > 1.0 ? int(std::min(base * factor, 1e8)) : base;
}

template <typename... Parts>
std::string Describe(const Parts&... parts) {
    std::ostringstream text;
    text.precision(9);
    ((text << parts << ' '), ...);
    return text.str();
}

double Uniform(std::mt19937& random, double lo, double hi) {
    return std::uniform_real_distribution<double>(lo, hi)(random);
}

Vector RandomDirection(std::mt19937& random) {
    std::normal_distribution<double> normal(0.0, 1.0);
    for (;;) {
        double x = normal(random), y = normal(random), z = normal(random);
        double length = std::sqrt(x * x + y * y + z * z);
        if (length > 1e-6) return {float(x / length), float(y / length), float(z / length)};
    }
}

float Hills(float x, float z) {
    return float(6.0 + 2.5 * std::sin(x * 0.37) * std::cos(z * 0.23) + 0.05 * x);
}
float Ridges(float x, float z) {
    return float(3.0 * std::sin(x * 0.9) + 2.0 * std::cos(z * 1.3) + 0.8 * x);
}

// A closed shape: its xz footprint, the height of its upper surface and its flat bottom, and how
// far a down ray may land above the top (near a fold a neighbour's grown triangle reaches 0.001
// across it, and its plane stands higher by up to 0.001 times the change of slope).
struct Shape {
    std::string name;
    float x0, x1, z0, z1;
    std::function<double(double, double)> top;
    double bottom, tolerance;
    const RayMesh* record;
};

class RayRandom : public ::testing::Test {
protected:
    const RayMesh* Add(MeshBuilder& builder) {
        meshes.emplace_back(builder.Build(nullptr, "shape"));
        return table.AddMesh(meshes.back().get());
    }
    bool Down(float x, float z) { return RayCastDown(table, state, x, 100, z, x, -100, z); }
    bool Light(float ox, float oy, float oz, Vector d) {
        return RayCastToLight(table, state, ox, oy, oz, d.x, d.y, d.z);
    }

    // Four boxes and a slab with a terrain top, side by side along x, footprints apart.
    void BuildClosedShapes() {
        std::mt19937 random(0x5eed0001u);
        for (int b = 0; b < 4; ++b) {
            Vector lo = {float(40 * b + Uniform(random, 0, 5)), float(Uniform(random, -5, 3)),
                         float(Uniform(random, -40, -20))};
            Vector hi = {float(lo.x + Uniform(random, 0.5, 25)),
                         float(lo.y + Uniform(random, 0.5, 15)),
                         float(lo.z + Uniform(random, 0.5, 18))};
            MeshBuilder builder;
            builder.AddBox(lo, hi);
            shapes.push_back({"box " + std::to_string(b), lo.x, hi.x, lo.z, hi.z,
                              [hi](double, double) { return double(hi.y); }, lo.y, 1e-3,
                              Add(builder)});
        }
        const float x0 = 170, z0 = -3, cell = 2.75f, bottom = -4;
        const int nx = 12, nz = 9;
        const float x1 = x0 + nx * cell, z1 = z0 - nz * cell;
        MeshBuilder builder;
        builder.AddTerrain(x0, z0, nx, nz, cell, Hills);
        // Walls under the terrain's border, vertex for vertex, and a bottom.
        auto wall = [&](float xa, float za, float xb, float zb, Vector outward) {
            builder.AddQuad({xa, Hills(xa, za), za}, {xb, Hills(xb, zb), zb}, {xb, bottom, zb},
                            {xa, bottom, za}, outward);
        };
        for (int i = 0; i < nx; ++i) {
            wall(x0 + i * cell, z0, x0 + (i + 1) * cell, z0, {0, 0, 1});
            wall(x0 + i * cell, z1, x0 + (i + 1) * cell, z1, {0, 0, -1});
        }
        for (int k = 0; k < nz; ++k) {
            wall(x0, z0 - k * cell, x0, z0 - (k + 1) * cell, {-1, 0, 0});
            wall(x1, z0 - k * cell, x1, z0 - (k + 1) * cell, {1, 0, 0});
        }
        builder.AddQuad({x0, bottom, z0}, {x1, bottom, z0}, {x1, bottom, z1}, {x0, bottom, z1},
                        {0, -1, 0});
        // The terrain's height: each cell is split along its diagonal from (xa, za) to (xb, zb).
        auto top = [=](double x, double z) {
            int i = std::clamp(int(std::floor((x - x0) / cell)), 0, nx - 1);
            int k = std::clamp(int(std::floor((z0 - z) / cell)), 0, nz - 1);
            float xa = x0 + i * cell, xb = x0 + (i + 1) * cell;
            float za = z0 - k * cell, zb = z0 - (k + 1) * cell;
            double u = (x - xa) / (double(xb) - xa), v = (z - za) / (double(zb) - za);
            double h00 = Hills(xa, za), h10 = Hills(xb, za), h11 = Hills(xb, zb);
            double h01 = Hills(xa, zb);
            return u >= v ? h00 + u * (h10 - h00) + v * (h11 - h10)
                          : h00 + v * (h01 - h00) + u * (h11 - h01);
        };
        shapes.push_back({"slab", x0, x1, z1, z0, top, bottom, 3e-3, Add(builder)});
    }

    RayTable table;
    RayQueryState state;
    std::vector<std::unique_ptr<CMesh>> meshes;
    std::vector<Shape> shapes;
};

// A ray that grazes a face near where it leaves can slip through a closed shape by the letter of
// the light test, and is left out: each face finds its own hit point, and near parallel to the
// plane the rounding of the plane moves it further than the growth covers.
bool Grazes(const RayMesh& record, const float o[3], const Vector& d) {
    for (uint32_t i = 0; i < record.TriangleCount; ++i) {
        const RayTriangle& t = record.Triangles[i];
        double den = double(t.Normal.x) * d.x + double(t.Normal.y) * d.y + double(t.Normal.z) * d.z;
        double along = -(t.Normal.x * o[0] + t.Normal.y * o[1] + t.Normal.z * o[2] + t.D) / den;
        if (!(along >= 0.0)) continue;
        const double dir[3] = {d.x, d.y, d.z};
        int ia = t.Axes & 3, ib = t.Axes >> 2;
        double a = o[ia] + along * dir[ia], b = o[ib] + along * dir[ib];
        auto [minA, maxA] = std::minmax({t.Corner[0][0], t.Corner[1][0], t.Corner[2][0]});
        auto [minB, maxB] = std::minmax({t.Corner[0][1], t.Corner[1][1], t.Corner[2][1]});
        if (a < minA - 0.01 || a > maxA + 0.01 || b < minB - 0.01 || b > maxB + 0.01) continue;
        if (std::fabs(den) < 0.02) return true;
    }
    return false;
}

TEST_F(RayRandom, ClosedShapesAnswerDownRaysWithTheirTopAndBlockEveryRayFromInside) {
    BuildClosedShapes();
    std::mt19937 random(0x5eed0002u);
    const int count = Count(400);
    for (const Shape& s : shapes) {
        int tested = 0;
        for (int n = 0; n < count; ++n) {
            float x = float(Uniform(random, s.x0 + 1e-3, s.x1 - 1e-3));
            float z = float(Uniform(random, s.z0 + 1e-3, s.z1 - 1e-3));
            ASSERT_FALSE(Down(x, z)) << Describe(s.name, x, z);
            ASSERT_NEAR(state.Ground.Position.y, s.top(x, z), s.tolerance) << Describe(s.name, x, z);
            ASSERT_EQ(state.Ground.Position.x, x);
            ASSERT_EQ(state.Ground.Position.z, z);
            float y = float(Uniform(random, s.bottom + 0.01, s.top(x, z) - 0.01));
            Vector d = RandomDirection(random);
            const float o[3] = {x, y, z};
            if (Grazes(*s.record, o, d)) continue;
            ++tested;
            ASSERT_FALSE(Light(x, y, z, d)) << Describe(s.name, x, y, z, d.x, d.y, d.z);
        }
        EXPECT_GT(tested, count * 9 / 10) << s.name;
    }

    double highest = -1e30;
    for (const RayMesh* record = table.First(); record; record = record->Next)
        highest = std::max(highest, double(record->Top));
    for (int n = 0, misses = 0; misses < count; ++n) {
        ASSERT_LT(n, 100 * count);
        float x = float(Uniform(random, -10, 220)), z = float(Uniform(random, -60, 10));
        if (std::any_of(shapes.begin(), shapes.end(), [&](const Shape& s) {
                return x > s.x0 - 0.01 && x < s.x1 + 0.01 && z > s.z0 - 0.01 && z < s.z1 + 0.01;
            }))
            continue;
        ++misses;
        ASSERT_TRUE(Down(x, z)) << Describe("outside", x, z);
        float y = float(highest + Uniform(random, 1, 50));
        Vector d = misses % 10 == 0 ? Vector{0, 1, 0} : RandomDirection(random);
        d.y = std::fabs(d.y);
        if (d.y == 0.0f) continue;
        ASSERT_TRUE(Light(x, y, z, d)) << Describe("above", x, y, z, d.x, d.y, d.z);
    }
}

// Rays aimed exactly at a terrain's vertices and at points of its shared edges find the terrain:
// the growth of every triangle closes the cracks that rounding would open. A ray that grazes the
// faces it is aimed at is left out, as above.
TEST_F(RayRandom, RaysAimedAtVerticesAndSharedEdgesHit) {
    std::mt19937 random(0x5eed0005u);
    const int fractions = Count(3);
    struct Terrain {
        const char* name;
        float (*height)(float, float);
        float x0, z0, cell;
        double tolerance;  // 0.001 times the largest change of slope across an edge, and more
    };
    for (const Terrain& terrain : {Terrain{"hills", Hills, 13.3f, -7.1f, 1.7f, 2e-3},
                                   Terrain{"ridges", Ridges, -3.9f, 21.7f, 1.3f, 6e-3}}) {
        MeshBuilder builder;
        builder.AddTerrain(terrain.x0, terrain.z0, 14, 14, terrain.cell, terrain.height);
        const RayMesh* record = Add(builder);
        const CMesh* mesh = meshes.back().get();
        const MeshVertex* v = mesh->vertices;
        float lowest = v[0].position.y;
        for (int32_t i = 0; i < mesh->vertexCount; ++i) lowest = std::min(lowest, v[i].position.y);

        // Every vertex, and points along every edge that two faces share, with the faces they lie on.
        std::vector<std::pair<Vector, std::vector<uint32_t>>> targets(size_t(mesh->vertexCount));
        std::map<std::pair<uint32_t, uint32_t>, std::vector<uint32_t>> edges;
        for (int32_t i = 0; i < mesh->vertexCount; ++i) targets[size_t(i)].first = v[i].position;
        for (uint32_t f = 0; f < mesh->faceCount[0]; ++f)
            for (int k = 0; k < 3; ++k) {
                uint32_t a = mesh->faces[0][f].vertex[k], b = mesh->faces[0][f].vertex[(k + 1) % 3];
                targets[a].second.push_back(f);
                edges[{std::min(a, b), std::max(a, b)}].push_back(f);
            }
        for (const auto& [edge, faces] : edges) {
            if (faces.size() != 2) continue;
            const Vector &a = v[edge.first].position, &b = v[edge.second].position;
            for (int n = 0; n <= fractions; ++n) {
                double f = n == 0 ? 0.5 : Uniform(random, 0, 1);
                targets.push_back({{float(a.x + f * (double(b.x) - a.x)),
                                    float(a.y + f * (double(b.y) - a.y)),
                                    float(a.z + f * (double(b.z) - a.z))},
                                   faces});
            }
        }

        for (const auto& [p, faces] : targets) {
            ASSERT_FALSE(Down(p.x, p.z)) << Describe(terrain.name, "down", p.x, p.z);
            ASSERT_NEAR(state.Ground.Position.y, p.y, terrain.tolerance) << terrain.name;
            ASSERT_FALSE(Light(p.x, lowest - 5, p.z, {0, 1, 0})) << Describe(terrain.name, p.x, p.z);
            Vector d;
            bool grazes;
            do {
                d = RandomDirection(random);
                grazes = false;
                for (uint32_t f : faces)
                    grazes |= std::fabs(VectorDot(d, record->Triangles[f].Normal)) < 0.25f;
            } while (grazes);
            float ox = float(p.x - 2.0 * d.x), oy = float(p.y - 2.0 * d.y), oz = float(p.z - 2.0 * d.z);
            ASSERT_FALSE(Light(ox, oy, oz, d)) << Describe(terrain.name, ox, oy, oz, d.x, d.y, d.z);
        }
        table.Free();
        state = {};  // its blocker stood in the table
    }
}

}  // namespace
