#include "tool/bake/png_preview.h"

#include <png.h>

#include <algorithm>
#include <cstdio>
#include <vector>

#include "platform/crt/replacing_file.h"

// libpng reports errors by longjmp; keep everything that needs a destructor outside that frame.
// channels: 1 grey, 3 red-green-blue.
static bool WritePng(FILE* file, const std::vector<uint8_t>& pixels, int32_t width,
                     int32_t height, int channels) {
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    if (!png) return false;
    png_infop info = png_create_info_struct(png);
    if (!info || setjmp(png_jmpbuf(png))) {
        png_destroy_write_struct(&png, info ? &info : nullptr);
        return false;
    }
    png_init_io(png, file);
    png_set_IHDR(png, info, png_uint_32(width), png_uint_32(height), 8,
                 channels == 3 ? PNG_COLOR_TYPE_RGB : PNG_COLOR_TYPE_GRAY,
                 PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_write_info(png, info);
    for (int32_t y = 0; y < height; ++y)
        png_write_row(png, const_cast<png_bytep>(pixels.data() +
                                                 size_t(y) * size_t(width) * size_t(channels)));
    png_write_end(png, info);
    png_destroy_write_struct(&png, &info);
    return true;
}

bool WriteShadowPreviewPng(const char* path, const uint8_t* bytes, int32_t width, int32_t height,
                           int32_t stride, int32_t scale) {
    if (width <= 0 || height <= 0 || scale <= 0) return false;
    const int64_t wide = int64_t(width) * scale, high = int64_t(height) * scale;
    if (wide > MaxPreviewSide || high > MaxPreviewSide) return false;
    std::vector<uint8_t> pixels(size_t(wide) * size_t(high));
    for (int64_t y = 0; y < high; ++y)
        for (int64_t x = 0; x < wide; ++x)
            pixels[size_t(y * wide + x)] =
                uint8_t(255 - bytes[size_t(y / scale) * size_t(stride) + size_t(x / scale)]);

    ReplacingFile file(path);
    if (!file.Stream()) return false;
    return file.Commit(WritePng(file.Stream(), pixels, int32_t(wide), int32_t(high), 1));
}

bool WriteColourPng(const char* path, const uint32_t* pixels, int32_t width, int32_t height) {
    if (width <= 0 || height <= 0 || width > MaxPreviewSide || height > MaxPreviewSide)
        return false;
    std::vector<uint8_t> rgb(size_t(width) * size_t(height) * 3);
    for (size_t i = 0; i < size_t(width) * size_t(height); ++i) {
        rgb[i * 3] = uint8_t(pixels[i] >> 16);
        rgb[i * 3 + 1] = uint8_t(pixels[i] >> 8);
        rgb[i * 3 + 2] = uint8_t(pixels[i]);
    }
    ReplacingFile file(path);
    if (!file.Stream()) return false;
    return file.Commit(WritePng(file.Stream(), rgb, width, height, 3));
}

int32_t PreviewScale(int32_t width, int32_t height, int32_t asked) {
    const int32_t side = std::max({width, height, 1});
    const int32_t scale = asked > 0 ? asked : (512 + side - 1) / side;
    return std::clamp(scale, 1, std::max(1, MaxPreviewSide / side));
}
