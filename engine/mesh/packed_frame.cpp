#include "engine/mesh/packed_frame.h"

#include <cstddef>

#include "engine/mesh/mesh_animation.h"

namespace {

constexpr size_t RecordSize = 8;

// A record of the animation, or null where it would lie outside frameData.
const int16_t* Record(const VertexAnimation* animation, const void* entry, uint32_t index) {
    if (!entry || !animation->frameData) return nullptr;
    const auto* base = static_cast<const uint8_t*>(animation->frameData);
    const auto* at = static_cast<const uint8_t*>(entry);
    if (at < base) return nullptr;
    const size_t offset = size_t(at - base) + size_t(index) * RecordSize;
    if (offset % 2 != 0 || offset + RecordSize > size_t(animation->totalVertices) * RecordSize)
        return nullptr;
    return reinterpret_cast<const int16_t*>(base + offset);
}

// Four bits of magnitude in fifteenths, then a sign bit.
float NormalPart(uint16_t word, int shift) {
    const float value = float(double((word >> shift) & 0xF) * double(0.06666667f));
    return (word >> (shift + 4)) & 1 ? -value : value;
}

}  // namespace

bool PackedFrame::Locate(const VertexAnimation* packed, uint32_t frame) {
    animation = packed;
    if (!animation || !animation->frameTable || frame >= animation->frameCount) return false;
    const int fraction =
        int((animation->flags & VertexAnimationFractionMask) >> VertexAnimationFractionShift);
    scale = 1.0 / double(uint32_t(1) << fraction);
    entry = after = animation->frameTable[frame];
    halfway = !entry;
    if (halfway) {
        // The sum of the neighbours, halved.
        const uint32_t count = animation->frameCount;
        entry = animation->frameTable[(frame + count - 1) % count];
        after = animation->frameTable[(frame + 1) % count];
        scale *= 0.5;
    }
    return entry && after;
}

bool PackedFrame::Vertex(uint32_t s, Vector& position, Vector* normal) const {
    const int16_t* first = Record(animation, entry, s);
    const int16_t* second = Record(animation, after, s);
    if (!first || !second) return false;
    position.x = float(double(first[0] + (halfway ? second[0] : 0)) * scale);
    position.y = float(double(first[1] + (halfway ? second[1] : 0)) * scale);
    position.z = float(double(first[2] + (halfway ? second[2] : 0)) * scale);
    if (normal) {
        const uint16_t word = uint16_t(first[3]);
        *normal = {NormalPart(word, 0), NormalPart(word, 5), NormalPart(word, 10)};
    }
    return true;
}
