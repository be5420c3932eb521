// tenebrix-bake's animated bakes: each frame verified, and all of them on a contact sheet.
#include <gtest/gtest.h>
#include <png.h>

#include <filesystem>
#include <string>
#include <vector>

#include "tests/apps/cli_run.h"
#include "tests/tool/animated_map.h"

namespace {

// A block that moves between two frames bakes two shadow maps, each verified against the literal
// walk on its own frame's shape. The sheet shows each frame as its preview does, with its number
// under it: "0" has 12 dots, "1" has 8.
TEST(AnimatedBakeCli, FramesAreVerifiedAndDrawnOnALabelledContactSheet) {
    TempDir dir;
    std::filesystem::create_directory("m");
    ASSERT_TRUE(SaveMap("m/test.vbf", 8, 8, 64, {0.0f, 64.0f}, true));
    WriteWholeFile("anim.ssf", "ANIMATED 2\nLIGHT 1 1 0.25\n");
    ToolRun run =
        RunBake("m --texture-size 1024 --script anim.ssf --out s.dat --png p.png --verify 6");
    ASSERT_EQ(run.status, 0) << run.output;
    const std::string frames[] = {ReadWholeFile("m/s0.dat"), ReadWholeFile("m/s1.dat")};
    EXPECT_NE(frames[0], frames[1]);
    for (const char* name : {"s0.dat", "s1.dat"})
        EXPECT_TRUE(Contains(run.output, "verified 6 rows of " + std::string(name) + ": identical"))
            << run.output;

    std::string bytes = ReadWholeFile("p.png");
    png_image image = {};
    image.version = PNG_IMAGE_VERSION;
    ASSERT_TRUE(png_image_begin_read_from_memory(&image, bytes.data(), bytes.size()));
    // Two frames of 32 texels drawn 16 times over, 4 pixels apart, and a label strip of 15 below.
    ASSERT_EQ(std::make_pair(image.width, image.height), std::make_pair(1036u, 539u));
    image.format = PNG_FORMAT_RGB;
    std::vector<uint8_t> rgb(PNG_IMAGE_SIZE(image));
    ASSERT_TRUE(png_image_finish_read(&image, nullptr, rgb.data(), 0, nullptr));
    int wrong = 0, dots[2] = {0, 0};  // label dots under each frame, 9 pixels a dot
    for (int y = 0; y < 539; ++y)
        for (int x = 0; x < 1036; ++x) {
            const uint8_t* p = &rgb[(size_t(y) * 1036 + size_t(x)) * 3];
            const int f = x / 518, left = 4 + f * 516, top = 4, texel = (y - top) / 16 * 32;
            dots[f] += p[0] == 0xFF && p[1] == 0xC0 && p[2] == 0 && y >= 520;
            if (x >= left && x < left + 512 && y >= top && y < top + 512)
                wrong += p[0] != 255 - uint8_t(frames[f][size_t(texel + (x - left) / 16)]) ||
                         p[1] != p[0] || p[2] != p[0];
        }
    EXPECT_EQ(std::make_tuple(wrong, dots[0], dots[1]), std::make_tuple(0, 12 * 9, 8 * 9));
    EXPECT_TRUE(PartialFiles(dir.Path()).empty());
}

}  // namespace
