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

Bytes Header(uint8_t type, int width, int height, uint8_t depth, uint8_t descriptor = 0x20,
             uint8_t idLength = 0) {
    Bytes header(18, 0);
    header[0] = idLength;
    header[2] = type;
    header[12] = uint8_t(width), header[13] = uint8_t(width >> 8);
    header[14] = uint8_t(height), header[15] = uint8_t(height >> 8);
    header[16] = depth;
    header[17] = descriptor;
    return header;
}

int BytesPerPixel(int depth) {
    return (depth + 7) / 8;
}

Bytes Join(Bytes a, const Bytes& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

// Pixel bytes of a picture, top row first, with horizontal runs and a first row of one colour
// longer than a run-length packet can hold.
Bytes Picture(int width, int height, int bpp) {
    Bytes block;
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            for (int k = 0; k < bpp; ++k)
                block.push_back(uint8_t((y == 0 ? 5 : (x / 4) * 37 + y * 11) * (k + 3) + k));
    return block;
}

// Packets within each row: runs of equal pixels, raw packets between them.
Bytes RunLength(const Bytes& rows, int width, int height, int bpp) {
    Bytes out;
    for (int y = 0; y < height; ++y) {
        const uint8_t* row = rows.data() + size_t(y) * width * bpp;
        auto same = [&](int a, int b) {
            return std::memcmp(row + a * bpp, row + b * bpp, bpp) == 0;
        };
        for (int x = 0; x < width;) {
            int run = 1;
            while (x + run < width && run < 128 && same(x, x + run)) ++run;
            if (run == 1)
                while (x + run < width && run < 128 &&
                       !(x + run + 1 < width && same(x + run, x + run + 1)))
                    ++run;
            bool repeat = run > 1 && same(x, x + 1);
            out.push_back(uint8_t((repeat ? 0x80 : 0) | (run - 1)));
            out.insert(out.end(), row + x * bpp, row + (x + (repeat ? 1 : run)) * bpp);
            x += run;
        }
    }
    return out;
}

// The picture's rows in the order the descriptor says, run-length packed for type 10.
Bytes TgaFile(uint8_t type, int width, int height, uint8_t depth, bool topFirst,
              const Bytes& block) {
    int bpp = BytesPerPixel(depth);
    size_t pitch = size_t(width) * bpp;
    Bytes rows;
    for (int i = 0; i < height; ++i) {
        int y = topFirst ? i : height - 1 - i;
        rows.insert(rows.end(), block.begin() + y * pitch, block.begin() + (y + 1) * pitch);
    }
    if (type == 10) rows = RunLength(rows, width, height, bpp);
    return Join(Header(type, width, height, depth, topFirst ? 0x20 : 0), rows);
}

Bytes BlockOf(const CTexture* texture) {
    size_t bytes = TextureBlockSize(texture->width, texture->height, texture->format, 0);
    return Bytes(texture->pixels, texture->pixels + bytes);
}

// The 64 x 64 picture of a texture whose file could not be read.
bool IsTestPattern(const CTexture* texture) {
    if (texture->width != 64 || texture->height != 64 || texture->format != TextureFormat5550)
        return false;
    for (int i = 0; i < 64 * 64; ++i)
        if ((texture->pixels[i * 2] | texture->pixels[i * 2 + 1] << 8) != uint16_t(i * 73))
            return false;
    return true;
}

using Rgba = std::tuple<int, int, int, int>;

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

const Rgba Magenta = {255, 0, 255, 0};

std::vector<std::string> Warnings;

class Tga : public testing::Test {
protected:
    void SetUp() override {
        VelmoraLogBeginRun();
        oldWarning =
            CorvaneSetWarningHandler([](const char* text) { Warnings.emplace_back(text); });
        Warnings.clear();
    }
    void TearDown() override {
        CorvaneSetWarningHandler(oldWarning);
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
    // A texture of the given size whose pixels are put one by one, row after row.
    CTexture* Made(int width, int height, uint32_t format, const std::vector<Rgba>& pixels) {
        CTexture* texture = Keep(CreateTexture(width, height, format));
        int i = 0;
        for (const Rgba& c : pixels) PutPixel(texture, i % width, i / width, c), ++i;
        return texture;
    }
    std::string Log() const { return ReadWholeFile("velmora.log"); }

    TempDir dir;
    std::vector<CTexture*> made;
    bool loaded = false;
    CorvaneTextHandler oldWarning = nullptr;
};

TEST_F(Tga, SavedFileReadsBackToTheSameBlockAtEveryDepth) {
    for (uint32_t format : {TextureFormat5550, TextureFormat8880, TextureFormat8888}) {
        int bpp = GetTextureBPP(format);
        SCOPED_TRACE(bpp);
        CTexture* texture = Keep(CreateTexture(7, 5, format));
        Bytes picture = Picture(7, 5, bpp);
        std::memcpy(texture->pixels, picture.data(), picture.size());
        ASSERT_TRUE(texture->SaveAsTGA("out.tga"));
        std::string saved = ReadWholeFile("out.tga");
        EXPECT_EQ(Bytes(saved.begin(), saved.end()),
                  TgaFile(2, 7, 5, uint8_t(bpp * 8), false, picture));
        CTexture* read = Keep(CreateTextureFromFile("out.tga"));
        EXPECT_EQ(read->width * 10 + read->height, 75);
        EXPECT_EQ(read->format, format);
        EXPECT_EQ(BlockOf(read), picture);
    }
    for (uint32_t format : {TextureFormat5650, TextureFormat4444, TextureFormat5551}) {
        EXPECT_FALSE(Keep(CreateTexture(2, 2, format))->SaveAsTGA("refused.tga"));
        EXPECT_FALSE(std::filesystem::exists("refused.tga"));
    }
    EXPECT_EQ(Warnings, (std::vector<std::string>{"CANNOT SAVE TEXTURE FORMAT 5650",
                                                  "CANNOT SAVE TEXTURE FORMAT 4444",
                                                  "CANNOT SAVE TEXTURE FORMAT 5551"}));
    EXPECT_FALSE(Keep(CreateTexture(2, 2, TextureFormat8880))->SaveAsTGA("no/such/dir/out.tga"));
    EXPECT_EQ(Log(), "LOG: (SaveAsTGA) Could Not Open file for writing\n");
}

TEST_F(Tga, RunLengthAndEitherOriginDecodeToTheSameBlock) {
    for (uint8_t depth : {15, 16, 24, 32}) {
        Bytes picture = Picture(150, 4, BytesPerPixel(depth));
        for (bool topFirst : {true, false}) {
            SCOPED_TRACE(testing::Message() << int(depth) << (topFirst ? " top" : " bottom"));
            Bytes plain = TgaFile(2, 150, 4, depth, topFirst, picture);
            Bytes packed = TgaFile(10, 150, 4, depth, topFirst, picture);
            ASSERT_LT(packed.size(), plain.size());  // the encoder made runs
            for (const Bytes* file : {&plain, &packed}) {
                EXPECT_EQ(BlockOf(Load(*file)), picture);
                EXPECT_TRUE(loaded);
            }
        }
    }
    // The id field is read as pixels, not skipped.
    Bytes file = Join(Join(Header(2, 2, 2, 32, 0x20, 4), {1, 2, 3, 4}), Picture(2, 2, 4));
    EXPECT_EQ(BlockOf(Load(file)), Bytes(file.begin() + 18, file.begin() + 34));
    // A run over a row's end, within the block, is taken as it stands.
    CTexture* across = Load(Join(Header(10, 3, 2, 32), {0x85, 1, 2, 3, 4}));
    EXPECT_TRUE(loaded);
    for (int i = 0; i < 6; ++i) EXPECT_EQ(PixelAt(across, i % 3, i / 3), (Rgba{3, 2, 1, 4})) << i;
}

TEST_F(Tga, FlagsComeFromTheFormatTheKeyPixelsAndTheMarksInTheName) {
    EXPECT_EQ(Load(TgaFile(2, 2, 1, 24, true, {10, 20, 30, 40, 50, 60}))->flags, 0u);
    EXPECT_EQ(Load(TgaFile(2, 2, 1, 24, true, {10, 20, 30, 255, 0, 255}))->flags,
              uint32_t(TextureFlagKeyed));
    EXPECT_EQ(Load(TgaFile(2, 2, 1, 32, true, {255, 0, 255, 0, 255, 0, 255, 255}))->flags,
              uint32_t(TextureFlagAlpha));
    // The top bit of a 16-bit pixel comes along; the key test ignores it.
    CTexture* texture = Load(TgaFile(2, 2, 1, 16, true, {0x00, 0x00, 0x1F, 0xFC}));
    EXPECT_EQ(texture->flags, uint32_t(TextureFlagKeyed));
    EXPECT_EQ(texture->pixels[3], 0xFC);

    const uint32_t A = TextureFlagAlpha, F = TextureFlagFixedAlpha, Add = TextureFlagAdd;
    const struct {
        const char* name;
        uint32_t flags, alphaSetting;
    } cases[] = {
        {"dir/plain.tga", 0, 0},      {"glass!.tga", A, 2},
        {"glass!05.tga", A | F, 85},  {"glass!15.tga", A | F, 255},
        {"glass!16.tga", A | F, ~0u}, {"glass!5x.tga", A, 2},
        {"a!b!07.tga", A, 2},  // the first "!" counts
        {"fire@!.tga", A | Add, 2},   {"fire!00@.tga", A | F | Add, 0},
        {"fire@.tga", 0, 0},           // "@" without "!" does nothing
        {"mark!dir/plain.tga", A, 2},  // the whole path is read
    };
    Bytes file = TgaFile(2, 1, 1, 24, true, {1, 2, 3});
    for (const auto& c : cases) {
        texture = Load(file, c.name);
        EXPECT_EQ(texture->flags, c.flags) << c.name;
        EXPECT_EQ(texture->alphaSetting, c.alphaSetting) << c.name;
    }
    // An alpha format gets the alpha flag anyway; the mark adds only the setting.
    texture = Load(TgaFile(2, 1, 1, 32, true, {1, 2, 3, 4}), "leaf!.tga");
    EXPECT_EQ(texture->flags, uint32_t(TextureFlagAlpha));
    EXPECT_EQ(texture->alphaSetting, 2u);

    const char* names[] = {"moss#3.tga", "a#12b#4.tga", "moss#.tga", "moss.tga", nullptr};
    const int32_t levels[] = {3, 12, 0, 0, 0};
    for (int i = 0; i < 5; ++i) EXPECT_EQ(MipLevelsFromName(names[i]), levels[i]) << i;
    EXPECT_GT(MipLevelsFromName("x#99999999999999999999"), 0);
}

// Damage the format has no answer for gives the test pattern and a line naming the fault.
TEST_F(Tga, EachDamageGivesTheTestPatternAndItsOwnLine) {
    const Bytes pixel = {1, 2, 3, 4};
    const Bytes rle = Header(10, 2, 2, 32);
    const char* unknown = "unknown type or depth with more pixels than the file can hold";
    const struct {
        const char* fault;
        Bytes file;
    } cases[] = {
        {"truncated header", Bytes(17, 0)},
        {"zero width or height", Join(Header(2, 0, 5, 24), Bytes(64, 1))},
        {"zero width or height", Join(Header(2, 5, 0, 24), Bytes(64, 1))},
        {"width or height above 16384", Join(Header(2, 16385, 1, 24), Bytes(64, 1))},
        {"width or height above 16384", Join(Header(10, 1, 65535, 32), Bytes(64, 1))},
        {"image above 256 MiB", Join(Header(2, 16384, 16384, 16), Bytes(64, 1))},
        {"image above 256 MiB", Join(Header(2, 16384, 4097, 16), Bytes(64, 1))},
        {"pixel data past the end of the file", Join(Header(2, 16384, 4096, 32), Bytes(64, 1))},
        {"pixel data past the end of the file", Join(Header(10, 16384, 4096, 32), Bytes(64, 1))},
        {"pixel data past the end of the file", Join(Header(2, 2, 2, 24), Bytes(11, 1))},
        {"pixel data past the end of the file", Join(Header(10, 129, 1, 24), Bytes(7, 1))},
        {unknown, Join(Header(0, 8192, 8192, 32), Bytes(64, 1))},
        {unknown, Join(Header(2, 8192, 8192, 8), Bytes(64, 1))},
        {unknown, Join(Header(11, 128, 200, 8), Bytes(399, 0))},  // 2 bytes for 128 pixels
        {"run-length packet past the last pixel", Join(Join(rle, {0x84}), pixel)},
        {"run-length packet past the last pixel", Join(Join(rle, {0x7F}), Bytes(600, 9))},
        {"run-length data past the end of the file", Join(Join(Join(rle, {0x03}), pixel), pixel)},
        {"run-length data past the end of the file", Join(rle, {0x00, 1, 2, 3, 4, 0x81})},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.fault);
        VelmoraLogBeginRun();
        EXPECT_TRUE(IsTestPattern(Load(c.file)));
        EXPECT_FALSE(loaded);
        EXPECT_EQ(Log(), std::string("LOG: (LoadTGA) Corrupt TGA image.tga: ") + c.fault + "\n");
    }
    // The largest side allowed is read, and so is the least that an undecoded type may hold.
    EXPECT_EQ(Load(Join(Header(2, 16384, 1, 24), Bytes(16384 * 3, 0x22)))->width, 16384);
    EXPECT_TRUE(loaded);
    EXPECT_EQ(Load(Join(Header(11, 128, 200, 8), Bytes(400, 0)))->height, 200);

    // An unknown type or depth keeps the file's size, filled with test values.
    const struct {
        uint8_t type, depth;
        uint32_t format;
    } odd[] = {{1, 24, TextureFormat8880}, {3, 32, TextureFormat8888}, {2, 8, TextureFormat5550}};
    for (const auto& c : odd) {
        SCOPED_TRACE(testing::Message() << int(c.type) << " " << int(c.depth));
        VelmoraLogBeginRun();
        CTexture* texture = Load(Join(Header(c.type, 3, 2, c.depth), Bytes(24, 0xAB)));
        EXPECT_FALSE(loaded);
        EXPECT_EQ(Log(), "LOG: (LoadTGA) TGA is an invalid pixel format\n");
        EXPECT_EQ(texture->width * 10 + texture->height, 32);
        EXPECT_EQ(texture->format, c.format);
        for (int i = 0; i < 6; ++i)
            EXPECT_EQ(texture->pixels[i * 2] | texture->pixels[i * 2 + 1] << 8, i * 73) << i;
    }
}

TEST_F(Tga, FilesThatCannotBeReadOrAreCutGiveTheTestPattern) {
    CTexture* missing = Keep(CreateTextureFromFile("nowhere!.tga"));
    EXPECT_TRUE(IsTestPattern(missing));
    EXPECT_EQ(missing->flags, 0u);
    EXPECT_EQ(Log(), "LOG: (CTexture::LoadTGA) Failed to open TGA: nowhere!.tga");
    WriteWholeFile("empty.tga", "");
    std::filesystem::create_directory("folder.tga");
    for (const char* path : {"nowhere.tga", "empty.tga", "folder.tga"}) {
        CTexture* texture = Keep(CreateEmptyTexture());
        EXPECT_FALSE(texture->LoadTGA(path)) << path;
        EXPECT_TRUE(IsTestPattern(texture)) << path;
    }
    EXPECT_NE(Log().find("LOG: (LoadTGA) Corrupt TGA empty.tga: truncated header\n"),
              std::string::npos);
    CTexture* texture = Keep(CreateTexture(3, 3, TextureFormat8888));  // a second load replaces
    EXPECT_FALSE(texture->LoadFromMemory(nullptr, 0, "x.tga"));
    EXPECT_TRUE(IsTestPattern(texture));

    Bytes picture = Picture(6, 4, 4);
    for (uint8_t type : {2, 10}) {
        Bytes file = TgaFile(type, 6, 4, 32, false, picture);
        for (size_t n = 0; n < file.size(); ++n) {
            ASSERT_TRUE(IsTestPattern(Load(file, "cut.tga", n))) << n;
            FreeTexture(made.back());
            made.pop_back();
        }
        EXPECT_EQ(BlockOf(Load(file)), picture);
    }
}

TEST_F(Tga, SizeAndFormatSettingsApplyInTheirOrder) {
    Bytes file = TgaFile(2, 300, 200, 24, true, Picture(300, 200, 3));
    auto sizeOf = [&] {
        CTexture* texture = Load(file);
        return std::make_pair(texture->width, texture->height);
    };
    EXPECT_EQ(sizeOf(), std::make_pair(300, 200));
    TexturePowerOfTwo = true;
    EXPECT_EQ(sizeOf(), std::make_pair(512, 256));
    TextureSquare = true;
    EXPECT_EQ(sizeOf(), std::make_pair(512, 512));
    TextureReduceShift = 2;
    EXPECT_EQ(sizeOf(), std::make_pair(128, 128));
    TextureMaxWidth = 100;
    TextureMinHeight = 200;
    EXPECT_EQ(sizeOf(), std::make_pair(100, 200));
    TextureMinWidth = 150;  // the maximum comes after the minimum
    EXPECT_EQ(sizeOf(), std::make_pair(100, 200));
    TextureReduceShift = 200;
    TextureMinWidth = TextureMinHeight = TextureMaxWidth = -1;
    EXPECT_EQ(sizeOf(), std::make_pair(1, 1));

    ResetTextureLoadSettings();
    TextureKeepTrueColour = false;
    EXPECT_EQ(Load(file)->format, uint32_t(TextureFormat5550));
    EXPECT_EQ(Load(TgaFile(2, 2, 1, 32, true, Bytes(8, 7)))->format, uint32_t(TextureFormat4444));
    EXPECT_EQ(Load(TgaFile(2, 2, 1, 16, true, Bytes(4, 7)))->format, uint32_t(TextureFormat5550));

    // A forced format brings every image to 64 x 64, and its settings stay for later loads.
    TextureForcedFormat = TextureFormat5650;
    const struct {
        uint8_t depth;
        int width, height;
        uint32_t format;
    } cases[] = {{24, 10, 20, TextureFormat5650},
                 {32, 100, 3, TextureFormat4444},
                 {16, 64, 64, TextureFormat5650},
                 {15, 200, 130, TextureFormat5650}};
    for (const auto& c : cases) {
        Bytes picture = Picture(c.width, c.height, BytesPerPixel(c.depth));
        CTexture* texture = Load(TgaFile(2, c.width, c.height, c.depth, true, picture));
        EXPECT_EQ(texture->width * 100 + texture->height, 6464) << int(c.depth);
        EXPECT_EQ(texture->format, c.format) << int(c.depth);
    }
    EXPECT_EQ(TextureMaxWidth, 64);
    EXPECT_TRUE(TextureSquare && TexturePowerOfTwo);
    EXPECT_FALSE(TextureKeepTrueColour);
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
    EXPECT_TRUE(keyed->Resize(1, 1, TextureFormat8888));
    EXPECT_EQ(BlockOf(keyed), (Bytes{255, 0, 255, 0}));
    ASSERT_TRUE(keyed->Resize(1, 2, TextureFormat8888));  // taller only: the row repeats
    EXPECT_EQ(BlockOf(keyed), (Bytes{255, 0, 255, 0, 255, 0, 255, 0}));

    texture = Keep(CreateTexture(200, 200, TextureFormat8888));
    for (int y = 0; y < 200; ++y)
        for (int x = 0; x < 200; ++x) PutPixel(texture, x, y, {x, y % 2 ? 255 : 0, 0, 255});
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

TEST_F(TextureResize, ShrinkAveragesWholeBoxesLeavingHolesOutUntilMoreThanHalf) {
    auto red = [](int v) { return Rgba{v, 0, 0, 255}; };
    const Rgba M = Magenta, W = {255, 255, 255, 255}, A = {100, 50, 20, 255};
    const struct {
        uint32_t format;
        std::vector<Rgba> pixels;  // two rows where there are four
        std::vector<Rgba> shrunk;
    } cases[] = {
        // 5 to 2 gives a box of 2: the fifth pixel is left out.
        {TextureFormat8880, {red(10), red(20), red(30), red(40), red(250)}, {red(15), red(35)}},
        // The average multiplies by 65536 / area cut to an integer, so three 255s give 254.
        {TextureFormat8888, {W, W, W}, {{254, 254, 254, 254}}},
        {TextureFormat8888, {M, M, M, {255, 0, 255, 255}}, {{255, 0, 255, 63}}},  // no holes here
        {TextureFormat8880, {M, A, M, {51, 30, 10, 255}}, {{75, 40, 15, 255}}},
        {TextureFormat8880, {M, M, M, A}, {M}},
    };
    CTexture* hole = Made(2, 1, TextureFormat8880, {M, M});  // a hole stays one in an alpha format
    ASSERT_TRUE(hole->Resize(1, 1, TextureFormat8888));
    EXPECT_EQ(PixelAt(hole, 0, 0), M);
    for (const auto& c : cases) {
        int height = c.pixels.size() == 4 ? 2 : 1, width = int(c.pixels.size()) / height;
        CTexture* texture = Made(width, height, c.format, c.pixels);
        ASSERT_TRUE(texture->Resize(int(c.shrunk.size()), 1, c.format));
        for (size_t x = 0; x < c.shrunk.size(); ++x)
            EXPECT_EQ(PixelAt(texture, int(x), 0), c.shrunk[x]) << width << std::hex << c.format;
    }

    // Mip levels are each shrunk from the top level. Red sums of the four 2 x 2 blocks: 7, 7, 7,
    // 3; the blocks average to 1, 1, 1, 0, which would give 0 below them; the top gives 24 / 16.
    CTexture* texture = Keep(CreateTexture(4, 4, TextureFormat8880));
    FREE(texture->pixels);
    size_t bytes = TextureBlockSize(4, 4, TextureFormat8880, 2);
    texture->pixels = static_cast<uint8_t*>(MALLOC(bytes));
    std::memset(texture->pixels, 0, bytes);
    for (int i = 0; i < 4; ++i)
        PutPixel(texture, i % 2 * 2, i / 2 * 2, {i == 3 ? 3 : 7, 0, 0, 255});
    EXPECT_EQ(texture->BuildMipLevels(5), 2);  // 4 x 4 has two levels below it
    EXPECT_EQ(texture->mipLevels, 5u);
    const uint8_t* level1 = texture->pixels + 48;
    EXPECT_EQ(Bytes(level1, level1 + 15), (Bytes{0, 0, 1, 0, 0, 1, 0, 0, 1, 0, 0, 0, 0, 0, 1}));
    CTexture* alpha = Keep(CreateTexture(4, 4, TextureFormat8888));
    EXPECT_EQ(alpha->BuildMipLevels(2), 0);
    EXPECT_EQ(alpha->mipLevels, 2u);
}

}  // namespace
