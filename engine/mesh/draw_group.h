// DrawGroup: one run of consecutive layer 0 faces with one texture, with the arguments of one
// indexed draw. The texture is reached through the face record, so a texture changed in the face
// is seen at once.
#pragma once

#include <cstdint>

#include "engine/scene/maths.h"

class CTexture;

struct DrawGroup {
    Matrix* world;           // the mesh's worldMatrix
    uint32_t firstVertex;    // lowest render vertex; absolute in the pool's buffer once built
    uint32_t vertexSpan;     // highest minus lowest render vertex, plus 1
    CTexture** texture;      // the texture field of the group's first face in layer 0
    CTexture** texture2;     // the same in layer 1, or null without two layers
    uint32_t indexCount;     // 3 per face
    uint16_t* groupIndices;  // the group's part of the mesh's indices, relative to firstVertex
};
