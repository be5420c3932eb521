// The animated sample in data/sample-animated: what tenebrix-mkmap --animated makes now, and a bake
// of it in which nothing but the sails' shadow moves from frame to frame.
#include <gtest/gtest.h>

#include <array>
#include <cmath>

#include "engine/mesh/mesh.h"
#include "engine/mesh/mesh_animation.h"
#include "engine/texture/texture_lookup.h"
#include "tests/apps/cli_run.h"

namespace fs = std::filesystem;

namespace {

const std::string Sample = TENEBRIX_SOURCE_DIR "/data/sample-animated";
constexpr int Side = 16 * 2048 / 256;  // texels along each side of a frame: 16 cells at 4 units

// Texels where the sails' shadow can fall, first row, last row, first column, last column: their
// bounds over all frames, seen from above or cast along the light down to the lowest vertex of the
// map, with two texels to spare for the sample grid.
std::array<int, 4> SailsShadow(const std::string& map, const std::string& script) {
    double light[3] = {}, lo[3] = {1e9, 1e9, 1e9}, hi[3] = {-1e9, -1e9, -1e9}, lowest = 1e9;
    std::sscanf(script.c_str() + script.find("LIGHT "), "LIGHT %lf %lf %lf", &light[0], &light[1],
                &light[2]);
    SetTextureLoadFunction([](const char*) -> CTexture* { return nullptr; });
    CMesh root(nullptr);
    EXPECT_TRUE(root.LoadVBF(map.c_str()));
    SetTextureLoadFunction(nullptr);
    auto walk = [&](auto& self, const CMesh* mesh) -> void {  // a map holds meshes only
        for (const CEntity* child = mesh->firstChild; child; child = child->nextSibling)
            self(self, static_cast<const CMesh*>(child));
        const VertexAnimation* turns = mesh->vertexAnimation;
        const auto* all = turns ? static_cast<const MeshVertex*>(turns->frameData) : mesh->vertices;
        for (int32_t i = 0; i < (turns ? int32_t(turns->totalVertices) : mesh->vertexCount); ++i) {
            const double p[3] = {all[i].position.x, all[i].position.y, all[i].position.z};
            lowest = std::min(lowest, p[1]);
            for (int k = 0; k < 3 && turns; ++k)
                lo[k] = std::min(lo[k], p[k]), hi[k] = std::max(hi[k], p[k]);
        }
    };
    walk(walk, &root);
    const double dx = light[0] / light[1] * (hi[1] - lowest);
    const double dz = light[2] / light[1] * (hi[1] - lowest);
    auto texel = [](double at) { return int(std::floor(at / 4)); };
    return {texel(std::min(dz, 0.0) - hi[2]) - 2, texel(std::max(dz, 0.0) - lo[2]) + 2,
            texel(lo[0] - std::max(dx, 0.0)) - 2, texel(hi[0] - std::min(dx, 0.0)) + 2};
}

TEST(AnimatedSample, IsWhatTheMapToolMakesNow) {
    TempDir dir;
    ToolRun run = RunTool(TENEBRIX_MKMAP, {"made", "--animated"});
    ASSERT_EQ(run.status, 0) << run.output;
    EXPECT_EQ(RunTool(TENEBRIX_MKMAP, {"other", "--animated", "--seed", "2"}).status, 2);
    for (const auto& kept : fs::recursive_directory_iterator(Sample)) {
        const fs::path made = "made" / fs::relative(kept.path(), Sample);
        if (kept.is_directory()) continue;
        EXPECT_TRUE(ReadWholeFile(made) == ReadWholeFile(kept.path())) << made << " is stale";
    }
}

TEST(AnimatedSample, OnlyTheSailsShadowMovesAndItMovesEveryFrame) {
    TempDir dir;
    fs::copy(Sample, "mill", fs::copy_options::recursive);
    ToolRun run =
        RunTool(TENEBRIX_BAKE, Words("mill --config mill/resource.cfg --script animated -q"));
    ASSERT_EQ(run.status, 0) << run.output;
    const auto [r0, r1, c0, c1] =
        SailsShadow("mill/test.vbf", ReadWholeFile("mill/lit/animated.ssf"));
    ASSERT_LT((r1 - r0) * (c1 - c0), Side * Side / 4);  // most of the map is checked for stillness
    for (int f = 0; f < 8; ++f) {
        const std::string frame = ReadWholeFile("mill/texture" + std::to_string(f) + ".dat"),
                          next =
                              ReadWholeFile("mill/texture" + std::to_string((f + 1) % 8) + ".dat");
        ASSERT_TRUE(frame.size() == size_t(Side * Side) && next.size() == frame.size()) << f;
        // The script asks for the ground's height too: a float per cell of the 16 x 16.
        EXPECT_EQ(ReadWholeFile("mill/texture" + std::to_string(f) + ".dah").size(), 1024u) << f;
        int moved[2] = {};  // outside the region, inside it
        for (int i = 0; i < Side * Side; ++i)
            moved[i / Side >= r0 && i / Side <= r1 && i % Side >= c0 && i % Side <= c1] +=
                frame[i] != next[i];
        EXPECT_GT(moved[1], 0) << "frames " << f << " and " << (f + 1) % 8 << " alike";
        EXPECT_EQ(moved[0], 0) << "frames " << f << " and " << (f + 1) % 8 << " differ elsewhere";
    }
}

}  // namespace
