// Vertex buffer pools: a mesh never owns a device vertex buffer. A pool owns one buffer of at
// least 256 KiB and deals out runs of vertices from it, so meshes of like format and kind share
// one buffer and the opaque flush can sort draws by pool. Beside the pools stand the shared
// dynamic buffers, one per stream format, and the fixed buffers made with the device.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/dx7/d3d7.h"

class CRenderer;
struct VertexBufferPool;

// A block of a pool's table. Free entries that were never split hold firstVertex -1, count -1.
struct VertexBlock {
    int32_t firstVertex;
    int32_t vertexCount;
    int32_t inUse;
    int32_t id;  // stable across table shifts, unlike the entry's index
};

// What a caller holds for its run of vertices.
struct VertexBufferInfo {
    VertexBufferPool* pool;  // null once the device closed
    int32_t id;
    uint8_t locked;
    uint8_t refill;  // the device was reset and the vertices are gone
};

enum VertexPoolKind : uint32_t {
    VertexPoolOptimised = 2,          // nothing new is allotted from an optimised pool
    VertexPoolReserve = 0x80000000u,  // AllocateVertices only makes the pool, and gives null
};

struct VertexBufferPool {
    VertexBufferPool* next;
    VertexBlock* blocks;    // address order
    int32_t blockCapacity;  // grows by 128
    int32_t blockCount;
    int32_t idCounter;
    int32_t nextUnallotted;  // from here to the end nothing was ever dealt out
    LPDIRECT3DVERTEXBUFFER7 buffer;
    int32_t lockCount;
    uint32_t fvf;
    int32_t vertexSize;  // bytes
    int32_t capacity;    // vertices
    uint8_t* lockPointer;
    uint32_t kind;  // the caller's number; VertexPoolOptimised once optimised
    CRenderer* renderer;
    VertexBufferInfo** infos;  // live infos, or null
    int32_t infoCapacity;      // grows by 64
    D3DVERTEXBUFFERDESC desc;  // as created, to make the buffer again
};

// A run of desc->dwNumVertices vertices of desc->dwFVF, wordsPerVertex 32-bit words each, from a
// pool of this kind. Null if no pool can be made, and always for VertexPoolReserve.
VertexBufferInfo* AllocateVertices(CRenderer* renderer, const D3DVERTEXBUFFERDESC* desc,
                                   int32_t wordsPerVertex, uint32_t kind);
void FreeVertices(VertexBufferInfo* info);  // deletes the info
// The block's first vertex; one device lock serves every block of the pool. Null on failure.
void* LockVertices(VertexBufferInfo* info, DWORD lockFlags);
void UnlockVertices(VertexBufferInfo* info);
int32_t GetVertexStart(const VertexBufferInfo* info);  // first vertex within the device buffer
int32_t GetVertexIndex(const VertexBufferInfo* info);  // index in the block table; -1 unknown
void OptimiseVertices(VertexBufferPool* pool);
void ReplaceVertexBuffer(VertexBufferPool* pool);  // after a device reset
// Every live info is first told it has no pool; then the tables and buffers go.
void DestroyAllPools(CRenderer* renderer);

// For the memory reports.
size_t GetVertexBytesAllotted();
int32_t GetVertexPoolCount();

// The shared buffer of a CDynamicMesh stream format (1 to 11), made on first use. Null, after an
// error, for any other number.
LPDIRECT3DVERTEXBUFFER7 GetDynamicBuffer(CRenderer* renderer, int streamFormat);
void ReleaseDynamicBuffers(CRenderer* renderer);
// The first alpha batch's two buffers, the decal buffers and the decal quads' index list, made
// at open. False if one could not be made; ReleaseFixedBuffers clears up either way.
bool CreateFixedBuffers(CRenderer* renderer);
void ReleaseFixedBuffers(CRenderer* renderer);

constexpr int32_t DynamicBufferVertices = 2048;
constexpr int32_t AlphaBatchVertices = 1536;
constexpr int32_t DecalVertices = 64;
constexpr int32_t DecalQuadVertices = 256;
constexpr int32_t DecalQuadIndexCount = 384;
