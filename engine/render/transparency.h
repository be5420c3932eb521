// The transparency flush: what cannot go through the depth buffer in any order is drawn after a
// layer's opaque geometry. Groups are filed in a cache binned by view depth and drawn far to
// near; screen-space decal quads and world-space triangles gather in alpha batches of 512
// triangles. The cache and batches hang on the renderer and keep their memory until it closes.
#pragma once

#include <cstdint>

#include "engine/scene/maths.h"
#include "platform/dx7/d3d7.h"

class CCamera;
class CRenderer;
class CTexture;

constexpr int32_t TransparencyBuckets = 128;
constexpr int32_t AlphaBatchTriangles = 512;
constexpr int32_t TransparencyInitialEntries = 100;
constexpr int32_t TransparencyGrowth = 25;

// Flag words of a cache entry: the mesh's meshFlags, or TransparentDecal.
enum TransparentFlags : uint32_t {
    TransparentUnlit = 0x20,
    TransparentFlat = 0x800,
    TransparentDecal = 0x820,
    TransparentForced =
        0x4000,  // a mesh forced into the cache: shimmer unless its texture has alpha
};

struct TransparentEntry {
    const Matrix* world;
    LPDIRECT3DVERTEXBUFFER7 buffer;
    CTexture* texture;
    const uint16_t* indices;
    uint32_t firstVertex;  // absolute in the buffer
    uint32_t vertexCount;
    uint32_t indexCount;
    uint32_t flags;
    int32_t next;  // the next entry of the bucket, nearer or equal; -1 at the end
    float depth;   // view z
};

// Source: world-space vertices of format 0x1E2 awaiting ProcessVertices; target: the processed
// or pre-transformed vertices of format 0x1C4 that the flush draws.
struct AlphaBatch {
    LPDIRECT3DVERTEXBUFFER7 source;
    LPDIRECT3DVERTEXBUFFER7 target;
    uint8_t* sourceLock;  // while the source is locked
    CTexture* textures[AlphaBatchTriangles];
    int32_t triangleCount;
    AlphaBatch* next;
    uint8_t sourceLocked;
    uint8_t ownsBuffers;  // the first batch borrows the renderer's alphaSource and alphaTarget
};

struct TransparencyCache {
    TransparentEntry* entries;
    int32_t capacity;
    int32_t count;
    int32_t heads[TransparencyBuckets];  // -1: empty
    float bucketScale;                   // buckets per unit of depth
    AlphaBatch* firstBatch;
    AlphaBatch* currentBatch;
    int32_t finished;  // triangles at the head of the current batch that stand in its target
    int32_t pending;   // triangles after those, written to the source
};

// Made with the device, after the fixed buffers; false if memory ran out.
bool CreateTransparency(CRenderer* renderer);
void ReleaseTransparency(CRenderer* renderer);

// SRCBLEND and DESTBLEND from a texture's flag word: additive (0x200) wins over multiplying
// (0x80), else plain alpha.
void SetBlendFromTexture(CRenderer* renderer, uint32_t textureFlags);

// At the start of each layer and of the background pass: empty buckets, scale from the far
// distance.
void BeginTransparency(CRenderer* renderer, const CCamera* camera);
void BeginTransparency(CRenderer* renderer, float farDistance);
void AddTransparent(CRenderer* renderer, LPDIRECT3DVERTEXBUFFER7 buffer, uint32_t firstVertex,
                    uint32_t vertexCount, uint32_t indexCount, CTexture* texture,
                    const uint16_t* indices, uint32_t flags, const Matrix* world, float depth);
// Each quad of four pre-transformed 32-byte vertices (format 0x1C4) becomes two triangles.
void AddAlphaQuads(CRenderer* renderer, const void* quads, int32_t count, CTexture* texture);
// Room for one world-space triangle: three 32-byte vertices of format 0x1E2 to fill in. Null if
// the source buffer cannot be locked.
void* AddAlphaTriangle(CRenderer* renderer, CTexture* texture);
// After the layer's opaque geometry: the cache far to near, then the batches.
void FlushTransparency(CRenderer* renderer);

// Multiplies the frame by the tint when its top byte is non-zero; the rectangle is the
// viewport's, in pixels.
void TintViewport(CRenderer* renderer, uint32_t colour, float left, float top, float right,
                  float bottom);
