#include "engine/render/vertex_pool.h"

#include <algorithm>
#include <cstring>

#include "base/diagnostics.h"
#include "base/memory.h"
#include "engine/render/renderer.h"

namespace {

constexpr int32_t BlockGrowth = 128;
constexpr int32_t InfoGrowth = 64;
constexpr int32_t IdLimit = 10000000;
constexpr int32_t MinimumPoolBytes = 0x40000;

size_t BytesAllotted = 0;
int32_t PoolCount = 0;

constexpr VertexBlock UnusedBlock = {-1, -1, 0, 0};

int32_t FindBlock(const VertexBufferPool* pool, int32_t id) {
    for (int32_t i = 0; i < pool->blockCount; ++i)
        if (pool->blocks[i].id == id) return i;
    return -1;
}

// The block of a live info; the error when the table no longer holds its id.
int32_t BlockOf(const VertexBufferInfo* info) {
    if (!info || !info->pool) return -1;
    int32_t index = FindBlock(info->pool, info->id);
    if (index < 0) CorvaneError("FAILED TO FIND VERTEX BUFFER INFO ID %d", info->id);
    return index;
}

int32_t FreshId(VertexBufferPool* pool) {
    if (pool->idCounter < IdLimit) return pool->idCounter++;
    // Past the limit the counter stays; ids are reused from the smallest free one.
    for (int32_t id = 1;; ++id)
        if (FindBlock(pool, id) < 0) return id;
}

bool ReserveBlocks(VertexBufferPool* pool, int32_t count) {
    if (count <= pool->blockCapacity) return true;
    int32_t capacity = pool->blockCapacity + BlockGrowth;
    auto* blocks = static_cast<VertexBlock*>(
        CvReallocCopy(pool->blocks, size_t(pool->blockCapacity) * sizeof(VertexBlock),
                      size_t(capacity) * sizeof(VertexBlock)));
    if (!blocks) {
        pool->blocks = nullptr;
        pool->blockCapacity = pool->blockCount = 0;
        return false;
    }
    std::fill(blocks + pool->blockCapacity, blocks + capacity, UnusedBlock);
    pool->blocks = blocks;
    pool->blockCapacity = capacity;
    return true;
}

void AddInfo(VertexBufferPool* pool, VertexBufferInfo* info) {
    for (int32_t i = 0; i < pool->infoCapacity; ++i) {
        if (pool->infos[i]) continue;
        pool->infos[i] = info;
        return;
    }
    int32_t slot = pool->infoCapacity;
    int32_t capacity = slot + InfoGrowth;
    auto* infos = static_cast<VertexBufferInfo**>(
        CvReallocCopy(pool->infos, size_t(slot) * sizeof(VertexBufferInfo*),
                      size_t(capacity) * sizeof(VertexBufferInfo*)));
    if (!infos) {
        pool->infos = nullptr;
        pool->infoCapacity = 0;
        return;
    }
    std::fill(infos + slot, infos + capacity, nullptr);
    infos[slot] = info;
    pool->infos = infos;
    pool->infoCapacity = capacity;
}

VertexBufferPool* CreatePool(CRenderer* renderer, const D3DVERTEXBUFFERDESC* desc,
                             int32_t vertexSize, uint32_t kind) {
    if (!renderer->direct3D || desc->dwNumVertices > uint32_t(INT32_MAX / vertexSize))
        return nullptr;
    D3DVERTEXBUFFERDESC raised = *desc;
    raised.dwSize = sizeof(D3DVERTEXBUFFERDESC);
    raised.dwNumVertices =
        std::max<DWORD>(DWORD(MinimumPoolBytes / vertexSize), desc->dwNumVertices);
    LPDIRECT3DVERTEXBUFFER7 buffer = nullptr;
    if (FAILED(renderer->direct3D->CreateVertexBuffer(&raised, &buffer, 0)) || !buffer)
        return nullptr;
    CorvaneDebug("Creating Vertex Buffer");
    auto* pool = NEW VertexBufferPool{};
    pool->idCounter = 1;
    pool->buffer = buffer;
    pool->fvf = raised.dwFVF;
    pool->vertexSize = vertexSize;
    pool->capacity = int32_t(raised.dwNumVertices);
    pool->kind = kind;
    pool->renderer = renderer;
    pool->desc = raised;
    ReserveBlocks(pool, 1);
    pool->next = renderer->pools;
    renderer->pools = pool;
    ++PoolCount;
    return pool;
}

// Best fit among the free blocks, else the never dealt out rest; the block's id, 0 if neither.
int32_t TakeBlock(VertexBufferPool* pool, int32_t count) {
    int32_t best = -1;
    for (int32_t i = 0; i < pool->blockCount; ++i) {
        const VertexBlock& block = pool->blocks[i];
        if (block.inUse || block.vertexCount < count) continue;
        if (best < 0 || block.vertexCount < pool->blocks[best].vertexCount) best = i;
    }
    if (best >= 0) {
        VertexBlock& block = pool->blocks[best];
        block.inUse = 1;
        if (block.vertexCount == count) return block.id;
        int32_t restId = FreshId(pool);
        if (!ReserveBlocks(pool, pool->blockCount + 1)) return 0;
        VertexBlock* at = pool->blocks + best;
        std::memmove(at + 2, at + 1, size_t(pool->blockCount - best - 1) * sizeof(VertexBlock));
        ++pool->blockCount;
        at[1] = {at->firstVertex + count, at->vertexCount - count, 0, restId};
        at->vertexCount = count;
        return at->id;
    }
    if (pool->nextUnallotted > pool->capacity - count) return 0;
    int32_t id = FreshId(pool);
    if (!ReserveBlocks(pool, pool->blockCount + 1)) return 0;
    pool->blocks[pool->blockCount++] = {pool->nextUnallotted, count, 1, id};
    pool->nextUnallotted += count;
    return id;
}

VertexBufferInfo* MakeInfo(VertexBufferPool* pool, int32_t id, int32_t count) {
    auto* info = NEW VertexBufferInfo{pool, id, 0, 0};
    BytesAllotted += size_t(count) * size_t(pool->vertexSize);
    AddInfo(pool, info);
    return info;
}

}  // namespace

VertexBufferInfo* AllocateVertices(CRenderer* renderer, const D3DVERTEXBUFFERDESC* desc,
                                   int32_t wordsPerVertex, uint32_t kind) {
    if (!renderer || !desc || wordsPerVertex <= 0 || wordsPerVertex > 1024) return nullptr;
    const int32_t vertexSize = wordsPerVertex * 4;
    if (kind & VertexPoolReserve) {
        CreatePool(renderer, desc, vertexSize, kind & ~uint32_t(VertexPoolReserve));
        return nullptr;
    }
    if (desc->dwNumVertices > uint32_t(INT32_MAX / vertexSize)) return nullptr;
    const int32_t count = int32_t(desc->dwNumVertices);
    for (VertexBufferPool* pool = renderer->pools; pool; pool = pool->next) {
        if (pool->fvf != desc->dwFVF || pool->kind != kind || pool->vertexSize != vertexSize)
            continue;
        if (int32_t id = TakeBlock(pool, count)) return MakeInfo(pool, id, count);
    }
    VertexBufferPool* pool = CreatePool(renderer, desc, vertexSize, kind);
    if (!pool) return nullptr;
    int32_t id = TakeBlock(pool, count);
    return id ? MakeInfo(pool, id, count) : nullptr;
}

void FreeVertices(VertexBufferInfo* info) {
    if (!info) return;
    VertexBufferPool* pool = info->pool;
    if (!pool) {
        DELETE(info);
        return;
    }
    int32_t index = BlockOf(info);
    if (index < 0) return;
    VertexBlock& block = pool->blocks[index];
    BytesAllotted -= size_t(block.vertexCount) * size_t(pool->vertexSize);
    block.inUse = 0;
    if (info->locked) UnlockVertices(info);
    VertexBufferInfo** slot = std::find(pool->infos, pool->infos + pool->infoCapacity, info);
    if (slot != pool->infos + pool->infoCapacity)
        *slot = nullptr;
    else
        CorvaneWarning("Failed to find info %p in VB", static_cast<void*>(info));
    DELETE(info);
    // Merged blocks stay in the table: the rest behind the last block never returns.
    for (int32_t i = 0; i + 1 < pool->blockCount;) {
        VertexBlock* at = pool->blocks + i;
        if (at[0].inUse || at[1].inUse) {
            ++i;
            continue;
        }
        at[0].vertexCount += at[1].vertexCount;
        std::memmove(at + 1, at + 2, size_t(pool->blockCount - i - 2) * sizeof(VertexBlock));
        pool->blocks[--pool->blockCount] = UnusedBlock;
    }
}

void* LockVertices(VertexBufferInfo* info, DWORD lockFlags) {
    int32_t index = BlockOf(info);
    if (index < 0) return nullptr;
    VertexBufferPool* pool = info->pool;
    const size_t offset = size_t(pool->blocks[index].firstVertex) * size_t(pool->vertexSize);
    if (info->locked) return pool->lockPointer ? pool->lockPointer + offset : nullptr;
    if (pool->lockCount != 0) {
        info->locked = 1;
        ++pool->lockCount;
        return pool->lockPointer + offset;
    }
    if (!pool->buffer) return nullptr;
    // A lock shared by several blocks cannot take one caller's discard or no-overwrite wish.
    DWORD flags = pool->blockCount >= 2 ? DWORD(DDLOCK_WAIT) : lockFlags | DDLOCK_WAIT;
    void* data = nullptr;
    if (FAILED(pool->renderer->LockBufferRetry(pool->buffer, flags, &data)) || !data)
        return nullptr;
    info->locked = 1;
    pool->lockCount = 1;
    pool->lockPointer = static_cast<uint8_t*>(data);
    return pool->lockPointer + offset;
}

void UnlockVertices(VertexBufferInfo* info) {
    if (!info || !info->locked) return;
    info->locked = 0;
    VertexBufferPool* pool = info->pool;
    if (!pool || pool->lockCount <= 0) return;
    if (--pool->lockCount == 0) {
        if (pool->buffer) pool->buffer->Unlock();
        pool->lockPointer = nullptr;
    }
}

int32_t GetVertexStart(const VertexBufferInfo* info) {
    int32_t index = BlockOf(info);
    return index < 0 ? 0 : info->pool->blocks[index].firstVertex;
}

int32_t GetVertexIndex(const VertexBufferInfo* info) {
    return BlockOf(info);
}

void OptimiseVertices(VertexBufferPool* pool) {
    if (!pool || (pool->kind & VertexPoolOptimised)) return;
    if (pool->buffer) pool->buffer->Optimize(pool->renderer->device, 0);
    pool->kind |= VertexPoolOptimised;
}

void ReplaceVertexBuffer(VertexBufferPool* pool) {
    if (!pool) return;
    for (int32_t i = 0; i < pool->infoCapacity; ++i)
        if (pool->infos[i]) pool->infos[i]->refill = 1;
    // An optimised buffer cannot be locked again, so it is made anew for the refill.
    if (!(pool->kind & VertexPoolOptimised)) return;
    pool->kind &= ~uint32_t(VertexPoolOptimised);
    for (int32_t i = 0; i < pool->infoCapacity; ++i)
        if (pool->infos[i]) pool->infos[i]->locked = 0;
    if (pool->buffer) pool->buffer->Release();
    pool->buffer = nullptr;
    if (pool->renderer->direct3D)
        pool->renderer->direct3D->CreateVertexBuffer(&pool->desc, &pool->buffer, 0);
    pool->lockCount = 0;
    pool->lockPointer = nullptr;
    CorvaneDebug("Replacing Vertex Buffer");
}

void DestroyAllPools(CRenderer* renderer) {
    while (VertexBufferPool* pool = renderer->pools) {
        renderer->pools = pool->next;
        for (int32_t i = 0; i < pool->infoCapacity; ++i)
            if (pool->infos[i]) pool->infos[i]->pool = nullptr;
        for (int32_t i = 0; i < pool->blockCount; ++i)
            if (pool->blocks[i].inUse)
                BytesAllotted -= size_t(pool->blocks[i].vertexCount) * size_t(pool->vertexSize);
        FREE(pool->blocks);
        FREE(pool->infos);
        if (pool->buffer) pool->buffer->Release();
        DELETE(pool);
        --PoolCount;
    }
}

size_t GetVertexBytesAllotted() {
    return BytesAllotted;
}

int32_t GetVertexPoolCount() {
    return PoolCount;
}
