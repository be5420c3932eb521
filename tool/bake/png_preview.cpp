#include "tool/bake/png_preview.h"

#include <png.h>

#include <cstdio>
#include <vector>

#include "platform/crt/replacing_file.h"

// libpng reports errors by longjmp; keep everything that needs a destructor outside that frame.
static bool WritePng(FILE* file, const std::vector<uint8_t>& pixels, int32_t width,
                     int32_t height) {
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    if (!png) return false;
    png_infop info = png_create_info_struct(png);
    if (!info || setjmp(png_jmpbuf(png))) {
        png_destroy_write_struct(&png, info ? &info : nullptr);
        return false;
    }
    png_init_io(png, file);
    png_set_IHDR(png, info, png_uint_32(width), png_uint_32(height), 8, PNG_COLOR_TYPE_GRAY,
                 PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_write_info(png, info);
    for (int32_t y = 0; y < height; ++y)
        png_write_row(png, const_cast<png_bytep>(pixels.data() + size_t(y) * size_t(width)));
    png_write_end(png, info);
    png_destroy_write_struct(&png, &info);
    return true;
}

bool WriteShadowPreviewPng(const char* path, const uint8_t* bytes, int32_t width, int32_t height,
                           int32_t stride) {
    if (width <= 0 || height <= 0) return false;
    std::vector<uint8_t> pixels(size_t(width) * size_t(height));
    for (int32_t y = 0; y < height; ++y)
        for (int32_t x = 0; x < width; ++x)
            pixels[size_t(y) * width + x] = uint8_t(255 - bytes[size_t(y) * stride + x]);

    ReplacingFile file(path);
    if (!file.Stream()) return false;
    return file.Commit(WritePng(file.Stream(), pixels, width, height));
}
