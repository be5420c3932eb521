// The memory tracker of the tracked build (CV_DEBUG_MEMORY): guard bytes around each block, fill
// patterns, a hash table of live blocks, checks of every release, a report by source file.
// The ordinary build compiles none of it and its macros go to the plain heap: the guards, fills,
// records and searches cost memory and time on every call, and the tool runs without them.
//
// Block layout with guards on: 8 guard bytes, the caller's block, 8 guard bytes; the caller's
// pointer lies 8 bytes behind the heap's. The tracker's own tables come straight from the heap.
// No locks: the tracker is for one thread.
#pragma once

#include <cstddef>
#include <cstdint>

enum : uint32_t {
    MemoryKindNew = 0,
    MemoryKindMalloc = 1,
};

// Misuse codes passed to the error function.
enum : uint32_t {
    MemoryCodeNullRelease = 256,
    MemoryCodeFreeOnNew = 257,
    MemoryCodeDeleteOnMalloc = 258,
    MemoryCodeNotAllocated = 259,
    MemoryCodeInvalidPointer = 260,
    MemoryCodeAllocationFailed = 261,
};

enum : uint8_t {
    MemoryGuardByte = 0xBD,
    MemoryNewByte = 0xCD,       // a new block, with fill on
    MemoryReleasedByte = 0xEF,  // a released block just before it goes back, with fill on
};

enum : uint32_t {
    MemoryGuardSize = 8,
    MemoryBlockBuckets = 9733,
    MemoryFileBuckets = 109,
};

// One live block.
struct MemoryRecord {
    uint32_t size;     // the caller's size
    void* pointer;     // the caller's pointer
    uint32_t kind;     // MemoryKindNew or MemoryKindMalloc
    const char* file;  // interned: equal names share one pointer
    uint32_t line;
};

// One release, kept while the history flag is set; newest first.
struct MemoryHistoryRecord {
    void* pointer;
    uint32_t size;
    const char* allocFile;
    const char* freeFile;
    uint32_t allocLine;
    uint32_t freeLine;
    MemoryHistoryRecord* next;
};

using MemoryOutputFunction = void (*)(const char* text);
using MemoryErrorFunction = void (*)(const char* message, const char* file, int line,
                                     uint32_t code);

// The caller's pointer, or null (reported with code 261).
void* MemoryAllocate(size_t size, const char* file, int line, uint32_t kind);
void MemoryRelease(void* pointer, const char* file, int line, uint32_t kind);
// The new block, or null with the old one left as it was. The result is a kind 1 block.
void* MemoryReallocate(void* old, size_t size, const char* file, int line);

// True if a guard of the block is damaged; the texts go to the output function.
bool MemoryCheckBlock(const MemoryRecord* record);
// True if the pointer is good; a good pointer needs no record.
bool MemoryValidate(const void* pointer, int32_t size, const char* file, int line);
// True if no byte at offsets start up to below end holds the new-block pattern.
bool MemoryCheckInitialised(const void* pointer, long end, long start);
// True if every record holds a pointer; prints each bucket's count.
bool MemoryCheckTables();
void MemoryPrintHistory(const void* pointer);
// Format 0: live bytes by file; format 1: by file and line.
void PrintMemoryTable(int32_t format);

// The record of a live block, or null; valid until the next allocation or release.
const MemoryRecord* MemoryFindBlock(const void* pointer);

// Each setter returns what it replaces; null puts the default back (the debug output, and
// MemoryDefaultError).
MemoryOutputFunction MemorySetOutput(MemoryOutputFunction output);
MemoryErrorFunction MemorySetErrorHandler(MemoryErrorFunction error);
// Prints the report and lets the run go on.
void MemoryDefaultError(const char* message, const char* file, int line, uint32_t code);

// Flags; these setters return the old value. The history flag is off at start.
bool MemorySetFill(bool on);
bool MemorySetHistory(bool on);
// True if the guards now stand as asked. They change the layout of a block, so they switch only
// while no block is live.
bool MemorySetGuards(bool on);

uint32_t MemoryGetBytes();
uint32_t MemoryGetPeakBytes();
uint32_t MemoryGetBlocks();
uint32_t MemoryGetMallocCount();  // allocations of kind 1, and reallocations
uint32_t MemoryGetFreeCount();    // releases of kind 1
uint32_t MemoryGetReallocCount();
uint32_t MemoryGetDeleteCount();  // releases of kind 0
uint32_t MemoryGetNewCount();     // allocations of kind 0
const char* MemoryGetModuleName();

// PrintMemoryTable pauses between its outputs so a slow debug viewer keeps up; tests replace the
// pause. Null puts the real one back.
using MemoryPauseFunction = void (*)(uint32_t milliseconds);
MemoryPauseFunction MemorySetPauseForTesting(MemoryPauseFunction pause);
