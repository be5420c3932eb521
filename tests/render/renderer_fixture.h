// A renderer on the display layer in record-only mode, with pauses off; the adapter table and
// fault switches are put back after each test.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "engine/render/renderer.h"
#include "platform/crt/clock.h"
#include "platform/debug/debug_output.h"
#include "platform/dx7/adapter_table.h"
#include "platform/dx7/call_recorder.h"

using Lines = std::vector<std::string>;

class RendererTest : public testing::Test {
protected:
    void SetUp() override {
        DxSetRendering(DxRendering::RecordOnly);
        wasInstant = SetSleepInstant(true);
        DxFaultSwitches() = DxFaults{};
    }
    void TearDown() override {
        Close();
        DxStageAdapters(nullptr);
        DxFaultSwitches() = DxFaults{};
        SetSleepInstant(wasInstant);
    }
    CRenderer* Open(uint32_t flags, int32_t width = 640, int32_t height = 480) {
        return renderer =
                   OpenDevice(reinterpret_cast<HWND>(uintptr_t(7)), flags, width, height, 32);
    }
    void Close() {
        if (renderer) CloseDevice(renderer);
        renderer = nullptr;
    }
    static std::string Ref(const void* object) {
        return "#" + std::to_string(DxObjectNumber(object));
    }

    CRenderer* renderer = nullptr;
    bool wasInstant = false;
};
