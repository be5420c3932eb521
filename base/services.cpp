#include "base/services.h"

#include <cstring>

#include "base/diagnostics.h"
#include "base/memory.h"
#include "platform/crt/clock.h"

char* CopyString(const char* text) {
    if (!text) return nullptr;
    size_t bytes = std::strlen(text) + 1;
    char* copy = static_cast<char*>(MALLOC(bytes));
    if (copy) std::memcpy(copy, text, bytes);
    return copy;
}

char16_t* CopyWideString(const char16_t* text) {
    if (!text) return nullptr;
    size_t length = 0;
    while (text[length]) ++length;
    size_t bytes = length * 2 + 2;
    char16_t* copy = static_cast<char16_t*>(MALLOC(bytes));
    if (copy) std::memcpy(copy, text, bytes);
    return copy;
}

void* AlignedAlloc(size_t size) {
    unsigned char* block = static_cast<unsigned char*>(MALLOC(size + 32));
    if (!block) return nullptr;
    uintptr_t start = reinterpret_cast<uintptr_t>(block);
    // Heap and tracked blocks start on a multiple of 8, so the gap up to the first multiple of 32
    // past the stored pointer is at most 32 bytes: the extra 32 cover it.
    ASSERT(start % sizeof(void*) == 0);
    uintptr_t aligned = (start + sizeof(void*) + 31) & ~uintptr_t(31);
    unsigned char* result = block + (aligned - start);
    std::memcpy(result - sizeof(void*), &block, sizeof(void*));
    return result;
}

void AlignedFree(void* p) {
    if (!p) return;
    void* block;
    std::memcpy(&block, static_cast<unsigned char*>(p) - sizeof(void*), sizeof(void*));
    if (block) FREE(block);
}

double ReadCycleCounter() {
    return double(uint32_t(ReadTimeStampCounter()));
}
