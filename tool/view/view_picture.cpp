#include "tool/view/view_picture.h"

#include <cstdint>
#include <vector>

#include "engine/render/renderer.h"
#include "tool/bake/png_preview.h"

namespace {

// The render target, rows from the top, as 0xAARRGGBB.
bool ReadTarget(std::vector<uint32_t>& pixels, int width, int height) {
    DDSURFACEDESC2 desc{};
    desc.dwSize = sizeof desc;
    if (Device->LockSurfaceRetry(Device->flipping, nullptr, &desc, DDLOCK_WAIT) != DD_OK)
        return false;
    pixels.resize(size_t(width) * size_t(height));
    for (int y = 0; y < height; ++y) {
        const auto* row = reinterpret_cast<const uint32_t*>(
            static_cast<const uint8_t*>(desc.lpSurface) + size_t(y) * desc.lPitch);
        for (int x = 0; x < width; ++x) pixels[size_t(y) * width + x] = row[x] | 0xFF000000u;
    }
    Device->flipping->Unlock(nullptr);
    return true;
}

// The drawing proper; the view is left for CloseBakeView.
std::string Draw(const ViewPicture& picture) {
    std::string error = OpenBakeView(picture, reinterpret_cast<void*>(uintptr_t(1)), 32);
    if (!error.empty()) return error;
    ViewerActive = 1;
    ViewerFrame();
    ViewerActive = 0;
    std::vector<uint32_t> pixels;
    if (!ReadTarget(pixels, picture.width, picture.height))
        return "the frame could not be read back from the display device";
    if (!WriteColourPng(picture.png.c_str(), pixels.data(), picture.width, picture.height))
        return "the picture " + picture.png + " could not be written";
    return "";
}

}  // namespace

std::string DrawViewPicture(const ViewPicture& picture) {
    const std::string error = Draw(picture);
    CloseBakeView();
    return error;
}
