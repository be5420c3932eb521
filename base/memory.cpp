#include "base/memory.h"

#include <cstring>

void* CvReallocCopy(void* old, size_t oldSize, size_t size) {
    void* block = size ? MALLOC(size) : nullptr;
    if (block && old) std::memcpy(block, old, oldSize < size ? oldSize : size);
    if (old) FREE(old);
    return block;
}

void MemoryInit() {}

void MemoryClose() {}
