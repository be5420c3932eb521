// A DirectDraw object on the default adapter table, in full screen, with the 3D device only
// recording; the objects a test makes are released after it.
#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "platform/dx7/adapter_table.h"
#include "platform/dx7/call_recorder.h"
#include "platform/dx7/d3d7.h"
#include "platform/dx7/gl_context.h"

inline HWND Window() {
    return reinterpret_cast<HWND>(uintptr_t(0x1234));
}

inline DDSURFACEDESC2 Desc(DWORD caps, DWORD width = 0, DWORD height = 0) {
    DDSURFACEDESC2 desc{};
    desc.dwSize = sizeof desc;
    desc.dwFlags = DDSD_CAPS | (width ? DDSD_WIDTH | DDSD_HEIGHT : 0);
    desc.ddsCaps.dwCaps = caps;
    desc.dwWidth = width;
    desc.dwHeight = height;
    return desc;
}

class Dx7 : public testing::Test {
protected:
    void SetUp() override {
        DxSetRendering(DxRendering::RecordOnly);
        DxStageAdapters(nullptr);
        DxFaultSwitches() = DxFaults{};
        void* out = nullptr;
        ASSERT_EQ(DirectDrawCreateEx(nullptr, &out, IID_IDirectDraw7, nullptr), DD_OK);
        dd = static_cast<IDirectDraw7*>(out);
        ASSERT_EQ(dd->SetCooperativeLevel(Window(), DDSCL_EXCLUSIVE | DDSCL_FULLSCREEN), DD_OK);
        ASSERT_EQ(dd->QueryInterface(IID_IDirect3D7, &out), DD_OK);
        d3d = static_cast<IDirect3D7*>(out);
    }
    void TearDown() override {
        for (IUnknown* object : held) object->Release();
        d3d->Release();
        EXPECT_EQ(dd->Release(), 0u);
        DxFaultSwitches() = DxFaults{};
        DxSetPresentHook(nullptr, nullptr);
    }
    template <class T>
    T* Hold(T* object) {
        held.insert(held.begin(), object);
        return object;
    }
    IDirectDrawSurface7* Make(DDSURFACEDESC2 desc, HRESULT expected = DD_OK) {
        IDirectDrawSurface7* surface = nullptr;
        EXPECT_EQ(dd->CreateSurface(&desc, &surface, nullptr), expected);
        return surface ? Hold(surface) : nullptr;
    }
    IDirectDrawSurface7* MakeRgb(DWORD width, DWORD height, const DDPIXELFORMAT& format,
                                 DWORD caps = DDSCAPS_OFFSCREENPLAIN | DDSCAPS_SYSTEMMEMORY) {
        DDSURFACEDESC2 desc = Desc(caps, width, height);
        desc.dwFlags |= DDSD_PIXELFORMAT;
        desc.ddpfPixelFormat = format;
        return Make(desc);
    }
    // A device on a 64 x 64 render target with a 16-bit Z buffer.
    IDirect3DDevice7* MakeDevice() {
        IDirectDrawSurface7* target =
            MakeRgb(64, 64, DxRgbFormat(32, 0xFF0000, 0xFF00, 0xFF, 0), DDSCAPS_3DDEVICE);
        DDSURFACEDESC2 z = Desc(DDSCAPS_ZBUFFER, 64, 64);
        z.dwFlags |= DDSD_PIXELFORMAT;
        z.ddpfPixelFormat = DxDepthFormat(16, 0);
        EXPECT_EQ(target->AddAttachedSurface(Make(z)), DD_OK);
        IDirect3DDevice7* device = nullptr;
        EXPECT_EQ(d3d->CreateDevice(IID_IDirect3DHALDevice, target, &device), D3D_OK);
        return Hold(device);
    }
    IDirect3DVertexBuffer7* MakeBuffer(DWORD fvf, DWORD count) {
        D3DVERTEXBUFFERDESC desc{sizeof(D3DVERTEXBUFFERDESC), D3DVBCAPS_SYSTEMMEMORY, fvf, count};
        IDirect3DVertexBuffer7* buffer = nullptr;
        EXPECT_EQ(d3d->CreateVertexBuffer(&desc, &buffer, 0), D3D_OK);
        return Hold(buffer);
    }
    static void Fill(IDirectDrawSurface7* surface, DWORD colour, RECT* rect = nullptr) {
        DDBLTFX fx{};
        fx.dwSize = sizeof fx;
        fx.dwFillColor = colour;
        ASSERT_EQ(surface->Blt(rect, nullptr, nullptr, DDBLT_COLORFILL, &fx), DD_OK);
    }
    // The next level of a mip chain, or null after the last.
    IDirectDrawSurface7* NextLevel(IDirectDrawSurface7* level) {
        DDSCAPS2 mip{DDSCAPS_TEXTURE | DDSCAPS_MIPMAP, 0, 0, 0};
        IDirectDrawSurface7* next = nullptr;
        return SUCCEEDED(level->GetAttachedSurface(&mip, &next)) ? Hold(next) : nullptr;
    }
    static std::vector<uint32_t> Pixels(IDirectDrawSurface7* surface, int bytes) {
        DDSURFACEDESC2 desc{};
        desc.dwSize = sizeof desc;
        std::vector<uint32_t> out;
        EXPECT_EQ(surface->Lock(nullptr, &desc, DDLOCK_READONLY, nullptr), DD_OK);
        for (DWORD y = 0; y < desc.dwHeight; ++y) {
            for (DWORD x = 0; x < desc.dwWidth; ++x) {
                uint32_t v = 0;
                memcpy(&v, static_cast<uint8_t*>(desc.lpSurface) + y * desc.lPitch + x * bytes,
                       bytes);
                out.push_back(v);
            }
        }
        surface->Unlock(nullptr);
        return out;
    }

    IDirectDraw7* dd = nullptr;
    IDirect3D7* d3d = nullptr;
    std::vector<IUnknown*> held;
};
