// Faces wound the wrong way are holes from above: the ground rays pass through them. Every
// import checks the winding and turns what the source lets it tell is wrong.
#include <gtest/gtest.h>

#include <string>

#include "tests/import/import_support.h"

namespace {

TEST(Winding, AClosedBoxWoundInsideOutIsTurnedRightSideOut) {
    TempDir dir;
    ObjWriter obj, right;
    obj.Box({0, 0, -40}, {40, 20, 0}, true);
    obj.Save("inside-out.obj");
    ImportResult result = Import(Request({"inside-out.obj"}));
    ASSERT_TRUE(result.written) << result.messages;
    EXPECT_THAT(result.messages, HasSubstr("warning: inside-out.obj: "));
    EXPECT_THAT(result.messages,
                HasSubstr("12 faces of closed parts that were inside out were turned"));
    EXPECT_FLOAT_EQ(LoadedMap("map").GroundAt(20.0f, -20.0f), 20.0f);

    // The same box wound right needs nothing.
    right.Box({0, 0, -40}, {40, 20, 0});
    right.Save("right.obj");
    ImportResult clean = Import(Request({"right.obj"}, "right"));
    EXPECT_THAT(clean.messages, Not(HasSubstr("turned")));
    EXPECT_FLOAT_EQ(LoadedMap("right").GroundAt(20.0f, -20.0f), 20.0f);
}

TEST(Winding, FacesAgainstTheirNormalsAreTurnedToAgree) {
    TempDir dir;
    // A ground sheet wound downward, but whose normals say up: the normals win.
    ObjWriter sheet;
    ObjVertex up = {0, 1, 0};
    sheet.Face({0, 0, 0}, {0, 0, -64}, {64, 0, -64}, &up);
    sheet.Face({0, 0, 0}, {64, 0, -64}, {64, 0, 0}, &up);
    sheet.Save("sheet.obj");
    ImportResult result = Import(Request({"sheet.obj"}));
    ASSERT_TRUE(result.written) << result.messages;
    EXPECT_THAT(result.messages,
                HasSubstr("2 faces were wound against their normals and were turned"));
    EXPECT_FLOAT_EQ(LoadedMap("map").GroundAt(10.0f, -30.0f), 0.0f);
}

TEST(Winding, AnOpenSheetFacingDownWithoutNormalsIsTurnedOver) {
    TempDir dir;
    ObjWriter sheet;
    sheet.Face({0, 5, 0}, {0, 5, -64}, {64, 5, -64});
    sheet.Face({0, 5, 0}, {64, 5, -64}, {64, 5, 0});
    // One face of a second part wound against its neighbour: made to agree first.
    sheet.Face({100, 5, 0}, {164, 5, -64}, {164, 5, 0});
    sheet.Face({100, 5, 0}, {164, 5, -64}, {100, 5, -64});
    sheet.Face({100, 5, -64}, {164, 5, -64}, {164, 5, -128});
    sheet.Save("down.obj");
    ImportResult result = Import(Request({"down.obj"}));
    ASSERT_TRUE(result.written) << result.messages;
    EXPECT_THAT(result.messages, HasSubstr("1 faces were wound against their neighbours"));
    EXPECT_THAT(result.messages, HasSubstr("2 faces of open parts that faced down were turned"));
    LoadedMap map("map");
    for (auto [x, z] :
         {std::pair{10.0f, -30.0f}, {150.0f, -40.0f}, {110.0f, -50.0f}, {150.0f, -100.0f}})
        EXPECT_FLOAT_EQ(map.GroundAt(x, z), 5.0f) << x << ", " << z;
}

// A room modelled from the inside: closed, its faces and its normals both pointing in. That is
// what the author meant; it is reported and left alone.
TEST(Winding, AClosedPartWhoseNormalsAgreeWithAnInwardWindingIsKept) {
    TempDir dir;
    ObjWriter room;
    room.Box({0, 0, -40}, {40, 20, 0}, true, true);
    room.Save("room.obj");
    ImportResult result = Import(Request({"room.obj"}));
    ASSERT_TRUE(result.written) << result.messages;
    EXPECT_THAT(result.messages,
                HasSubstr("1 closed parts face inward, as their normals say; left as they are"));
    // From above, the ray passes the ceiling's back and finds the floor inside.
    EXPECT_FLOAT_EQ(LoadedMap("map").GroundAt(20.0f, -20.0f), 0.0f);
}

}  // namespace
