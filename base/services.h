// Small services that every layer leans on: string copies, 32-byte aligned blocks, cycle counter.
#pragma once

#include <cstddef>
#include <cstdint>

char* CopyString(const char* text);              // FREE the result; null for null
char16_t* CopyWideString(const char16_t* text);  // FREE the result; null for null

// The returned block is a multiple of 32. The heap block's start is kept in the pointer-sized
// word just below it (a 32-bit word cannot hold a pointer here), so the alignment gap is at
// least that word.
void* AlignedAlloc(size_t size);
void AlignedFree(void* p);

double ReadCycleCounter();  // low 32 bits of the time stamp counter, as a non-negative number
