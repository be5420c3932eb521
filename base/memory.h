// Allocation macros of the base library. The ordinary build uses the plain heap; the tracked
// build (CV_DEBUG_MEMORY) routes them through the memory tracker with the caller's file and line.
//
// A build has the switch on or off for all of its code: a block that one path allocates and
// another releases is a misuse the tracker reports. Under the switch `delete` of a NEW object
// stays valid (the tracker's global operator delete recognises the block), so trees that delete
// their children with `delete` need no change.
#pragma once

#include <cstddef>
#include <cstdlib>

// Allocates size bytes, copies the smaller of the old and new size from old (which may be null),
// frees old; null for size 0 or when the heap gives nothing, and old is freed all the same.
// oldSize is what the caller knows of the old block; the tracked build uses the size it recorded.
// The name stands in parentheses so that the tracked build's macro of the same name leaves it be.
void*(CvReallocCopy)(void* old, size_t oldSize, size_t size);

// Start and end of the tracker. MemoryClose prints a notice on every close; the tracked build
// then lists each live block as a leak and empties its tables.
void MemoryInit();
void MemoryClose();

#ifdef CV_DEBUG_MEMORY

#include <type_traits>

#include "base/memory_tracker.h"

// The allocation functions behind NEW; they give null rather than throw when the heap is empty.
void* operator new(size_t size, const char* file, int line) noexcept;
void* operator new[](size_t size, const char* file, int line) noexcept;
// Called only when a constructor throws; the base library throws nothing.
void operator delete(void* block, const char* file, int line) noexcept;
void operator delete[](void* block, const char* file, int line) noexcept;

// DELETE runs the destructor and releases the most-derived object's block as kind 0, so the
// release is attributed to the caller's line.
template <typename T>
void MemoryDelete(T* object, const char* file, int line) {
    if (!object) {
        MemoryRelease(nullptr, file, line, MemoryKindNew);
        return;
    }
    void* block;
    if constexpr (std::is_polymorphic_v<T>)
        block = const_cast<void*>(dynamic_cast<const volatile void*>(object));
    else
        block = const_cast<void*>(static_cast<const volatile void*>(object));
    object->~T();
    MemoryRelease(block, file, line, MemoryKindNew);
}

// An array of a type without a destructor has no length prefix, so its block starts at the
// pointer; other arrays go through delete[], whose operator finds the block behind the prefix.
template <typename T>
void MemoryDeleteArray(T* array, const char* file, int line) {
    if constexpr (std::is_trivially_destructible_v<T>) {
        MemoryRelease(const_cast<void*>(static_cast<const volatile void*>(array)), file, line,
                      MemoryKindNew);
    } else {
        if (!array) {
            MemoryRelease(nullptr, file, line, MemoryKindNew);
            return;
        }
        delete[] array;
    }
}

// Keeps the plain build's contract (null for size 0, the old block gone even when the heap gave
// nothing); the size to copy comes from the tracker's record, not from the caller.
inline void* CvReallocCopyAt(void* old, size_t /*oldSize*/, size_t size, const char* file,
                             int line) {
    void* block = size ? MemoryReallocate(old, size, file, line) : nullptr;
    if (!block && old) MemoryRelease(old, file, line, MemoryKindMalloc);
    return block;
}

#define NEW new (__FILE__, __LINE__)
#define DELETE(p) MemoryDelete((p), __FILE__, __LINE__)
#define DELETEARRAY(p) MemoryDeleteArray((p), __FILE__, __LINE__)
#define MALLOC(size) MemoryAllocate((size), __FILE__, __LINE__, MemoryKindMalloc)
#define FREE(p) MemoryRelease((p), __FILE__, __LINE__, MemoryKindMalloc)
#define CvReallocCopy(old, oldSize, size) \
    CvReallocCopyAt((old), (oldSize), (size), __FILE__, __LINE__)

#else

#define NEW new
#define DELETE(p) delete (p)
#define DELETEARRAY(p) delete[](p)
#define MALLOC(size) std::malloc(size)
#define FREE(p) std::free(p)

#endif
