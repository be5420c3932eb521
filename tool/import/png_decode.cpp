#include "tool/import/png_decode.h"

#include <png.h>

#include <cstdio>
#include <cstring>
#include <utility>

namespace {

struct Source {
    const uint8_t* data;
    size_t size;
    size_t at;
    char error[200];
};

void ReadBytes(png_structp png, png_bytep out, png_size_t length) {
    Source* source = static_cast<Source*>(png_get_io_ptr(png));
    if (length > source->size - source->at) png_error(png, "the file ends early");
    std::memcpy(out, source->data + source->at, length);
    source->at += length;
}

void OnError(png_structp png, png_const_charp message) {
    Source* source = static_cast<Source*>(png_get_error_ptr(png));
    std::snprintf(source->error, sizeof source->error, "%s", message);
    png_longjmp(png, 1);
}

void OnWarning(png_structp, png_const_charp) {}

enum class Want { Grey, Colour };

// The header, with the transforms for what is wanted; the caller sizes its buffers from it.
struct Header {
    uint32_t width, height;
    int bitDepth, colourType;
    size_t rowBytes;
    bool alpha;
};

// libpng reports errors by longjmp: the buffers live in the caller's frame, and nothing here
// needs a destructor.
bool ReadHeader(png_structp png, png_infop info, Want want, Header* header) {
    if (setjmp(png_jmpbuf(png))) return false;
    png_set_user_limits(png, PngMaxSide, PngMaxSide);
    png_read_info(png, info);
    header->width = png_get_image_width(png, info);
    header->height = png_get_image_height(png, info);
    header->bitDepth = png_get_bit_depth(png, info);
    header->colourType = png_get_color_type(png, info);
    header->alpha =
        (header->colourType & PNG_COLOR_MASK_ALPHA) || png_get_valid(png, info, PNG_INFO_tRNS);
    if (want == Want::Grey) {
        if (header->colourType != PNG_COLOR_TYPE_GRAY) return true;  // the caller refuses it
        if (header->bitDepth < 8) png_set_expand_gray_1_2_4_to_8(png);
    } else {
        png_set_expand(png);
        png_set_strip_16(png);
        png_set_gray_to_rgb(png);
        png_set_bgr(png);
        png_set_filler(png, 0xFF, PNG_FILLER_AFTER);
    }
    png_set_interlace_handling(png);
    png_read_update_info(png, info);
    header->rowBytes = png_get_rowbytes(png, info);
    return true;
}

bool ReadRows(png_structp png, png_infop info, png_bytepp rows) {
    if (setjmp(png_jmpbuf(png))) return false;
    png_read_image(png, rows);
    png_read_end(png, info);
    return true;
}

// Reads the image into pixels (rowBytes a row); false with the reason in error.
bool Decode(const uint8_t* data, size_t size, Want want, Header& header,
            std::vector<uint8_t>& pixels, std::string& error) {
    if (!LooksLikePng(data, size)) {
        error = "not a PNG file";
        return false;
    }
    Source source = {data, size, 0, ""};
    png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, &source, OnError, OnWarning);
    png_infop info = png ? png_create_info_struct(png) : nullptr;
    if (!png || !info) {
        png_destroy_read_struct(&png, info ? &info : nullptr, nullptr);
        error = "out of memory";
        return false;
    }
    png_set_read_fn(png, &source, ReadBytes);
    bool read = ReadHeader(png, info, want, &header);
    if (read && want == Want::Grey && header.colourType != PNG_COLOR_TYPE_GRAY) {
        png_destroy_read_struct(&png, &info, nullptr);
        error = "not a greyscale image; a height map is an 8 or 16-bit greyscale PNG";
        return false;
    }
    std::vector<png_bytep> rows;
    if (read) {
        pixels.resize(header.rowBytes * header.height);
        rows.resize(header.height);
        for (uint32_t y = 0; y < header.height; ++y) rows[y] = pixels.data() + y * header.rowBytes;
        read = ReadRows(png, info, rows.data());
    }
    png_destroy_read_struct(&png, &info, nullptr);
    if (!read) error = source.error[0] ? source.error : "damaged PNG data";
    return read;
}

}  // namespace

bool LooksLikePng(const uint8_t* data, size_t size) {
    return size >= 8 && png_sig_cmp(data, 0, 8) == 0;
}

bool DecodeGreyPng(const uint8_t* data, size_t size, GreyImage& image, std::string& error) {
    Header header = {};
    std::vector<uint8_t> pixels;
    if (!Decode(data, size, Want::Grey, header, pixels, error)) return false;
    image.width = header.width;
    image.height = header.height;
    image.bitDepth = header.bitDepth == 16 ? 16 : 8;
    size_t count = size_t(header.width) * header.height;
    image.samples.resize(count);
    for (uint32_t y = 0; y < header.height; ++y) {
        const uint8_t* row = pixels.data() + y * header.rowBytes;
        uint16_t* out = image.samples.data() + size_t(y) * header.width;
        for (uint32_t x = 0; x < header.width; ++x)
            out[x] = image.bitDepth == 16 ? uint16_t(row[2 * x] << 8 | row[2 * x + 1]) : row[x];
    }
    return true;
}

bool DecodeColourPng(const uint8_t* data, size_t size, ColourImage& image, std::string& error) {
    Header header = {};
    std::vector<uint8_t> pixels;
    if (!Decode(data, size, Want::Colour, header, pixels, error)) return false;
    if (header.rowBytes != size_t(header.width) * 4) {
        error = "an unexpected pixel layout";
        return false;
    }
    image.width = header.width;
    image.height = header.height;
    image.hasAlpha = header.alpha;
    image.pixels = std::move(pixels);  // four bytes a pixel, no padding
    return true;
}
