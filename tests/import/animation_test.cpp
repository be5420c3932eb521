// Animated glTF files sampled into vertex animations: frame counts, each frame's shape in map
// space, shared key frames, the choice of animation, and static imports left byte for byte.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "apps/import/import_options.h"
#include "engine/mesh/mesh_animation.h"
#include "tests/apps/cli_run.h"
#include "tests/import/import_support.h"

namespace {

// A triangle on node "mover" and the same on node "still" at x = 5. Animation "slide" moves
// "mover" through `moves` and weights its morph target (which lifts every corner by 1) through
// `lifts`, keys at 0, 1 and 2 s; animation "lift" only weights the target, 0 to 1. animated false:
// neither animation is in the file.
void WriteAnimatedGltf(const std::string& name, std::array<float, 9> moves,
                       std::array<float, 3> lifts, bool animated = true) {
    // Corners, indices, key times, moves, lifts, the target's offsets, "lift"'s weights.
    std::vector<float> data = {0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 1, 2};
    std::memcpy(&data[9], "\0\0\2\0\1\0\0\0", 8);
    data.insert(data.end(), moves.begin(), moves.end());
    data.insert(data.end(), lifts.begin(), lifts.end());
    data.insert(data.end(), {0, 1, 0, 0, 1, 0, 0, 1, 0, 0, 0.5f, 1});
    WriteWholeFile(name + ".bin", std::string(reinterpret_cast<const char*>(data.data()), 152));
    std::string views, accessors;
    const int at[8] = {0, 36, 44, 56, 92, 104, 140, 152};
    for (int i = 0; i < 7; ++i) {
        views += std::string(i ? ", " : "") +
                 "{\"buffer\": 0, \"byteOffset\": " + std::to_string(at[i]) +
                 ", \"byteLength\": " + std::to_string(i == 1 ? 6 : at[i + 1] - at[i]) + "}";
        accessors += std::string(i ? ", " : "") + "{\"bufferView\": " + std::to_string(i) +
                     ", \"count\": 3, \"componentType\": " + (i == 1 ? "5123" : "5126") +
                     ", \"type\": " + (i == 0 || i == 3 || i == 5 ? "\"VEC3\"" : "\"SCALAR\"") +
                     (i ? "}" : ", \"min\": [0, 0, 0], \"max\": [1, 0, 1]}");
    }
    std::string animations = !animated ? "" : R"(, "animations": [{"name": "slide", "samplers": [
        {"input": 2, "output": 3}, {"input": 2, "output": 4}], "channels": [
        {"sampler": 0, "target": {"node": 0, "path": "translation"}},
        {"sampler": 1, "target": {"node": 0, "path": "weights"}}]},
        {"name": "lift", "samplers": [{"input": 2, "output": 6}],
         "channels": [{"sampler": 0, "target": {"node": 0, "path": "weights"}}]}])";
    WriteWholeFile(
        name + ".gltf", R"({"asset": {"version": "2.0"}, "scene": 0, "scenes": [{"nodes": [0, 1]}],
        "nodes": [{"name": "mover", "mesh": 0},
                  {"name": "still", "mesh": 0, "translation": [5, 0, 0]}],
        "meshes": [{"primitives": [{"attributes": {"POSITION": 0}, "indices": 1,
                                    "targets": [{"POSITION": 5}]}],
        "weights": [0]}], "buffers": [{"uri": ")" +
                            name + R"(.bin", "byteLength": 152}],
        "bufferViews": [)" + views +
                            "], \"accessors\": [" + accessors + "]" + animations + "}");
}

ImportResult ImportWith(const std::string& args) {
    std::vector<std::string> words = Words("tenebrix-import " + args);
    std::vector<const char*> argv;
    for (const std::string& word : words) argv.push_back(word.c_str());
    ImportOptions options;
    CommandLineOutcome outcome = ParseImportOptions(int(argv.size()), argv.data(), options);
    EXPECT_TRUE(outcome.run) << outcome.text;
    return Import(options.request);
}

const CMesh* Named(const LoadedMap& map, const std::string& prefix) {
    for (const CMesh* mesh : map.meshes)
        if (std::string(mesh->name).rfind(prefix, 0) == 0) return mesh;
    return nullptr;
}

struct Sampled {
    const char* args;
    std::array<float, 9> moves;
    std::array<float, 3> lifts;
    uint32_t frames, keys;  // frame f shows key min(f, keys - 1)
    float dx, dy;           // from one key to the next in map units; z follows x at -1/5
};

void PrintTo(const Sampled& c, std::ostream* out) {
    *out << "\"" << c.args << "\"";
}

class Sampling : public testing::TestWithParam<Sampled> {};

// Each frame holds its own vertices in map space: frame 0's moved by the node and lifted by the
// target as far as the animation has gone by f / fps seconds.
TEST_P(Sampling, EachFrameIsTheAnimatedShapeInMapSpace) {
    const Sampled& c = GetParam();
    TempDir dir;
    WriteAnimatedGltf("anim", c.moves, c.lifts);
    ImportResult result = ImportWith(std::string("anim.gltf -o map ") + c.args);
    ASSERT_TRUE(result.written && result.errors == 0) << result.messages;
    std::string frames = std::to_string(c.frames);
    EXPECT_THAT(FormatSummary(result.summary),
                HasSubstr(frames + " frames in 1 animated mesh: bake with ANIMATED " + frames));
    LoadedMap map("map");
    const CMesh *moving = Named(map, "animated_0"), *still = Named(map, "chunk_");
    ASSERT_TRUE(moving && moving->vertexAnimation && still);
    EXPECT_EQ(still->vertexAnimation, nullptr);
    const VertexAnimation& a = *moving->vertexAnimation;
    ASSERT_EQ(std::make_pair(a.frameCount, a.keyCount), std::make_pair(c.frames, c.keys));
    ASSERT_EQ(moving->vertexCount, 3);
    const MeshVertex* first = static_cast<const MeshVertex*>(a.frameData);
    for (uint32_t f = 0; f < a.frameCount; ++f) {
        uint32_t key = std::min(f, c.keys - 1);
        ASSERT_EQ(a.frameTable[f], first + key * 3) << f;
        for (int v = 0; v < 3; ++v) {
            const Vector &p = first[key * 3 + v].position, &p0 = first[v].position;
            EXPECT_NEAR(p.x - p0.x, c.dx * key, 1e-4) << f;
            EXPECT_NEAR(p.y - p0.y, c.dy * key, 1e-4) << f;
            EXPECT_NEAR(p.z - p0.z, -c.dx / 5 * key, 1e-4) << f;  // z runs into the map
        }
    }
}

// Along x, y and z at 5 : 0.5 : 1 units a second; the lift from 0 to 1 over 2 s.
const std::array<float, 9> Move = {0, 0, 0, 5, 0.5f, 1, 10, 1, 2};
const std::array<float, 3> Lift = {0, 0.5f, 1};
const float Fit = 32.0f / 10.5f;  // --fit 1 over the whole motion: x from 0 to 9.5 + 1
INSTANTIATE_TEST_SUITE_P(
    Import, Sampling,
    testing::Values(Sampled{"", Move, Lift, 20, 20, 0.5f, 0.1f},
                    Sampled{"--frames 5", Move, Lift, 5, 5, 0.5f, 0.1f},
                    Sampled{"--fps 4", Move, Lift, 8, 8, 1.25f, 0.25f},
                    Sampled{"--fit 1", Move, Lift, 20, 20, 0.5f * Fit, 0.1f * Fit},
                    // Still from 1 s on: frames 11 to 19 share frame 10's key.
                    Sampled{"", {0, 0, 0, 10, 1, 2, 10, 1, 2}, {0, 1, 1}, 20, 11, 1, 0.2f},
                    Sampled{"--animation lift", Move, {}, 20, 20, 0, 0.05f},
                    Sampled{"--animation 1 --fps 2.5", {}, {}, 5, 5, 0, 0.2f}));

// Without an animation to sample, the map is what it was before there were any: the same bytes.
TEST(Animation, StaticImportsKeepTheirBytes) {
    TempDir dir;
    WriteTriangleGltf("tri", R"(, "scale": [2, 2, 2])", "");
    WriteAnimatedGltf("posed", {}, {}, false);
    WriteAnimatedGltf("anim", {}, {});
    for (const char* args : {"tri.gltf -o a", "tri.gltf -o b --fps 30 --frames 7",
                             "posed.gltf -o c", "anim.gltf -o d --frames 1"}) {
        ImportResult result = ImportWith(args);
        ASSERT_TRUE(result.written && result.errors == 0) << args << "\n" << result.messages;
        EXPECT_THAT(FormatSummary(result.summary), Not(HasSubstr("ANIMATED"))) << args;
    }
    EXPECT_EQ(ReadWholeFile("b/test.vbf"), ReadWholeFile("a/test.vbf"));
    EXPECT_EQ(ReadWholeFile("d/test.vbf"), ReadWholeFile("c/test.vbf"));
    EXPECT_THAT(FormatSummary(ImportWith("tri.gltf -o e --fps 5").summary),
                HasSubstr("; nothing animated"));
}

// A bad choice or a broken animation fails the import with the file and the reason, and no map.
TEST(Animation, BadAnimationsFailWithAClearMessage) {
    TempDir dir;
    WriteAnimatedGltf("anim", {}, {});
    WriteAnimatedGltf("nan", {0, 0, 0, NAN, 0, 0, 0, 0, 0}, {});
    for (auto [args, message] : std::vector<std::pair<std::string, std::string>>{
             {"anim.gltf --animation walk",
              "anim.gltf: no animation \"walk\"; the file has 2: 0 \"slide\", 1 \"lift\""},
             {"anim.gltf --animation 2", "no animation \"2\""},
             {"nan.gltf",
              "nan.gltf: mesh \"meshes[0]\" of node \"mover\" comes to NaN or infinite coordinates "
              "at frame 1"}}) {
        ImportResult result = ImportWith(args + " -o map");
        EXPECT_FALSE(result.written) << args;
        EXPECT_THAT(result.messages, HasSubstr(message));
        EXPECT_FALSE(std::filesystem::exists("map/test.vbf")) << args;
    }
}

}  // namespace
