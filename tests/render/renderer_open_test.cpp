#include <algorithm>

#include "engine/texture/texture.h"
#include "engine/texture/tga.h"
#include "tests/render/renderer_fixture.h"

namespace {

GUID TestGuid(uint32_t n) {
    return GUID{n, 1, 2, {3, 4, 5, 6, 7, 8, 9, 10}};
}

// Devices by their index in the GL context's list: 0 rasterises, 1 also transforms.
DxAdapterEntry Adapter(uint32_t n, std::vector<size_t> devices, DWORD caps = DDCAPS_3D) {
    DxAdapterEntry adapter = DxDescribeGlContext().adapters[0];
    adapter.isDefault = false;
    adapter.guid = TestGuid(n);
    adapter.caps = caps;
    adapter.modes.push_back({320, 200, 8});
    std::vector<DxDeviceEntry> all = adapter.devices;
    adapter.devices.clear();
    for (size_t index : devices) adapter.devices.push_back(all[index]);
    return adapter;
}

TEST_F(RendererTest, AdapterChoiceByScoreOfTheLastDevice) {
    struct Case {
        std::vector<size_t> first, second;
        DWORD firstCaps;
        uint32_t flags, chosen;
    };
    const Case cases[] = {
        {{0}, {0}, DDCAPS_3D, 0, 1},  // equal: the first stays
        {{0}, {0}, DDCAPS_3D, OpenReverseChoice, 2},
        {{0}, {0, 1}, DDCAPS_3D, 0, 2},
        {{0}, {0, 1}, DDCAPS_3D, OpenNoHardwareTransform, 1},  // transform forbidden: score 0
        {{0}, {0, 1}, DDCAPS_3D, OpenNoHardwareTransform | OpenReverseChoice, 2},
        {{0}, {1, 0}, DDCAPS_3D, 0, 1},  // the last device speaks for the driver
        {{1}, {0}, 0, 0, 2},             // a driver without 3D is passed over
    };
    for (const Case& c : cases) {
        DxAdapterTable table;
        table.adapters = {Adapter(1, c.first, c.firstCaps), Adapter(2, c.second)};
        DxStageAdapters(&table);
        ASSERT_TRUE(Open(Open3D | c.flags));
        EXPECT_EQ(renderer->driverGuid, TestGuid(c.chosen)) << &c - cases;
        const std::vector<size_t>& chosen = c.chosen == 1 ? c.first : c.second;
        bool transform = std::count(chosen.begin(), chosen.end(), 1) && !(c.flags & 16);
        EXPECT_EQ(renderer->hardwareTransform, transform ? 1 : 0);
        int modes = 0;
        for (DriverRecord* driver = renderer->drivers; driver; driver = driver->next)
            for (DisplayModeRecord* mode = driver->modes; mode; mode = mode->next) ++modes;
        EXPECT_EQ(modes, c.firstCaps ? 12 : 6);  // 8-bit modes left out
        Close();
    }
}

TEST_F(RendererTest, DepthFormatFallsBackFromStencil) {
    const DDPIXELFORMAT d16 = DxDepthFormat(16, 0), d24s8 = DxDepthFormat(24, 8);
    struct Case {
        std::vector<DDPIXELFORMAT> depths;
        uint32_t flags;
        DWORD format;  // 0: the open fails
    };
    const Case cases[] = {
        {{d16}, OpenStencil, DDPF_ZBUFFER},
        {{d24s8, d16}, OpenStencil, DDPF_ZBUFFER | DDPF_STENCILBUFFER},
        {{d24s8, d16}, 0, DDPF_ZBUFFER},
        {{DxDepthFormat(8, 0), d24s8}, 0, 0},
    };
    for (const Case& c : cases) {
        DxAdapterTable table = DxDescribeGlContext();
        table.adapters[0].depthFormats = c.depths;
        DxStageAdapters(&table);
        DebugCapture debug;
        Open(OpenWindowed | Open3D | c.flags);
        ASSERT_EQ(renderer != nullptr, c.format != 0);
        if (!renderer) {
            EXPECT_NE(debug.Text().find("DEBUG: Failed to enumerate valid/required zbuffer\n\n"
                                        "DEBUG: Failed to create Z Buffer\n"),
                      std::string::npos);
            continue;
        }
        EXPECT_EQ(renderer->depthFormat.dwFlags, c.format);
        EXPECT_EQ(renderer->openFlags & OpenStencil, c.format & DDPF_STENCILBUFFER ? 32u : 0u);
        Close();
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
        {&DxFaults::createSurfaces, OpenWindowed | Open3D,
         "DEBUG: Could not make primary surface\n"},
        {&DxFaults::createDevices, OpenWindowed | Open3D, "DEBUG: Could not create device\n\n"},
        {nullptr, OpenWindowed, "DEBUG: Could not find valid SW pixel format\n"},  // 32 bits
    };
    for (const Case& c : cases) {
        if (c.fault) DxFaultSwitches().*c.fault = 1;
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

TEST_F(RendererTest, SoftwareDeviceTakesItsFormatFromThe16BitDisplay) {
    for (uint32_t format : {0x5650u, 0x5550u}) {
        DxAdapterTable table = DxDescribeGlContext();
        table.adapters[0].displayFormat = format == 0x5650
                                              ? DxRgbFormat(16, 0xF800, 0x7E0, 0x1F, 0)
                                              : DxRgbFormat(16, 0x7C00, 0x3E0, 0x1F, 0);
        DxStageAdapters(&table);
        ASSERT_TRUE(Open(OpenWindowed));
        EXPECT_EQ(renderer->softwareFormat, format);
        EXPECT_EQ(renderer->colourKey, format == 0x5650 ? 0xF81Fu : 0x7C1Fu);
        EXPECT_EQ(TextureForcedFormat, format);
        Close();
        TextureForcedFormat = 0;
    }
}

TEST_F(RendererTest, OpenAndCloseOfAWindowedDeviceLeaveNothingAlive) {
    CTexture* texture = CreateTexture(4, 4, 0x8888);
    texture->SetName("left behind");
    texture->decalTally = 5;
    DxFaultSwitches().cooperativeLevels = 3;
    DebugCapture debug;
    DxCallRecorder calls;
    ASSERT_TRUE(Open(OpenWindowed | Open3D));
    Lines levels(4, "SetCooperativeLevel(128)");  // tried again until it is given
    levels.push_back("SetCooperativeLevel(10)");
    EXPECT_EQ(calls.Only("SetCooperativeLevel"), levels);
    EXPECT_NE(debug.Text().find("DEBUG: Using Hardware TnL....\n"), std::string::npos);
    EXPECT_EQ(renderer->hardwareTransform, 1);
    EXPECT_EQ(renderer->multitexture, 1);
    EXPECT_EQ(renderer->GetRenderState(D3DRENDERSTATE_SRCBLEND), uint32_t(D3DBLEND_SRCALPHA));
    EXPECT_EQ(FirstOpenDevice(), renderer);
    std::vector<const void*> objects = {renderer->directDraw, renderer->direct3D, renderer->device,
                                        renderer->primary,    renderer->flipping, renderer->clipper,
                                        renderer->depthBuffer};
    calls.Clear();
    Close();
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

}  // namespace
