#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <vector>

#include "engine/mesh/mesh.h"
#include "engine/texture/texture.h"

namespace {

// Each face carries its original number in uv[0] of both layers and in its smoothing group, so
// a sort that loses a record or lets the layers drift apart shows.
MeshFace Face(CTexture* texture, uint32_t a, uint32_t b, uint32_t c, uint32_t id) {
    MeshFace face = {};
    face.vertex[0] = a;
    face.vertex[1] = b;
    face.vertex[2] = c;
    face.texture = texture;
    face.uv[0] = float(id);
    return face;
}

void Load(CMesh& mesh, const std::vector<MeshFace>& faces, uint32_t secondLayer) {
    uint32_t count = uint32_t(faces.size());
    mesh.AllocFaces(count, 0);
    mesh.AllocFaces(secondLayer, 1);
    mesh.AllocSmoothingGroups();
    for (uint32_t i = 0; i < count; ++i) {
        mesh.faces[0][i] = faces[i];
        mesh.smoothingGroups[i] = uint32_t(faces[i].uv[0]);
        if (i < secondLayer) {
            mesh.faces[1][i] = faces[i];
            mesh.faces[1][i].uv[1] = 99.0f;  // marks the record as layer 1's
        }
    }
}

uint32_t Id(const MeshFace& face) {
    return uint32_t(face.uv[0]);
}

}  // namespace

TEST(MeshSort, OpaqueFirstEqualTexturesTogetherThenByVertices) {
    CTexture opaqueA, opaqueB, keyed;
    keyed.flags = TextureFlagKeyed;
    opaqueA.flags = TextureFlagAlpha;  // only the keyed class sorts last
    CMesh mesh(nullptr);
    Load(mesh,
         {Face(&keyed, 0, 1, 2, 0), Face(&opaqueA, 5, 1, 1, 1), Face(nullptr, 3, 3, 3, 2),
          Face(&opaqueB, 0, 0, 0, 3), Face(&opaqueA, 4, 9, 9, 4), Face(&opaqueA, 4, 8, 9, 5),
          Face(&keyed, 0, 1, 1, 6)},
         7);
    mesh.SortFaces(0);

    std::vector<uint32_t> order;
    for (uint32_t i = 0; i < 7; ++i) {
        order.push_back(Id(mesh.faces[0][i]));
        EXPECT_EQ(Id(mesh.faces[1][i]), order.back()) << i;  // the layers move together
        EXPECT_EQ(mesh.faces[1][i].uv[1], 99.0f);
        EXPECT_EQ(mesh.smoothingGroups[i], order.back()) << i;
    }
    // Texture A's faces adjacent in vertex order; the keyed ones last, in vertex order too.
    auto a = std::find(order.begin(), order.end(), 5u);
    ASSERT_LE(a + 3, order.end() - 2);
    EXPECT_EQ(std::vector<uint32_t>(a, a + 3), (std::vector<uint32_t>{5, 4, 1}));
    EXPECT_EQ(std::vector<uint32_t>(order.end() - 2, order.end()), (std::vector<uint32_t>{6, 0}));
    EXPECT_EQ(mesh.dirtyMask, 0u);  // no device form to rebuild
}

TEST(MeshSort, ManyFacesEndSortedWithEveryRecordKept) {
    std::mt19937 random(1234);
    CTexture textures[5];
    textures[3].flags = TextureFlagKeyed;
    for (uint32_t count : {2u, 3u, 17u, 500u}) {
        std::vector<MeshFace> faces;
        for (uint32_t i = 0; i < count; ++i) {
            uint32_t pick = random() % 6;
            CTexture* texture = pick == 5 ? nullptr : &textures[pick];
            faces.push_back(Face(texture, random() % 4, random() % 4, random() % 4, i));
        }
        CMesh mesh(nullptr);
        uint32_t second = count / 2;  // a shorter layer 1: only pairs it holds both of move
        Load(mesh, faces, second);
        mesh.SortFaces(0);

        std::vector<uint32_t> ids;
        for (uint32_t i = 0; i < count; ++i) {
            const MeshFace& face = mesh.faces[0][i];
            ids.push_back(Id(face));
            EXPECT_EQ(mesh.smoothingGroups[i], Id(face));
            if (i + 1 == count) break;
            const MeshFace& next = mesh.faces[0][i + 1];
            bool keyed = face.texture && (face.texture->flags & TextureFlagKeyed);
            bool nextKeyed = next.texture && (next.texture->flags & TextureFlagKeyed);
            ASSERT_LE(keyed, nextKeyed) << count << " at " << i;
            if (keyed == nextKeyed && face.texture == next.texture) {
                std::vector<uint32_t> a(face.vertex, face.vertex + 3);
                std::vector<uint32_t> b(next.vertex, next.vertex + 3);
                ASSERT_LE(a, b) << count << " at " << i;
            }
        }
        // Equal textures adjacent: no texture comes back after another has begun.
        std::vector<const CTexture*> seen;
        for (uint32_t i = 0; i < count; ++i) {
            const CTexture* t = mesh.faces[0][i].texture;
            if (seen.empty() || seen.back() != t) {
                ASSERT_EQ(std::count(seen.begin(), seen.end(), t), 0) << count;
                seen.push_back(t);
            }
        }
        std::sort(ids.begin(), ids.end());
        for (uint32_t i = 0; i < count; ++i) ASSERT_EQ(ids[i], i);
        std::vector<uint32_t> secondIds;
        for (uint32_t i = 0; i < second; ++i) secondIds.push_back(Id(mesh.faces[1][i]));
        std::sort(secondIds.begin(), secondIds.end());
        for (uint32_t i = 0; i < second; ++i) ASSERT_EQ(secondIds[i], i);
    }
}

TEST(MeshSort, MarksTheDeviceFormAndPassesOnWhenRecursive) {
    CMesh root(nullptr);
    CFrame* frame = new CFrame(&root);
    CMesh* child = new CMesh(frame);
    Load(*child, {Face(nullptr, 2, 0, 0, 0), Face(nullptr, 1, 0, 0, 1)}, 0);
    child->vertexBuffer = reinterpret_cast<VertexBufferInfo*>(uintptr_t(0x1000));  // never read

    root.SortFaces(0);
    EXPECT_EQ(Id(child->faces[0][0]), 0u);
    root.SortFaces(1);
    EXPECT_EQ(Id(child->faces[0][0]), 1u);
    EXPECT_EQ(child->dirtyMask, uint32_t(MeshDirtyFaceOrder));
    EXPECT_EQ(root.dirtyMask, 0u);
    child->vertexBuffer = nullptr;
}
