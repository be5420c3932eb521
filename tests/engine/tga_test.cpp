#include "engine/texture/tga.h"

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "base/diagnostics.h"
#include "base/memory.h"
#include "base/velmora_log.h"
#include "engine/texture/texture.h"
#include "tests/support/temp_dir.h"

namespace {

using Bytes = std::vector<uint8_t>;
using Rgba = std::tuple<int, int, int, int>;
const Rgba Magenta = {255, 0, 255, 0};

// A header and what follows it.
Bytes File(uint8_t type, int width, int height, uint8_t depth, const Bytes& rest,
           uint8_t descriptor = 0x20, uint8_t idLength = 0) {
    Bytes file(18 + rest.size(), 0);
    std::copy(rest.begin(), rest.end(), file.begin() + 18);
    file[0] = idLength, file[2] = type, file[16] = depth, file[17] = descriptor;
    file[12] = uint8_t(width), file[13] = uint8_t(width >> 8);
    file[14] = uint8_t(height), file[15] = uint8_t(height >> 8);
    return file;
}

// Pixel bytes, top row first: a first row of one colour longer than a run-length packet can hold,
// then runs of four.
Bytes Picture(int width, int height, int bpp) {
    Bytes block;
    for (int i = 0; i < width * height * bpp; ++i) {
        int x = i / bpp % width, y = i / bpp / width, k = i % bpp;
        block.push_back(uint8_t((y == 0 ? 5 : (x / 4) * 37 + y * 11) * (k + 3) + k));
    }
    return block;
}

// The picture's rows in the order the descriptor says; type 10 packs each row into runs of equal
// pixels and raw packets between them.
Bytes TgaFile(uint8_t type, int width, int height, uint8_t depth, bool topFirst,
              const Bytes& block) {
    int bpp = (depth + 7) / 8;
    Bytes out = File(type, width, height, depth, {}, topFirst ? 0x20 : 0);
    for (int i = 0; i < height; ++i) {
        const uint8_t* row = block.data() + size_t(topFirst ? i : height - 1 - i) * width * bpp;
        auto same = [&](int x) {  // pixel x starts a run
            return x + 1 < width && !std::memcmp(row + x * bpp, row + (x + 1) * bpp, bpp);
        };
        if (type != 10) out.insert(out.end(), row, row + width * bpp);
        for (int x = 0, run = 1; type == 10 && x < width; x += run, run = 1) {
            bool repeat = same(x);
            while (x + run < width && run < 128 && (repeat ? same(x + run - 1) : !same(x + run)))
                ++run;
            out.push_back(uint8_t((repeat ? 0x80 : 0) | (run - 1)));
            out.insert(out.end(), row + x * bpp, row + (x + (repeat ? 1 : run)) * bpp);
        }
    }
    return out;
}

Bytes BlockOf(const CTexture* texture) {
    size_t bytes = TextureBlockSize(texture->width, texture->height, texture->format, 0);
    return Bytes(texture->pixels, texture->pixels + bytes);
}

Bytes TestValues(int count) {  // 16-bit pixels of i * 73
    Bytes out;
    for (int i = 0; i < count; ++i) out.insert(out.end(), {uint8_t(i * 73), uint8_t(i * 73 >> 8)});
    return out;
}

// The 64 x 64 picture of a texture whose file could not be read.
bool IsTestPattern(const CTexture* texture) {
    return texture->width == 64 && texture->height == 64 && texture->format == TextureFormat5550 &&
           BlockOf(texture) == TestValues(64 * 64);
}

Rgba PixelAt(const CTexture* texture, int x, int y) {
    uint8_t r, g, b, a;
    GetTexturePixel(x, y, texture->width, texture->pixels, texture->format, r, g, b, a);
    return {r, g, b, a};
}

void PutPixel(CTexture* texture, int x, int y, Rgba c) {
    auto [r, g, b, a] = c;
    SetTexturePixel(x, y, texture->width, texture->pixels, texture->format, uint8_t(r), uint8_t(g),
                    uint8_t(b), uint8_t(a));
}

class Tga : public testing::Test {
protected:
    void SetUp() override { VelmoraLogBeginRun(); }
    void TearDown() override {
        ResetTextureLoadSettings();
        for (CTexture* texture : made) FreeTexture(texture);
    }

    CTexture* Keep(CTexture* texture) { return made.emplace_back(texture); }
    // The image lies in a block of exactly its size, so a read past it is a sanitizer report.
    CTexture* Load(const Bytes& file, const char* name = "image.tga", size_t size = SIZE_MAX) {
        size = std::min(size, file.size());
        std::unique_ptr<uint8_t[]> image(new uint8_t[size ? size : 1]);
        std::memcpy(image.get(), file.data(), size);
        CTexture* texture = Keep(CreateEmptyTexture());
        loaded = texture->LoadFromMemory(image.get(), size, name);
        return texture;
    }
    // A texture whose pixels are put one by one, row after row.
    CTexture* Made(int width, int height, uint32_t format, const std::vector<Rgba>& pixels) {
        CTexture* texture = Keep(CreateTexture(width, height, format));
        for (size_t i = 0; i < pixels.size(); ++i)
            PutPixel(texture, int(i) % width, int(i) / width, pixels[i]);
        return texture;
    }
    std::string Log() const { return ReadWholeFile("velmora.log"); }

    TempDir dir;
    std::vector<CTexture*> made;
    bool loaded = false;
};

// Files of every depth, plain or run-length, either origin, read back to the picture; what is
// read saves as the plain file, and every cut file is refused.
TEST_F(Tga, FilesReadAndSaveBackToTheSameBlock) {
    for (uint8_t depth : {15, 16, 24, 32}) {
        Bytes picture = Picture(150, 4, (depth + 7) / 8);
        for (int i = 0; i < 4; ++i) {
            uint8_t type = i < 2 ? 2 : 10;
            Bytes file = TgaFile(type, 150, 4, depth, i % 2, picture);
            ASSERT_LT(file.size(), picture.size() + (type == 10 ? 0 : 19));  // runs were made
            EXPECT_EQ(BlockOf(Load(file)), picture) << int(depth) << " " << i;
            EXPECT_TRUE(loaded);
            for (size_t n = 0; depth == 32 && n < file.size(); ++n) {
                ASSERT_TRUE(IsTestPattern(Load(file, "cut.tga", n))) << n;
                FreeTexture(made.back());
                made.pop_back();
            }
        }
        CTexture* texture = Load(TgaFile(2, 150, 4, depth, true, picture));
        ASSERT_TRUE(texture->SaveAsTGA("out.tga"));
        std::string saved = ReadWholeFile("out.tga");
        EXPECT_EQ(Bytes(saved.begin(), saved.end()),
                  TgaFile(2, 150, 4, std::max<uint8_t>(depth, 16), false, picture));
        CTexture* read = Keep(CreateTextureFromFile("out.tga"));
        EXPECT_EQ(std::tie(read->width, read->height, read->format),
                  std::make_tuple(150, 4, texture->format));
        EXPECT_EQ(BlockOf(read), picture) << int(depth);
    }
    for (uint32_t format : {TextureFormat5650, TextureFormat4444, TextureFormat5551})
        EXPECT_FALSE(Keep(CreateTexture(2, 2, format))->SaveAsTGA("refused.tga"));
    EXPECT_FALSE(std::filesystem::exists("refused.tga"));
    VelmoraLogBeginRun();
    EXPECT_FALSE(Keep(CreateTexture(2, 2, TextureFormat8880))->SaveAsTGA("no/such/dir/out.tga"));
    EXPECT_EQ(Log(), "LOG: (SaveAsTGA) Could Not Open file for writing\n");
    // The id field is read as pixels, not skipped.
    Bytes file = File(2, 2, 2, 32, Picture(2, 3, 4), 0x20, 4);
    EXPECT_EQ(BlockOf(Load(file)), Bytes(file.begin() + 18, file.begin() + 34));
    // A run over a row's end, within the block, is taken as it stands.
    CTexture* across = Load(File(10, 3, 2, 32, {0x85, 1, 2, 3, 4}));
    EXPECT_TRUE(loaded);
    for (int i = 0; i < 6; ++i) EXPECT_EQ(PixelAt(across, i % 3, i / 3), (Rgba{3, 2, 1, 4})) << i;
}

// An alpha format gets its flag anyway, a mark adding only the setting; the first "!" counts, and
// "@" without it does nothing. The key test ignores a 16-bit pixel's top bit, which comes along.
TEST_F(Tga, FlagsComeFromTheFormatTheKeyPixelsAndTheMarksInTheName) {
    const Bytes rgb = TgaFile(2, 2, 1, 24, true, {10, 20, 30, 40, 50, 60});
    const Bytes keyed = TgaFile(2, 2, 1, 24, true, {10, 20, 30, 255, 0, 255});
    const Bytes keyed16 = TgaFile(2, 2, 1, 16, true, {0x00, 0x00, 0x1F, 0xFC});
    const Bytes alpha = TgaFile(2, 2, 1, 32, true, {255, 0, 255, 0, 255, 0, 255, 255});
    const uint32_t A = TextureFlagAlpha, F = TextureFlagFixedAlpha, Add = TextureFlagAdd;
    const uint32_t K = TextureFlagKeyed;
    const std::tuple<const Bytes*, const char*, uint32_t, uint32_t> cases[] = {
        {&keyed, "k.tga", K, 0},
        {&keyed16, "k.tga", K, 0},
        {&alpha, "a.tga", A, 0},
        {&alpha, "a!.tga", A, 2},
        {&rgb, "dir/plain.tga", 0, 0},
        {&rgb, "glass!.tga", A, 2},
        {&rgb, "glass!05.tga", A | F, 85},
        {&rgb, "glass!15.tga", A | F, 255},
        {&rgb, "glass!16.tga", A | F, ~0u},
        {&rgb, "glass!5x.tga", A, 2},
        {&rgb, "a!b!07.tga", A, 2},
        {&rgb, "fire@!.tga", A | Add, 2},
        {&rgb, "fire!00@.tga", A | F | Add, 0},
        {&rgb, "fire@.tga", 0, 0}};
    for (auto [file, name, flags, alphaSetting] : cases) {
        CTexture* texture = Load(*file, name);
        EXPECT_EQ(std::tie(texture->flags, texture->alphaSetting), std::tie(flags, alphaSetting))
            << name;
    }
    EXPECT_EQ(Load(keyed16)->pixels[3], 0xFC);

    const char* names[] = {"moss#3.tga", "a#12b#4.tga", "moss#.tga", "moss.tga", nullptr};
    const int32_t levels[] = {3, 12, 0, 0, 0};
    for (int i = 0; i < 5; ++i) EXPECT_EQ(MipLevelsFromName(names[i]), levels[i]) << i;
    EXPECT_GT(MipLevelsFromName("x#99999999999999999999"), 0);
}

// Damage the format has no answer for gives the test pattern and a line naming the fault; so does
// a file that cannot be read, whose name marks then count for nothing.
TEST_F(Tga, EachDamageGivesTheTestPatternAndItsOwnLine) {
    const Bytes fill(64, 1);
    const char* unknown = "unknown type or depth with more pixels than the file can hold";
    // 399 bytes of an undecoded type: less than 2 for every 128 pixels.
    const std::pair<const char*, Bytes> cases[] = {
        {"truncated header", Bytes(17, 0)},
        {"zero width or height", File(2, 0, 5, 24, fill)},
        {"zero width or height", File(2, 5, 0, 24, fill)},
        {"width or height above 16384", File(2, 16385, 1, 24, fill)},
        {"width or height above 16384", File(10, 1, 65535, 32, fill)},
        {"image above 256 MiB", File(2, 16384, 16384, 16, fill)},
        {"image above 256 MiB", File(2, 16384, 4097, 16, fill)},
        {"pixel data past the end of the file", File(2, 16384, 4096, 32, fill)},
        {"pixel data past the end of the file", File(10, 16384, 4096, 32, fill)},
        {"pixel data past the end of the file", File(2, 2, 2, 24, Bytes(11, 1))},
        {"pixel data past the end of the file", File(10, 129, 1, 24, Bytes(7, 1))},
        {unknown, File(0, 8192, 8192, 32, fill)},
        {unknown, File(2, 8192, 8192, 8, fill)},
        {unknown, File(11, 128, 200, 8, Bytes(399, 0))},
        {"run-length packet past the last pixel", File(10, 2, 2, 32, {0x84, 1, 2, 3, 4})},
        {"run-length packet past the last pixel", File(10, 2, 2, 32, Bytes(600, 9))},
        {"run-length data past the end of the file",
         File(10, 2, 2, 32, {0x03, 1, 2, 3, 4, 1, 2, 3, 4})},
        {"run-length data past the end of the file", File(10, 2, 2, 32, {0x00, 1, 2, 3, 4, 0x81})}};
    for (const auto& [fault, file] : cases) {
        VelmoraLogBeginRun();
        EXPECT_TRUE(IsTestPattern(Load(file))) << fault;
        EXPECT_FALSE(loaded);
        EXPECT_EQ(Log(), std::string("LOG: (LoadTGA) Corrupt TGA image.tga: ") + fault + "\n");
    }
    // The largest side allowed is read, and so is the least that an undecoded type may hold.
    EXPECT_EQ(Load(File(2, 16384, 1, 24, Bytes(16384 * 3, 0x22)))->width, 16384);
    EXPECT_TRUE(loaded);
    EXPECT_EQ(Load(File(11, 128, 200, 8, Bytes(400, 0)))->height, 200);

    // An unknown type or depth keeps the file's size, filled with test values.
    const std::tuple<uint8_t, uint8_t, uint32_t> odd[] = {
        {1, 24, TextureFormat8880}, {3, 32, TextureFormat8888}, {2, 8, TextureFormat5550}};
    for (auto [type, depth, format] : odd) {
        VelmoraLogBeginRun();
        CTexture* texture = Load(File(type, 3, 2, depth, Bytes(24, 0xAB)));
        EXPECT_FALSE(loaded);
        EXPECT_EQ(Log(), "LOG: (LoadTGA) TGA is an invalid pixel format\n");
        EXPECT_EQ(std::tie(texture->width, texture->height, texture->format),
                  std::make_tuple(3, 2, format));
        EXPECT_EQ(Bytes(texture->pixels, texture->pixels + 12), TestValues(6)) << int(type);
    }
    VelmoraLogBeginRun();
    CTexture* missing = Keep(CreateTextureFromFile("nowhere!.tga"));
    EXPECT_TRUE(IsTestPattern(missing));
    EXPECT_EQ(missing->flags, 0u);
    EXPECT_EQ(Log(), "LOG: (CTexture::LoadTGA) Failed to open TGA: nowhere!.tga");
    WriteWholeFile("empty.tga", "");
    std::filesystem::create_directory("folder.tga");
    for (const char* path : {"empty.tga", "folder.tga"}) {
        CTexture* texture = Keep(CreateEmptyTexture());
        EXPECT_FALSE(texture->LoadTGA(path)) << path;
        EXPECT_TRUE(IsTestPattern(texture)) << path;
    }
    EXPECT_NE(Log().find("LOG: (LoadTGA) Corrupt TGA empty.tga: truncated header\n"),
              std::string::npos);
    CTexture* texture = Keep(CreateTexture(3, 3, TextureFormat8888));  // a second load replaces
    EXPECT_FALSE(texture->LoadFromMemory(nullptr, 0, "x.tga"));
    EXPECT_TRUE(IsTestPattern(texture));
}

TEST_F(Tga, SizeAndFormatSettingsApplyInTheirOrder) {
    Bytes file = TgaFile(2, 300, 200, 24, true, Picture(300, 200, 3));
    // Power of two, square, reduce shift, minimum width and height, maximum width; the size.
    // The maximum comes after the minimum.
    const std::tuple<bool, bool, uint8_t, int, int, int, int, int> sizes[] = {
        {0, 0, 0, -1, -1, -1, 300, 200},   {1, 0, 0, -1, -1, -1, 512, 256},
        {1, 1, 0, -1, -1, -1, 512, 512},   {1, 1, 2, -1, -1, -1, 128, 128},
        {1, 1, 2, -1, 200, 100, 100, 200}, {1, 1, 2, 150, 200, 100, 100, 200},
        {1, 1, 200, -1, -1, -1, 1, 1}};
    for (auto [power, square, shift, minWidth, minHeight, maxWidth, width, height] : sizes) {
        std::tie(TexturePowerOfTwo, TextureSquare, TextureReduceShift) =
            std::tie(power, square, shift);
        std::tie(TextureMinWidth, TextureMinHeight, TextureMaxWidth) =
            std::tie(minWidth, minHeight, maxWidth);
        CTexture* texture = Load(file);
        EXPECT_EQ(std::tie(texture->width, texture->height), std::tie(width, height)) << width;
    }

    ResetTextureLoadSettings();
    TextureKeepTrueColour = false;
    EXPECT_EQ(Load(file)->format, uint32_t(TextureFormat5550));
    EXPECT_EQ(Load(TgaFile(2, 2, 1, 32, true, Bytes(8, 7)))->format, uint32_t(TextureFormat4444));

    // A forced format brings every image to 64 x 64, and its settings stay for later loads.
    TextureForcedFormat = TextureFormat5650;
    const std::tuple<uint8_t, int, int, uint32_t> cases[] = {{24, 10, 20, TextureFormat5650},
                                                             {32, 100, 3, TextureFormat4444},
                                                             {16, 64, 64, TextureFormat5650},
                                                             {15, 200, 130, TextureFormat5650}};
    for (auto [depth, width, height, format] : cases) {
        Bytes picture = Picture(width, height, (depth + 7) / 8);
        CTexture* texture = Load(TgaFile(2, width, height, depth, true, picture));
        EXPECT_EQ(std::tie(texture->width, texture->height, texture->format),
                  std::make_tuple(64, 64, format));
    }
    EXPECT_TRUE(TextureMaxWidth == 64 && TextureSquare && TexturePowerOfTwo &&
                !TextureKeepTrueColour);
}

using TextureResize = Tga;

TEST_F(TextureResize, SameSizeConvertsOnlyAndGrowingResamplesBilinearlyKeepingHolesHard) {
    CTexture* texture =
        Made(2, 1, TextureFormat8888, {{0x1F, 0x2F, 0x3F, 0x4F}, {255, 255, 255, 255}});
    uint8_t* before = texture->pixels;
    EXPECT_TRUE(texture->Resize(2, 1, TextureFormat8888));
    EXPECT_EQ(texture->pixels, before);
    EXPECT_TRUE(texture->Resize(2, 1, TextureFormat4444));
    EXPECT_EQ(BlockOf(texture), (Bytes{0x23, 0x41, 0xFF, 0xFF}));
    CTexture* keyed = Keep(CreateTexture(1, 1, TextureFormat5550));
    keyed->pixels[0] = 0x1F, keyed->pixels[1] = 0x7C;
    ASSERT_TRUE(keyed->Resize(1, 2, TextureFormat8888));  // taller only: the row repeats
    EXPECT_EQ(BlockOf(keyed), (Bytes{255, 0, 255, 0, 255, 0, 255, 0}));

    texture = Keep(CreateTexture(200, 200, TextureFormat8888));
    for (int i = 0; i < 200 * 200; ++i)
        PutPixel(texture, i % 200, i / 200, {i % 200, i / 200 % 2 * 255, 0, 255});
    ASSERT_TRUE(texture->Resize(100, 300, TextureFormat8888));
    // Steps of 512 across and 170 down, in 1/256 of a source pixel.
    EXPECT_EQ(PixelAt(texture, 10, 3), (Rgba{20, 1, 0, 255}));       // 254/256 from row 1 to 2
    EXPECT_EQ(PixelAt(texture, 0, 1), (Rgba{0, 169, 0, 255}));       // 170/256 from row 0 to 1
    EXPECT_EQ(PixelAt(texture, 99, 299), (Rgba{198, 141, 0, 255}));  // 142/256 from row 198
    // Across, between an empty and a full pixel; the last column repeats the edge.
    CTexture* pair = Made(2, 1, TextureFormat8888, {{0, 0, 0, 0}, {200, 100, 40, 255}});
    ASSERT_TRUE(pair->Resize(8, 1, TextureFormat8888));
    EXPECT_EQ(PixelAt(pair, 2, 0), (Rgba{100, 50, 20, 127}));  // alpha blends like a colour
    EXPECT_EQ(PixelAt(pair, 7, 0), (Rgba{200, 100, 40, 255}));
    const Rgba brown = {200, 100, 50, 255};
    CTexture* holed = Made(2, 2, TextureFormat8880, {Magenta, brown, brown, brown});
    ASSERT_TRUE(holed->Resize(32, 32, TextureFormat8880));  // steps of 16: a pick right at 16
    for (int i = 0; i < 1024; ++i)
        EXPECT_EQ(PixelAt(holed, i % 32, i / 32), i == 0 ? Magenta : brown) << i;
}

// A box is the whole part of the reduction (5 to 2 leaves the fifth pixel out); the average
// multiplies by 65536 / area cut to an integer, so three 255s give 254; holes count only in a
// format without alpha.
TEST_F(TextureResize, ShrinkAveragesWholeBoxesLeavingHolesOutUntilMoreThanHalf) {
    auto red = [](int v) { return Rgba{v, 0, 0, 255}; };
    const Rgba M = Magenta, W = {255, 255, 255, 255}, A = {100, 50, 20, 255};
    const uint32_t rgb = TextureFormat8880, rgba = TextureFormat8888;
    // Four pixels are two rows.
    const std::tuple<uint32_t, std::vector<Rgba>, std::vector<Rgba>> cases[] = {
        {rgb, {red(10), red(20), red(30), red(40), red(250)}, {red(15), red(35)}},
        {rgba, {W, W, W}, {{254, 254, 254, 254}}},
        {rgba, {M, M, M, {255, 0, 255, 255}}, {{255, 0, 255, 63}}},
        {rgb, {M, A, M, {51, 30, 10, 255}}, {{75, 40, 15, 255}}},
        {rgb, {M, M, M, A}, {M}}};
    CTexture* hole = Made(2, 1, rgb, {M, M});  // a hole stays one in an alpha format
    ASSERT_TRUE(hole->Resize(1, 1, rgba));
    EXPECT_EQ(PixelAt(hole, 0, 0), M);
    for (const auto& [format, pixels, shrunk] : cases) {
        int height = pixels.size() == 4 ? 2 : 1, width = int(pixels.size()) / height;
        CTexture* texture = Made(width, height, format, pixels);
        ASSERT_TRUE(texture->Resize(int(shrunk.size()), 1, format));
        for (size_t x = 0; x < shrunk.size(); ++x)
            EXPECT_EQ(PixelAt(texture, int(x), 0), shrunk[x]) << width << std::hex << format;
    }

    // Mip levels are each shrunk from the top level. Red sums of the four 2 x 2 blocks: 7, 7, 7,
    // 3; the blocks average to 1, 1, 1, 0, which would give 0 below them; the top gives 24 / 16.
    CTexture* texture = Keep(CreateTexture(4, 4, rgb));
    FREE(texture->pixels);
    size_t bytes = TextureBlockSize(4, 4, rgb, 2);
    texture->pixels = static_cast<uint8_t*>(MALLOC(bytes));
    std::memset(texture->pixels, 0, bytes);
    for (int i = 0; i < 4; ++i) PutPixel(texture, i % 2 * 2, i / 2 * 2, red(i == 3 ? 3 : 7));
    EXPECT_EQ(texture->BuildMipLevels(5), 2);  // 4 x 4 has two levels below it
    EXPECT_EQ(texture->mipLevels, 5u);
    const uint8_t* level1 = texture->pixels + 48;
    EXPECT_EQ(Bytes(level1, level1 + 15), (Bytes{0, 0, 1, 0, 0, 1, 0, 0, 1, 0, 0, 0, 0, 0, 1}));
    CTexture* alpha = Keep(CreateTexture(4, 4, rgba));
    EXPECT_EQ(alpha->BuildMipLevels(2), 0);
    EXPECT_EQ(alpha->mipLevels, 2u);
}

}  // namespace
