#include "engine/texture/tga.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "base/diagnostics.h"
#include "base/memory.h"
#include "base/velmora_log.h"
#include "engine/texture/texture.h"
#include "platform/crt/replacing_file.h"

uint32_t TextureForcedFormat = 0;
bool TexturePowerOfTwo = false;
bool TextureSquare = false;
uint8_t TextureReduceShift = 0;
int32_t TextureMinWidth = -1;
int32_t TextureMinHeight = -1;
int32_t TextureMaxWidth = -1;
int32_t TextureMaxHeight = -1;
bool TextureKeepTrueColour = true;

void ResetTextureLoadSettings() {
    TextureForcedFormat = 0;
    TexturePowerOfTwo = false;
    TextureSquare = false;
    TextureReduceShift = 0;
    TextureMinWidth = TextureMinHeight = TextureMaxWidth = TextureMaxHeight = -1;
    TextureKeepTrueColour = true;
}

namespace {

constexpr size_t TgaHeaderSize = 18;
constexpr size_t TgaMaxPixelBytes = size_t(256) << 20;
// Room for the largest picture plus run-length overhead, an ID field and trailing blocks.
constexpr long TgaMaxFileBytes = long(512) << 20;
constexpr int32_t TestPatternSide = 64;

// Reads forward through a file image; every read is checked against the image's end.
class ByteCursor {
public:
    ByteCursor(const uint8_t* bytes, size_t length) : data(bytes), size(length), offset(0) {}

    bool Read(void* out, size_t count) {
        if (count > size - offset) return false;
        std::memcpy(out, data + offset, count);
        offset += count;
        return true;
    }

private:
    const uint8_t* data;
    size_t size;
    size_t offset;
};

const char* NameOrUnnamed(const char* name) {
    return name ? name : "(unnamed)";
}

// What a texture holds when its file can't be read: visible on the model, never a crash.
void MakeTestPattern(CTexture& texture) {
    if (texture.pixels) FREE(texture.pixels);
    size_t count = size_t(TestPatternSide) * TestPatternSide;
    texture.pixels = static_cast<uint8_t*>(MALLOC(count * 2));
    for (size_t i = 0; i < count; ++i) {
        uint32_t value = uint32_t(i * 73);
        texture.pixels[i * 2] = uint8_t(value);
        texture.pixels[i * 2 + 1] = uint8_t(value >> 8);
    }
    texture.width = texture.height = TestPatternSide;
    texture.format = TextureFormat5550;
}

uint32_t FormatOfDepth(uint8_t depth) {
    switch (depth) {
        case 15:
        case 16:
            return TextureFormat5550;
        case 24:
            return TextureFormat8880;
        case 32:
            return TextureFormat8888;
    }
    return 0;
}

// Fills out with count pixels from run-length packets. A packet may run on over a row's end (the
// block is one piece), but never past the last pixel or the image.
const char* DecodeRunLength(ByteCursor& in, uint8_t* out, size_t count, size_t bpp) {
    size_t done = 0;
    while (done < count) {
        uint8_t packet;
        if (!in.Read(&packet, 1)) return "run-length data past the end of the file";
        size_t run = size_t(packet & 127) + 1;
        if (run > count - done) return "run-length packet past the last pixel";
        uint8_t* at = out + done * bpp;
        if (packet & 128) {
            if (!in.Read(at, bpp)) return "run-length data past the end of the file";
            for (size_t i = 1; i < run; ++i) std::memcpy(at + i * bpp, at, bpp);
        } else if (!in.Read(at, run * bpp)) {
            return "run-length data past the end of the file";
        }
        done += run;
    }
    return nullptr;
}

void FlipRows(uint8_t* block, size_t pitch, int32_t height) {
    for (int32_t top = 0, bottom = height - 1; top < bottom; ++top, --bottom) {
        uint8_t* upper = block + size_t(top) * pitch;
        std::swap_ranges(upper, upper + pitch, block + size_t(bottom) * pitch);
    }
}

struct TgaImage {
    uint8_t* pixels;  // top row first
    int32_t width;
    int32_t height;
    uint32_t format;
    bool picture;  // false: the header's type or depth is unknown and the block holds test values
};

// Reads header and pixels. Damage the file format has no answer for (a short header, absurd
// sizes, data that ends early or overruns) gives a text naming the fault and no block.
const char* ReadTga(const uint8_t* data, size_t size, TgaImage& image) {
    ByteCursor in(data, size);
    uint8_t header[TgaHeaderSize];
    if (!in.Read(header, sizeof header)) return "truncated header";
    uint8_t type = header[2];
    int32_t width = header[12] | header[13] << 8;
    int32_t height = header[14] | header[15] << 8;
    uint8_t depth = header[16];
    bool topFirst = (header[17] & 0x20) != 0;

    if (width == 0 || height == 0) return "zero width or height";
    if (width > TgaMaxSide || height > TgaMaxSide) return "width or height above 16384";
    size_t count = size_t(width) * size_t(height);
    if (count > TgaMaxPixelBytes / 4) return "image above 256 MiB";

    uint32_t format = FormatOfDepth(depth);
    bool valid = format != 0 && (type == 2 || type == 10);
    if (!format) format = TextureFormat5550;
    size_t bpp = size_t(GetTextureBPP(format));
    size_t bytes = count * bpp;
    // A short file must not cost the block of the size its header claims. A packet covers at
    // most 128 pixels and takes at least a byte and a pixel. A type or depth that is never decoded
    // is held to the least that any TGA stores: a two-byte packet for every 128 pixels.
    size_t packets = (count + 127) / 128;
    size_t least = !valid ? packets * 2 : type == 10 ? packets * (1 + bpp) : bytes;
    if (size - TgaHeaderSize < least)
        return valid ? "pixel data past the end of the file"
                     : "unknown type or depth with more pixels than the file can hold";
    uint8_t* block = static_cast<uint8_t*>(MALLOC(bytes));
    if (!block) return "no memory for the pixels";
    std::memset(block, 0, bytes);

    if (valid) {
        // The data starts at byte 18 always: an ID field or colour map is read as pixels.
        const char* fault = nullptr;
        if (type == 10) {
            fault = DecodeRunLength(in, block, count, bpp);
        } else if (!in.Read(block, bytes)) {
            fault = "pixel data past the end of the file";
        }
        if (fault) {
            if (block) FREE(block);
            return fault;
        }
        if (!topFirst) FlipRows(block, size_t(width) * bpp, height);
    } else {
        VelmoraLog("LoadTGA", "TGA is an invalid pixel format\n");
        for (size_t i = 0; i < count; ++i) {
            uint32_t value = uint32_t(i * 73);
            block[i * 2] = uint8_t(value);
            block[i * 2 + 1] = uint8_t(value >> 8);
        }
    }
    image = TgaImage{block, width, height, format, valid};
    return nullptr;
}

void ForceLoadSettings() {
    TextureReduceShift = 0;
    TextureMinWidth = TextureMinHeight = TextureMaxWidth = TextureMaxHeight = 64;
    TextureSquare = true;
    TexturePowerOfTwo = true;
    TextureKeepTrueColour = false;
}

int32_t ApplyLimits(int32_t side, int32_t minimum, int32_t maximum) {
    if (minimum > 0 && side < minimum) side = minimum;
    if (maximum > 0 && side > maximum) side = maximum;
    return side;
}

void TargetSize(int32_t& width, int32_t& height) {
    if (TexturePowerOfTwo) {
        width = int32_t(NextPowerOfTwo(uint32_t(width)));
        height = int32_t(NextPowerOfTwo(uint32_t(height)));
    }
    if (TextureSquare) width = height = std::max(width, height);
    if (TextureReduceShift) {
        int shift = std::min<int>(TextureReduceShift, 31);
        width = std::max(width >> shift, 1);
        height = std::max(height >> shift, 1);
    }
    width = ApplyLimits(width, TextureMinWidth, TextureMaxWidth);
    height = ApplyLimits(height, TextureMinHeight, TextureMaxHeight);
}

uint32_t TargetFormat(uint32_t format) {
    if (GetTextureBPP(format) >= 3 && !TextureKeepTrueColour) {
        if (format == TextureFormat8880) format = TextureFormat5550;
        if (format == TextureFormat8888) format = TextureFormat4444;
    }
    if (TextureForcedFormat) {
        bool alpha = format == TextureFormat8888 || format == TextureFormat4444;
        format = alpha ? uint32_t(TextureFormat4444) : TextureForcedFormat;
    }
    return format;
}

void ReadNameMarks(CTexture& texture, const char* name) {
    const char* bang = name ? std::strchr(name, '!') : nullptr;
    if (!bang) return;
    texture.flags |= TextureFlagAlpha;
    auto digit = [](char c) { return c >= '0' && c <= '9'; };
    if (digit(bang[1]) && digit(bang[2])) {
        uint32_t nn = uint32_t(bang[1] - '0') * 10 + uint32_t(bang[2] - '0');
        texture.flags |= TextureFlagFixedAlpha;
        texture.alphaSetting = nn < 16 ? nn * 16 + nn : 0xFFFFFFFFu;
    } else {
        texture.alphaSetting = 2;  // alpha from brightness, shifted right by this at upload
    }
    if (std::strchr(name, '@')) texture.flags |= TextureFlagAdd;
}

}  // namespace

bool CTexture::LoadTGA(const char* path) {
    ASSERT(path);  // a lookup always has a name, "MISSING" at worst
    if (!path) path = "";
    FILE* file = std::fopen(path, "rb");
    if (!file) {
        VelmoraLog("CTexture::LoadTGA", "Failed to open TGA: %s", path);
        LoadFromMemory(nullptr, 0, path);
        return false;
    }
    long length = -1;
    if (std::fseek(file, 0, SEEK_END) == 0) length = std::ftell(file);
    uint8_t* image = nullptr;
    size_t got = 0;
    if (length >= 0 && length <= TgaMaxFileBytes && std::fseek(file, 0, SEEK_SET) == 0) {
        image = static_cast<uint8_t*>(MALLOC(length > 0 ? size_t(length) : 1));
        if (image) got = std::fread(image, 1, size_t(length), file);
    }
    std::fclose(file);
    if (!image || got != size_t(length)) {
        VelmoraLog("CTexture::LoadTGA", "Corrupt TGA: %s\n", path);
        if (image) FREE(image);
        LoadFromMemory(nullptr, 0, path);
        return false;
    }
    bool read = LoadFromMemory(image, got, path);
    if (image) FREE(image);
    return read;
}

bool CTexture::LoadFromMemory(const uint8_t* image, size_t size, const char* imageName) {
    if (!image) {
        MakeTestPattern(*this);
        return false;
    }
    TgaImage tga;
    if (const char* fault = ReadTga(image, size, tga)) {
        VelmoraLog("LoadTGA", "Corrupt TGA %s: %s\n", NameOrUnnamed(imageName), fault);
        MakeTestPattern(*this);
        return false;
    }

    if (TextureForcedFormat) ForceLoadSettings();
    int32_t targetWidth = tga.width;
    int32_t targetHeight = tga.height;
    TargetSize(targetWidth, targetHeight);

    if (pixels) FREE(pixels);
    pixels = tga.pixels;
    width = tga.width;
    height = tga.height;
    format = tga.format;

    bool trueColour = GetTextureBPP(format) >= 3;
    if (TextureForcedFormat || targetWidth != width || targetHeight != height ||
        (trueColour && !TextureKeepTrueColour)) {
        Resize(targetWidth, targetHeight, TargetFormat(format));
    }

    if (TextureFormatHasAlpha(format)) {
        flags |= TextureFlagAlpha;
    } else if (HasColourKey()) {
        flags |= TextureFlagKeyed;
    }
    ReadNameMarks(*this, imageName);
    return tga.picture;
}

bool CTexture::SaveAsTGA(const char* path) const {
    uint8_t depth = 0;
    switch (format) {
        case TextureFormat5550:
            depth = 16;
            break;
        case TextureFormat8880:
            depth = 24;
            break;
        case TextureFormat8888:
            depth = 32;
            break;
        default:
            CorvaneWarning("CANNOT SAVE TEXTURE FORMAT %X", format);
            return false;
    }
    ASSERT(pixels);  // dropped after upload: nothing left to save
    if (!pixels || width <= 0 || height <= 0 || width > 0xFFFF || height > 0xFFFF) {
        CorvaneWarning("CANNOT SAVE TEXTURE SIZE %d x %d\n", width, height);
        return false;
    }
    ReplacingFile replacing(path);
    FILE* file = replacing.Stream();
    if (!file) {
        VelmoraLog("SaveAsTGA", "Could Not Open file for writing\n");
        return false;
    }
    uint8_t header[TgaHeaderSize] = {};
    header[2] = 2;
    header[12] = uint8_t(width), header[13] = uint8_t(width >> 8);
    header[14] = uint8_t(height), header[15] = uint8_t(height >> 8);
    header[16] = depth;
    bool written = std::fwrite(header, 1, sizeof header, file) == sizeof header;
    // Bottom row first, as descriptor 0 says.
    size_t pitch = size_t(GetPitch());
    for (int32_t y = height - 1; written && y >= 0; --y) {
        written = std::fwrite(pixels + size_t(y) * pitch, 1, pitch, file) == pitch;
    }
    written = replacing.Commit(written);
    if (!written) VelmoraLog("SaveAsTGA", "Failed writing %s\n", path);
    return written;
}

int32_t MipLevelsFromName(const char* name) {
    const char* mark = name ? std::strchr(name, '#') : nullptr;
    if (!mark) return 0;
    int32_t levels = 0;
    for (const char* at = mark + 1; *at >= '0' && *at <= '9'; ++at) {
        levels = std::min(levels * 10 + (*at - '0'), 1000000);  // no overflow on long digits
    }
    return levels;
}

namespace {

struct Rgba {
    int32_t red, green, blue, alpha;
};

struct PixelBlock {
    const uint8_t* pixels;
    int32_t width;
    int32_t height;
    uint32_t format;

    Rgba Get(int32_t x, int32_t y) const {
        uint8_t r, g, b, a;
        GetTexturePixel(x, y, width, pixels, format, r, g, b, a);
        return {r, g, b, a};
    }
};

void Put(uint8_t* pixels, int32_t x, int32_t y, int32_t width, uint32_t format, const Rgba& c) {
    SetTexturePixel(x, y, width, pixels, format, uint8_t(c.red), uint8_t(c.green), uint8_t(c.blue),
                    uint8_t(c.alpha));
}

// Steps through the source in 8.8 fixed point.
int32_t Step(int32_t source, int32_t target) {
    return int32_t((int64_t(source) << 8) / target);
}

// A box filter whose box is the whole part of the reduction, so a factor that isn't whole
// leaves some source pixels out. In a format without alpha, alpha 0 marks a hole: holes stay out
// of the average, and a box of more than half holes gives a hole.
void Shrink(const PixelBlock& source, uint8_t* target, int32_t width, int32_t height,
            uint32_t format) {
    const int32_t stepX = Step(source.width, width);
    const int32_t stepY = Step(source.height, height);
    const int32_t boxW = std::max(stepX >> 8, 1);
    const int32_t boxH = std::max(stepY >> 8, 1);
    const int32_t area = boxW * boxH;
    const int64_t recip = 65536 / area;
    const bool holes = !TextureFormatHasAlpha(source.format);
    for (int32_t y = 0, fy = 0; y < height; ++y, fy += stepY) {
        int32_t sy = std::min(fy >> 8, source.height - boxH);
        for (int32_t x = 0, fx = 0; x < width; ++x, fx += stepX) {
            int32_t sx = std::min(fx >> 8, source.width - boxW);
            int64_t sum[4] = {0, 0, 0, 0};
            int32_t holeCount = 0;
            for (int32_t by = 0; by < boxH; ++by) {
                for (int32_t bx = 0; bx < boxW; ++bx) {
                    Rgba p = source.Get(sx + bx, sy + by);
                    if (holes && p.alpha == 0) {
                        ++holeCount;
                        continue;
                    }
                    sum[0] += p.red, sum[1] += p.green, sum[2] += p.blue, sum[3] += p.alpha;
                }
            }
            Rgba out;
            if (holeCount > area / 2) {
                out = {255, 0, 255, 0};
            } else if (holeCount) {
                double solid = double(area - holeCount);
                out = {int32_t(double(sum[0]) / solid), int32_t(double(sum[1]) / solid),
                       int32_t(double(sum[2]) / solid), int32_t(double(sum[3]) / solid)};
            } else {
                out = {int32_t((sum[0] * recip) >> 16), int32_t((sum[1] * recip) >> 16),
                       int32_t((sum[2] * recip) >> 16), int32_t((sum[3] * recip) >> 16)};
            }
            Put(target, x, y, width, format, out);
        }
    }
}

int32_t Blend(int32_t a, int32_t b, int32_t weight) {
    return ((b - a) * weight + (a << 8)) >> 8;
}

Rgba Blend(const Rgba& a, const Rgba& b, int32_t weight) {
    return {Blend(a.red, b.red, weight), Blend(a.green, b.green, weight),
            Blend(a.blue, b.blue, weight), Blend(a.alpha, b.alpha, weight)};
}

// Next to a hole there is no blend, only the nearer pixel, so holes keep hard edges and no
// magenta bleeds into the colours.
Rgba BlendOrPick(const Rgba& a, const Rgba& b, int32_t weight, bool holes) {
    if (holes && (a.alpha == 0 || b.alpha == 0)) return weight < 16 ? a : b;
    return Blend(a, b, weight);
}

// Bilinear; pixels beyond the right or bottom edge repeat the last column or row.
void Enlarge(const PixelBlock& source, uint8_t* target, int32_t width, int32_t height,
             uint32_t format) {
    const int32_t stepX = Step(source.width, width);
    const int32_t stepY = Step(source.height, height);
    const bool holes = !TextureFormatHasAlpha(source.format);
    for (int32_t y = 0, fy = 0; y < height; ++y, fy += stepY) {
        int32_t sy = fy >> 8, wy = fy & 255;
        int32_t sy1 = sy + 1 < source.height ? sy + 1 : sy;
        for (int32_t x = 0, fx = 0; x < width; ++x, fx += stepX) {
            int32_t sx = fx >> 8, wx = fx & 255;
            int32_t sx1 = sx + 1 < source.width ? sx + 1 : sx;
            Rgba upper = BlendOrPick(source.Get(sx, sy), source.Get(sx1, sy), wx, holes);
            Rgba lower = BlendOrPick(source.Get(sx, sy1), source.Get(sx1, sy1), wx, holes);
            Put(target, x, y, width, format, BlendOrPick(upper, lower, wy, holes));
        }
    }
}

}  // namespace

bool CTexture::Resize(int32_t newWidth, int32_t newHeight, uint32_t newFormat) {
    if (newWidth == width && newHeight == height && newFormat == format) return true;
    ASSERT(pixels && newWidth > 0 && newHeight > 0);  // nothing to resize, or to resize to
    if (!pixels || newWidth <= 0 || newHeight <= 0) return false;
    size_t bytes = TextureBlockSize(newWidth, newHeight, newFormat, 0);
    uint8_t* block = static_cast<uint8_t*>(MALLOC(bytes));
    if (!block) {
        VelmoraLog("Resize", "No memory for %d x %d: %s\n", newWidth, newHeight,
                   NameOrUnnamed(name));
        return false;
    }
    PixelBlock source{pixels, width, height, format};
    if (newWidth == width && newHeight == height) {
        for (int32_t y = 0; y < height; ++y) {
            for (int32_t x = 0; x < width; ++x) {
                Put(block, x, y, newWidth, newFormat, source.Get(x, y));
            }
        }
    } else if (newWidth <= width && newHeight <= height) {
        Shrink(source, block, newWidth, newHeight, newFormat);
    } else {
        Enlarge(source, block, newWidth, newHeight, newFormat);
    }
    if (pixels) FREE(pixels);
    pixels = block;
    width = newWidth;
    height = newHeight;
    format = newFormat;
    return true;
}

int32_t CTexture::BuildMipLevels(int32_t levels) {
    mipLevels = uint32_t(std::max(levels, 0));
    if (format != TextureFormat5550 && format != TextureFormat8880) return 0;
    if (!pixels) return 0;
    // Every level comes from the top level, not from the level above.
    PixelBlock top{pixels, width, height, format};
    uint8_t* at = pixels + TextureBlockSize(width, height, format, 0);
    int32_t levelWidth = width, levelHeight = height, made = 0;
    while (made < levels) {
        levelWidth /= 2;
        levelHeight /= 2;
        if (levelWidth <= 0 || levelHeight <= 0) break;
        Shrink(top, at, levelWidth, levelHeight, format);
        at += TextureBlockSize(levelWidth, levelHeight, format, 0);
        ++made;
    }
    return made;
}
