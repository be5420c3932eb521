// The animated sample in data/sample-animated: what tenebrix-mkmap --animated makes now, and a bake
// of it in which nothing but the sails' shadow moves from frame to frame.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <functional>
#include <map>
#include <sstream>

#include "engine/mesh/mesh.h"
#include "engine/mesh/mesh_animation.h"
#include "engine/texture/texture_lookup.h"
#include "tests/apps/cli_run.h"

namespace fs = std::filesystem;

namespace {

const std::string Sample = TENEBRIX_SOURCE_DIR "/data/sample-animated";
constexpr int Side = 16 * 2048 / 256;  // texels along each side of a frame: 16 cells at 4 units

std::map<std::string, std::string> FilesBelow(const std::string& root) {
    std::map<std::string, std::string> files;
    for (const auto& entry : fs::recursive_directory_iterator(root))
        if (entry.is_regular_file())
            files[fs::relative(entry.path(), root).string()] = ReadWholeFile(entry.path());
    return files;
}

// Texels where the sails' shadow can fall: each corner of their bounds over all frames, cast
// along the light onto any height from the lowest vertex of the map up to its own (which takes in
// the sails seen from above), with two texels to spare for the sample grid.
struct Region {
    double r0 = 1e9, r1 = -1e9, c0 = 1e9, c1 = -1e9;
    bool Holds(int r, int c) const {
        return r >= r0 - 2 && r <= r1 + 2 && c >= c0 - 2 && c <= c1 + 2;
    }
};

Region SailsShadow(const std::string& map, const std::string& script) {
    std::istringstream words(script.substr(script.find("LIGHT ") + 6));
    double light[3] = {};
    words >> light[0] >> light[1] >> light[2];
    SetTextureLoadFunction([](const char*) -> CTexture* { return nullptr; });
    CMesh root(nullptr);
    EXPECT_TRUE(root.LoadVBF(map.c_str()));
    SetTextureLoadFunction(nullptr);
    Vector lo = {1e9f, 1e9f, 1e9f}, hi = {-1e9f, -1e9f, -1e9f};
    float lowest = 1e9f;
    std::function<void(CEntity*)> walk = [&](CEntity* node) {
        for (CEntity* child = node->firstChild; child; child = child->nextSibling) walk(child);
        if (node->kind != EntityKindMesh) return;
        const CMesh* mesh = static_cast<const CMesh*>(node);
        const VertexAnimation* turns = mesh->vertexAnimation;
        const auto* all = turns ? static_cast<const MeshVertex*>(turns->frameData) : mesh->vertices;
        for (int32_t i = 0; i < (turns ? int32_t(turns->totalVertices) : mesh->vertexCount); ++i) {
            const Vector& p = all[i].position;
            lowest = std::min(lowest, p.y);
            if (!turns) continue;
            lo = {std::min(lo.x, p.x), std::min(lo.y, p.y), std::min(lo.z, p.z)};
            hi = {std::max(hi.x, p.x), std::max(hi.y, p.y), std::max(hi.z, p.z)};
        }
    };
    walk(&root);
    Region region;
    for (int corner = 0; corner < 8; ++corner) {
        const Vector p = {(corner & 1 ? hi : lo).x, (corner & 2 ? hi : lo).y,
                          (corner & 4 ? hi : lo).z};
        for (double drop : {0.0, double(p.y - lowest)}) {
            const double c = (p.x - light[0] / light[1] * drop) / 4,
                         r = -(p.z - light[2] / light[1] * drop) / 4;
            region = {std::min(region.r0, std::floor(r)), std::max(region.r1, std::floor(r)),
                      std::min(region.c0, std::floor(c)), std::max(region.c1, std::floor(c))};
        }
    }
    return region;
}

TEST(AnimatedSample, IsWhatTheMapToolMakesNow) {
    TempDir dir;
    ToolRun run = RunTool(TENEBRIX_MKMAP, {"made", "--animated"});
    ASSERT_EQ(run.status, 0) << run.output;
    std::map<std::string, std::string> made = FilesBelow("made"), kept = FilesBelow(Sample);
    for (const auto& [name, bytes] : kept) EXPECT_TRUE(made[name] == bytes) << name << " is stale";
    EXPECT_EQ(made.size(), kept.size());
}

TEST(AnimatedSample, OnlyTheSailsShadowMovesAndItMovesEveryFrame) {
    TempDir dir;
    fs::copy(Sample, "mill", fs::copy_options::recursive);
    ToolRun run =
        RunTool(TENEBRIX_BAKE, Words("mill --config mill/resource.cfg --script animated -q"));
    ASSERT_EQ(run.status, 0) << run.output;
    std::vector<std::string> frames;
    for (int f = 0; f < 8; ++f) {
        frames.push_back(ReadWholeFile("mill/texture" + std::to_string(f) + ".dat"));
        ASSERT_EQ(frames.back().size(), size_t(Side * Side)) << "frame " << f;
    }
    EXPECT_FALSE(fs::exists("mill/texture8.dat") || fs::exists("mill/texture.dat"));
    const Region region = SailsShadow("mill/test.vbf", ReadWholeFile("mill/lit/animated.ssf"));
    // The region must leave most of the map out, or nothing would be checked outside it.
    ASSERT_LT((region.r1 - region.r0 + 5) * (region.c1 - region.c0 + 5), Side * Side / 4);
    for (int f = 0; f < 8; ++f) {
        int inside = 0, outside = 0;
        for (int i = 0; i < Side * Side; ++i)
            if (frames[f][i] != frames[(f + 1) % 8][i])
                ++(region.Holds(i / Side, i % Side) ? inside : outside);
        EXPECT_GT(inside, 0) << "frames " << f << " and " << (f + 1) % 8 << " alike";
        EXPECT_EQ(outside, 0) << "frames " << f << " and " << (f + 1) % 8 << " differ elsewhere";
    }
}

}  // namespace
