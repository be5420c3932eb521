// The frames of an animated bake on one picture: each frame's shadow map drawn as its preview
// draws it, scaled down to fit, in a grid, with its frame number under it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

inline constexpr int32_t SheetSide = 2048;  // a sheet is fitted into this, unless labels need more
inline constexpr int32_t SheetMargin = 4;
inline constexpr int32_t SheetDigitScale = 3;  // pixels a dot of the 3 by 5 digit font
inline constexpr uint32_t SheetBackground = 0x303030;
inline constexpr uint32_t SheetLabelColour = 0xFFC000;  // no grey: never part of a picture

struct SheetPlace {
    int32_t x, y;
};

struct ContactSheetLayout {
    int32_t frames = 0, columns = 0, rows = 0;
    int32_t pictureWidth = 0, pictureHeight = 0;  // one frame's picture
    int32_t cellWidth = 0, cellHeight = 0;        // a picture and the label under it
    int32_t width = 0, height = 0;                // the sheet; 0 where the frames can't fit

    SheetPlace Picture(int32_t frame) const;
    SheetPlace Label(int32_t frame) const;
};

// A near-square grid of `frames` previews of pictureWidth by pictureHeight pixels each, shrunk
// where the grid would pass SheetSide, never below one pixel; a cell is never narrower than the
// longest label.
ContactSheetLayout LayOutContactSheet(int32_t frames, int32_t pictureWidth, int32_t pictureHeight);

class ContactSheet {
public:
    // The background with every frame's label; pictures come with Place.
    explicit ContactSheet(const ContactSheetLayout& layout);

    // Draws shadow map bytes (255 - level, light white as in a preview), width by height in
    // rows `stride` apart, into frame's picture: each pixel the mean of the bytes it covers.
    void Place(int32_t frame, const uint8_t* bytes, int32_t width, int32_t height, int32_t stride);
    // Under a temporary name, renamed into place; false with nothing in place on failure.
    bool Write(const char* path) const;

    const ContactSheetLayout& Layout() const { return layout; }
    uint32_t Pixel(int32_t x, int32_t y) const {
        return pixels[size_t(y) * size_t(layout.width) + size_t(x)];
    }

private:
    void DrawLabel(int32_t frame);

    ContactSheetLayout layout;
    std::vector<uint32_t> pixels;  // 0xRRGGBB
};
