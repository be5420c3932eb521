#include "engine/render/vertex_pool.h"

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include "base/diagnostics.h"
#include "tests/render/renderer_fixture.h"

namespace {

using Lines = std::vector<std::string>;
Lines Reports;

class VertexPoolTest : public RendererTest {
protected:
    void SetUp() override {
        RendererTest::SetUp();
        ASSERT_TRUE(Open(OpenWindowed | Open3D));
        Reports.clear();
        error = CorvaneSetErrorHandler([](uint32_t, const char* t) { Reports.push_back(t); });
        warning = CorvaneSetWarningHandler([](const char* t) { Reports.push_back(t); });
    }
    void TearDown() override {
        CorvaneSetErrorHandler(error);
        CorvaneSetWarningHandler(warning);
        RendererTest::TearDown();
    }
    VertexBufferInfo* Take(DWORD count, uint32_t kind = 1) {
        D3DVERTEXBUFFERDESC desc = {sizeof(desc), 0, D3DFVF_TLVERTEX, count};
        return AllocateVertices(renderer, &desc, 8, kind);
    }
    // First vertex, count and use of each block.
    static std::vector<int> Table(const VertexBufferPool* pool) {
        std::vector<int> out;
        for (const VertexBlock* b = pool->blocks; b < pool->blocks + pool->blockCount; ++b)
            out.insert(out.end(), {b->firstVertex, b->vertexCount, b->inUse});
        return out;
    }
    CorvaneErrorHandler error = nullptr;
    CorvaneTextHandler warning = nullptr;
};

TEST_F(VertexPoolTest, BlocksAreDealtBestFitSplitAndMergedInAnyOrder) {
    const size_t bytes = GetVertexBytesAllotted();
    const int orders[6][3] = {{0, 1, 2}, {0, 2, 1}, {1, 0, 2}, {1, 2, 0}, {2, 0, 1}, {2, 1, 0}};
    for (const auto& order : orders) {
        VertexBufferInfo* run[4] = {Take(100), Take(200), Take(300), Take(50)};
        VertexBufferPool* pool = run[0]->pool;
        for (int i : order) FreeVertices(run[i]);
        EXPECT_EQ(Table(pool), (std::vector<int>{0, 600, 0, 600, 50, 1}));
        VertexBufferInfo* exact = Take(600);  // no new entry
        FreeVertices(run[3]);
        VertexBufferInfo* small = Take(30);  // the smallest block that fits, split
        EXPECT_EQ(Table(pool), (std::vector<int>{0, 600, 1, 600, 30, 1, 630, 20, 0}));
        EXPECT_EQ(GetVertexIndex(small), 1);
        EXPECT_EQ(GetVertexStart(small), 600);
        FreeVertices(exact);
        FreeVertices(small);
        DestroyAllPools(renderer);
    }
    EXPECT_EQ(GetVertexBytesAllotted(), bytes);
}

TEST_F(VertexPoolTest, PoolsAreSharedByFormatAndKindAndGrowToTheRequest) {
    const size_t bytes = GetVertexBytesAllotted();
    const int32_t pools = GetVertexPoolCount();
    DxCallRecorder calls;
    VertexBufferInfo* a = Take(8000);
    VertexBufferInfo* b = Take(192);      // fills the 8192 of 256 KiB exactly
    VertexBufferInfo* c = Take(1);        // no room left
    VertexBufferInfo* big = Take(20000);  // beyond the minimum: a pool of its own size
    VertexBufferInfo* other = Take(10, 5);
    const Lines made = {"CreateVertexBuffer(452, 8192, 0)", "CreateVertexBuffer(452, 8192, 0)",
                        "CreateVertexBuffer(452, 20000, 0)", "CreateVertexBuffer(452, 8192, 0)"};
    EXPECT_EQ(calls.Only("CreateVertexBuffer"), made);
    EXPECT_TRUE(a->pool == b->pool && c->pool != a->pool);
    EXPECT_EQ(GetVertexPoolCount(), pools + 4);
    EXPECT_EQ(GetVertexBytesAllotted() - bytes, size_t(8000 + 192 + 1 + 20000 + 10) * 32);
    // Optimised, a pool gives nothing new; a reservation makes a pool and no block.
    OptimiseVertices(c->pool);
    OptimiseVertices(c->pool);
    EXPECT_EQ(calls.Only("Optimize").size(), 1u);
    VertexBufferInfo* d = Take(1);
    EXPECT_NE(d->pool, c->pool);
    EXPECT_EQ(Take(1000, 7 | VertexPoolReserve), nullptr);
    EXPECT_EQ(renderer->pools->kind, 7u);
    EXPECT_EQ(renderer->pools->blockCount, 0);
    for (VertexBufferInfo* info : {a, b, c, big, other, d}) FreeVertices(info);
    EXPECT_EQ(GetVertexBytesAllotted(), bytes);
}

TEST_F(VertexPoolTest, OneDeviceLockServesEveryBlockOfAPool) {
    VertexBufferInfo* a = Take(10);
    const std::string buffer = "#" + std::to_string(DxObjectNumber(a->pool->buffer));
    DxCallRecorder calls;
    LockVertices(a, DDLOCK_DISCARDCONTENTS);
    UnlockVertices(a);
    VertexBufferInfo* b = Take(10);
    auto* first = static_cast<uint8_t*>(LockVertices(a, DDLOCK_DISCARDCONTENTS));
    EXPECT_EQ(LockVertices(b, 0), first + 10 * 32);
    EXPECT_EQ(LockVertices(b, 0), first + 10 * 32);  // already locked: not counted again
    UnlockVertices(a);
    UnlockVertices(a);  // not locked any more: nothing
    EXPECT_EQ(a->pool->lockCount, 1);
    UnlockVertices(b);
    // Alone in its pool a block takes the caller's flags; sharing, only the wait.
    EXPECT_EQ(calls.Only("Lock,Unlock"),
              (Lines{"Lock(" + buffer + ", 8193)", "Unlock(" + buffer + ")",
                     "Lock(" + buffer + ", 1)", "Unlock(" + buffer + ")"}));
    calls.Clear();
    DxFaultSwitches().locks = 1;
    EXPECT_NE(LockVertices(a, 0), nullptr);
    EXPECT_EQ(calls.Only("Lock,RestoreAllSurfaces").size(), 3u);
    FreeVertices(a);  // unlocks on the way
    EXPECT_EQ(b->pool->lockCount, 0);
    FreeVertices(b);
}

TEST_F(VertexPoolTest, ResetMarksForRefillAndRemakesOnlyOptimisedBuffers) {
    VertexBufferInfo* plain = Take(10);
    VertexBufferInfo* optimised = Take(10, 4);
    LockVertices(optimised, 0);
    OptimiseVertices(optimised->pool);
    LPDIRECT3DVERTEXBUFFER7 kept = plain->pool->buffer;
    DebugCapture debug;
    DxCallRecorder calls;
    ReplaceVertexBuffer(plain->pool);
    ReplaceVertexBuffer(optimised->pool);
    EXPECT_EQ(calls.Only("CreateVertexBuffer"), Lines{"CreateVertexBuffer(452, 8192, 0)"});
    EXPECT_EQ(debug.Text(), "DEBUG: Replacing Vertex Buffer\n");
    EXPECT_EQ(plain->pool->buffer, kept);
    EXPECT_TRUE(plain->refill && optimised->refill && !optimised->locked);
    EXPECT_EQ(optimised->pool->lockCount, 0);
    EXPECT_EQ(optimised->pool->kind, 4u);
    // The device closes first: the info outlives its pool and is only deleted.
    DestroyAllPools(renderer);
    EXPECT_EQ(optimised->pool, nullptr);
    FreeVertices(optimised);
    FreeVertices(plain);
    EXPECT_TRUE(Reports.empty());
}

TEST_F(VertexPoolTest, UnknownIdsInfosAndFormatsAreReported) {
    VertexBufferInfo* a = Take(10);
    VertexBufferInfo* b = Take(10);
    b->id = 999;
    EXPECT_EQ(LockVertices(b, 0), nullptr);
    b->id = 2;
    char missing[64];
    std::snprintf(missing, sizeof(missing), "Failed to find info %p in VB", static_cast<void*>(b));
    std::replace(a->pool->infos, a->pool->infos + 2, b, static_cast<VertexBufferInfo*>(nullptr));
    FreeVertices(b);
    a->pool->idCounter = 10000000;  // past the limit the smallest free id is taken
    VertexBufferInfo* c = Take(20);
    EXPECT_EQ(c->id, 3);
    EXPECT_EQ(GetDynamicBuffer(renderer, 12), nullptr);
    EXPECT_EQ(Reports, (Lines{"FAILED TO FIND VERTEX BUFFER INFO ID 999", missing,
                              "Cannot get a dynamic VB for the format 12"}));
    DxCallRecorder calls;
    LPDIRECT3DVERTEXBUFFER7 stream = GetDynamicBuffer(renderer, 7);
    EXPECT_EQ(GetDynamicBuffer(renderer, 7), stream);
    const int caps = renderer->HasHardwareTransform() ? 0x10000 : 0x10800;
    EXPECT_EQ(calls.Only("CreateVertexBuffer"),
              Lines{"CreateVertexBuffer(262674, 2048, " + std::to_string(caps) + ")"});
    FreeVertices(a);
    FreeVertices(c);
}

}  // namespace
