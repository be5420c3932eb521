#include "tool/import/pgm_decode.h"

#include <cctype>

namespace {

class PgmCursor {
public:
    PgmCursor(const uint8_t* bytes, size_t length) : data(bytes), size(length) {}

    // Skips whitespace and comments, which run from '#' to the end of the line.
    void SkipSpace() {
        while (at < size && (std::isspace(data[at]) || data[at] == '#')) {
            if (data[at] == '#')
                while (at < size && data[at] != '\n' && data[at] != '\r') ++at;
            else
                ++at;
        }
    }
    // A decimal number up to limit; false when there is none or it is larger.
    bool Number(uint64_t limit, uint64_t& value) {
        SkipSpace();
        size_t start = at;
        value = 0;
        while (at < size && data[at] >= '0' && data[at] <= '9') {
            value = value * 10 + (data[at++] - '0');
            if (value > limit) return false;
        }
        return at > start;
    }
    size_t Left() const { return size - at; }
    size_t Position() const { return at; }
    const uint8_t* Here() const { return data + at; }
    // The single whitespace byte that ends a binary header.
    bool EndHeader() {
        if (at >= size || !std::isspace(data[at])) return false;
        ++at;
        return true;
    }

private:
    const uint8_t* data;
    size_t size;
    size_t at = 2;  // past the magic
};

}  // namespace

bool LooksLikePgm(const uint8_t* data, size_t size) {
    return size >= 2 && data[0] == 'P' && (data[1] == '5' || data[1] == '2');
}

bool DecodePgm(const uint8_t* data, size_t size, GreyImage& image, std::string& error) {
    if (!LooksLikePgm(data, size)) {
        error = "not a PGM image (it doesn't start with P5 or P2)";
        return false;
    }
    bool binary = data[1] == '5';
    PgmCursor cursor(data, size);
    uint64_t width = 0, height = 0, maxval = 0;
    if (!cursor.Number(PngMaxSide, width) || !cursor.Number(PngMaxSide, height)) {
        error = "the header's width and height are missing or larger than " +
                std::to_string(PngMaxSide);
        return false;
    }
    if (!cursor.Number(65535, maxval) || maxval == 0) {
        error = "the header's largest value is missing or not from 1 to 65535";
        return false;
    }
    if (binary && !cursor.EndHeader()) {
        error = "the header doesn't end in a single space or line end";
        return false;
    }
    uint64_t count = width * height, bytesEach = maxval > 255 ? 2 : 1;
    if (binary && cursor.Left() < count * bytesEach) {
        error = "the samples end early: " + std::to_string(cursor.Left()) + " bytes for " +
                std::to_string(count) + " samples of " + std::to_string(bytesEach);
        return false;
    }
    image.width = uint32_t(width);
    image.height = uint32_t(height);
    image.bitDepth = maxval > 255 ? 16 : 8;
    image.samples.assign(count, 0);
    const uint8_t* sample = cursor.Here();
    for (uint64_t i = 0; i < count; ++i) {
        uint64_t value = 0;
        if (binary) {
            value = bytesEach == 2 ? uint64_t(sample[2 * i]) << 8 | sample[2 * i + 1] : sample[i];
        } else if (!cursor.Number(65535, value)) {
            error = "sample " + std::to_string(i) + " of " + std::to_string(count) +
                    " is missing or not a number from 0 to 65535 (byte " +
                    std::to_string(cursor.Position()) + ")";
            return false;
        }
        if (value > maxval) {
            error = "the sample at column " + std::to_string(i % width) + ", row " +
                    std::to_string(i / width) + " is " + std::to_string(value) +
                    ", above the header's largest value " + std::to_string(maxval);
            return false;
        }
        image.samples[i] = uint16_t(value);
    }
    return true;
}
