// Node transforms in double against Assimp's own float versions of the same operations.
#include <gtest/gtest.h>

#include <assimp/types.h>  // the operations' definitions

#include "tool/import/node_transform.h"

namespace {

// Scale, then rotation, then translation, as Assimp composes a node's keys; rotations given
// without unit length come out the same as their unit versions. Mirrors included.
TEST(NodeTransform, ComposesAsAssimpDoes) {
    struct Case {
        aiVector3D t;
        aiQuaternion q;  // w, x, y, z
        aiVector3D s;
    };
    for (const Case& c : {Case{{1, 2, 3}, {1, 0, 0, 0}, {1, 1, 1}},
                          Case{{0, -4, 0}, {0.5f, 0.5f, 0.5f, 0.5f}, {2, 1, 3}},
                          Case{{7, 0, 1}, {0.2f, -0.9f, 0.3f, 0.1f}, {1, 0.5f, -2}},
                          Case{{0, 0, 0}, {0, 0, 2, 0}, {1, 1, 1}}}) {
        aiQuaternion unit = c.q;
        unit.Normalize();
        aiMatrix4x4 t, s;  // Assimp's (scaling, rotation, position) constructor scales rows
        aiMatrix4x4 trs = aiMatrix4x4::Translation(c.t, t) * aiMatrix4x4(unit.GetMatrix()) *
                          aiMatrix4x4::Scaling(c.s, s);
        DMatrix expected = FromAssimp(trs);
        DMatrix made = ComposeTransform(ToDouble(c.t), ToDouble(c.q), ToDouble(c.s));
        EXPECT_NEAR(Determinant3(made), double(c.s.x) * c.s.y * c.s.z, 1e-5);
        // Normals through the inverse transpose, whichever sign the determinant has.
        aiVector3D n = aiMatrix3x3(trs).Inverse().Transpose() * aiVector3D(0.6f, -0.8f, 0.2f);
        DVec3 turned = ApplyNormal(made, Determinant3(made), {0.6, -0.8, 0.2});
        EXPECT_NEAR(turned.x, n.Normalize().x, 1e-5);
        EXPECT_NEAR(turned.y, n.y, 1e-5);
        EXPECT_NEAR(turned.z, n.z, 1e-5);
        for (int i = 0; i < 16; ++i)
            EXPECT_NEAR(made.m[i / 4][i % 4], expected.m[i / 4][i % 4], 1e-6) << c.q.x << " " << i;
    }
}

// Along the shorter arc, whichever sign the second rotation is given with.
TEST(NodeTransform, SlerpsAsAssimpDoes) {
    const aiQuaternion a(0.9f, 0.1f, -0.3f, 0.2f), b(0.1f, 0.7f, 0.5f, -0.4f);
    for (const aiQuaternion& to : {b, aiQuaternion(-b.w, -b.x, -b.y, -b.z), a})
        for (float alpha : {0.0f, 0.25f, 0.5f, 0.9f, 1.0f}) {
            aiQuaternion from = a, end = to, expected;
            from.Normalize();
            end.Normalize();
            aiQuaternion::Interpolate(expected, from, end, alpha);
            expected.Normalize();
            DQuaternion made = Slerp(ToDouble(a), ToDouble(to), alpha);
            EXPECT_NEAR(made.w, expected.w, 1e-5) << alpha;
            EXPECT_NEAR(made.x, expected.x, 1e-5) << alpha;
            EXPECT_NEAR(made.y, expected.y, 1e-5) << alpha;
            EXPECT_NEAR(made.z, expected.z, 1e-5) << alpha;
        }
}

}  // namespace
