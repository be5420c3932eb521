// Hostile and broken VBF files: each is refused with a line that names the file and the fault,
// before anything is allocated for a count it claims, and leaves the loading tree as it was.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "base/velmora_log.h"
#include "engine/mesh/mesh.h"
#include "engine/mesh/vbf_reader.h"
#include "platform/debug/debug_output.h"
#include "tests/support/temp_dir.h"

namespace {

struct Bytes {
    std::string bytes;

    Bytes& U32(std::initializer_list<uint32_t> values) {
        for (uint32_t v : values)
            for (int i = 0; i < 4; ++i) bytes.push_back(char(v >> (8 * i)));
        return *this;
    }
    Bytes& Raw(const std::string& text) {
        bytes += text;
        return *this;
    }
    // An object header with a zero matrix; nameLength, if given, replaces the name's own length.
    Bytes& Object(int32_t vertexCount, uint32_t sections, uint32_t faceCount, uint32_t children,
                  const std::string& name, int64_t nameLength = -1) {
        U32({uint32_t(vertexCount), sections, faceCount, children});
        bytes.append(128, '\0');
        U32({nameLength < 0 ? uint32_t(name.size()) : uint32_t(nameLength)});
        return Raw(name);
    }
    Bytes& Vertices(int count) { return Raw(std::string(size_t(count) * 24, '\0')); }
    Bytes& Face(uint32_t a, uint32_t b, uint32_t c, uint32_t texture) {
        return U32({a, b, c, texture, 0}).Raw(std::string(24, '\0'));
    }
    Bytes& End() { return U32({0xFFFFFFFF}); }
};

Bytes Plain() {
    return Bytes().U32({0, 0});
}

struct Damage {
    const char* fault;  // what the log line must say
    Bytes file;
};

std::vector<Damage> Cases() {
    const uint32_t VA = VBFSectionVertexAnimation, KA = VBFSectionKeyAnimation;
    // Two key frames of 2 vertices, then the packing header.
    Bytes packed = Plain().Object(2, VA, 0, 0, "p").Vertices(2).U32({4, 0xFFFFFFFF, 2, 0, 1});
    // Two key frames of 3 vertices: an index fits the stored 6 but not one frame.
    Bytes anim = Plain().Object(6, VA, 1, 0, "anim").Vertices(6).Face(0, 1, 4, ~0u);
    Bytes textured = Bytes().U32({0, 7}).Raw(std::string("a.tga\0\0", 7));
    textured.Object(3, 0, 1, 0, "t").Vertices(3);
    const std::string zeros(48, '\0'), zeros32(32, '\0');
    return {
        {"the file ends before its header", Bytes().Raw("\1")},
        {"user data of 4294967280 bytes", Bytes().U32({1, 0xFFFFFFF0})},
        {"texture block of 1000 bytes", Bytes().U32({0, 1000}).End()},
        {"texture entry 0 runs past", Bytes().U32({0, 3}).Raw("abc").End()},
        {"texture entry 1 runs past",
         Bytes().U32({0, 9}).Raw(std::string("a.tga\0\0b\0", 9)).End()},
        {"ends before the end mark", Plain()},
        {"\"huge\" has 2147483647 vertices", Plain().Object(0x7FFFFFFF, 0, 0, 0, "huge").End()},
        {"\"many\" has 4026531840 faces", Plain().Object(0, 0, 0xF0000000, 0, "many").End()},
        {"\"crowd\" has 1073741824 children", Plain().Object(0, 0, 0, 1u << 30, "crowd").End()},
        {"name length 4294967295", Plain().Object(1, 0, 0, 0, "", 0xFFFFFFFF).End()},
        {"name length 2147483648", Plain().Object(1, 0, 0, 0, "", 0x80000000).End()},
        {"face 1 of \"tri\" uses vertex 3, the object has 3",
         Plain().Object(3, 0, 2, 0, "tri").Vertices(3).Face(0, 1, 2, ~0u).Face(0, 3, 2, ~0u).End()},
        {"face 0 of \"anim\" uses vertex 4, the object has 3",
         Bytes(anim).U32({2, 0, 2, 0, 1}).End()},
        {"face 0 of \"t\" uses texture 1, the file has 1", Bytes(textured).Face(0, 1, 2, 1).End()},
        {"\"k\" has 1073741824 key frames",
         Plain().Object(1, VA, 0, 0, "k").Vertices(1).U32({4, 0, 1u << 30}).End()},
        {"\"z\" has 0 frames",
         Plain().Object(2, VA, 0, 0, "z").Vertices(2).U32({0, 0, 2, 0, 1}).End()},
        {"\"w\" has 2097152 frames",
         Plain().Object(2, VA, 0, 0, "w").Vertices(2).U32({1u << 21, 0, 2, 0, 1}).End()},
        {"the vertex animations up to \"y\" come to 1048577 frames, more than 1048576",
         Plain()
             .Object(2, VA, 0, 0, "x")
             .Vertices(2)
             .U32({1u << 19, 0, 2, 0, 1})
             .Object(2, VA, 0, 0, "y")
             .Vertices(2)
             .U32({(1u << 19) + 1, 0, 2, 0, 1})
             .End()},
        {"\"p\" has 536870912 records", Bytes(packed).U32({0, 1u << 29}).End()},
        {"\"p\" has 3 records, too few for 2 key frames of 2 vertices",
         Bytes(packed).U32({0, 3}).Raw(std::string(24, '\0')).End()},
        {"frame 3 of the packed animation of \"p\" lies past its data",
         Bytes(packed).U32({VBFPackFrameTable, 4}).Raw(zeros32).U32({1, 0, 9, 13}).End()},
        {"\"a\" has a last frame of 1048576",
         Plain().Object(0, KA, 0, 0, "a").U32({1u << 20, 0}).End()},
        {"\"b\" has 268435456 keys", Plain().Object(0, KA, 0, 0, "b").U32({5, 1u << 28}).End()},
        {"key 0 of \"c\" is cut short",
         Plain().Object(0, KA, 0, 0, "c").U32({5, 1, 3 | VBFKeyRotation, 0, 0})},
        {"the key frames of \"d\" need 384 bytes",
         Plain().Object(0, KA, 0, 0, "d").U32({5, VBFKeyMatrices}).End()},
        {"frame 1 of \"e\" uses key record 1 of 1",
         Plain().Object(0, KA, 0, 0, "e").U32({1, VBFKeyTable, 1, 0x00010000}).Raw(zeros).End()},
    };
}

class VbfDamage : public testing::Test {
protected:
    void SetUp() override {
        VelmoraLogBeginRun();
        keep = new CMesh(&root);
    }

    bool Load(const Bytes& file, const char* name = "bad.vbf") {
        WriteWholeFile(dir.File(name), file.bytes);
        return root.LoadVBF(dir.File(name).c_str());
    }
    void ExpectTreeAsItWas() {
        EXPECT_EQ(root.firstChild, keep);
        EXPECT_EQ(keep->nextSibling, nullptr);
    }

    TempDir dir;
    DebugCapture capture;
    CMesh root{nullptr};
    CMesh* keep = nullptr;
};

// Nesting of depth levels: each object holds the next, the innermost holds none.
Bytes Nested(int depth) {
    Bytes file = Plain();
    for (int level = 1; level <= depth; ++level) file.Object(0, 0, 0, level < depth, "n");
    return file.End();
}

}  // namespace

TEST_F(VbfDamage, EachFaultIsRefusedWithItsOwnLineAndTheTreeUnchanged) {
    for (const Damage& damage : Cases()) {
        capture.Clear();
        EXPECT_FALSE(Load(damage.file)) << damage.fault;
        std::string log = capture.Text();
        EXPECT_NE(log.find("LOG: (VELMORALoadVBF) Corrupt VBF " + dir.File("bad.vbf")),
                  std::string::npos)
            << log;
        EXPECT_NE(log.find(damage.fault), std::string::npos) << damage.fault << "\n" << log;
        ExpectTreeAsItWas();
    }
    // The log file itself has the lines too.
    EXPECT_NE(ReadWholeFile("velmora.log").find("key record 1 of 1"), std::string::npos);
}

TEST_F(VbfDamage, NestingIsBoundedAtTheDepthTheWriterKeepsTo) {
    EXPECT_TRUE(Load(Nested(256)));
    CEntity* node = &root;
    int depth = 0;
    while (node->firstChild && node->firstChild != keep) node = node->firstChild, ++depth;
    EXPECT_EQ(depth, 256);
    delete root.firstChild;

    capture.Clear();
    EXPECT_FALSE(Load(Nested(1000)));
    EXPECT_NE(capture.Text().find("objects nest deeper than 256 levels"), std::string::npos);
    ExpectTreeAsItWas();
}

TEST_F(VbfDamage, FilesThatCannotBeReadAreLoggedUnderTheCallersTag) {
    std::string missing = dir.File("missing.vbf");
    EXPECT_FALSE(root.LoadVBF(missing.c_str()));
    EXPECT_EQ(root.LoadVBFWithData(missing.c_str()), nullptr);
    EXPECT_FALSE(root.LoadVBF(dir.Path().c_str()));  // a folder, not a file
    std::string log = capture.Text();
    EXPECT_NE(log.find("LOG: (CMesh::LoadVBF) Failed to open VBF: " + missing), std::string::npos)
        << log;
    EXPECT_NE(log.find("LOG: (CMesh::LoadVBFWithData) Failed to open VBF: " + missing),
              std::string::npos)
        << log;
    ExpectTreeAsItWas();
}

TEST_F(VbfDamage, AnUnknownHeaderKindIsFatal) {
    EXPECT_DEATH(Load(Bytes().U32({2, 0}).End()), "VELMORALoadVBF: invalid header");
}
