#pragma once

#include <cstdint>

// Writes a greyscale PNG of shadow map bytes (255 - level) with light shown white: pixel =
// 255 - byte, each byte as scale by scale pixels. Rows of width bytes, `stride` apart. False with
// nothing in place on failure, and for a picture wider or higher than MaxPreviewSide.
bool WriteShadowPreviewPng(const char* path, const uint8_t* bytes, int32_t width, int32_t height,
                           int32_t stride, int32_t scale = 1);

enum : int32_t { MaxPreviewSide = 16384 };

// Writes pixels 0xAARRGGBB, rows from the top, as a colour PNG (alpha left out). False with
// nothing in place on failure.
bool WriteColourPng(const char* path, const uint32_t* pixels, int32_t width, int32_t height);

// The scale of a preview of width by height bytes: the one asked for (0: the least that makes
// the long side 512 pixels or more), lowered where the picture would pass MaxPreviewSide.
int32_t PreviewScale(int32_t width, int32_t height, int32_t asked);
