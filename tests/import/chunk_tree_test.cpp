// The chunk tree: faces in the chunk of their centroid, and no mesh past the renderer's 16-bit
// indices however large a chunk is.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <set>
#include <string>
#include <vector>

#include "tests/import/import_support.h"

namespace {

std::vector<uint16_t> Hills(uint32_t width, uint32_t height) {
    std::vector<uint16_t> samples(size_t(width) * height);
    for (uint32_t r = 0; r < height; ++r)
        for (uint32_t c = 0; c < width; ++c)
            samples[size_t(r) * width + c] =
                uint16_t(100 + 50 * std::sin(c * 0.1) * std::cos(r * 0.07));
    return samples;
}

TEST(ChunkTree, FacesGoToTheChunkOfTheirCentroid) {
    TempDir dir;
    ASSERT_TRUE(WriteGreyPng("hills.png", 129, 97, 16, Hills(129, 97)));
    ImportRequest request = Request({"hills.png"});
    request.chunkSize = 40.0;
    request.heightMap.heightScale = 0.1;
    ImportResult result = Import(request);
    ASSERT_TRUE(result.written) << result.messages;
    LoadedMap map("map");
    ASSERT_TRUE(map.loaded);
    // 128 x 96 units in 40-unit chunks: 4 columns, 3 rows.
    EXPECT_EQ(map.size.cellsX, 4);
    EXPECT_EQ(map.size.cellsY, 3);
    std::vector<const CMesh*> meshes = map.Meshes();
    EXPECT_EQ(meshes.size(), 4u * 3u);
    EXPECT_EQ(map.Triangles(), 128u * 96u * 2u);
    std::set<std::string> names;
    for (const CMesh* mesh : meshes) {
        int column = -1, row = -1;
        ASSERT_EQ(std::sscanf(mesh->name, "chunk_%d_%d", &column, &row), 2) << mesh->name;
        names.insert(mesh->name);
        for (uint32_t f = 0; f < mesh->faceCount[0]; ++f) {
            double cx = 0, cz = 0;
            for (uint32_t v : mesh->faces[0][f].vertex) {
                cx += mesh->vertices[v].position.x / 3.0;
                cz += mesh->vertices[v].position.z / 3.0;
            }
            EXPECT_EQ(int(std::floor(cx / 40.0)), column) << mesh->name;
            EXPECT_EQ(int(std::floor(-cz / 40.0)), row) << mesh->name;
        }
    }
    EXPECT_EQ(names.size(), meshes.size());
}

TEST(ChunkTree, AChunkTooLargeForSixteenBitIndicesIsCutIntoParts) {
    TempDir dir;
    // 260 x 260 samples in a single chunk: 67600 vertices.
    ASSERT_TRUE(WriteGreyPng("big.png", 260, 260, 8, Hills(260, 260)));
    ImportRequest request = Request({"big.png"});
    request.chunkSize = 8192.0;
    ASSERT_TRUE(Import(request).written);
    LoadedMap map("map");
    EXPECT_GE(map.Meshes().size(), 2u);
    EXPECT_EQ(map.Triangles(), 259u * 259u * 2u);
    for (const CMesh* mesh : map.Meshes()) {
        EXPECT_LE(mesh->vertexCount, 65535) << mesh->name;
        EXPECT_EQ(std::string(mesh->name).rfind("chunk_0_0_", 0), 0u) << mesh->name;
    }
    // The parts hang below one node for the chunk.
    ASSERT_NE(map.root.firstChild, nullptr);
    EXPECT_EQ(map.root.firstChild->nextSibling, nullptr);
    EXPECT_STREQ(map.root.firstChild->name, "chunk_0_0");
}

TEST(ChunkTree, DegenerateFacesAreDroppedAndCounted) {
    TempDir dir;
    ObjWriter obj;
    obj.Box({0, 0, -10}, {10, 10, 0});
    obj.Face({1, 1, 1}, {2, 2, 2}, {3, 3, 3});  // on a line
    obj.Face({5, 0, 5}, {5, 0, 5}, {6, 0, 5});  // two corners the same
    obj.Save("sliver.obj");
    ImportResult result = Import(Request({"sliver.obj"}));
    ASSERT_TRUE(result.written) << result.messages;
    EXPECT_EQ(result.summary.degenerate, 2u);
    EXPECT_EQ(result.summary.triangles, 12u);
    EXPECT_THAT(result.messages, HasSubstr("2 degenerate faces (no area) dropped"));
}

}  // namespace
