#pragma once

#include <cstdint>

// Writes a greyscale PNG of shadow map bytes (255 - level) with light shown white: pixel =
// 255 - byte. Rows of width bytes, `stride` apart. False with nothing in place on failure.
bool WriteShadowPreviewPng(const char* path, const uint8_t* bytes, int32_t width, int32_t height,
                           int32_t stride);
