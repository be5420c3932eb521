#include "engine/scene/camera.h"

#include <gtest/gtest.h>

TEST(Camera, StartsWithTheViewDefaultsAndClonesAsAPlainFrame) {
    CCamera camera(nullptr, 320.0f);
    EXPECT_EQ(camera.kind, EntityKindFrame);
    EXPECT_EQ(camera.focalLength, 320.0f);
    EXPECT_EQ(camera.nearPlane, 8.0f);
    EXPECT_EQ(camera.farPlane, 4096.0f);
    EXPECT_EQ(camera.roll + camera.halfAngle, 0.0f);

    camera.SetName("eye");
    camera.SetPosition(1.0f, 2.0f, 3.0f);
    camera.SetOrientation(Vector{1, 0, 0}, Vector{0, 1, 0});
    new CFrame(&camera);
    CFrame* copy = camera.Clone(nullptr, 0);
    EXPECT_EQ(dynamic_cast<CCamera*>(copy), nullptr);
    EXPECT_STREQ(copy->name, "eye");
    EXPECT_EQ(copy->position.z, 3.0f);
    for (int i = 0; i < 9; ++i) EXPECT_EQ(copy->rotation[i], camera.rotation[i]) << i;
    EXPECT_NE(copy->firstChild, nullptr);
    delete copy;
}
