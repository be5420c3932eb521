#include <gtest/gtest.h>

#include "engine/scene/camera.h"

TEST(Camera, DefaultsAndClass) {
    CFrame root(nullptr);
    CCamera* camera = new CCamera(&root, 1000.0f);
    EXPECT_EQ(root.firstChild, camera);
    EXPECT_EQ(camera->kind, EntityKindFrame);
    EXPECT_EQ(camera->focalLength, 1000.0f);
    EXPECT_EQ(camera->nearPlane, 8.0f);
    EXPECT_EQ(camera->farPlane, 4096.0f);
    EXPECT_EQ(camera->roll, 0.0f);
    EXPECT_EQ(camera->halfAngle, 0.0f);
    Vector dir;
    camera->GetDirection(dir);
    EXPECT_EQ(dir.z, -1.0f);
}

TEST(Camera, CloneIsAPlainFrameWithTheSamePlacement) {
    CCamera camera(nullptr, 320.0f);
    camera.SetName("eye");
    camera.SetPosition(1.0f, 2.0f, 3.0f);
    camera.SetOrientation(Vector{1, 0, 0}, Vector{0, 1, 0});
    new CFrame(&camera);

    CFrame* copy = camera.Clone(nullptr, 0);
    EXPECT_EQ(copy->kind, EntityKindFrame);
    EXPECT_EQ(dynamic_cast<CCamera*>(copy), nullptr);
    EXPECT_STREQ(copy->name, "eye");
    EXPECT_EQ(copy->position.z, 3.0f);
    for (int i = 0; i < 9; ++i) EXPECT_EQ(copy->rotation[i], camera.rotation[i]) << i;
    EXPECT_NE(copy->firstChild, nullptr);
    delete copy;
}

TEST(Camera, PlacementFollowsTheParentWithoutAWalk) {
    CFrame rig(nullptr);
    CCamera* camera = new CCamera(&rig, 1000.0f);
    camera->SetPosition(0.0f, 0.0f, 5.0f);
    camera->SetOrientation(Vector{0, 0, 1}, Vector{0, 1, 0});

    Vector pos, dir, up;
    camera->GetPlacementIn(nullptr, pos, dir, up);
    EXPECT_EQ(pos.x, 0.0f);
    EXPECT_EQ(pos.z, 5.0f);
    EXPECT_EQ(dir.z, 1.0f);

    rig.SetPosition(10.0f, 0.0f, 0.0f);
    // A quarter turn of the rig about y: its x axis goes to -z, its z axis to +x.
    rig.SetOrientation(Vector{-1, 0, 0}, Vector{0, 1, 0});
    camera->GetPlacementIn(nullptr, pos, dir, up);
    EXPECT_NEAR(pos.x, 15.0f, 1e-5f);
    EXPECT_NEAR(pos.y, 0.0f, 1e-5f);
    EXPECT_NEAR(pos.z, 0.0f, 1e-5f);
    EXPECT_NEAR(dir.x, 1.0f, 1e-6f);
    EXPECT_NEAR(dir.z, 0.0f, 1e-6f);
    EXPECT_NEAR(up.y, 1.0f, 1e-6f);
    Vector pos3, dir3;
    camera->GetPlacementIn(nullptr, pos3, dir3);
    EXPECT_EQ(pos3.x, pos.x);
    EXPECT_EQ(dir3.x, dir.x);
}
