// Seeded random rays against closed shapes and terrains whose answers are known. The counts grow
// with TENEBRIX_TEST_INTENSITY (a number above 1 multiplies them).
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <functional>
#include <map>
#include <random>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "engine/mesh/mesh.h"
#include "tool/maps/mesh_builder.h"
#include "tool/raycast/literal_walk.h"

namespace {

int Count(int base) {
    const char* text = std::getenv("TENEBRIX_TEST_INTENSITY");
    double factor = text ? std::strtod(text, nullptr) : 1.0;
    return factor > 1.0 ? int(std::min(base * factor, 1e8)) : base;
}

// The parts of a failing ray, to full precision.
template <typename... Parts>
std::string Describe(const Parts&... parts) {
    std::ostringstream text;
    text.precision(9);
    ((text << parts << ' '), ...);
    return text.str();
}

Vector RandomDirection(std::mt19937& random) {
    std::normal_distribution<double> normal(0.0, 1.0);
    for (;;) {
        double x = normal(random), y = normal(random), z = normal(random);
        double length = std::sqrt(x * x + y * y + z * z);
        if (length > 1e-6) return {float(x / length), float(y / length), float(z / length)};
    }
}

double Uniform(std::mt19937& random, double lo, double hi) {
    return std::uniform_real_distribution<double>(lo, hi)(random);
}

// A closed shape: a sampler strictly inside its footprint, the footprint's xz box, the height of
// its upper surface and its flat bottom.
struct Shape {
    std::string name;
    std::function<void(std::mt19937&, float*, float*)> sample;
    float x0, x1, z0, z1;
    std::function<double(double, double)> top;
    double bottom;
    // How far a down ray may land above the top: near a fold, a neighbour's grown triangle reaches
    // 0.001 across it, and its plane stands higher by up to 0.001 times the change of slope.
    double tolerance;
    const RayMesh* record;
    bool Near(double x, double z) const {
        return x > x0 - 0.01 && x < x1 + 0.01 && z > z0 - 0.01 && z < z1 + 0.01;
    }
};

float Hills(float x, float z) {
    return float(6.0 + 2.5 * std::sin(x * 0.37) * std::cos(z * 0.23) + 0.05 * x);
}

float Ridges(float x, float z) {
    return float(3.0 * std::sin(x * 0.9) + 2.0 * std::cos(z * 1.3) + 0.8 * x);
}

// Height of the terrain that MeshBuilder::AddTerrain makes, at (x, z) inside it.
double TerrainHeight(float x0, float z0, int nx, int nz, float cell, float (*height)(float, float),
                     double x, double z) {
    int i = std::clamp(int(std::floor((x - x0) / cell)), 0, nx - 1);
    int k = std::clamp(int(std::floor((z0 - z) / cell)), 0, nz - 1);
    float xa = x0 + i * cell, xb = x0 + (i + 1) * cell;
    float za = z0 - k * cell, zb = z0 - (k + 1) * cell;
    double u = (x - xa) / (double(xb) - xa), v = (z - za) / (double(zb) - za);
    double h00 = height(xa, za), h10 = height(xb, za), h11 = height(xb, zb), h01 = height(xa, zb);
    if (u >= v) return h00 + u * (h10 - h00) + v * (h11 - h10);
    return h00 + v * (h01 - h00) + u * (h11 - h01);
}

class RayRandomTest : public ::testing::Test {
protected:
    void TearDown() override {
        table.Free();
        for (CMesh* mesh : meshes) delete mesh;
    }
    const RayMesh* AddMesh(MeshBuilder& builder, const char* name) {
        meshes.push_back(builder.Build(nullptr, name));
        return table.AddMesh(meshes.back());
    }
    bool Down(float x, float z) { return RayCastDown(table, state, x, 100, z, x, -100, z); }
    bool Light(float ox, float oy, float oz, float dx, float dy, float dz) {
        return RayCastToLight(table, state, ox, oy, oz, dx, dy, dz);
    }

    // Boxes, a tetrahedron and a slab with a terrain top, side by side along x, footprints apart.
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
            const RayMesh* record = AddMesh(builder, "box");
            auto sample = [lo, hi](std::mt19937& r, float* x, float* z) {
                *x = float(Uniform(r, lo.x, hi.x));
                *z = float(Uniform(r, lo.z, hi.z));
            };
            shapes.push_back({"box " + std::to_string(b), sample, lo.x, hi.x, lo.z, hi.z,
                              [hi](double, double) { return double(hi.y); }, lo.y, 1e-3, record});
        }
        AddTetrahedron();
        AddSlab();
    }

    void AddTetrahedron() {
        const Vector base[3] = {{170, -2, -10}, {195, -2, -14}, {180, -2, -35}};
        const Vector apex = {182, 20, -19};
        MeshBuilder builder;
        builder.AddTriangle(base[0], base[1], base[2], {0, -1, 0});
        const double centre[3] = {(base[0].x + base[1].x + base[2].x + apex.x) / 4.0,
                                  (base[0].y + base[1].y + base[2].y + apex.y) / 4.0,
                                  (base[0].z + base[1].z + base[2].z + apex.z) / 4.0};
        for (int i = 0; i < 3; ++i) {
            const Vector& a = base[i];
            const Vector& b = base[(i + 1) % 3];
            builder.AddTriangle(apex, a, b,
                                {float((a.x + b.x + apex.x) / 3 - centre[0]),
                                 float((a.y + b.y + apex.y) / 3 - centre[1]),
                                 float((a.z + b.z + apex.z) / 3 - centre[2])});
        }
        const RayMesh* record = AddMesh(builder, "tetrahedron");

        // The upper surface of a convex body is the lowest of its upward planes.
        auto top = [base, apex](double x, double z) {
            double best = 1e30;
            for (int i = 0; i < 3; ++i) {
                const Vector& a = base[i];
                const Vector& b = base[(i + 1) % 3];
                double ux = a.x - apex.x, uy = a.y - apex.y, uz = a.z - apex.z;
                double vx = b.x - apex.x, vy = b.y - apex.y, vz = b.z - apex.z;
                double nx = uy * vz - uz * vy, ny = uz * vx - ux * vz, nz = ux * vy - uy * vx;
                best = std::min(best, apex.y - (nx * (x - apex.x) + nz * (z - apex.z)) / ny);
            }
            return best;
        };
        auto sample = [base](std::mt19937& r, float* x, float* z) {
            double s, t;
            do {
                s = Uniform(r, 0, 1);
                t = Uniform(r, 0, 1);
            } while (std::min({s, t, 1 - s - t}) <= 1e-4);
            *x = float(base[0].x + s * (base[1].x - base[0].x) + t * (base[2].x - base[0].x));
            *z = float(base[0].z + s * (base[1].z - base[0].z) + t * (base[2].z - base[0].z));
        };
        shapes.push_back({"tetrahedron", sample, 170, 195, -35, -10, top, base[0].y, 5e-3, record});
    }

    void AddSlab() {
        const float x0 = 230, z0 = -3, cell = 2.75f, bottom = -4;
        const int nx = 12, nz = 9;
        const float x1 = x0 + nx * cell, z1 = z0 - nz * cell;
        MeshBuilder builder;
        builder.AddTerrain(x0, z0, nx, nz, cell, Hills);
        // Walls under the terrain's border, vertex for vertex, and a bottom.
        auto edge = [&](Vector a, Vector b, Vector outward) {
            builder.AddQuad(a, b, {b.x, bottom, b.z}, {a.x, bottom, a.z}, outward);
        };
        for (int i = 0; i < nx; ++i) {
            float xa = x0 + i * cell, xb = x0 + (i + 1) * cell;
            edge({xa, Hills(xa, z0), z0}, {xb, Hills(xb, z0), z0}, {0, 0, 1});
            edge({xa, Hills(xa, z1), z1}, {xb, Hills(xb, z1), z1}, {0, 0, -1});
        }
        for (int k = 0; k < nz; ++k) {
            float za = z0 - k * cell, zb = z0 - (k + 1) * cell;
            edge({x0, Hills(x0, za), za}, {x0, Hills(x0, zb), zb}, {-1, 0, 0});
            edge({x1, Hills(x1, za), za}, {x1, Hills(x1, zb), zb}, {1, 0, 0});
        }
        builder.AddQuad({x0, bottom, z0}, {x1, bottom, z0}, {x1, bottom, z1}, {x0, bottom, z1},
                        {0, -1, 0});
        const RayMesh* record = AddMesh(builder, "slab");
        auto sample = [=](std::mt19937& r, float* x, float* z) {
            *x = float(Uniform(r, x0, x1));
            *z = float(Uniform(r, z1, z0));
        };
        auto top = [=](double x, double z) {
            return TerrainHeight(x0, z0, nx, nz, cell, Hills, x, z);
        };
        shapes.push_back({"slab", sample, x0, x1, z1, z0, top, bottom, 3e-3, record});
    }

    RayTable table;
    RayQueryState state;
    std::vector<CMesh*> meshes;
    std::vector<Shape> shapes;
};

TEST_F(RayRandomTest, DownRaysInsideAFootprintHitTheTopAndOutsideMiss) {
    BuildClosedShapes();
    std::mt19937 random(0x5eed0002u);
    const int count = Count(400);
    for (const Shape& shape : shapes)
        for (int n = 0; n < count; ++n) {
            float x, z;
            shape.sample(random, &x, &z);
            std::string ray = Describe(shape.name, x, z);
            ASSERT_FALSE(Down(x, z)) << ray;
            ASSERT_NEAR(state.Ground.Position.y, shape.top(x, z), shape.tolerance) << ray;
            ASSERT_EQ(state.Ground.Position.x, x) << ray;
            ASSERT_EQ(state.Ground.Position.z, z) << ray;
            if (shape.name.rfind("box", 0) == 0) {
                ASSERT_NEAR(state.Ground.Normal.y, 1.0, 1e-6) << ray;
            }
        }

    for (int n = 0, misses = 0; misses < count; ++n) {
        ASSERT_LT(n, 100 * count);
        float x = float(Uniform(random, -10, 280)), z = float(Uniform(random, -60, 10));
        if (std::any_of(shapes.begin(), shapes.end(), [&](const Shape& s) { return s.Near(x, z); }))
            continue;
        ++misses;
        ASSERT_TRUE(Down(x, z)) << Describe("outside", x, z);
    }
}

// A ray that grazes a face near where it leaves can slip through a closed shape by the letter of
// the light test, and is left out: each face finds its own hit point, and near parallel to the
// plane the rounding of the plane moves it further than the growth covers. A ray level with a
// corner can't: the half-open rule counts that corner on one edge.
bool SlipsThrough(const RayMesh& record, const float o[3], const Vector& d) {
    const double direction[3] = {d.x, d.y, d.z};
    for (uint32_t i = 0; i < record.TriangleCount; ++i) {
        const RayTriangle& triangle = record.Triangles[i];
        const Vector& n = triangle.Normal;
        double den = n.x * direction[0] + n.y * direction[1] + n.z * direction[2];
        double t = -(n.x * o[0] + n.y * o[1] + n.z * o[2] + triangle.D) / den;
        if (!(t >= 0.0)) continue;
        int ia = triangle.Axes & 3, ib = triangle.Axes >> 2;
        double a = o[ia] + t * direction[ia], b = o[ib] + t * direction[ib];
        const auto& c = triangle.Corner;
        auto [minA, maxA] = std::minmax({c[0][0], c[1][0], c[2][0]});
        auto [minB, maxB] = std::minmax({c[0][1], c[1][1], c[2][1]});
        if (a < minA - 0.01 || a > maxA + 0.01 || b < minB - 0.01 || b > maxB + 0.01) continue;
        if (std::fabs(den) < 0.02) return true;
    }
    return false;
}

TEST_F(RayRandomTest, EveryRayFromInsideAClosedShapeIsBlockedAndFromAboveUpIsFree) {
    BuildClosedShapes();
    std::mt19937 random(0x5eed0003u);
    const int count = Count(800);
    for (const Shape& shape : shapes) {
        int tested = 0;
        for (int n = 0; n < count; ++n) {
            float x, z;
            do shape.sample(random, &x, &z);
            while (shape.top(x, z) - shape.bottom < 0.05);
            float y = float(Uniform(random, shape.bottom + 0.01, shape.top(x, z) - 0.01));
            Vector d = RandomDirection(random);
            const float o[3] = {x, y, z};
            if (SlipsThrough(*shape.record, o, d)) continue;
            ++tested;
            ASSERT_FALSE(Light(x, y, z, d.x, d.y, d.z))
                << Describe(shape.name, x, y, z, d.x, d.y, d.z);
        }
        EXPECT_GT(tested, count * 9 / 10) << shape.name;
    }

    double highest = -1e30;
    for (const RayMesh* record = table.First(); record; record = record->Next)
        highest = std::max(highest, double(record->Top));
    for (int n = 0; n < 4 * count; ++n) {
        float x = float(Uniform(random, -10, 280)), z = float(Uniform(random, -60, 10));
        float y = float(highest + Uniform(random, 1, 50));
        Vector d = n % 10 == 0 ? Vector{0, 1, 0} : RandomDirection(random);
        d.y = std::fabs(d.y);
        if (d.y == 0.0f) continue;
        ASSERT_TRUE(Light(x, y, z, d.x, d.y, d.z)) << Describe("above", x, y, z, d.x, d.y, d.z);
    }
}

// Rays aimed exactly at a terrain's vertices and at points of its shared edges find the terrain:
// the growth of every triangle closes the cracks that rounding would open. A ray that grazes the
// faces it is aimed at is left out, as above.
TEST_F(RayRandomTest, RaysAimedAtVerticesAndSharedEdgesHit) {
    std::mt19937 random(0x5eed0005u);
    const int fractions = Count(3);
    struct Terrain {
        const char* name;
        float (*height)(float, float);
        float x0, z0, cell;
        double tolerance;  // 0.001 times the largest change of slope across an edge, and more
    };
    struct Target {
        Vector p;
        std::vector<uint32_t> faces;  // the faces it lies on
    };
    for (const Terrain& terrain : {Terrain{"hills", Hills, 13.3f, -7.1f, 1.7f, 2e-3},
                                   Terrain{"ridges", Ridges, -3.9f, 21.7f, 1.3f, 6e-3}}) {
        MeshBuilder builder;
        builder.AddTerrain(terrain.x0, terrain.z0, 14, 14, terrain.cell, terrain.height);
        const RayMesh* record = AddMesh(builder, terrain.name);
        const CMesh* mesh = meshes.back();
        ASSERT_TRUE(record && record->Mesh == mesh);
        const MeshVertex* v = mesh->vertices;
        float lowest = v[0].position.y;
        for (int32_t i = 0; i < mesh->vertexCount; ++i) lowest = std::min(lowest, v[i].position.y);

        // Every vertex, and points along every edge that two faces share.
        std::vector<Target> targets(size_t(mesh->vertexCount));
        std::map<std::pair<uint32_t, uint32_t>, std::vector<uint32_t>> edges;
        for (int32_t i = 0; i < mesh->vertexCount; ++i) targets[size_t(i)].p = v[i].position;
        for (uint32_t f = 0; f < mesh->faceCount[0]; ++f)
            for (int k = 0; k < 3; ++k) {
                uint32_t a = mesh->faces[0][f].vertex[k], b = mesh->faces[0][f].vertex[(k + 1) % 3];
                targets[a].faces.push_back(f);
                edges[{std::min(a, b), std::max(a, b)}].push_back(f);
            }
        for (const auto& [edge, faces] : edges) {
            if (faces.size() != 2) continue;
            const Vector& a = v[edge.first].position;
            const Vector& b = v[edge.second].position;
            for (int n = 0; n <= fractions; ++n) {
                double f = n == 0 ? 0.5 : Uniform(random, 0, 1);
                targets.push_back(
                    {{float(a.x + f * (double(b.x) - a.x)), float(a.y + f * (double(b.y) - a.y)),
                      float(a.z + f * (double(b.z) - a.z))},
                     faces});
            }
        }

        const std::string name = terrain.name;
        for (const Target& target : targets) {
            const Vector& p = target.p;
            std::string down = Describe(name, "down", p.x, p.z);
            ASSERT_FALSE(Down(p.x, p.z)) << down;
            ASSERT_NEAR(state.Ground.Position.y, p.y, terrain.tolerance) << down;
            ASSERT_FALSE(Light(p.x, lowest - 5, p.z, 0, 1, 0)) << Describe(name, "up", p.x, p.z);

            Vector d;
            bool grazes;
            do {
                d = RandomDirection(random);
                grazes = false;
                for (uint32_t f : target.faces)
                    grazes |= std::fabs(VectorDot(d, record->Triangles[f].Normal)) < 0.25f;
            } while (grazes);
            float ox = float(p.x - 2.0 * d.x), oy = float(p.y - 2.0 * d.y),
                  oz = float(p.z - 2.0 * d.z);
            ASSERT_FALSE(Light(ox, oy, oz, d.x, d.y, d.z))
                << Describe(name, "slanted", ox, oy, oz, d.x, d.y, d.z);
        }
        table.Free();
        state = {};  // its blocker stood in the table
    }
}

}  // namespace
