// Animated bakes through the bake run: one file a frame, each baked from that frame's shape.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "base/memory.h"
#include "engine/mesh/mesh.h"
#include "engine/mesh/mesh_animation.h"
#include "platform/crt/paths.h"
#include "tests/support/bake_fixture.h"
#include "tests/support/temp_dir.h"
#include "tool/bake/shadow_settings.h"
#include "tool/maps/map_chunks.h"
#include "tool/maps/mesh_builder.h"
#include "tool/run/app_state.h"
#include "tool/run/bake_run.h"

namespace fs = std::filesystem;

namespace {

constexpr int PackedFraction = 2;  // packed positions in quarter units

// Per frame of a vertex animation, how far the block stands right of x 64; none: a packed
// frame halfway between its neighbours.
using Shifts = std::vector<std::optional<float>>;

// Gives block a vertex animation whose key frames are its vertices moved along x, each key's
// normals zeroed so that a pass must rebuild them from the frame it bakes.
void Animate(CMesh* block, const Shifts& shifts, bool packed) {
    const int32_t n = block->vertexCount;
    std::vector<MeshVertex> base(block->vertices, block->vertices + n);
    std::vector<float> keys;
    for (const auto& shift : shifts)
        if (shift) keys.push_back(*shift);
    auto* animation = static_cast<VertexAnimation*>(MALLOC(sizeof(VertexAnimation)));
    std::memset(animation, 0, sizeof *animation);
    animation->flags = VertexAnimationOwnsArrays;
    animation->frameCount = uint32_t(shifts.size());
    animation->keyCount = uint32_t(keys.size());
    animation->totalVertices = uint32_t(n) * animation->keyCount;
    animation->keyFrames = static_cast<uint32_t*>(MALLOC(keys.size() * 4));
    animation->frameTable = static_cast<void**>(MALLOC(shifts.size() * sizeof(void*)));
    uint8_t* data;
    if (packed) {
        animation->flags |= VertexAnimationPacked | PackedFraction << VertexAnimationFractionShift;
        data = static_cast<uint8_t*>(MALLOC(size_t(animation->totalVertices) * 8));
        animation->frameData = data;
    } else {
        block->AllocVertices(int32_t(animation->totalVertices));
        data = reinterpret_cast<uint8_t*>(block->vertices);
        animation->frameData = block->vertices;
    }
    const size_t stride = size_t(n) * (packed ? 8 : sizeof(MeshVertex));
    for (uint32_t k = 0, f = 0; f < shifts.size(); ++f) {
        animation->frameTable[f] = shifts[f] ? data + k * stride : nullptr;
        if (!shifts[f]) continue;
        animation->keyFrames[k] = f;
        for (int32_t i = 0; i < n; ++i) {
            Vector p = base[size_t(i)].position;
            p.x += *shifts[f];
            if (packed) {
                int16_t* record = reinterpret_cast<int16_t*>(data + k * stride) + i * 4;
                const float scale = 1 << PackedFraction;
                *record++ = int16_t(p.x * scale), *record++ = int16_t(p.y * scale);
                *record++ = int16_t(p.z * scale), *record = 0;
            } else {
                reinterpret_cast<MeshVertex*>(data + k * stride)[i] = {p, {0, 0, 0}};
            }
        }
        ++k;
    }
    block->vertexCount = n;
    block->SetVertexAnimation(animation);
}

class AnimatedBake : public ::testing::Test {
protected:
    void SetUp() override {
        ShadowSettings = DefaultShadowSettings();
        ShadowSettings.TextureSize = 1024;
        ShadowSettings.Light = {1, 1, 0.25f};
        std::snprintf(StartDirectory, sizeof StartDirectory, "%s", dir.Path().c_str());
    }
    void TearDown() override {
        ShadowSettings = DefaultShadowSettings();
        SetBakeOutputName(nullptr);
        StartDirectory[0] = '\0';
    }

    // A map of cells by cells (8 by 8 of ground) in folder; geometry adds more under the root.
    void WriteMap(const std::string& folder, int32_t cellsX, int32_t cellsY,
                  const std::function<void(CMesh*)>& geometry = nullptr) {
        fs::create_directories(dir.File(folder));
        CMesh root(nullptr);
        FlatGround(&root, 256.0f);
        if (geometry) geometry(&root);
        std::vector<uint8_t> chunks = MakeMapChunks(cellsX, cellsY);
        ASSERT_TRUE(root.SaveVBF(dir.File(folder + "/test.vbf").c_str(), chunks.data(),
                                 uint32_t(chunks.size())));
    }
    // A block 32 wide and 48 high with its left side at x, under root.
    static CMesh* Block(CEntity* root, float x) {
        MeshBuilder builder;
        builder.AddBox({x, 0, -96}, {x + 32, 48, -64});
        return builder.Build(root, "block");
    }
    // Bakes folder's map with frames frames; the files beside it, the map's own left out.
    std::vector<std::string> Bake(const std::string& folder, int32_t frames,
                                  const char* output = "texture.dat") {
        ShadowSettings.FrameCount = frames;
        EXPECT_TRUE(SetBakeOutputName(output));
        char path[_MAX_PATH];
        std::snprintf(path, sizeof path, "%s", dir.File(folder + "/test.vbf").c_str());
        BakeRunResult result = BakeMap(path, 0);
        EXPECT_EQ(result.baked, 1) << folder;
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(dir.File(folder)))
            if (entry.path().filename() != "test.vbf") names.push_back(entry.path().filename());
        std::sort(names.begin(), names.end());
        return names;
    }
    std::string Read(const std::string& path) const { return ReadWholeFile(dir.File(path)); }

    TempDir dir;
};

// Each frame's shadow map and height file are those of a still map with the block where that
// frame puts it, whether the frames are stored whole or packed, a packed frame with no data of its
// own halfway between its neighbours. Normals come from the frame's own faces.
TEST_F(AnimatedBake, EachFrameIsBakedFromItsOwnShape) {
    ShadowSettings.WriteHeightData = 1;
    const std::pair<Shifts, bool> rows[] = {
        {{0.0f, 64.0f}, false}, {{0.0f, 64.0f}, true}, {{0.0f, std::nullopt, 64.0f}, true}};
    for (float shift : {0.0f, 32.0f, 64.0f}) {
        std::string still = "still" + std::to_string(int(shift));
        WriteMap(still, 8, 8, [&](CMesh* root) { Block(root, 64 + shift); });
        Bake(still, 1);
    }
    ASSERT_NE(Read("still0/texture0.dat"), Read("still64/texture0.dat"));
    for (const auto& [shifts, packed] : rows) {
        WriteMap("moving", 8, 8, [&](CMesh* root) { Animate(Block(root, 64), shifts, packed); });
        Bake("moving", int32_t(shifts.size()));
        for (size_t f = 0; f < shifts.size(); ++f) {
            const std::string still = "still" + std::to_string(int(shifts[f].value_or(32.0f)));
            for (const char* kind : {".dat", ".dah"})
                EXPECT_EQ(Read("moving/texture" + std::to_string(f) + kind),
                          Read(still + "/texture0" + kind))
                    << "frame " << f << kind << (packed ? " packed" : " unpacked");
        }
        fs::remove_all(dir.File("moving"));
    }
}

// Frames are numbered behind the output name less its last four characters, or the whole of a
// shorter name; each shadow map covers only the map, and a height file holds a float a cell.
TEST_F(AnimatedBake, FramesGoToNumberedFilesOfTheMapsSize) {
    struct Row {
        int32_t frames, heightData, cellsX, cellsY, textureSize;
        const char* output;
        std::vector<std::string> files;
        size_t mapBytes, heightBytes;
    };
    const Row rows[] = {
        {3, 0, 8, 8, 256, "texture.dat", {"texture0.dat", "texture1.dat", "texture2.dat"}, 64, 0},
        {2, 1, 64, 32, 2048, "texture.dat",
         {"texture0.dah", "texture0.dat", "texture1.dah", "texture1.dat"}, 512 * 256, 64 * 32 * 4},
        {1, 1, 256, 256, 256, "t.dat", {"t0.dah", "t0.dat"}, 256 * 256, 262144},
        {2, 0, 8, 8, 256, "ab", {"ab0.dat", "ab1.dat"}, 64, 0},
        {1, 0, 8, 8, 256, "abcd", {"0.dat"}, 64, 0},
    };
    int i = 0;
    for (const Row& row : rows) {
        const std::string folder = "m" + std::to_string(i++);
        WriteMap(folder, row.cellsX, row.cellsY);
        ShadowSettings.TextureSize = row.textureSize;
        ShadowSettings.WriteHeightData = uint8_t(row.heightData);
        ASSERT_EQ(Bake(folder, row.frames, row.output), row.files) << row.output;
        for (const std::string& name : row.files)
            EXPECT_EQ(Read(folder + "/" + name).size(),
                      name.back() == 'h' ? row.heightBytes : row.mapBytes)
                << name;
    }
}

}  // namespace
