// A frame of a packed vertex animation: 8-byte records (x, y, z in fixed point, then a normal
// word) found through the frame table, where a null entry stands halfway between its neighbours.
// Drawing, the per-frame device buffers and the bake all read frames through this.
#pragma once

#include <cstdint>

#include "engine/scene/maths.h"

struct VertexAnimation;

class PackedFrame {
public:
    // False where the frame is out of range or a halfway frame lacks a neighbour.
    bool Locate(const VertexAnimation* animation, uint32_t frame);

    // Source vertex s of the frame: its position, and where asked its record's normal (for a
    // halfway frame the one before's). False where its records lie outside the animation's data.
    bool Vertex(uint32_t s, Vector& position, Vector* normal) const;

private:
    const VertexAnimation* animation = nullptr;
    const void* entry = nullptr;
    const void* after = nullptr;
    double scale = 0;
    bool halfway = false;
};
