#include <array>
#include <cmath>
#include <cstring>
#include <map>
#include <vector>

#include "base/diagnostics.h"
#include "base/memory.h"
#include "engine/mesh/mesh.h"
#include "engine/mesh/mesh_animation.h"

namespace {

// A frame as the table forms store it: the nine rotation values, then the position.
using FrameValues = std::array<float, 12>;
using FrameBits = std::array<uint32_t, 12>;

FrameValues ValuesOf(const Matrix& m) {
    return {m[0], m[1], m[2], m[4], m[5], m[6], m[8], m[9], m[10], m[12], m[13], m[14]};
}

double FixedScale(size_t index) {
    return index < 9 ? 2048.0 : 256.0;
}

// Fixed point is taken only where it gives every value back exactly: in i16, rotation with 11
// fraction bits and position with 8 (so positions from -128 to just below 128). A looser bound
// would let the reduced form move a mesh, by a wrap of the i16 or by the dropped fraction bits.
bool FitsFixed(const FrameValues& values) {
    for (size_t i = 0; i < values.size(); ++i) {
        const double scaled = double(values[i]) * FixedScale(i);
        if (!(scaled >= -32768.0 && scaled <= 32767.0) || scaled != std::trunc(scaled))
            return false;
    }
    return true;
}

// Equal bit for bit, so that a shared record gives each of its frames back unchanged (a -0 is
// not a 0 here, and a NaN equals its own copy).
FrameBits BitsOf(const FrameValues& values) {
    FrameBits bits;
    std::memcpy(bits.data(), values.data(), sizeof bits);
    return bits;
}

void* TableForm(const std::vector<uint16_t>& table, const std::vector<FrameValues>& records,
                bool fixed) {
    const size_t tableBytes = table.size() * 2;
    const size_t recordBytes = fixed ? 24 : 48;
    auto* data = static_cast<uint8_t*>(MALLOC(tableBytes + records.size() * recordBytes));
    std::memcpy(data, table.data(), tableBytes);
    uint8_t* at = data + tableBytes;
    for (const FrameValues& values : records) {
        if (fixed) {
            int16_t words[12];
            for (size_t i = 0; i < 12; ++i)
                words[i] = int16_t(std::trunc(double(values[i]) * FixedScale(i)));
            std::memcpy(at, words, sizeof words);
        } else {
            std::memcpy(at, values.data(), 48);
        }
        at += recordBytes;
    }
    return data;
}

void Reduce(CMesh* mesh) {
    KeyAnimation* keys = mesh->keyAnimation;
    // A clone's record shares the arrays of its source, which reduces them.
    if (!keys || keys->form != KeyFormKeys || !keys->frameCached || !keys->frameData ||
        !keys->owner)
        return;
    const uint64_t frames = uint64_t(keys->lastFrame) + 1;
    auto* cache = static_cast<Matrix*>(keys->frameData);
    // A frame the cache never took is sampled now: the reduced form must hold every frame.
    for (uint64_t f = 0; f < frames; ++f)
        if (!keys->frameCached[f]) SampleKeyFrame(keys, uint32_t(f), cache[f]);
    FREE(keys->frameCached);
    keys->frameCached = nullptr;

    bool fits = true;
    std::vector<uint16_t> table;
    std::vector<FrameValues> records;
    // From 65,535 frames on, a u16 table could not number them all: each stands alone.
    bool allDistinct = frames >= 65535;
    if (!allDistinct) {
        std::map<FrameBits, uint16_t> seen;
        table.reserve(size_t(frames));
        for (uint64_t f = 0; f < frames; ++f) {
            const FrameValues values = ValuesOf(cache[f]);
            fits = fits && FitsFixed(values);
            const auto added = seen.emplace(BitsOf(values), uint16_t(records.size()));
            if (added.second) records.push_back(values);
            table.push_back(added.first->second);
        }
        allDistinct = records.size() == frames;
    }
    CorvaneDebug("CAN BE REDUCED = %d", fits ? 1 : 0);

    void* data;
    if (allDistinct) {
        auto* out = static_cast<float*>(MALLOC(size_t(frames) * 48));
        for (uint64_t f = 0; f < frames; ++f)
            std::memcpy(out + f * 12, ValuesOf(cache[f]).data(), 48);
        data = out;
        keys->form = KeyFormRecords;
    } else {
        data = TableForm(table, records, fits);
        keys->form = fits ? KeyFormFixedTable : KeyFormTable;
        keys->distinctCount = uint32_t(records.size());
    }
    FREE(keys->frameData);
    keys->frameData = data;
}

void ReduceTree(CEntity* node) {
    if (node->kind == EntityKindMesh) Reduce(static_cast<CMesh*>(node));
    for (CEntity* child = node->firstChild; child; child = child->nextSibling) ReduceTree(child);
}

}  // namespace

void CMesh::ReduceKeyAnimation() {
    ReduceTree(this);
}
