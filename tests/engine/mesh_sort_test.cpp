#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

#include "engine/mesh/mesh.h"
#include "engine/texture/texture.h"

namespace {

// Each face carries its number in uv[0] of both layers and in its smoothing group, so a sort
// that loses a record or lets the layers drift apart shows. Layer 1 may be shorter.
void Load(CMesh& mesh, const std::vector<MeshFace>& faces, uint32_t secondLayer) {
    uint32_t count = uint32_t(faces.size());
    mesh.AllocFaces(count, 0);
    mesh.AllocFaces(secondLayer, 1);
    mesh.AllocSmoothingGroups();
    for (uint32_t i = 0; i < count; ++i) {
        mesh.faces[0][i] = faces[i];
        mesh.faces[0][i].uv[0] = float(i);
        mesh.smoothingGroups[i] = i;
        if (i < secondLayer) mesh.faces[1][i] = mesh.faces[0][i], mesh.faces[1][i].uv[1] = 99.0f;
    }
}

uint32_t Id(const MeshFace& face) {
    return uint32_t(face.uv[0]);
}

bool Keyed(const MeshFace& face) {
    return face.texture && (face.texture->flags & TextureFlagKeyed);
}

}  // namespace

TEST(MeshSort, OpaqueFirstEqualTexturesTogetherThenByVerticesWithEveryRecordKept) {
    CTexture opaqueA, opaqueB, keyed;
    keyed.flags = TextureFlagKeyed;
    opaqueA.flags = TextureFlagAlpha;  // only the keyed class sorts last
    CMesh mesh(nullptr);
    Load(mesh,
         {{{0, 1, 2}, &keyed, 0, {}},
          {{5, 1, 1}, &opaqueA, 0, {}},
          {{3, 3, 3}, nullptr, 0, {}},
          {{0, 0, 0}, &opaqueB, 0, {}},
          {{4, 9, 9}, &opaqueA, 0, {}},
          {{4, 8, 9}, &opaqueA, 0, {}},
          {{0, 1, 1}, &keyed, 0, {}}},
         7);
    mesh.SortFaces(0);
    std::vector<uint32_t> order;
    for (uint32_t i = 0; i < 7; ++i) order.push_back(Id(mesh.faces[0][i]));
    for (uint32_t i = 0; i < 7; ++i) EXPECT_EQ(Id(mesh.faces[1][i]), order[i]) << i;  // together
    auto a = std::find(order.begin(), order.end(), 5u);  // A's faces together, in vertex order
    ASSERT_LE(a + 3, order.end() - 2);
    EXPECT_EQ(std::vector<uint32_t>(a, a + 3), (std::vector<uint32_t>{5, 4, 1}));
    EXPECT_EQ(std::vector<uint32_t>(order.end() - 2, order.end()), (std::vector<uint32_t>{6, 0}));
    EXPECT_EQ(mesh.dirtyMask, 0u);  // no device form to rebuild

    std::mt19937 random(1234);
    CTexture textures[5];
    textures[3].flags = TextureFlagKeyed;
    for (uint32_t count : {2u, 3u, 17u, 500u}) {
        std::vector<MeshFace> faces(count);
        for (MeshFace& face : faces) {
            uint32_t pick = random() % 6;
            face.texture = pick == 5 ? nullptr : &textures[pick];
            for (uint32_t& v : face.vertex) v = random() % 4;
        }
        CMesh many(nullptr);
        Load(many, faces, count / 2);  // only pairs that layer 1 holds both of move there
        many.SortFaces(0);
        std::vector<uint32_t> ids, secondIds;
        std::vector<const CTexture*> seen;
        for (uint32_t i = 0; i < count; ++i) {
            const MeshFace& face = many.faces[0][i];
            ids.push_back(Id(face));
            EXPECT_EQ(many.smoothingGroups[i], Id(face));
            if (i < count / 2) {
                secondIds.push_back(Id(many.faces[1][i]));
                EXPECT_EQ(many.faces[1][i].uv[1], 99.0f);
            }
            if (seen.empty() || seen.back() != face.texture) {  // no texture comes back
                ASSERT_EQ(std::count(seen.begin(), seen.end(), face.texture), 0) << count;
                seen.push_back(face.texture);
            }
            if (i + 1 == count) break;
            const MeshFace& next = many.faces[0][i + 1];
            ASSERT_LE(Keyed(face), Keyed(next)) << count << " at " << i;
            if (face.texture == next.texture) {
                ASSERT_LE(std::vector<uint32_t>(face.vertex, face.vertex + 3),
                          std::vector<uint32_t>(next.vertex, next.vertex + 3))
                    << count << " at " << i;
            }
        }
        std::sort(ids.begin(), ids.end());
        std::sort(secondIds.begin(), secondIds.end());
        for (uint32_t i = 0; i < count; ++i) ASSERT_EQ(ids[i], i);
        for (uint32_t i = 0; i < count / 2; ++i) ASSERT_EQ(secondIds[i], i);
    }
}

TEST(MeshSort, MarksTheDeviceFormAndPassesOnWhenRecursive) {
    CMesh root(nullptr);
    CMesh* child = new CMesh(new CFrame(&root));
    Load(*child, {{{2, 0, 0}, nullptr, 0, {}}, {{1, 0, 0}, nullptr, 0, {}}}, 0);
    child->vertexBuffer = reinterpret_cast<VertexBufferInfo*>(uintptr_t(0x1000));  // never read
    root.SortFaces(0);
    EXPECT_EQ(Id(child->faces[0][0]), 0u);
    root.SortFaces(1);
    EXPECT_EQ(Id(child->faces[0][0]), 1u);
    EXPECT_EQ(child->dirtyMask, uint32_t(MeshDirtyFaceOrder));
    EXPECT_EQ(root.dirtyMask, 0u);
    child->vertexBuffer = nullptr;
}
