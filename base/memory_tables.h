// Inside of the memory tracker, shared by its source files only.
#pragma once

#include <cstdint>

#include "base/memory_tracker.h"

struct MemoryBucket {
    uint32_t count;
    uint32_t capacity;
    MemoryRecord* records;  // unordered; a removal moves the last record into the gap
};

// Used only within a report.
struct MemoryLineNode {
    uint32_t line;
    uint32_t bytes;
    uint32_t blocks;
    MemoryLineNode* next;
};

struct MemoryFileNode {
    char* name;  // owned copy; records point at it
    uint32_t total;
    MemoryLineNode* lines;
    MemoryFileNode* next;
};

extern MemoryBucket MemoryBlockTable[MemoryBlockBuckets];
extern MemoryFileNode* MemoryFileTable[MemoryFileBuckets];

uint32_t MemoryFileBucket(const char* name);

// All report texts go through the output function.
void MemoryOutput(const char* text);
void MemoryOutputFormat(const char* format, ...) __attribute__((format(printf, 1, 2)));
void MemoryPause(uint32_t milliseconds);
// Misuse goes to the error function.
void MemoryReportError(const char* message, const char* file, int line, uint32_t code);
bool MemoryGuardsOn();

// MemoryInit's and MemoryClose's work on the tables.
void MemoryResetTables();
void MemoryReportLeaksAndEmpty();
