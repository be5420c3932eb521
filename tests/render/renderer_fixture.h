// A renderer opened on the display layer in record-only mode, with pauses switched off and the
// adapter table and fault switches put back after each test.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>

#include "engine/render/renderer.h"
#include "platform/crt/clock.h"
#include "platform/debug/debug_output.h"
#include "platform/dx7/adapter_table.h"
#include "platform/dx7/call_recorder.h"

class RendererTest : public testing::Test {
protected:
    void SetUp() override {
        DxSetRendering(DxRendering::RecordOnly);
        wasInstant = SetSleepInstant(true);
        DxFaultSwitches() = DxFaults{};
    }
    void TearDown() override {
        if (renderer) CloseDevice(renderer);
        DxStageAdapters(nullptr);
        DxFaultSwitches() = DxFaults{};
        SetSleepInstant(wasInstant);
    }

    static HWND Window() { return reinterpret_cast<HWND>(uintptr_t(7)); }

    CRenderer* Open(uint32_t flags, int32_t width = 640, int32_t height = 480, int32_t bits = 32) {
        renderer = OpenDevice(Window(), flags, width, height, bits);
        return renderer;
    }

    CRenderer* renderer = nullptr;
    bool wasInstant = false;
};

inline GUID TestGuid(uint32_t n) {
    return GUID{0x1000u + n, 1, 2, {3, 4, 5, 6, 7, 8, 9, 10}};
}
