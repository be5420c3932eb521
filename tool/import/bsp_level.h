// What the readers of the BSP layouts share: the file's bytes read little-endian within bounds,
// its lump directory checked against the file, the faces gathered into one mesh per texture, and
// the count of faces left out because nobody sees them as solid from above.
#pragma once

#include <array>
#include <cstdint>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "tool/import/import_scene.h"

// More triangles than this and a level is refused: real levels have a few hundred thousand, and a
// damaged face table could otherwise ask for billions from a small file.
constexpr uint64_t BspMaxTriangles = uint64_t(1) << 23;
// A face of more edges is damaged; the compilers split faces long before.
constexpr int64_t BspMaxFaceEdges = 1024;

inline uint32_t LoadU32(const uint8_t* p) {
    return uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24;
}
inline int32_t LoadI32(const uint8_t* p) {
    return int32_t(LoadU32(p));
}
inline uint16_t LoadU16(const uint8_t* p) {
    return uint16_t(p[0] | p[1] << 8);
}
inline float LoadF32(const uint8_t* p) {
    uint32_t bits = LoadU32(p);
    float value;
    std::memcpy(&value, &bits, sizeof value);
    return value;
}
// Three float32 in a row, widened.
inline DVec3 LoadVec3(const uint8_t* p) {
    return {double(LoadF32(p)), double(LoadF32(p + 4)), double(LoadF32(p + 8))};
}
bool IsFinite(const DVec3& v);

// A fixed-size name field up to its first NUL, unprintable bytes shown as '?'.
std::string FieldText(const uint8_t* p, size_t size);

class BspFile {
public:
    BspFile(const std::string& name, const std::vector<uint8_t>& data, ImportLog& output)
        : path(name), bytes(data), log(output) {}

    // Reads the directory at `at`: an offset and a length for each of names, every lump inside
    // the file and clear of the header. False, logged, otherwise.
    bool ReadDirectory(size_t at, const std::vector<const char*>& names);
    // The number of `size`-byte records in a lump; false, logged, where it isn't whole records.
    bool Count(int lump, uint32_t size, uint32_t& count);
    // Record `index` of a lump; the caller has checked it against Count.
    const uint8_t* Record(int lump, uint32_t size, uint32_t index) const {
        return bytes.data() + lumps[lump].offset + uint64_t(index) * size;
    }
    const uint8_t* Lump(int lump) const { return bytes.data() + lumps[lump].offset; }
    uint64_t Length(int lump) const { return lumps[lump].length; }
    // Logs "<path>: text" as an error; false.
    bool Fail(const std::string& text) { return log.Error(path + ": " + text); }

    const std::string& path;
    const std::vector<uint8_t>& bytes;
    ImportLog& log;

private:
    struct Entry {
        const char* name;
        uint64_t offset, length;
    };
    std::vector<Entry> lumps;
};

// Why a face is left out.
enum class BspSkip { None, Sky, Trigger, Clip, Tool, Billboard, Ceiling, Kinds };

// A level is sealed against the void, so a roof has no top side: its faces look down, and from
// above only their backs could be seen. They would lid the whole level against the sun, while what
// stands over a floor casts its shadow through its own upper side anyway. front: the sum of the
// face's normals.
bool LooksDown(const DVec3& front);

// By a first-generation texture name (16 characters at most).
BspSkip QuakeTextureSkip(const std::string& name);
// By a third-generation shader: its name and the surface and content flags the compiler stored.
BspSkip ShaderSkip(const std::string& name, uint32_t surfaceFlags, uint32_t contents);

// The faces taken, one mesh per texture in the order the textures are first met.
class BspLevel {
public:
    explicit BspLevel(BspFile& source) : file(source) {}

    // The mesh of a texture; made on first use.
    ImportMesh& MeshFor(const std::string& texture);
    // Counts a face of `triangles` about to be added; false, logged, past BspMaxTriangles.
    bool Take(uint64_t triangles);
    void Skip(BspSkip kind) { ++skipped[size_t(kind)]; }
    // Adds a, b, c, turned where they disagree with the sum of their normals.
    static void AddFacing(ImportMesh& mesh, uint32_t a, uint32_t b, uint32_t c);
    // "<path>: <layout> level: N faces, M triangles taken in K meshes; left out ..."
    std::string Summary(const std::string& layout) const;

    ImportScene scene;

private:
    BspFile& file;
    std::map<std::string, size_t> meshByTexture;
    uint64_t faces = 0, triangles = 0;
    std::array<uint64_t, size_t(BspSkip::Kinds)> skipped = {};
};

// The layouts' readers: false, logged, where the file is damaged.
bool ReadQuakeLevel(BspFile& file, bool wide, BspLevel& level);  // wide: BSP2 and 2PSB
bool ReadIbspLevel(BspFile& file, BspLevel& level);
