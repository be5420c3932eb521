#include "tool/bake/contact_sheet.h"

#include <algorithm>
#include <cmath>

#include "tool/bake/png_preview.h"

namespace {

constexpr int32_t DigitColumns = 3, DigitRows = 5;
constexpr int32_t LabelHeight = DigitRows * SheetDigitScale;

// A 3 by 5 dot font, the top row in the high bits, each row's left dot first.
constexpr uint16_t Digits[10] = {
    0b111'101'101'101'111, 0b010'110'010'010'111, 0b111'001'111'100'111, 0b111'001'111'001'111,
    0b101'101'111'001'001, 0b111'100'111'001'111, 0b111'100'111'101'111, 0b111'001'001'001'001,
    0b111'101'111'101'111, 0b111'101'111'001'111,
};

int32_t DigitCount(int32_t number) {
    int32_t count = 1;
    for (; number >= 10; number /= 10) ++count;
    return count;
}

int32_t LabelWidth(int32_t frame) {
    return DigitCount(std::max(frame, 0)) * (DigitColumns + 1) * SheetDigitScale - SheetDigitScale;
}

}  // namespace

SheetPlace ContactSheetLayout::Picture(int32_t frame) const {
    return {SheetMargin + frame % columns * (cellWidth + SheetMargin),
            SheetMargin + frame / columns * (cellHeight + SheetMargin)};
}

SheetPlace ContactSheetLayout::Label(int32_t frame) const {
    SheetPlace at = Picture(frame);
    return {at.x, at.y + pictureHeight + SheetMargin};
}

ContactSheetLayout LayOutContactSheet(int32_t frames, int32_t pictureWidth, int32_t pictureHeight) {
    ContactSheetLayout layout;
    if (frames <= 0 || pictureWidth <= 0 || pictureHeight <= 0) return layout;
    layout.frames = frames;
    layout.columns = int32_t(std::ceil(std::sqrt(double(frames))));
    layout.rows = int32_t((int64_t(frames) + layout.columns - 1) / layout.columns);
    const double roomX = double(SheetSide - SheetMargin * (layout.columns + 1)) / layout.columns;
    const double roomY = double(SheetSide - SheetMargin * (layout.rows + 1)) / layout.rows -
                         SheetMargin - LabelHeight;
    const double fit = std::min({1.0, roomX / double(pictureWidth), roomY / double(pictureHeight)});
    layout.pictureWidth = std::max(1, int32_t(std::floor(pictureWidth * fit)));
    layout.pictureHeight = std::max(1, int32_t(std::floor(pictureHeight * fit)));
    layout.cellWidth = std::max(layout.pictureWidth, LabelWidth(frames - 1));
    layout.cellHeight = layout.pictureHeight + SheetMargin + LabelHeight;
    const int64_t width = SheetMargin + int64_t(layout.columns) * (layout.cellWidth + SheetMargin);
    const int64_t height = SheetMargin + int64_t(layout.rows) * (layout.cellHeight + SheetMargin);
    // Labels that can't shrink may push a long animation past what a picture can hold.
    if (width > MaxPreviewSide || height > MaxPreviewSide) return layout;
    layout.width = int32_t(width);
    layout.height = int32_t(height);
    return layout;
}

ContactSheet::ContactSheet(const ContactSheetLayout& sheetLayout)
    : layout(sheetLayout), pixels(size_t(layout.width) * size_t(layout.height), SheetBackground) {
    if (layout.width == 0) return;
    for (int32_t frame = 0; frame < layout.frames; ++frame) DrawLabel(frame);
}

void ContactSheet::DrawLabel(int32_t frame) {
    const SheetPlace at = layout.Label(frame);
    const int32_t digits = DigitCount(frame);
    for (int32_t i = 0, value = frame; i < digits; ++i, value /= 10) {
        const uint16_t glyph = Digits[value % 10];
        const int32_t left = at.x + (digits - 1 - i) * (DigitColumns + 1) * SheetDigitScale;
        for (int32_t dot = 0; dot < DigitColumns * DigitRows; ++dot) {
            if (!(glyph >> (DigitColumns * DigitRows - 1 - dot) & 1)) continue;
            const int32_t x = left + dot % DigitColumns * SheetDigitScale;
            const int32_t y = at.y + dot / DigitColumns * SheetDigitScale;
            for (int32_t dy = 0; dy < SheetDigitScale; ++dy)
                for (int32_t dx = 0; dx < SheetDigitScale; ++dx)
                    pixels[size_t(y + dy) * size_t(layout.width) + size_t(x + dx)] =
                        SheetLabelColour;
        }
    }
}

void ContactSheet::Place(int32_t frame, const uint8_t* bytes, int32_t width, int32_t height,
                         int32_t stride) {
    if (layout.width == 0 || frame < 0 || frame >= layout.frames || width <= 0 || height <= 0 ||
        stride < width)
        return;
    const SheetPlace at = layout.Picture(frame);
    const int64_t wide = layout.pictureWidth, high = layout.pictureHeight;
    // Each pixel covers a box of bytes; growing, the box is the one byte under it.
    for (int64_t py = 0; py < high; ++py) {
        const int64_t top = py * height / high;
        const int64_t bottom = std::max(top + 1, (py + 1) * height / high);
        for (int64_t px = 0; px < wide; ++px) {
            const int64_t left = px * width / wide;
            const int64_t right = std::max(left + 1, (px + 1) * width / wide);
            uint64_t sum = 0;
            for (int64_t y = top; y < bottom; ++y)
                for (int64_t x = left; x < right; ++x) sum += 255u - bytes[y * stride + x];
            const uint64_t count = uint64_t((bottom - top) * (right - left));
            const uint32_t grey = uint32_t((sum + count / 2) / count);
            pixels[size_t(at.y + py) * size_t(layout.width) + size_t(at.x + px)] = grey * 0x010101u;
        }
    }
}

bool ContactSheet::Write(const char* path) const {
    return layout.width > 0 && WriteColourPng(path, pixels.data(), layout.width, layout.height);
}
