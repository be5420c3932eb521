#include "engine/texture/tga.h"

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "base/diagnostics.h"
#include "base/memory.h"
#include "base/velmora_log.h"
#include "engine/texture/texture.h"
#include "tests/support/temp_dir.h"

namespace {

using Bytes = std::vector<uint8_t>;

Bytes Header(uint8_t type, int width, int height, uint8_t depth, uint8_t descriptor,
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

// Pixel bytes of a picture, top row first, with horizontal runs and a first row of one colour
// longer than a run-length packet can hold.
Bytes Picture(int width, int height, int bpp) {
    Bytes block;
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            int seed = y == 0 ? 5 : (x / 4) * 37 + y * 11;
            for (int k = 0; k < bpp; ++k) block.push_back(uint8_t(seed * (k + 3) + k));
        }
    }
    return block;
}

Bytes FileRows(const Bytes& block, int width, int height, int bpp, bool topFirst) {
    Bytes rows;
    size_t pitch = size_t(width) * bpp;
    for (int i = 0; i < height; ++i) {
        int y = topFirst ? i : height - 1 - i;
        rows.insert(rows.end(), block.begin() + y * pitch, block.begin() + (y + 1) * pitch);
    }
    return rows;
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
            if (run > 1) {
                out.push_back(uint8_t(0x80 | (run - 1)));
                out.insert(out.end(), row + x * bpp, row + (x + 1) * bpp);
                x += run;
                continue;
            }
            int raw = 1;
            while (x + raw < width && raw < 128 &&
                   !(x + raw + 1 < width && same(x + raw, x + raw + 1)))
                ++raw;
            out.push_back(uint8_t(raw - 1));
            out.insert(out.end(), row + x * bpp, row + (x + raw) * bpp);
            x += raw;
        }
    }
    return out;
}

Bytes TgaFile(uint8_t type, int width, int height, uint8_t depth, bool topFirst,
              const Bytes& block) {
    int bpp = depth == 32 ? 4 : depth == 24 ? 3 : 2;
    Bytes file = Header(type, width, height, depth, topFirst ? 0x20 : 0);
    Bytes rows = FileRows(block, width, height, bpp, topFirst);
    if (type == 10) rows = RunLength(rows, width, height, bpp);
    file.insert(file.end(), rows.begin(), rows.end());
    return file;
}

Bytes Join(Bytes a, const Bytes& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

Bytes BlockOf(const CTexture* texture) {
    size_t bytes = TextureBlockSize(texture->width, texture->height, texture->format, 0);
    return Bytes(texture->pixels, texture->pixels + bytes);
}

bool IsTestPattern(const CTexture* texture) {
    if (texture->width != 64 || texture->height != 64 || texture->format != TextureFormat5550)
        return false;
    for (int i = 0; i < 64 * 64; ++i) {
        uint16_t value = uint16_t(texture->pixels[i * 2] | texture->pixels[i * 2 + 1] << 8);
        if (value != uint16_t(i * 73)) return false;
    }
    return true;
}

struct Rgba {
    int r, g, b, a;
    bool operator==(const Rgba&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Rgba& c) {
    return out << "(" << c.r << ", " << c.g << ", " << c.b << ", " << c.a << ")";
}

Rgba PixelAt(const CTexture* texture, int x, int y) {
    uint8_t r, g, b, a;
    GetTexturePixel(x, y, texture->width, texture->pixels, texture->format, r, g, b, a);
    return {r, g, b, a};
}

void PutPixel(CTexture* texture, int x, int y, Rgba c) {
    SetTexturePixel(x, y, texture->width, texture->pixels, texture->format, uint8_t(c.r),
                    uint8_t(c.g), uint8_t(c.b), uint8_t(c.a));
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

    CTexture* Keep(CTexture* texture) {
        made.push_back(texture);
        return texture;
    }
    // The image lies in a block of exactly its size, so a read past it is a sanitizer report.
    CTexture* Load(const Bytes& file, const char* name = "image.tga", size_t size = SIZE_MAX) {
        size = std::min(size, file.size());
        std::unique_ptr<uint8_t[]> image(new uint8_t[size ? size : 1]);
        std::memcpy(image.get(), file.data(), size);
        return Keep(CreateTextureFromMemory(image.get(), size, name));
    }
    bool LoadInto(CTexture*& texture, const Bytes& file, const char* name = "image.tga") {
        std::unique_ptr<uint8_t[]> image(new uint8_t[file.size()]);
        std::memcpy(image.get(), file.data(), file.size());
        texture = Keep(CreateEmptyTexture());
        return texture->LoadFromMemory(image.get(), file.size(), name);
    }
    std::string Log() const { return ReadWholeFile("velmora.log"); }

    TempDir dir;
    std::vector<CTexture*> made;
    CorvaneTextHandler oldWarning = nullptr;
};

TEST_F(Tga, SavedFileReadsBackToTheSameBlockAtEveryDepth) {
    const struct {
        uint32_t format;
        uint8_t depth;
    } cases[] = {{TextureFormat5550, 16}, {TextureFormat8880, 24}, {TextureFormat8888, 32}};
    for (const auto& c : cases) {
        SCOPED_TRACE(int(c.depth));
        CTexture* texture = Keep(CreateTexture(7, 5, c.format));
        Bytes picture = Picture(7, 5, GetTextureBPP(c.format));
        std::memcpy(texture->pixels, picture.data(), picture.size());
        ASSERT_TRUE(texture->SaveAsTGA("out.tga"));

        std::string saved = ReadWholeFile("out.tga");
        Bytes file(saved.begin(), saved.end());
        ASSERT_EQ(file.size(), 18 + picture.size());
        EXPECT_EQ(Bytes(file.begin(), file.begin() + 18), Header(2, 7, 5, c.depth, 0));
        EXPECT_EQ(Bytes(file.begin() + 18, file.end()),
                  FileRows(picture, 7, 5, GetTextureBPP(c.format), false));

        CTexture* read = Keep(CreateTextureFromFile("out.tga"));
        EXPECT_EQ(read->width, 7);
        EXPECT_EQ(read->height, 5);
        EXPECT_EQ(read->format, c.format);
        EXPECT_EQ(BlockOf(read), picture);
    }
}

TEST_F(Tga, RunLengthAndEitherOriginDecodeToTheSameBlock) {
    for (uint8_t depth : {15, 16, 24, 32}) {
        int bpp = depth == 32 ? 4 : depth == 24 ? 3 : 2;
        Bytes picture = Picture(150, 4, bpp);
        for (bool topFirst : {true, false}) {
            SCOPED_TRACE(testing::Message() << int(depth) << (topFirst ? " top" : " bottom"));
            Bytes plain = TgaFile(2, 150, 4, depth, topFirst, picture);
            Bytes packed = TgaFile(10, 150, 4, depth, topFirst, picture);
            ASSERT_LT(packed.size(), plain.size());  // the encoder made runs
            CTexture* a = nullptr;
            CTexture* b = nullptr;
            EXPECT_TRUE(LoadInto(a, plain));
            EXPECT_TRUE(LoadInto(b, packed));
            EXPECT_EQ(BlockOf(a), picture);
            EXPECT_EQ(BlockOf(b), picture);
            EXPECT_EQ(b->format, a->format);
        }
    }
}

TEST_F(Tga, IdFieldIsReadAsPixelsNotSkipped) {
    Bytes id = {1, 2, 3, 4};
    Bytes picture = Picture(2, 2, 4);
    Bytes file = Join(Join(Header(2, 2, 2, 32, 0x20, 4), id), picture);
    CTexture* texture = Load(file);
    EXPECT_EQ(BlockOf(texture), Bytes(file.begin() + 18, file.begin() + 34));
}

TEST_F(Tga, FlagsComeFromTheFormatAndTheKeyPixels) {
    Bytes plain24 = {10, 20, 30, 40, 50, 60};
    Bytes key24 = {10, 20, 30, 255, 0, 255};
    EXPECT_EQ(Load(TgaFile(2, 2, 1, 24, true, plain24))->flags, 0u);
    EXPECT_EQ(Load(TgaFile(2, 2, 1, 24, true, key24))->flags, uint32_t(TextureFlagKeyed));

    Bytes key32 = {255, 0, 255, 0, 255, 0, 255, 255};
    EXPECT_EQ(Load(TgaFile(2, 2, 1, 32, true, key32))->flags, uint32_t(TextureFlagAlpha));

    // The top bit of a 16-bit pixel comes along; the key test ignores it.
    Bytes key16 = {0x00, 0x00, 0x1F, 0xFC};
    CTexture* texture = Load(TgaFile(2, 2, 1, 16, true, key16));
    EXPECT_EQ(texture->flags, uint32_t(TextureFlagKeyed));
    EXPECT_EQ(texture->pixels[3], 0xFC);
}

TEST_F(Tga, MarksInTheNameSetAlphaAndBlending) {
    Bytes file = TgaFile(2, 1, 1, 24, true, {1, 2, 3});
    const struct {
        const char* name;
        uint32_t flags;
        uint32_t alphaSetting;
    } cases[] = {
        {"dir/plain.tga", 0, 0},
        {"glass!.tga", TextureFlagAlpha, 2},
        {"glass!05.tga", TextureFlagAlpha | TextureFlagFixedAlpha, 85},
        {"glass!15.tga", TextureFlagAlpha | TextureFlagFixedAlpha, 255},
        {"glass!99.tga", TextureFlagAlpha | TextureFlagFixedAlpha, 0xFFFFFFFF},
        {"glass!5x.tga", TextureFlagAlpha, 2},
        {"a!b!07.tga", TextureFlagAlpha, 2},  // the first "!" counts
        {"fire@!.tga", TextureFlagAlpha | TextureFlagAdd, 2},
        {"fire!00@.tga", TextureFlagAlpha | TextureFlagFixedAlpha | TextureFlagAdd, 0},
        {"fire@.tga", 0, 0},  // "@" without "!" does nothing
        {"moss#3.tga", 0, 0},
        {"mark!dir/plain.tga", TextureFlagAlpha, 2},  // the whole path is read
    };
    for (const auto& c : cases) {
        CTexture* texture = Load(file, c.name);
        EXPECT_EQ(texture->flags, c.flags) << c.name;
        EXPECT_EQ(texture->alphaSetting, c.alphaSetting) << c.name;
    }
    // An alpha format gets flag 0x4 anyway; the mark adds only the setting.
    CTexture* texture = Load(TgaFile(2, 1, 1, 32, true, {1, 2, 3, 4}), "leaf!.tga");
    EXPECT_EQ(texture->flags, uint32_t(TextureFlagAlpha));
    EXPECT_EQ(texture->alphaSetting, 2u);

    EXPECT_EQ(MipLevelsFromName("moss#3.tga"), 3);
    EXPECT_EQ(MipLevelsFromName("a#12b#4.tga"), 12);
    EXPECT_EQ(MipLevelsFromName("moss#.tga"), 0);
    EXPECT_EQ(MipLevelsFromName("moss.tga"), 0);
    EXPECT_EQ(MipLevelsFromName(nullptr), 0);
    EXPECT_GT(MipLevelsFromName("x#99999999999999999999"), 0);
}

TEST_F(Tga, UnreadableFilesGiveTheTestPatternWithoutMarks) {
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
              std::string::npos)
        << Log();

    // A second load replaces the first picture.
    CTexture* texture = Keep(CreateTexture(3, 3, TextureFormat8888));
    EXPECT_FALSE(texture->LoadFromMemory(nullptr, 0, "x.tga"));
    EXPECT_TRUE(IsTestPattern(texture));
}

TEST_F(Tga, UnknownTypeOrDepthKeepsTheFileSizeWithTestValues) {
    const struct {
        uint8_t type, depth;
        uint32_t format;
    } cases[] = {{1, 24, TextureFormat8880}, {3, 32, TextureFormat8888}, {2, 8, TextureFormat5550}};
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << int(c.type) << " " << int(c.depth));
        VelmoraLogBeginRun();
        Bytes file = Join(Header(c.type, 3, 2, c.depth, 0x20), Bytes(24, 0xAB));
        CTexture* texture = nullptr;
        EXPECT_FALSE(LoadInto(texture, file));
        EXPECT_EQ(Log(), "LOG: (LoadTGA) TGA is an invalid pixel format\n");
        EXPECT_EQ(texture->width, 3);
        EXPECT_EQ(texture->height, 2);
        EXPECT_EQ(texture->format, c.format);
        for (int i = 0; i < 6; ++i) {
            EXPECT_EQ(texture->pixels[i * 2] | texture->pixels[i * 2 + 1] << 8, i * 73) << i;
        }
    }
}

TEST_F(Tga, EveryCutOfAFileIsRefusedWithoutReadingPastIt) {
    CTexture* source = Keep(CreateTexture(6, 4, TextureFormat8888));
    Bytes picture = Picture(6, 4, 4);
    std::memcpy(source->pixels, picture.data(), picture.size());
    ASSERT_TRUE(source->SaveAsTGA("whole.tga"));
    std::string saved = ReadWholeFile("whole.tga");
    Bytes plain(saved.begin(), saved.end());
    Bytes packed = TgaFile(10, 6, 4, 32, false, picture);

    for (const Bytes* file : {&plain, &packed}) {
        for (size_t n = 0; n < file->size(); ++n) {
            CTexture* texture = Load(*file, "cut.tga", n);
            ASSERT_TRUE(IsTestPattern(texture)) << n;
            FreeTexture(texture);
            made.pop_back();
        }
        EXPECT_EQ(BlockOf(Load(*file)), picture);
    }
    std::string log = Log();
    EXPECT_NE(log.find("LOG: (LoadTGA) Corrupt TGA cut.tga: truncated header\n"), log.npos);
    EXPECT_NE(log.find("cut.tga: pixel data past the end of the file\n"), log.npos);
    EXPECT_NE(log.find("cut.tga: run-length data past the end of the file\n"), log.npos);
}

TEST_F(Tga, RunLengthPacketsStayInsideTheImageAndTheBlock) {
    Bytes header = Header(10, 2, 2, 32, 0x20);
    Bytes pixel = {1, 2, 3, 4};
    // A run of five pixels into a block of four.
    CTexture* texture = Load(Join(Join(header, {0x84}), pixel));
    EXPECT_TRUE(IsTestPattern(texture));
    EXPECT_NE(Log().find("image.tga: run-length packet past the last pixel\n"), std::string::npos);
    // A raw packet of 128 pixels, with the file long enough to hold them.
    EXPECT_TRUE(IsTestPattern(Load(Join(Join(header, {0x7F}), Bytes(600, 9)))));
    // A raw packet of four with the data of two.
    EXPECT_TRUE(IsTestPattern(Load(Join(Join(Join(header, {0x03}), pixel), pixel))));

    // A run over a row's end, within the block, is taken as it stands.
    CTexture* across = nullptr;
    EXPECT_TRUE(LoadInto(across, Join(Join(Header(10, 3, 2, 32, 0x20), {0x85}), pixel)));
    Bytes six;
    for (int i = 0; i < 6; ++i) six.insert(six.end(), pixel.begin(), pixel.end());
    EXPECT_EQ(BlockOf(across), six);
}

TEST_F(Tga, AbsurdSizesAreRefused) {
    const struct {
        uint8_t type;
        int width, height;
        uint8_t depth;
        const char* fault;
    } cases[] = {
        {2, 0, 5, 24, "zero width or height"},
        {2, 5, 0, 24, "zero width or height"},
        {2, 16385, 1, 24, "width or height above 16384"},
        {10, 1, 65535, 32, "width or height above 16384"},
        {2, 16384, 16384, 16, "image above 256 MiB"},
        {2, 16384, 4096, 32, "pixel data past the end of the file"},
        {10, 16384, 4096, 32, "pixel data past the end of the file"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.width << " x " << c.height);
        VelmoraLogBeginRun();
        EXPECT_TRUE(IsTestPattern(
            Load(Join(Header(c.type, c.width, c.height, c.depth, 0), Bytes(64, 0x11)))));
        EXPECT_EQ(Log(), std::string("LOG: (LoadTGA) Corrupt TGA image.tga: ") + c.fault + "\n");
    }
    // The largest side that is allowed is read.
    CTexture* wide = nullptr;
    EXPECT_TRUE(LoadInto(wide, Join(Header(2, 16384, 1, 24, 0), Bytes(16384 * 3, 0x22))));
    EXPECT_EQ(wide->width, 16384);
}

TEST_F(Tga, DefaultSettingsKeepSizeAndFormat) {
    CTexture* texture = Load(TgaFile(2, 300, 200, 24, false, Picture(300, 200, 3)));
    EXPECT_EQ(texture->width, 300);
    EXPECT_EQ(texture->height, 200);
    EXPECT_EQ(texture->format, uint32_t(TextureFormat8880));
    EXPECT_EQ(BlockOf(texture), Picture(300, 200, 3));
}

TEST_F(Tga, ForcedFormatBringsEveryImageTo64By64) {
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
        int bpp = c.depth == 32 ? 4 : c.depth == 24 ? 3 : 2;
        CTexture* texture =
            Load(TgaFile(2, c.width, c.height, c.depth, true, Picture(c.width, c.height, bpp)));
        EXPECT_EQ(texture->width, 64) << int(c.depth);
        EXPECT_EQ(texture->height, 64) << int(c.depth);
        EXPECT_EQ(texture->format, c.format) << int(c.depth);
    }
    // The forced settings stay for later loads.
    EXPECT_EQ(TextureMaxWidth, 64);
    EXPECT_EQ(TextureMinHeight, 64);
    EXPECT_TRUE(TextureSquare);
    EXPECT_FALSE(TextureKeepTrueColour);
}

TEST_F(Tga, SizeSettingsApplyInTheirOrder) {
    Bytes file = TgaFile(2, 300, 200, 24, true, Picture(300, 200, 3));
    auto sizeOf = [&] {
        CTexture* texture = Load(file);
        return std::make_pair(texture->width, texture->height);
    };
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
}

TEST_F(Tga, SaveRefusesFormatsItCannotWriteAndLogsAFailedOpen) {
    for (uint32_t format : {TextureFormat5650, TextureFormat4444, TextureFormat5551}) {
        CTexture* texture = Keep(CreateTexture(2, 2, format));
        EXPECT_FALSE(texture->SaveAsTGA("refused.tga"));
        EXPECT_FALSE(std::filesystem::exists("refused.tga"));
    }
    EXPECT_EQ(Warnings, (std::vector<std::string>{"CANNOT SAVE TEXTURE FORMAT 5650",
                                                  "CANNOT SAVE TEXTURE FORMAT 4444",
                                                  "CANNOT SAVE TEXTURE FORMAT 5551"}));
    CTexture* texture = Keep(CreateTexture(2, 2, TextureFormat8880));
    EXPECT_FALSE(texture->SaveAsTGA("no/such/folder/out.tga"));
    EXPECT_EQ(Log(), "LOG: (SaveAsTGA) Could Not Open file for writing\n");
}

class TextureResize : public Tga {};

TEST_F(TextureResize, SameSizeAndFormatChangesNothingAndFormatAloneConverts) {
    CTexture* texture = Keep(CreateTexture(2, 1, TextureFormat8888));
    PutPixel(texture, 0, 0, {0x1F, 0x2F, 0x3F, 0x4F});
    PutPixel(texture, 1, 0, {255, 255, 255, 255});
    uint8_t* before = texture->pixels;
    EXPECT_TRUE(texture->Resize(2, 1, TextureFormat8888));
    EXPECT_EQ(texture->pixels, before);

    EXPECT_TRUE(texture->Resize(2, 1, TextureFormat4444));
    EXPECT_EQ(BlockOf(texture), (Bytes{0x23, 0x41, 0xFF, 0xFF}));

    CTexture* keyed = Keep(CreateTexture(1, 1, TextureFormat5550));
    keyed->pixels[0] = 0x1F, keyed->pixels[1] = 0x7C;
    EXPECT_TRUE(keyed->Resize(1, 1, TextureFormat8888));
    EXPECT_EQ(BlockOf(keyed), (Bytes{255, 0, 255, 0}));
}

TEST_F(TextureResize, GrowingOneSideResamplesBothBilinearly) {
    CTexture* texture = Keep(CreateTexture(200, 200, TextureFormat8888));
    for (int y = 0; y < 200; ++y) {
        for (int x = 0; x < 200; ++x) PutPixel(texture, x, y, {x, y % 2 ? 255 : 0, 0, 255});
    }
    ASSERT_TRUE(texture->Resize(100, 300, TextureFormat8888));
    // Steps of 512 across and 170 down, in 1/256 of a source pixel.
    EXPECT_EQ(PixelAt(texture, 10, 3), (Rgba{20, 1, 0, 255}));       // 254/256 from row 1 to 2
    EXPECT_EQ(PixelAt(texture, 0, 1), (Rgba{0, 169, 0, 255}));       // 170/256 from row 0 to 1
    EXPECT_EQ(PixelAt(texture, 99, 299), (Rgba{198, 141, 0, 255}));  // 142/256 from row 198

    // Across, between an empty and a full pixel; the last column repeats the edge.
    CTexture* pair = Keep(CreateTexture(2, 1, TextureFormat8888));
    PutPixel(pair, 0, 0, {0, 0, 0, 0});
    PutPixel(pair, 1, 0, {200, 100, 40, 255});
    ASSERT_TRUE(pair->Resize(8, 1, TextureFormat8888));
    EXPECT_EQ(PixelAt(pair, 2, 0), (Rgba{100, 50, 20, 127}));  // alpha blends like a colour
    EXPECT_EQ(PixelAt(pair, 7, 0), (Rgba{200, 100, 40, 255}));
}

TEST_F(TextureResize, HolesKeepHardEdgesWhenGrowing) {
    CTexture* texture = Keep(CreateTexture(2, 2, TextureFormat8880));
    PutPixel(texture, 0, 0, Magenta);
    PutPixel(texture, 1, 0, {200, 100, 50, 255});
    PutPixel(texture, 0, 1, {200, 100, 50, 255});
    PutPixel(texture, 1, 1, {200, 100, 50, 255});
    ASSERT_TRUE(texture->Resize(8, 8, TextureFormat8880));
    for (int y = 0; y < 8; ++y) {
        for (int x = 0; x < 8; ++x) {
            Rgba expected = x == 0 && y == 0 ? Magenta : Rgba{200, 100, 50, 255};
            EXPECT_EQ(PixelAt(texture, x, y), expected) << x << ", " << y;
        }
    }
}

TEST_F(TextureResize, ShrinkAveragesWholeBoxes) {
    // 5 to 2 gives a box of 2: the fifth pixel is left out.
    CTexture* row = Keep(CreateTexture(5, 1, TextureFormat8880));
    const int reds[5] = {10, 20, 30, 40, 250};
    for (int x = 0; x < 5; ++x) PutPixel(row, x, 0, {reds[x], 0, 0, 255});
    ASSERT_TRUE(row->Resize(2, 1, TextureFormat8880));
    EXPECT_EQ(PixelAt(row, 0, 0), (Rgba{15, 0, 0, 255}));
    EXPECT_EQ(PixelAt(row, 1, 0), (Rgba{35, 0, 0, 255}));

    // The average multiplies by 65536 / area cut to an integer, so three 255s give 254.
    CTexture* three = Keep(CreateTexture(3, 1, TextureFormat8888));
    for (int x = 0; x < 3; ++x) PutPixel(three, x, 0, {255, 255, 255, 255});
    ASSERT_TRUE(three->Resize(1, 1, TextureFormat8888));
    EXPECT_EQ(PixelAt(three, 0, 0), (Rgba{254, 254, 254, 254}));

    // In an alpha format alpha 0 is no hole.
    CTexture* faint = Keep(CreateTexture(2, 2, TextureFormat8888));
    for (int i = 0; i < 4; ++i) PutPixel(faint, i % 2, i / 2, {255, 0, 255, i == 3 ? 255 : 0});
    ASSERT_TRUE(faint->Resize(1, 1, TextureFormat8888));
    EXPECT_EQ(PixelAt(faint, 0, 0), (Rgba{255, 0, 255, 63}));
}

TEST_F(TextureResize, ShrinkLeavesHolesOutUntilTheyAreMoreThanHalf) {
    CTexture* half = Keep(CreateTexture(2, 2, TextureFormat8880));
    PutPixel(half, 0, 0, Magenta);
    PutPixel(half, 1, 0, {100, 50, 20, 255});
    PutPixel(half, 0, 1, Magenta);
    PutPixel(half, 1, 1, {51, 30, 10, 255});
    ASSERT_TRUE(half->Resize(1, 1, TextureFormat8880));
    EXPECT_EQ(PixelAt(half, 0, 0), (Rgba{75, 40, 15, 255}));

    CTexture* most = Keep(CreateTexture(2, 2, TextureFormat8880));
    for (int i = 0; i < 3; ++i) PutPixel(most, i % 2, i / 2, Magenta);
    PutPixel(most, 1, 1, {100, 50, 20, 255});
    ASSERT_TRUE(most->Resize(1, 1, TextureFormat8880));
    EXPECT_EQ(PixelAt(most, 0, 0), Magenta);
}

TEST_F(TextureResize, MipLevelsAreEachShrunkFromTheTopLevel) {
    CTexture* texture = Keep(CreateTexture(4, 4, TextureFormat8880));
    FREE(texture->pixels);
    size_t bytes = TextureBlockSize(4, 4, TextureFormat8880, 2);
    texture->pixels = static_cast<uint8_t*>(MALLOC(bytes));
    std::memset(texture->pixels, 0, bytes);
    // Red sums of the four 2 x 2 blocks: 7, 7, 7, 3. The blocks average to 1, 1, 1, 0, which
    // would give 0 below them; the top level gives 24 / 16, so 1.
    PutPixel(texture, 0, 0, {7, 0, 0, 255});
    PutPixel(texture, 2, 0, {7, 0, 0, 255});
    PutPixel(texture, 0, 2, {7, 0, 0, 255});
    PutPixel(texture, 2, 2, {3, 0, 0, 255});
    EXPECT_EQ(texture->BuildMipLevels(5), 2);  // 4 x 4 has two levels below it
    EXPECT_EQ(texture->mipLevels, 5u);
    const uint8_t* level1 = texture->pixels + 48;
    EXPECT_EQ(Bytes(level1, level1 + 12), (Bytes{0, 0, 1, 0, 0, 1, 0, 0, 1, 0, 0, 0}));
    EXPECT_EQ(Bytes(level1 + 12, level1 + 15), (Bytes{0, 0, 1}));

    CTexture* alpha = Keep(CreateTexture(4, 4, TextureFormat8888));
    EXPECT_EQ(alpha->BuildMipLevels(2), 0);
    EXPECT_EQ(alpha->mipLevels, 2u);
}

}  // namespace
