// Metrics report, screenshots as TGA files and the video memory report.
#include <cstring>

#include "engine/render/engine_metrics.h"
#include "engine/texture/tga.h"
#include "tests/render/renderer_fixture.h"
#include "tests/support/temp_dir.h"

TEST_F(RendererTest, ScreenShotsConvertTheDisplayPixelsBottomRowFirst) {
    struct Case {
        DDPIXELFORMAT format;
        uint32_t pixels[4];
        std::string body;  // blue, green, red; the bottom row first
    } cases[] = {
        {DxRgbFormat(16, 0xF800, 0x7E0, 0x1F, 0),
         {0xFFFF, 0xF800, 0x07E0, 0x001F},
         std::string("\x00\xFC\x00\xF8\x00\x00\xF8\xFC\xF8\x00\x00\xF8", 12)},
        {DxRgbFormat(32, 0xFF0000, 0xFF00, 0xFF, 0),
         {0x123456, 0xABCDEF, 0x000001, 0xFF0080},
         std::string("\x01\x00\x00\x80\x00\xFF\x56\x34\x12\xEF\xCD\xAB", 12)},
    };
    const std::string header("\0\0\2\0\0\0\0\0\0\0\0\0\2\0\2\0\x18\0", 18);
    for (const Case& c : cases) {
        TempDir dir;
        DxAdapterTable table = DxDescribeGlContext();
        table.adapters[0].displayFormat = c.format;
        DxStageAdapters(&table);
        ASSERT_TRUE(Open(OpenWindowed | Open3D, 2, 2));
        DDSURFACEDESC2 desc{};
        desc.dwSize = sizeof desc;
        ASSERT_EQ(renderer->flipping->Lock(nullptr, &desc, DDLOCK_WAIT, nullptr), DD_OK);
        const size_t bytes = c.format.dwRGBBitCount / 8;
        for (size_t i = 0; i < 4; ++i)  // row by row
            std::memcpy(static_cast<uint8_t*>(desc.lpSurface) + (i / 2) * size_t(desc.lPitch) +
                            (i % 2) * bytes,
                        &c.pixels[i], bytes);
        renderer->flipping->Unlock(nullptr);
        WriteWholeFile(dir.File("ScreenShot00007.tga"), "old");
        renderer->SaveScreenShot(nullptr, -1);
        renderer->SaveScreenShot(nullptr, -1);
        renderer->SaveScreenShot(nullptr, 7);
        for (const char* name : {"ScreenShot0.tga", "ScreenShot1.tga", "ScreenShot00007.tga"})
            EXPECT_EQ(ReadWholeFile(dir.File(name)), header + c.body) << name;
        EXPECT_EQ(ReadWholeFile(dir.File("ScreenShot2.tga")), "");
        Close();
        TextureForcedFormat = 0;
    }
}

TEST(EngineMetricsTest, ReportWritesTheRecordThenZerosAndLabelsFollowTheTable) {
    DebugCapture debug;
    // render time, faces, vertices, polygons, decals rendered, spheres, objects, wasted, decals
    // processed, texture changes, reserved, process time
    Metrics = EngineMetrics{0.25, 4, 12, 9, 5, 7, 3, 1, 2, 6, {}, 1.5};
    ReportMetrics();
    const std::string first = debug.Text();
    debug.Clear();
    ReportMetrics();
    const struct {
        std::string text, expected;
    } reports[] = {
        {first,
         "DEBUG: VELMORA METRICS : Processed:\nVert 12(Time: 1.500000)\nFaces 4\nObjs 3 "
         "(1 Wasted)\nDecl 2\n\nDEBUG: VELMORA METRICS : Rendered\nPoly 9 (Time: "
         "0.250000)\nTXCH 6\nDecl 5\n\nDEBUG: VELMORA METRICS : Clipped\nSPHR 7\n\n"},
        {debug.Text(),
         "DEBUG: VELMORA METRICS : Processed:\nVert 0(Time: 0.000000)\nFaces 0\nObjs "
         "0 (0 Wasted)\nDecl 0\n\nDEBUG: VELMORA METRICS : Rendered\nPoly 0 (Time: "
         "0.000000)\nTXCH 0\nDecl 0\n\nDEBUG: VELMORA METRICS : Clipped\nSPHR 0\n\n"},
    };
    for (const auto& r : reports) EXPECT_EQ(r.text, r.expected);
    Metrics.reserved[40] = 3;  // reserved words are copied out and cleared too
    EngineMetrics taken{};
    TakeMetrics(&taken);
    EXPECT_EQ(std::pair(taken.reserved[40], Metrics.reserved[40]), std::pair(3, 0));

    const std::pair<uint32_t, std::string> labels[] = {{0x80000001u, "VVisRHW"},
                                                       {0x80010004u, "MultiRend"},
                                                       {0x80030001u, "MeshRend"},
                                                       {0x80030002u, "null"},
                                                       {1, "null"}};
    for (const auto& [id, expected] : labels) {
        const char* label = GetProfileLabel(id);
        EXPECT_EQ(label ? label : "null", expected) << id;
    }
}

TEST_F(RendererTest, VideoMemoryReportCountsTheDisplaySurfaces) {
    const auto lines = [](const char* free, const char* warning) {
        const std::string memory = std::string(" TOTAL ") + free + " FREE\n";
        return "DEBUG: TOTAL TEXTURE MEMORY:  8388608" + memory +
               "DEBUG: TOTAL TEXTURE MEMORY:  8388608" + memory +
               "DEBUG: W=1024 H=768 BPP=4\nDEBUG: W=4 H=2 BPP=4\n" + warning +
               "DEBUG: W=4 H=2 BPP=2\nDEBUG: VIDEO MEMORY:  11534384" + memory;
    };
    struct Case {
        DWORD depthBits;
        std::string expected;
    } cases[] = {{16, lines("5242832", "")},
                 {24, lines("5242824", "WARNING: Unknown bit depth on device\n")}};
    for (const Case& c : cases) {
        DxAdapterTable table = DxDescribeGlContext();
        table.adapters[0].videoMemory = 8u << 20;
        table.adapters[0].depthFormats = {DxDepthFormat(c.depthBits, 0)};
        DxStageAdapters(&table);
        ASSERT_TRUE(Open(OpenWindowed | Open3D, 4, 2));
        DebugCapture debug;
        renderer->ReportVideoMemory(nullptr, nullptr, nullptr);
        EXPECT_EQ(debug.Text(), "");
        uint32_t video = 0, local = 0, texture = 0;
        renderer->ReportVideoMemory(&video, &local, &texture);
        EXPECT_EQ(debug.Text(), c.expected);
        EXPECT_EQ(texture + local, 2 * (8u << 20));
        EXPECT_EQ(video, (8u << 20) + 1024 * 768 * 4 + 4 * 2 * 4 + 4 * 2 * 2);
        Close();
    }
}
