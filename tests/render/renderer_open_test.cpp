#include <string>
#include <vector>

#include "engine/texture/texture.h"
#include "engine/texture/tga.h"
#include "tests/render/renderer_fixture.h"

namespace {

using Lines = std::vector<std::string>;

const DxDeviceEntry& GlDevice(size_t index) {
    static const DxAdapterTable gl = DxDescribeGlContext();
    return gl.adapters[0].devices[index];  // 0: rasterisation only, 1: with transform
}

DxAdapterEntry Adapter(uint32_t n, std::vector<size_t> devices, DWORD caps = DDCAPS_3D) {
    DxAdapterEntry adapter = DxDescribeGlContext().adapters[0];
    adapter.isDefault = false;
    adapter.guid = TestGuid(n);
    adapter.caps = caps;
    adapter.modes.push_back({320, 200, 8});
    adapter.devices.clear();
    for (size_t index : devices) adapter.devices.push_back(GlDevice(index));
    return adapter;
}

TEST_F(RendererTest, AdapterChoiceByScoreOfTheLastDevice) {
    struct Case {
        std::vector<size_t> first, second;
        DWORD firstCaps;
        uint32_t flags;
        uint32_t chosen;
    };
    const Case cases[] = {
        {{0}, {0}, DDCAPS_3D, 0, 1},  // equal: the first stays
        {{0}, {0}, DDCAPS_3D, OpenReverseChoice, 2},
        {{0}, {0, 1}, DDCAPS_3D, 0, 2},
        {{0}, {0, 1}, DDCAPS_3D, OpenNoHardwareTransform, 1},  // transform forbidden: score 0
        {{0}, {0, 1}, DDCAPS_3D, OpenNoHardwareTransform | OpenReverseChoice, 2},
        {{0}, {1, 0}, DDCAPS_3D, 0, 1},  // the last device speaks for the driver
        {{1}, {0}, 0, 0, 2},             // without 3D a driver is not considered
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(&c - cases);
        DxAdapterTable table;
        table.adapters = {Adapter(1, c.first, c.firstCaps), Adapter(2, c.second)};
        DxStageAdapters(&table);
        ASSERT_TRUE(Open(Open3D | c.flags));
        EXPECT_EQ(renderer->driverGuid, TestGuid(c.chosen));
        int drivers = 0;
        for (DriverRecord* driver = renderer->drivers; driver; ++drivers, driver = driver->next) {
            int modes = 0;
            for (DisplayModeRecord* mode = driver->modes; mode; mode = mode->next) ++modes;
            EXPECT_EQ(modes, 6);  // the 8-bit mode is left out
        }
        EXPECT_EQ(drivers, c.firstCaps ? 2 : 1);
        CloseDevice(renderer);
        renderer = nullptr;
    }
}

TEST_F(RendererTest, DepthFormatFallsBackFromStencil) {
    struct Case {
        std::vector<DDPIXELFORMAT> depths;
        uint32_t flags;
        DWORD format;  // 0: the open fails
        bool stencilKept;
    };
    const DDPIXELFORMAT d16 = DxDepthFormat(16, 0), d24s8 = DxDepthFormat(24, 8);
    const Case cases[] = {
        {{d16}, OpenStencil, DDPF_ZBUFFER, false},
        {{d24s8, d16}, OpenStencil, DDPF_ZBUFFER | DDPF_STENCILBUFFER, true},
        {{d24s8, d16}, 0, DDPF_ZBUFFER, false},
        {{DxDepthFormat(8, 0), d24s8}, 0, 0, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(&c - cases);
        DxAdapterTable table = DxDescribeGlContext();
        table.adapters[0].depthFormats = c.depths;
        DxStageAdapters(&table);
        DebugCapture debug;
        if (!c.format) {
            EXPECT_EQ(Open(OpenWindowed | Open3D | c.flags), nullptr);
            EXPECT_NE(debug.Text().find("DEBUG: Failed to enumerate valid/required zbuffer\n\n"
                                        "DEBUG: Failed to create Z Buffer\n"),
                      std::string::npos);
            continue;
        }
        ASSERT_TRUE(Open(OpenWindowed | Open3D | c.flags));
        EXPECT_EQ(renderer->depthFormat.dwFlags, c.format);
        EXPECT_EQ((renderer->openFlags & OpenStencil) != 0, c.stencilKept);
        CloseDevice(renderer);
        renderer = nullptr;
    }
}

TEST_F(RendererTest, FailedStepsEndTheOpenWithTheirMessage) {
    struct Case {
        int DxFaults::*fault;
        uint32_t flags;
        const char* text;
    };
    const Case cases[] = {
        {&DxFaults::displayModes, Open3D, "DEBUG: Failed to set display mode\n\n"},
        {&DxFaults::createSurfaces, OpenWindowed | Open3D, "DEBUG: Could not make primary surface\n"},
        {&DxFaults::createDevices, OpenWindowed | Open3D, "DEBUG: Could not create device\n\n"},
    };
    for (const Case& c : cases) {
        DxFaultSwitches().*c.fault = 1;
        DebugCapture debug;
        DxCallRecorder calls;
        EXPECT_EQ(Open(c.flags), nullptr);
        EXPECT_NE(debug.Text().find(c.text), std::string::npos) << c.text;
        EXPECT_EQ(FirstOpenDevice(), nullptr);
        if (c.fault == &DxFaults::createDevices) {
            EXPECT_EQ(calls.Only("SetCooperativeLevel").at(2), "SetCooperativeLevel(8)");
        }
    }
}

TEST_F(RendererTest, CooperativeLevelIsTriedAgain) {
    DxFaultSwitches().cooperativeLevels = 3;
    DxCallRecorder calls;
    ASSERT_TRUE(Open(OpenWindowed | Open3D));
    EXPECT_EQ(calls.Only("SetCooperativeLevel"),
              (Lines{"SetCooperativeLevel(128)", "SetCooperativeLevel(128)",
                     "SetCooperativeLevel(128)", "SetCooperativeLevel(128)",
                     "SetCooperativeLevel(10)"}));
}

TEST_F(RendererTest, OpenAndCloseOfAWindowedDeviceLeaveNothingAlive) {
    CTexture* texture = CreateTexture(4, 4, 0x8888);
    texture->SetName("left behind");
    texture->decalTally = 5;
    DebugCapture debug;
    ASSERT_TRUE(Open(OpenWindowed | Open3D));
    EXPECT_NE(debug.Text().find("DEBUG: Using Hardware TnL....\n"), std::string::npos);
    EXPECT_EQ(renderer->hardwareTransform, 1);
    EXPECT_EQ(renderer->multitexture, 1);
    EXPECT_EQ(renderer->GetRenderState(D3DRENDERSTATE_SRCBLEND), uint32_t(D3DBLEND_SRCALPHA));
    EXPECT_EQ(FirstOpenDevice(), renderer);
    std::vector<const void*> objects = {renderer->directDraw, renderer->direct3D,
                                        renderer->device,     renderer->primary,
                                        renderer->flipping,   renderer->clipper,
                                        renderer->depthBuffer, renderer->alphaSource};
    DxCallRecorder calls;
    CloseDevice(renderer);
    renderer = nullptr;
    EXPECT_EQ(calls.Only("RestoreDisplayMode,SetCooperativeLevel"),
              (Lines{"RestoreDisplayMode()", "SetCooperativeLevel(8)"}));
    for (const void* object : objects) EXPECT_EQ(DxObjectNumber(object), 0u);
    EXPECT_EQ(FirstOpenDevice(), nullptr);
    EXPECT_EQ(texture->decalTally, 0u);
    debug.Clear();
    CloseVelmora();
    EXPECT_NE(debug.Text().find("LOG: (CloseVelmora()) Texture still allocated left behind\n"),
              std::string::npos);
    FreeTexture(texture);
}

TEST_F(RendererTest, SoftwareDeviceNeedsA16BitDisplay) {
    struct Case {
        DDPIXELFORMAT display;
        uint32_t format, key;
    };
    const Case cases[] = {
        {DxRgbFormat(16, 0xF800, 0x7E0, 0x1F, 0), 0x5650, 0xF81F},
        {DxRgbFormat(16, 0x7C00, 0x3E0, 0x1F, 0), 0x5550, 0x7C1F},
        {DxRgbFormat(32, 0xFF0000, 0xFF00, 0xFF, 0), 0, 0},
    };
    for (const Case& c : cases) {
        DxAdapterTable table = DxDescribeGlContext();
        table.adapters[0].displayFormat = c.display;
        DxStageAdapters(&table);
        DebugCapture debug;
        if (!c.format) {
            EXPECT_EQ(Open(OpenWindowed), nullptr);
            EXPECT_EQ(debug.Text(), "DEBUG: Could not find valid SW pixel format\n");
            continue;
        }
        ASSERT_TRUE(Open(OpenWindowed));
        EXPECT_EQ(renderer->softwareFormat, c.format);
        EXPECT_EQ(renderer->colourKey, c.key);
        EXPECT_EQ(TextureForcedFormat, c.format);
        CloseDevice(renderer);
        renderer = nullptr;
        TextureForcedFormat = 0;
    }
}

}  // namespace
