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
// under it in dots of 3 by 3 pixels: "0" has 12, "1" has 8.
TEST(AnimatedBakeCli, FramesAreVerifiedAndDrawnOnALabelledContactSheet) {
    TempDir dir;
    std::filesystem::create_directory("m");
    ASSERT_TRUE(SaveMap("m/test.vbf", 8, 8, [](CMesh* root) {
        AnimateBlock(Block(root, 64), {0.0f, 64.0f}, true);
    }));
    WriteWholeFile("anim.ssf", "ANIMATED 2\nLIGHT 1 1 0.25\n");
    ToolRun run = RunBake(
        "m --texture-size 1024 --script anim.ssf --out s.dat --png sheet.png "
        "--verify 6");
    ASSERT_EQ(run.status, 0) << run.output;
    const std::string frames[] = {ReadWholeFile("m/s0.dat"), ReadWholeFile("m/s1.dat")};
    EXPECT_NE(frames[0], frames[1]);
    for (const char* name : {"s0.dat", "s1.dat"})
        EXPECT_TRUE(Contains(run.output, "verified 6 rows of " + std::string(name) + ": identical"))
            << run.output;

    std::string bytes = ReadWholeFile("sheet.png");
    png_image image = {};
    image.version = PNG_IMAGE_VERSION;
    ASSERT_TRUE(png_image_begin_read_from_memory(&image, bytes.data(), bytes.size()));
    // Two frames of 32 texels drawn 16 times over, 4 pixels apart, and a label strip of 15 below.
    ASSERT_EQ(std::make_pair(image.width, image.height), std::make_pair(1036u, 539u));
    image.format = PNG_FORMAT_RGB;
    std::vector<uint8_t> rgb(PNG_IMAGE_SIZE(image));
    ASSERT_TRUE(png_image_finish_read(&image, nullptr, rgb.data(), 0, nullptr));
    auto pixel = [&](int x, int y) { return &rgb[(size_t(y) * 1036 + size_t(x)) * 3]; };
    int wrong[2] = {0, 0}, labelDots[2] = {0, 0}, strayDots = 0;
    for (int y = 0; y < 539; ++y)
        for (int x = 0; x < 1036; ++x) {
            const uint8_t* p = pixel(x, y);
            const int f = x < 518 ? 0 : 1, left = 4 + f * 516;
            if (p[0] == 0xFF && p[1] == 0xC0 && p[2] == 0)
                ++(y >= 520 && y < 535 && x >= left ? labelDots[f] : strayDots);
            if (x < left || x >= left + 512 || y < 4 || y >= 516) continue;
            const int level = 255 - uint8_t(frames[f][size_t((y - 4) / 16 * 32 + (x - left) / 16)]);
            wrong[f] += p[0] != level || p[1] != level || p[2] != level;
        }
    EXPECT_EQ(std::make_pair(wrong[0], wrong[1]), std::make_pair(0, 0));
    EXPECT_EQ(std::make_tuple(labelDots[0], labelDots[1], strayDots), std::make_tuple(108, 72, 0));
    EXPECT_TRUE(PartialFiles(dir.Path()).empty());
}

}  // namespace
