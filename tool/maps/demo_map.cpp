#include "tool/maps/demo_map.h"

#include <cmath>
#include <cstdio>

#include "tool/maps/mesh_builder.h"

static float RollingGround(float x, float z) {
    return 6.0f * std::sin(x * 0.006f) * std::cos(z * 0.005f) + 3.0f;
}

static void AddGround(CMesh* root) {
    MeshBuilder builder;
    const int chunks = 8, quads = 8;
    const float chunkSize = DemoMapCells * 32.0f / chunks;
    for (int cz = 0; cz < chunks; ++cz)
        for (int cx = 0; cx < chunks; ++cx) {
            builder.AddTerrain(cx * chunkSize, -cz * chunkSize, quads, quads, chunkSize / quads,
                               RollingGround);
            char name[32];
            std::snprintf(name, sizeof name, "ground_%d_%d", cx, cz);
            builder.Build(root, name);
        }
}

static void AddSteps(CMesh* root) {
    MeshBuilder builder;
    for (int i = 0; i < 6; ++i) {
        float x = 300.0f + i * 40.0f;
        builder.AddBox({x, 0.0f, -420.0f}, {x + 40.0f, 20.0f + i * 20.0f, -300.0f});
    }
    builder.Build(root, "steps");
}

static void AddRoofOnPosts(CMesh* root) {
    MeshBuilder builder;
    const float x0 = 900.0f, z0 = -500.0f, side = 200.0f, post = 12.0f, height = 120.0f;
    for (int i = 0; i < 4; ++i) {
        float x = (i & 1) ? x0 + side - post : x0;
        float z = (i & 2) ? z0 - side + post : z0;
        builder.AddBox({x, 0.0f, z - post}, {x + post, height, z});
    }
    builder.AddBox({x0 - 20.0f, height, z0 - side - 20.0f},
                   {x0 + side + 20.0f, height + 10.0f, z0 + 20.0f});
    builder.Build(root, "roof");
}

static void AddArch(CMesh* root) {
    MeshBuilder builder;
    const float cx = 600.0f, z0 = -1100.0f, depth = 60.0f, inner = 90.0f, outer = 130.0f;
    const int segments = 16;
    for (int i = 0; i < segments; ++i) {
        float a0 = float(M_PI) * i / segments, a1 = float(M_PI) * (i + 1) / segments;
        float c0 = std::cos(a0), s0 = std::sin(a0), c1 = std::cos(a1), s1 = std::sin(a1);
        Vector in0 = {cx + inner * c0, 40.0f + inner * s0, z0};
        Vector in1 = {cx + inner * c1, 40.0f + inner * s1, z0};
        Vector out0 = {cx + outer * c0, 40.0f + outer * s0, z0};
        Vector out1 = {cx + outer * c1, 40.0f + outer * s1, z0};
        auto back = [&](Vector v) { return Vector{v.x, v.y, v.z - depth}; };
        float mid = (a0 + a1) * 0.5f;
        Vector up = {std::cos(mid), std::sin(mid), 0.0f};
        Vector down = {-up.x, -up.y, 0.0f};
        builder.AddQuad(out0, out1, back(out1), back(out0), up);
        builder.AddQuad(in0, in1, back(in1), back(in0), down);
        builder.AddQuad(in0, out0, out1, in1, {0, 0, 1});
        builder.AddQuad(back(in0), back(out0), back(out1), back(in1), {0, 0, -1});
    }
    builder.AddBox({cx + inner, 0.0f, z0 - depth}, {cx + outer, 40.0f, z0});
    builder.AddBox({cx - outer, 0.0f, z0 - depth}, {cx - inner, 40.0f, z0});
    builder.Build(root, "arch");
}

static void AddBlocks(CMesh* root) {
    const float blocks[][5] = {{1300, -300, 160, 140, 90},
                               {1500, -900, 120, 220, 160},
                               {300, -1500, 200, 120, 60},
                               {1200, -1500, 90, 90, 240},
                               {1700, -1700, 180, 180, 40}};
    for (const float* b : blocks) {
        MeshBuilder builder;
        builder.AddBox({b[0], 0.0f, b[1] - b[3]}, {b[0] + b[2], b[4], b[1]});
        builder.Build(root, "block");
    }
}

CMesh* BuildDemoMap() {
    CMesh* root = new CMesh(nullptr);
    root->SetName("demo");
    AddGround(root);
    AddSteps(root);
    AddRoofOnPosts(root);
    AddArch(root);
    AddBlocks(root);
    return root;
}
