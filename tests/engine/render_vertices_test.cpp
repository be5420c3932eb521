#include "engine/mesh/render_vertices.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>
#include <vector>

#include "base/memory.h"
#include "engine/mesh/draw_group.h"
#include "engine/mesh/mesh.h"
#include "engine/texture/texture.h"

namespace {

// Two faces over a unit square in z = 0: (0, 1, 2) and (0, 2, 3), sharing the edge 0-2.
struct Quad {
    Quad() {
        mesh.AllocVertices(4);
        const float xy[4][2] = {{0, 0}, {1, 0}, {1, 1}, {0, 1}};
        for (int i = 0; i < 4; ++i) mesh.vertices[i] = {{xy[i][0], xy[i][1], 0}, {1, 0, 0}};
        mesh.AllocFaces(2, 0);
        const uint32_t corners[2][3] = {{0, 1, 2}, {0, 2, 3}};
        for (int f = 0; f < 2; ++f) {
            MeshFace& face = mesh.faces[0][f];
            face = MeshFace{{corners[f][0], corners[f][1], corners[f][2]}, first, 0, {}};
            for (int k = 0; k < 3; ++k) {
                face.uv[k * 2] = mesh.vertices[corners[f][k]].position.x;
                face.uv[k * 2 + 1] = mesh.vertices[corners[f][k]].position.y;
            }
        }
    }
    ~Quad() {
        FreeTexture(first);
        FreeTexture(second);
    }
    RenderVertexList Weld(uint16_t* indices) {
        return BuildRenderVertices(mesh.vertexCount, mesh.vertices, mesh.faceCount, mesh.faces,
                                   indices);
    }
    CTexture* first = CreateTexture(4, 4, 0x8888);
    CTexture* second = CreateTexture(4, 4, 0x8888);
    CMesh mesh{nullptr};
};

TEST(RenderVertices, SharedCornersWeldOnlyWithinOneTextureAndEqualUV) {
    enum Change { None, OtherUV, OtherTexture, Flat, OtherLayer1UV };
    struct Case {
        Change change;
        uint32_t count;
        uint16_t indices[6];
    };
    const Case cases[] = {
        {None, 4, {0, 1, 2, 0, 2, 3}},          {OtherUV, 5, {0, 1, 2, 0, 3, 4}},
        {OtherTexture, 6, {0, 1, 2, 3, 4, 5}},  {Flat, 6, {0, 1, 2, 3, 4, 5}},
        {OtherLayer1UV, 4, {0, 1, 2, 0, 2, 3}},
    };
    for (const Case& c : cases) {
        Quad quad;
        MeshFace& face = quad.mesh.faces[0][1];
        if (c.change == OtherUV) face.uv[3] = 0.5f;  // corner b, vertex 2
        if (c.change == OtherTexture) face.texture = quad.second;
        if (c.change == Flat) face.flags = MeshFlatFace;
        if (c.change == OtherLayer1UV) {
            quad.mesh.AllocFaces(2, 1);
            std::memcpy(quad.mesh.faces[1], quad.mesh.faces[0], 2 * sizeof(MeshFace));
            quad.mesh.faces[1][1].uv[0] = 9.0f;
        }
        uint16_t indices[6] = {};
        RenderVertexList list = quad.Weld(indices);
        EXPECT_EQ(list.count, c.count) << c.change;
        EXPECT_TRUE(std::equal(indices, indices + 6, c.indices)) << c.change;
        if (c.change == Flat) {  // (C - B) x (A - B) of (0, 2, 3), not the vertices' x
            EXPECT_EQ(list.vertices[3].normal.z, 1.0f);
            EXPECT_EQ(list.vertices[0].normal.x, 1.0f);
        }
        if (c.change == OtherLayer1UV) {
            EXPECT_EQ(list.vertices[0].uv[1][0], 0.0f);
        }
        FreeRenderVertices(list);
    }
}

// The weld as a walk along the run, the lowest match first: what the hashed search must equal.
std::vector<uint32_t> ScanWeld(const CMesh& mesh, uint32_t& made) {
    std::vector<uint32_t> corners, sources;
    std::vector<const float*> uvs;
    for (uint32_t f = 0, start = 0; f < mesh.faceCount[0]; ++f) {
        const MeshFace& face = mesh.faces[0][f];
        if (f && face.texture != mesh.faces[0][f - 1].texture) start = uint32_t(sources.size());
        uint32_t found[3] = {~0u, ~0u, ~0u};
        for (uint32_t r = start; !(face.flags & MeshFlatFace) && r < sources.size(); ++r)
            for (int k = 0; k < 3; ++k)
                if (found[k] == ~0u && sources[r] == face.vertex[k] &&
                    uvs[r][0] == face.uv[k * 2] && uvs[r][1] == face.uv[k * 2 + 1])
                    found[k] = r;
        for (uint32_t& c : found)
            if (c == ~0u) {
                c = uint32_t(sources.size());
                sources.push_back(face.vertex[&c - found]);
                uvs.push_back(face.uv + (&c - found) * 2);
            }
        corners.insert(corners.end(), found, found + 3);
    }
    made = uint32_t(sources.size());
    return corners;
}

// Few sources and few u, v values (signed zeros and NaN among them) make many candidate matches;
// long runs make the search's table grow mid-run.
TEST(RenderVertices, WeldFindsTheFirstMatchOfItsRunAsAWalkWould) {
    Quad quad;
    CMesh& mesh = quad.mesh;
    mesh.AllocVertices(24);
    mesh.AllocFaces(6000, 0);
    std::mt19937 random(7);
    const float values[] = {0.0f, -0.0f, 0.5f, 1.0f, std::nanf("")};
    for (uint32_t f = 0; f < 6000; ++f) {
        MeshFace& face = mesh.faces[0][f];
        auto pick = [&random](uint32_t count) { return uint32_t(random() % count); };
        face = MeshFace{{pick(26), pick(24), pick(24)},
                        (f / 1500) % 2 ? quad.second : quad.first,
                        pick(16) ? 0u : uint32_t(MeshFlatFace),
                        {}};
        for (float& uv : face.uv) uv = values[pick(pick(8) ? 4 : 5)];
    }
    std::vector<uint16_t> indices(18000);
    RenderVertexList list = quad.Weld(indices.data());
    uint32_t made = 0;
    const std::vector<uint32_t> expected = ScanWeld(mesh, made);
    EXPECT_EQ(list.count, made);
    EXPECT_TRUE(std::equal(indices.begin(), indices.end(), expected.begin()));
    FreeRenderVertices(list);
}

TEST(RenderVertices, LayoutsMatchTheirFormatCodes) {
    for (int i = 0; i < 8; ++i) {
        const MeshVertexFormat* f = SelectVertexFormat(i & 4, i & 2, i & 1);
        const int words = 3 + (f->fvf & 0x10 ? 3 : 0) + (f->fvf & 0x40 ? 1 : 0) +
                          (f->fvf & 0x80 ? 1 : 0) + 2 * ((f->fvf >> 8) & 0xF);
        EXPECT_EQ(f->stride, words) << i;
        EXPECT_EQ(f->nxyz[0] < 0, (i & 2) != 0) << "colours replace normals " << i;
        EXPECT_EQ(f->uv1[0] < 0, (i & 4) == 0) << i;
        EXPECT_EQ(f->specular < 0, (i & 1) == 0) << i;
        // Every word of the vertex has exactly one element.
        std::vector<int> uses(size_t(f->stride), 0);
        for (const int32_t* place = f->xyz; place <= &f->uv1[1]; ++place)
            if (*place >= 0 && *place < f->stride) ++uses[size_t(*place)];
        EXPECT_EQ(uses, std::vector<int>(size_t(f->stride), 1)) << i;
    }
    Quad quad;
    quad.mesh.AllocFaces(1, 1);  // a layer 1 of another count is not a second layer
    quad.mesh.faces[1][0] = quad.mesh.faces[0][0];
    EXPECT_EQ(SelectVertexFormat(&quad.mesh)->fvf, 0x112);
}

TEST(RenderVertices, GroupsFollowTextureRunsAndRefreshWritesOnlyItsAttributes) {
    Quad quad;
    CMesh& mesh = quad.mesh;
    mesh.AllocFaces(3, 0);
    const uint32_t corners[3][3] = {{0, 1, 2}, {0, 2, 3}, {1, 2, 3}};
    CTexture* textures[3] = {quad.first, quad.second, quad.first};
    for (int f = 0; f < 3; ++f)
        mesh.faces[0][f] = MeshFace{
            {corners[f][0], corners[f][1], corners[f][2]}, textures[f], 0, {0, 0, 1, 0, 1, 1}};
    mesh.AllocColours(4);
    std::memset(mesh.colours, 0x10, 12);
    std::vector<uint16_t> indices(9);
    mesh.indices = indices.data();  // without a run the mesh frees none of its device form
    RenderVertexList list = quad.Weld(mesh.indices);
    ASSERT_EQ(list.count, 9u);  // a run of the first texture again shares nothing
    mesh.renderVertexCount = 9;
    mesh.vertexFormat = SelectVertexFormat(&mesh);
    std::vector<float> buffer(9 * 6, -1.0f);
    std::vector<uint32_t> sources(9);
    std::vector<float*> uvs(9);
    WriteRenderVertices(&mesh, list, buffer.data(), sources.data(), uvs.data(), nullptr);
    uint32_t colour;
    std::memcpy(&colour, &buffer[3], 4);
    EXPECT_EQ(colour, 0x101010u);
    for (int pass = 0; pass < 2; ++pass) {  // a rebuild first undoes the old groups
        MakeDrawGroups(&mesh, 100);
        ASSERT_EQ(mesh.groupCount, 3);
        const DrawGroup& last = mesh.drawGroups[2];
        EXPECT_EQ(last.firstVertex, 106u);
        EXPECT_EQ(last.vertexSpan, 3u);
        EXPECT_EQ(last.texture, &mesh.faces[0][2].texture);
        EXPECT_EQ(last.groupIndices[2], 2u);
    }
    mesh.renderVertexSource = sources.data();
    mesh.renderVertexUV[0] = uvs.data();
    mesh.vertices[2].position.x = 7.0f;
    mesh.faces[0][0].uv[4] = 0.25f;  // corner c of face 0 is render vertex 2
    RefreshRenderVertices(&mesh, RefreshPosition, buffer.data());
    EXPECT_EQ(buffer[2 * 6], 7.0f);
    EXPECT_EQ(buffer[2 * 6 + 4], 1.0f);
    mesh.vertices[2].position.y = 5.0f;
    RefreshRenderVertices(&mesh, RefreshUV0 | RefreshNormal, buffer.data());  // uncommon: all
    EXPECT_EQ(buffer[2 * 6 + 1], 5.0f);
    EXPECT_EQ(buffer[2 * 6 + 4], 0.25f);
    FREE(mesh.drawGroups);
    FreeRenderVertices(list);
}

}  // namespace
