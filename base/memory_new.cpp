// The tracked build's operators new and delete (tracked build only).
//
// NEW places objects with the allocation functions that take the caller's file and line. The
// global operators are replaced as well, for one reason: code written for either build deletes
// NEW objects with a plain `delete` (a tree deleting its children), and that must release a
// tracked block through the tracker instead of handing the heap a pointer 8 bytes into a block.
// Every other `new` stays untracked, with a mark in front of the block by which delete tells the
// two apart, even for a tracked block whose record a MemoryClose has dropped, and without asking
// the tracker's tables.
#ifdef CV_DEBUG_MEMORY

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include "base/memory.h"
#include "base/memory_tables.h"

namespace {

// Plain blocks: 8 unused bytes, the mark, then the caller's bytes, which keep the heap's 16-byte
// alignment. A tracked block has guard bytes (0xBD) where the mark would stand.
const uint64_t PlainMark = 0x4B52414D4E49414CULL;
const size_t PlainHeader = 16;

// The file that a release by a plain `delete` is recorded under.
const char DeleteSite[] = "delete";

void* PlainAllocate(size_t size) noexcept {
    if (size > SIZE_MAX - PlainHeader) return nullptr;
    unsigned char* heap = static_cast<unsigned char*>(std::malloc(size + PlainHeader));
    if (!heap) return nullptr;
    std::memcpy(heap + PlainHeader - sizeof PlainMark, &PlainMark, sizeof PlainMark);
    return heap + PlainHeader;
}

void* PlainAllocateOrStop(size_t size) {
    for (;;) {
        if (void* block = PlainAllocate(size)) return block;
        std::new_handler handler = std::get_new_handler();
        if (!handler) {
            std::fputs("operator new: out of memory\n", stderr);
            std::abort();
        }
        handler();
    }
}

// Plain blocks are told by their mark alone, so that the worker threads' deletes never touch
// the tracker's tables, which belong to one thread. Only without guards could the bytes before a
// tracked block lie outside it; then the table is asked first.
void PlainRelease(void* block) noexcept {
    if (!block) return;
    if (!MemoryGuardsOn() && MemoryFindBlock(block)) {
        MemoryRelease(block, DeleteSite, 0, MemoryKindNew);
        return;
    }
    unsigned char* bytes = static_cast<unsigned char*>(block);
    uint64_t mark;
    std::memcpy(&mark, bytes - sizeof mark, sizeof mark);
    if (mark == PlainMark) {
        std::memset(bytes - sizeof mark, 0, sizeof mark);  // a second delete finds no mark
        std::free(bytes - PlainHeader);
        return;
    }
    // A NEW block; one that the tables no longer hold is reported and left to the heap.
    MemoryRelease(block, DeleteSite, 0, MemoryKindNew);
}

}  // namespace

void* operator new(size_t size, const char* file, int line) noexcept {
    return MemoryAllocate(size, file, line, MemoryKindNew);
}

void* operator new[](size_t size, const char* file, int line) noexcept {
    return MemoryAllocate(size, file, line, MemoryKindNew);
}

void operator delete(void* block, const char* file, int line) noexcept {
    MemoryRelease(block, file, line, MemoryKindNew);
}

void operator delete[](void* block, const char* file, int line) noexcept {
    MemoryRelease(block, file, line, MemoryKindNew);
}

void* operator new(size_t size) {
    return PlainAllocateOrStop(size);
}
void* operator new[](size_t size) {
    return PlainAllocateOrStop(size);
}
void* operator new(size_t size, const std::nothrow_t&) noexcept {
    return PlainAllocate(size);
}
void* operator new[](size_t size, const std::nothrow_t&) noexcept {
    return PlainAllocate(size);
}

void operator delete(void* block) noexcept {
    PlainRelease(block);
}
void operator delete[](void* block) noexcept {
    PlainRelease(block);
}
void operator delete(void* block, size_t) noexcept {
    PlainRelease(block);
}
void operator delete[](void* block, size_t) noexcept {
    PlainRelease(block);
}
void operator delete(void* block, const std::nothrow_t&) noexcept {
    PlainRelease(block);
}
void operator delete[](void* block, const std::nothrow_t&) noexcept {
    PlainRelease(block);
}

#endif  // CV_DEBUG_MEMORY
