#include "tests/support/random_map.h"

#include <cmath>
#include <random>

#include "tool/maps/mesh_builder.h"

namespace {

struct MapRandom {
    std::mt19937 engine;
    float Uniform(float lo, float hi) { return std::uniform_real_distribution<float>(lo, hi)(engine); }
    int Int(int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(engine); }
    float Lattice(float lo, float hi) { return std::round(Uniform(lo, hi) / 4.0f) * 4.0f; }
    // Often on the 4-unit sample lattice, so rays hit edges and corners exactly.
    float Snapped(float lo, float hi) { return Int(0, 2) == 0 ? Lattice(lo, hi) : Uniform(lo, hi); }
};

float Amplitude = 0.0f;
float Frequency = 0.0f;
float Terrain(float x, float z) { return Amplitude * std::sin(x * Frequency) * std::cos(z * Frequency); }

}  // namespace

CMesh* BuildRandomMap(uint32_t seed, int cells) {
    MapRandom random{std::mt19937(seed)};
    const float span = cells * 32.0f;
    CMesh* root = new CMesh(nullptr);
    MeshBuilder builder;

    // Ground: one mesh or chunks, flat or rolling.
    Amplitude = random.Int(0, 1) ? random.Uniform(0.0f, 20.0f) : 0.0f;
    Frequency = random.Uniform(0.005f, 0.05f);
    int chunks = random.Int(1, 4);
    float chunk = span / chunks;
    // Now and then ground finer than a unit, as are then the fast core's grid cells.
    int quads = cells <= 2 && random.Int(0, 2) == 0 ? 64 / chunks : random.Int(1, 8);
    for (int cz = 0; cz < chunks; ++cz)
        for (int cx = 0; cx < chunks; ++cx) {
            builder.AddTerrain(cx * chunk, -cz * chunk, quads, quads, chunk / quads, Terrain);
            if (random.Int(0, 1)) builder.Build(root, "ground");
        }
    if (!builder.Empty()) builder.Build(root, "ground");

    // Boxes: some standing, some floating (overhangs), some nested under others.
    CMesh* parent = root;
    int boxes = random.Int(0, 12);
    for (int i = 0; i < boxes; ++i) {
        float x = random.Snapped(0.0f, span), z = -random.Snapped(0.0f, span);
        float w = random.Snapped(1.0f, span / 3), d = random.Snapped(1.0f, span / 3);
        float y0 = random.Int(0, 2) ? -5.0f : random.Uniform(5.0f, 60.0f);
        float y1 = y0 + random.Uniform(1.0f, 80.0f);
        builder.AddBox({x, y0, z - d}, {x + w, y1, z});
        if (random.Int(0, 2) == 0) continue;  // gather several boxes in one mesh
        CMesh* mesh = builder.Build(parent, "box");
        if (random.Int(0, 3) == 0) parent = mesh;
    }
    if (!builder.Empty()) builder.Build(parent, "boxes");

    // Thin tilted slabs and slivers: steep and degenerate triangles.
    int slivers = random.Int(0, 20);
    for (int i = 0; i < slivers; ++i) {
        Vector a = {random.Snapped(0.0f, span), random.Uniform(0.0f, 50.0f), -random.Snapped(0.0f, span)};
        Vector b = {a.x + random.Uniform(-40.0f, 40.0f), a.y + random.Uniform(-30.0f, 30.0f),
                    a.z + random.Uniform(-40.0f, 40.0f)};
        Vector c = random.Int(0, 4) == 0 ? b  // zero area
                                         : Vector{a.x + random.Uniform(-0.01f, 0.01f), b.y,
                                                  a.z + random.Uniform(-0.01f, 0.01f)};
        Vector outward = {random.Uniform(-1, 1), random.Uniform(-1, 1), random.Uniform(-1, 1)};
        builder.AddTriangle(a, b, c, outward);
    }
    // Kites whose middle corner lies level with the centroid on a sample line, so that growth
    // leaves it there: rays along x or straight up cross level with a vertex.
    int kites = random.Int(0, 6);
    for (int i = 0; i < kites; ++i) {
        float x = random.Snapped(0.0f, span), z = -random.Lattice(0.0f, span);
        float y = random.Uniform(2.0f, 60.0f), h = random.Snapped(1.0f, 20.0f);
        float w = random.Uniform(2.0f, 30.0f) * (random.Int(0, 1) ? 1.0f : -1.0f);
        float tilt = random.Int(0, 1) ? 0.0f : random.Uniform(-0.5f, 0.5f) * w;
        builder.AddTriangle({x, y, z + h}, {x + w, y + tilt, z}, {x, y, z - h},
                            {0, random.Int(0, 1) ? 1.0f : -1.0f, 0});
    }
    // A vertical wall exactly on a sample line, and a roof.
    float wx = random.Lattice(0.0f, span);
    builder.AddQuad({wx, 0, 0}, {wx, 40, 0}, {wx, 40, -span / 2}, {wx, 0, -span / 2}, {1, 0, 0});
    float rx = random.Uniform(0.0f, span * 0.7f), rz = -random.Uniform(0.0f, span * 0.7f);
    builder.AddQuad({rx, 30, rz}, {rx + 40, 30, rz}, {rx + 40, 30, rz - 40}, {rx, 30, rz - 40},
                    {0, 1, 0});
    builder.Build(root, "details");
    return root;
}
