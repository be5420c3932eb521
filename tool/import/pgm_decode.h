// PGM images from memory: binary (P5) and plain-text (P2) greyscale, 8 or 16 bits a sample, as
// elevation tools write height maps. Every read is bounded by the data's length.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "tool/import/png_decode.h"

bool LooksLikePgm(const uint8_t* data, size_t size);

// False with the reason in error: a header that isn't PGM, a maxval out of range, too few
// samples, or a sample above the maxval. A second image after the first is ignored.
bool DecodePgm(const uint8_t* data, size_t size, GreyImage& image, std::string& error);
