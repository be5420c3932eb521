// PNG images from memory through libpng: greyscale samples exactly as stored (height maps) or
// 8-bit blue, green, red, alpha (colour maps). Every read is bounded by the data's length.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

// The largest side taken, as for TGA files.
constexpr uint32_t PngMaxSide = 16384;

struct GreyImage {
    uint32_t width = 0, height = 0;
    int bitDepth = 0;               // 8 or 16 (1, 2 and 4-bit images are widened to 8)
    std::vector<uint16_t> samples;  // row by row from the top
};

struct ColourImage {
    uint32_t width = 0, height = 0;
    bool hasAlpha = false;        // the file has an alpha channel or a transparent colour
    std::vector<uint8_t> pixels;  // blue, green, red, alpha; rows from the top
};

// False with the reason in error (damage, truncation, a colour image where grey is wanted).
bool DecodeGreyPng(const uint8_t* data, size_t size, GreyImage& image, std::string& error);
bool DecodeColourPng(const uint8_t* data, size_t size, ColourImage& image, std::string& error);

bool LooksLikePng(const uint8_t* data, size_t size);
