// Game levels: a small level written here in each BSP layout, seen from above after the import;
// damaged files refused with the reason; a real level's faces counted.
#include <gtest/gtest.h>
#include <zlib.h>

#include <cmath>
#include <cstring>
#include <filesystem>
#include <limits>
#include <string>
#include <vector>

#include "tests/import/import_support.h"
#include "tool/import/bsp_reader.h"

namespace {

struct Blob {
    std::string bytes;
    void U32(uint32_t v) {
        for (int i = 0; i < 4; ++i) bytes += char(v >> (8 * i));
    }
    void U16(uint32_t v) { bytes += {char(v), char(v >> 8)}; }
    void F32(double v) {
        float f = float(v);
        uint32_t bits;
        std::memcpy(&bits, &f, 4);
        U32(bits);
    }
    void Vec(const DVec3& v) { F32(v.x), F32(v.y), F32(v.z); }
    void Text(std::string text, size_t size) { text.resize(size, '\0'), bytes += text; }
    uint32_t Size(size_t record) const { return uint32_t(bytes.size() / record); }
};

// The header, magic and lump directory, then the lumps in order.
std::string Assemble(const std::string& magic, const std::vector<Blob>& lumps) {
    Blob out{magic};
    uint32_t at = uint32_t(magic.size() + lumps.size() * 8);
    for (const Blob& lump : lumps) out.U32(at), out.U32(uint32_t(lump.bytes.size())), at += uint32_t(lump.bytes.size());
    for (const Blob& lump : lumps) out.bytes += lump.bytes;
    return out.bytes;
}

// Corners counter-clockwise seen from the front, Quake's Z-up units; a patch's are 3 x 3 control
// points, row by row.
struct TestFace {
    std::string texture, shader;  // first and third generation
    uint32_t surfaceFlags;
    std::vector<DVec3> corners;
    int type = 1;  // third generation: 2 patch, 4 billboard
};

DVec3 FrontOf(const TestFace& face) {
    const std::vector<DVec3>& c = face.corners;
    DVec3 n = Cross(c[1] - c[0], c.back() - c[0]);
    double length = std::sqrt(Dot(n, n));
    return {n.x / length, n.y / length, n.z / length};
}

std::vector<TestFace> TestLevel(bool thirdGeneration) {
    auto quad = [](double x0, double y0, double x1, double y1, double z) {
        return std::vector<DVec3>{{x0, y0, z}, {x1, y0, z}, {x1, y1, z}, {x0, y1, z}};
    };
    std::vector<TestFace> faces = {
        {"floor", "textures/base/floor", 0, quad(0, 0, 256, 256, 0)},
        {"block", "textures/base/block", 0, quad(64, 64, 128, 128, 96)},
        // Its front faces -y; the third corner lies on a straight side.
        {"block", "textures/base/block", 0, {{64, 64, 0}, {128, 64, 0}, {128, 64, 48}, {128, 64, 96}, {64, 64, 96}}},
        {"*water", "textures/liquids/water", 0, quad(160, 0, 256, 64, 16)},
        {"roof", "textures/base/roof", 0, {{0, 0, 200}, {0, 64, 200}, {64, 64, 200}, {64, 0, 200}}},
        {"sky1", "textures/skies/blue", 0x4, quad(160, 160, 256, 256, 300)},
        {"trigger", "textures/common/trigger", 0, quad(160, 160, 256, 256, 250)},
        {"clip", "textures/common/clip", 0, quad(160, 160, 256, 256, 240)},
        {"hint", "textures/base/hidden", 0x80, quad(160, 160, 256, 256, 230)},
        {"skip", "textures/common/caulk", 0, quad(160, 160, 256, 256, 220)}};
    if (thirdGeneration) {
        // A dome over x 0 .. 64, y 160 .. 224: its middle control point 64 over its rim at 32.
        std::vector<DVec3> dome;
        for (int j = 0; j < 9; ++j) dome.push_back({32.0 * (j % 3), 160 + 32.0 * (j / 3), j == 4 ? 96.0 : 32.0});
        faces.push_back({"", "textures/base/dome", 0, dome, 2});
        faces.push_back({"", "textures/base/flare", 0, quad(0, 0, 8, 8, 500), 4});
    }
    return faces;
}

// Every face its own plane, texinfo and texture; wound clockwise from the front as the compilers
// write them, every other face on the back of its plane and every other edge run backwards.
std::string QuakeLevel(const std::string& magic, const std::vector<TestFace>& faces) {
    bool wide = magic[0] != 29;
    std::vector<Blob> lump(15);
    Blob &planes = lump[1], &textures = lump[2], &vertices = lump[3], &texinfo = lump[6],
         &records = lump[7], &edges = lump[12], &surfedges = lump[13];
    auto edge = [&](uint32_t a, uint32_t b) { wide ? (edges.U32(a), edges.U32(b)) : (edges.U16(a), edges.U16(b)); };
    edge(0, 0);  // edge 0 can't be named backwards
    textures.U32(uint32_t(faces.size()));
    for (size_t f = 0; f < faces.size(); ++f) textures.U32(uint32_t(4 + 4 * faces.size() + 40 * f));
    for (size_t f = 0; f < faces.size(); ++f) {
        const TestFace& face = faces[f];
        textures.Text(face.texture, 40);
        bool back = f % 2;
        DVec3 n = FrontOf(face);
        planes.Vec(back ? DVec3{-n.x, -n.y, -n.z} : n), planes.F32(0), planes.U32(0);
        texinfo.Text("", 32), texinfo.U32(uint32_t(f)), texinfo.U32(0);
        uint32_t first = vertices.Size(12), firstEdge = surfedges.Size(4), count = uint32_t(face.corners.size());
        for (const DVec3& c : face.corners) vertices.Vec(c);
        for (uint32_t k = 0; k < count; ++k) {
            uint32_t a = first + (count - k) % count, b = first + (count - k - 1) % count;
            uint32_t e = edges.Size(wide ? 8 : 4);
            k % 2 ? edge(b, a) : edge(a, b);
            surfedges.U32(k % 2 ? uint32_t(-int32_t(e)) : e);
        }
        if (wide) {
            for (uint32_t v : {uint32_t(f), uint32_t(back), firstEdge, count, uint32_t(f), 0u, ~0u}) records.U32(v);
        } else {
            records.U16(uint32_t(f)), records.U16(back), records.U32(firstEdge), records.U16(count);
            records.U16(uint32_t(f)), records.U32(0), records.U32(~0u);
        }
    }
    return Assemble(magic, lump);
}

// Polygons as a fan of triangles wound clockwise from the front; vertex normals the face's.
std::string IbspLevel(const std::vector<TestFace>& faces) {
    std::vector<Blob> lump(17);
    Blob &shaders = lump[1], &vertices = lump[10], &meshverts = lump[11], &records = lump[13];
    for (size_t f = 0; f < faces.size(); ++f) {
        const TestFace& face = faces[f];
        shaders.Text(face.shader, 64), shaders.U32(face.surfaceFlags), shaders.U32(1);
        DVec3 n = face.type == 2 ? DVec3{0, 0, 1} : FrontOf(face);
        uint32_t first = vertices.Size(44), firstIndex = meshverts.Size(4), count = uint32_t(face.corners.size());
        for (const DVec3& c : face.corners) vertices.Vec(c), vertices.Text("", 16), vertices.Vec(n), vertices.U32(~0u);
        for (uint32_t k = 1; face.type == 1 && k + 1 < count; ++k) meshverts.U32(0), meshverts.U32(k + 1), meshverts.U32(k);
        for (uint32_t v : {uint32_t(f), ~0u, uint32_t(face.type), first, count, firstIndex, meshverts.Size(4) - firstIndex})
            records.U32(v);
        records.Text("", 56), records.Vec(n), records.U32(3), records.U32(3);
    }
    return Assemble(std::string("IBSP\x2e\0\0\0", 8), lump);
}

const std::string V29("\x1d\0\0\0", 4);

std::string Gzip(const std::string& bytes) {
    z_stream z = {};
    std::string out(bytes.size() + 1024, '\0');
    deflateInit2(&z, 9, Z_DEFLATED, 31, 8, Z_DEFAULT_STRATEGY);
    z.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(bytes.data()));
    z.avail_in = uInt(bytes.size());
    z.next_out = reinterpret_cast<Bytef*>(out.data());
    z.avail_out = uInt(out.size());
    EXPECT_EQ(deflate(&z, Z_FINISH), Z_STREAM_END);
    out.resize(z.total_out);
    deflateEnd(&z);
    return out;
}

TEST(BspLevel, FloorsAndLiquidsAreSeenFromAboveSkyTriggersToolsAndRoofsAreLeftOut) {
    const std::string summary = "4 faces, 8 triangles taken in 3 meshes; left out 1 sky, 1 trigger, 1 clip, 2 tool, 1 ceiling faces";
    const std::vector<std::tuple<std::string, std::string, size_t, std::string>> layouts = {
        {"q.bsp", QuakeLevel(V29, TestLevel(false)), 8, ": BSP 29 level: " + summary},
        {"q.bsp.gz", Gzip(QuakeLevel(V29, TestLevel(false))), 8, ": BSP 29 level: " + summary},
        {"b.bsp", QuakeLevel("BSP2", TestLevel(false)), 8, ": BSP2 level: " + summary},
        {"r.bsp", QuakeLevel("2PSB", TestLevel(false)), 8, ": 2PSB level: " + summary},
        {"i.bsp", IbspLevel(TestLevel(true)), 41,
         ": IBSP 46 level: 5 faces, 41 triangles taken in 4 meshes; left out 1 sky, 1 trigger, 1 clip, 2 tool, "
         "1 billboard, 1 ceiling faces"}};
    for (const auto& [file, bytes, triangles, note] : layouts) {
        TempDir dir;
        WriteWholeFile(file, bytes);
        ImportResult result = Import(Request(file, "map"));
        ASSERT_TRUE(result.written && result.errors == 0) << file << result.messages;
        EXPECT_THAT(result.messages, HasSubstr(file + note)) << result.messages;
        EXPECT_THAT(result.messages, Not(HasSubstr("warning"))) << result.messages;
        EXPECT_EQ(result.summary.triangles, triangles) << file;
        LoadedMap map("map");
        // Quake's (x, y, z) lands at (x, z, y - 256): north at the map's far edge, z up.
        EXPECT_FLOAT_EQ(map.GroundAt(200, -100), 0) << file;    // the floor
        EXPECT_FLOAT_EQ(map.GroundAt(96, -160), 96) << file;    // the block
        EXPECT_FLOAT_EQ(map.GroundAt(200, -224), 16) << file;   // the water
        EXPECT_FLOAT_EQ(map.GroundAt(200, -56), 0) << file;     // under everything left out
        EXPECT_FLOAT_EQ(map.GroundAt(32, -224), 0) << file;     // under the roof
        if (triangles == 41) {
            EXPECT_NEAR(map.GroundAt(32, -64), 48, 1e-3) << file;  // the dome's top
        }
    }
}

// Each damage patched into a sound level: offset, bytes.
TEST(BspLevel, DamagedFilesAreRefusedWithTheirFault) {
    const std::string good = QuakeLevel(V29, TestLevel(false)), ibsp = IbspLevel(TestLevel(true));
    auto lump = [&](const std::string& level, int index) {
        uint32_t at;
        std::memcpy(&at, level.data() + (level == ibsp ? 8 : 4) + index * 8, 4);
        return at;
    };
    auto patch = [](std::string level, size_t at, uint32_t value, size_t size = 4) {
        return level.replace(at, size, std::string(reinterpret_cast<const char*>(&value), size));
    };
    float nan = std::numeric_limits<float>::quiet_NaN();
    uint32_t nanBits;
    std::memcpy(&nanBits, &nan, 4);
    const std::vector<std::pair<std::string, std::string>> cases = {
        {good.substr(0, 100), "100 bytes, too short for the header's 15 lumps (124 bytes)"},
        {patch(good, 4 + 7 * 8 + 4, 100000), "the faces lump (offset 1660, 100000 bytes) runs past the end of the file (2192 bytes)"},
        {patch(good, lump(good, 13), 9999), "face 0: surfedge 0 names edge 9999; the edges lump has 42"},
        {patch(good, lump(good, 7) + 10, 999, 2), "face 0 names texinfo 999; the texinfo lump has 10"},
        {patch(good, lump(good, 7) + 8, 2, 2), "face 0 has 2 edges; a face has 3 to 1024"},
        {patch(good, lump(good, 3), nanBits), "vertex 0 is not a finite point"},
        {patch(good, lump(good, 2) + 4, 1 << 30), "texture 0 (offset 1073741824) lies past the end"},
        {patch(ibsp, lump(ibsp, 11), 7), "face 0: mesh index 0 is 7; the face has 4 vertices"},
        {patch(ibsp, lump(ibsp, 13) + 10 * 104 + 96, 4), "face 10: a patch of 4 x 3 control points"},
        {patch(ibsp, 4, 47), "IBSP version 47; only version 46 is read"},
        {"VBSP....", "not a BSP level of a known layout"}};
    for (const auto& [bytes, message] : cases) {
        TempDir dir;
        WriteWholeFile("bad.bsp", bytes);
        ImportResult result = Import(Request("bad.bsp", "map"));
        EXPECT_FALSE(result.written);
        EXPECT_THAT(result.messages, HasSubstr("error: bad.bsp: " + message)) << result.messages;
        EXPECT_FALSE(std::filesystem::exists("map"));
        ImportScene scene;
        scene.meshes.resize(1);
        ImportLog quiet;
        EXPECT_FALSE(ReadBspLevel("bad.bsp", std::vector<uint8_t>(bytes.begin(), bytes.end()), scene, quiet));
        EXPECT_EQ(scene.meshes.size(), 1u) << message;
    }
}

// lqdm2_a6: 649 faces of 1838 fan triangles (SOURCE.md's "all triangles"). Its 18 trigger faces
// (36 triangles) and the 114 faces looking down (324) go; corners on straight sides don't count,
// which leaves 1023 triangles over 517 faces: counted by a script from the lumps, not this code.
TEST(BspLevel, RealLevelKeepsItsFloorsAndWalls) {
    std::string level = RealData("librequake-maps/lqdm2_a6.bsp");
    if (level.empty()) GTEST_SKIP() << "no real data";
    TempDir dir;
    ImportResult result = Import(Request(level, "map"));
    ASSERT_TRUE(result.written) << result.messages;
    EXPECT_THAT(result.messages, HasSubstr("lqdm2_a6.bsp: BSP 29 level: 517 faces, 1023 triangles taken in 6 meshes; "
                                           "left out 18 trigger, 114 ceiling faces"));
    EXPECT_THAT(result.messages, Not(HasSubstr("warning")));
    EXPECT_EQ(result.summary.triangles, 1023u);
    // The level stands on z = 0 and reaches 832 up, y 928 south to 896 north.
    EXPECT_NEAR(result.summary.placement.max.z - result.summary.placement.min.z, 1824, 1e-3);
}

}  // namespace
