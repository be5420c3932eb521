// The tracker's tables and its allocation, release and reallocation (tracked build only).
#ifdef CV_DEBUG_MEMORY

#include "base/memory_tracker.h"

#include <cctype>
#include <chrono>
#include <cinttypes>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <thread>

#include "base/memory_tables.h"
#include "platform/debug/debug_output.h"

MemoryBucket MemoryBlockTable[MemoryBlockBuckets];
MemoryFileNode* MemoryFileTable[MemoryFileBuckets];

namespace {

struct MemoryModule {
    const char* moduleName;  // held for the reports of an application; none uses it yet
    MemoryOutputFunction output;
    MemoryErrorFunction error;
    uint8_t fill;
    uint8_t guards;
};

struct MemoryCounters {
    uint32_t bytes;
    uint32_t peakBytes;
    uint32_t blocks;
    uint32_t mallocCount;
    uint32_t freeCount;
    uint32_t reallocCount;
    uint32_t deleteCount;
    uint32_t newCount;
};

void DefaultPause(uint32_t milliseconds) {
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

// Static data with constant initialisers, so the tracker works before any constructor has run.
MemoryModule Module = {"Module data unavailable - direct call bypasses MACRO", OutputDebugStringA,
                       MemoryDefaultError, 1, 1};
MemoryCounters Counters = {};
MemoryPauseFunction Pause = DefaultPause;
uint8_t HistoryOn = 0;
MemoryHistoryRecord* History = nullptr;

// A record's name when the copy itself could not be made; reports then show no file node for it.
const char UnknownFile[] = "unknown";

// Array new of a type with a destructor stores the length in front of the elements; a DELETE of
// the element pointer misses the block by that much.
const size_t ArrayPrefix = sizeof(size_t);

char MessageBuffer[512];

uint32_t BlockBucket(const void* pointer) {
    uintptr_t p = reinterpret_cast<uintptr_t>(pointer);
    return uint32_t(((p >> 16) ^ (p & 0xFFFF)) % MemoryBlockBuckets);
}

MemoryRecord* FindRecord(const void* pointer, MemoryBucket** bucketOut) {
    MemoryBucket& bucket = MemoryBlockTable[BlockBucket(pointer)];
    for (uint32_t i = 0; i < bucket.count; ++i) {
        if (bucket.records[i].pointer == pointer) {
            if (bucketOut) *bucketOut = &bucket;
            return &bucket.records[i];
        }
    }
    return nullptr;
}

const char* InternFile(const char* name) {
    if (!name) return UnknownFile;
    MemoryFileNode*& head = MemoryFileTable[MemoryFileBucket(name)];
    for (MemoryFileNode* node = head; node; node = node->next) {
        if (std::strcmp(node->name, name) == 0) return node->name;
    }
    size_t bytes = std::strlen(name) + 1;
    MemoryFileNode* node = static_cast<MemoryFileNode*>(std::malloc(sizeof(MemoryFileNode)));
    char* copy = static_cast<char*>(std::malloc(bytes));
    if (!node || !copy) {
        std::free(node);
        std::free(copy);
        return UnknownFile;
    }
    std::memcpy(copy, name, bytes);
    *node = MemoryFileNode{copy, 0, nullptr, head};
    head = node;
    return copy;
}

bool AddRecord(const MemoryRecord& record) {
    MemoryBucket& bucket = MemoryBlockTable[BlockBucket(record.pointer)];
    if (bucket.count == bucket.capacity) {
        uint32_t grown = bucket.capacity + 256;
        MemoryRecord* records =
            static_cast<MemoryRecord*>(std::malloc(size_t(grown) * sizeof(MemoryRecord)));
        if (!records) return false;
        if (bucket.count) std::memcpy(records, bucket.records, bucket.count * sizeof(MemoryRecord));
        std::free(bucket.records);
        bucket.records = records;
        bucket.capacity = grown;
    }
    bucket.records[bucket.count++] = record;
    return true;
}

// Pointers print as the platform's %p did: upper-case hexadecimal, at least 8 digits.
void ReportPointer(const char* lead, const void* pointer, const char* tail, const char* file,
                   int line, uint32_t code) {
    std::snprintf(MessageBuffer, sizeof MessageBuffer, "%s0x%08" PRIXPTR "%s", lead,
                  reinterpret_cast<uintptr_t>(pointer), tail);
    MemoryReportError(MessageBuffer, file, line, code);
}

// MemoryAllocate without its counting of calls; MemoryReallocate counts its own.
void* AllocateBlock(size_t size, const char* file, int line, uint32_t kind) {
    const size_t guard = Module.guards ? size_t(MemoryGuardSize) : 0;
    unsigned char* heap = nullptr;
    // Sizes are 32-bit in the records and counters; a larger request fails like an empty heap.
    if (size <= UINT32_MAX - 2 * MemoryGuardSize) {
        size_t bytes = size + 2 * guard;
        heap = static_cast<unsigned char*>(std::malloc(bytes ? bytes : 1));
    }
    unsigned char* block = heap ? heap + guard : nullptr;
    if (block &&
        !AddRecord(MemoryRecord{uint32_t(size), block, kind, InternFile(file), uint32_t(line)})) {
        std::free(heap);
        block = nullptr;
    }
    if (!block) {
        std::snprintf(MessageBuffer, sizeof MessageBuffer, "Memory Allocation Failed: %d bytes\n",
                      int(uint32_t(size)));
        MemoryReportError(MessageBuffer, file, line, MemoryCodeAllocationFailed);
        return nullptr;
    }
    if (guard) {
        std::memset(heap, MemoryGuardByte, guard);
        std::memset(block + size, MemoryGuardByte, guard);
    }
    if (Module.fill) std::memset(block, MemoryNewByte, size);
    Counters.blocks += 1;
    Counters.bytes += uint32_t(size);
    if (Counters.bytes > Counters.peakBytes) Counters.peakBytes = Counters.bytes;
    return block;
}

void AddHistory(const MemoryRecord& record, const char* file, int line) {
    MemoryHistoryRecord* entry =
        static_cast<MemoryHistoryRecord*>(std::malloc(sizeof(MemoryHistoryRecord)));
    if (!entry) return;
    *entry = MemoryHistoryRecord{record.pointer, record.size,    record.file, InternFile(file),
                                 record.line,    uint32_t(line), History};
    History = entry;
}

void FreeHistory() {
    while (History) {
        MemoryHistoryRecord* next = History->next;
        std::free(History);
        History = next;
    }
}

void FreeTables() {
    for (MemoryBucket& bucket : MemoryBlockTable) {
        std::free(bucket.records);
        bucket = MemoryBucket{};
    }
    for (MemoryFileNode*& head : MemoryFileTable) {
        while (head) {
            MemoryFileNode* next = head->next;
            std::free(head->name);
            std::free(head);
            head = next;
        }
    }
    // Its records name files of the table just freed.
    FreeHistory();
    Counters.blocks = 0;
    Counters.bytes = 0;
}

}  // namespace

uint32_t MemoryFileBucket(const char* name) {
    uint32_t sum = 0;
    for (const char* c = name; *c; ++c)
        sum += uint32_t(std::toupper(static_cast<unsigned char>(*c)));
    return sum % MemoryFileBuckets;
}

void MemoryOutput(const char* text) {
    Module.output(text);
}

void MemoryReportError(const char* message, const char* file, int line, uint32_t code) {
    Module.error(message, file, line, code);
}

void MemoryOutputFormat(const char* format, ...) {
    char text[1024];
    va_list args;
    va_start(args, format);
    if (std::vsnprintf(text, sizeof text, format, args) < 0) text[0] = '\0';
    va_end(args);
    Module.output(text);
}

void MemoryPause(uint32_t milliseconds) {
    Pause(milliseconds);
}

bool MemoryGuardsOn() {
    return Module.guards != 0;
}

// Worker threads of a bake allocate too; a report's handler may allocate on the same thread.
static std::recursive_mutex TrackerLock;

void* MemoryAllocate(size_t size, const char* file, int line, uint32_t kind) {
    std::lock_guard<std::recursive_mutex> lock(TrackerLock);
    if (kind != MemoryKindNew)
        Counters.mallocCount += 1;
    else
        Counters.newCount += 1;
    return AllocateBlock(size, file, line, kind);
}

void MemoryRelease(void* pointer, const char* file, int line, uint32_t kind) {
    std::lock_guard<std::recursive_mutex> lock(TrackerLock);
    if (!pointer) {
        MemoryReportError(kind != MemoryKindNew ? "Attempting to FREE a NULL pointer."
                                                : "Attempting to DELETE a NULL pointer.",
                          file, line, MemoryCodeNullRelease);
        return;
    }
    if (kind != MemoryKindNew)
        Counters.freeCount += 1;
    else
        Counters.deleteCount += 1;

    MemoryRecord* record = FindRecord(pointer, nullptr);
    if (!record) {
        MemoryPrintHistory(pointer);
        ReportPointer("Trying to FREE a memory block which has not been allocated: ", pointer, "",
                      file, line, MemoryCodeNotAllocated);
        if (FindRecord(static_cast<unsigned char*>(pointer) - ArrayPrefix, nullptr))
            MemoryReportError("Possible Array missmatch use DELETEARRAY?", file, line,
                              MemoryCodeNotAllocated);
        return;
    }
    if (record->kind != kind) {
        if (kind == MemoryKindMalloc)
            MemoryReportError("Using FREE on a pointer allocated with NEW", file, line,
                              MemoryCodeFreeOnNew);
        else
            MemoryReportError("Using DELETE on a pointer allocated with MALLOC", file, line,
                              MemoryCodeDeleteOnMalloc);
    }
    // A report may run any handler, so the record is looked up again behind each.
    record = FindRecord(pointer, nullptr);
    if (!record) return;
    if (HistoryOn) AddHistory(*record, file, line);
    MemoryCheckBlock(record);

    MemoryBucket* bucket = nullptr;
    record = FindRecord(pointer, &bucket);
    if (!record) return;
    const uint32_t size = record->size;
    *record = bucket->records[--bucket->count];
    Counters.blocks -= 1;

    unsigned char* block = static_cast<unsigned char*>(pointer);
    if (Module.fill) std::memset(block, MemoryReleasedByte, size);
    std::free(Module.guards ? block - MemoryGuardSize : block);
    Counters.bytes -= size;
}

void* MemoryReallocate(void* old, size_t size, const char* file, int line) {
    std::lock_guard<std::recursive_mutex> lock(TrackerLock);
    Counters.reallocCount += 1;
    Counters.mallocCount += 1;
    void* block = AllocateBlock(size, file, line, MemoryKindMalloc);
    if (!block || !old) return block;
    const MemoryRecord* record = FindRecord(old, nullptr);
    if (!record) {
        ReportPointer("Could not reallocate invalid pointer ", old, ".", file, line,
                      MemoryCodeInvalidPointer);
        return block;
    }
    std::memcpy(block, old, record->size < size ? record->size : size);
    MemoryRelease(old, file, line, MemoryKindMalloc);
    return block;
}

const MemoryRecord* MemoryFindBlock(const void* pointer) {
    return FindRecord(pointer, nullptr);
}

void MemoryPrintHistory(const void* pointer) {
    MemoryOutput("HISTORY\n");
    for (const MemoryHistoryRecord* entry = History; entry; entry = entry->next) {
        if (entry->pointer != pointer) continue;
        MemoryOutputFormat("%s(%d) : Allocated as %d\n", entry->allocFile, int(entry->allocLine),
                           int(entry->size));
        MemoryOutputFormat("%s(%d) : Freed\n", entry->freeFile, int(entry->freeLine));
    }
    MemoryOutput("END HISTORY\n");
}

void MemoryDefaultError(const char* message, const char* file, int line, uint32_t code) {
    MemoryOutput(file ? file : UnknownFile);
    MemoryOutputFormat("(%d) : [CODE: %d]", line, int(code));
    MemoryOutput(" : MEMORY ERROR\n");
    MemoryOutput(message ? message : "");
    MemoryOutput("\n\n");
}

MemoryOutputFunction MemorySetOutput(MemoryOutputFunction output) {
    MemoryOutputFunction previous = Module.output;
    Module.output = output ? output : OutputDebugStringA;
    return previous;
}

MemoryErrorFunction MemorySetErrorHandler(MemoryErrorFunction error) {
    MemoryErrorFunction previous = Module.error;
    Module.error = error ? error : MemoryDefaultError;
    return previous;
}

MemoryPauseFunction MemorySetPauseForTesting(MemoryPauseFunction pause) {
    MemoryPauseFunction previous = Pause;
    Pause = pause ? pause : DefaultPause;
    return previous;
}

bool MemorySetFill(bool on) {
    bool previous = Module.fill != 0;
    Module.fill = on ? 1 : 0;
    return previous;
}

bool MemorySetHistory(bool on) {
    bool previous = HistoryOn != 0;
    HistoryOn = on ? 1 : 0;
    return previous;
}

bool MemorySetGuards(bool on) {
    if (Counters.blocks != 0) return (Module.guards != 0) == on;
    Module.guards = on ? 1 : 0;
    return true;
}

uint32_t MemoryGetBytes() {
    return Counters.bytes;
}
uint32_t MemoryGetPeakBytes() {
    return Counters.peakBytes;
}
uint32_t MemoryGetBlocks() {
    return Counters.blocks;
}
uint32_t MemoryGetMallocCount() {
    return Counters.mallocCount;
}
uint32_t MemoryGetFreeCount() {
    return Counters.freeCount;
}
uint32_t MemoryGetReallocCount() {
    return Counters.reallocCount;
}
uint32_t MemoryGetDeleteCount() {
    return Counters.deleteCount;
}
uint32_t MemoryGetNewCount() {
    return Counters.newCount;
}
const char* MemoryGetModuleName() {
    return Module.moduleName;
}

void MemoryResetTables() {
    // A second start while blocks are live keeps them: forgetting them would turn each later
    // release into a report of a block never allocated.
    if (Counters.blocks == 0) FreeTables();
}

void MemoryReportLeaksAndEmpty() {
    for (const MemoryBucket& bucket : MemoryBlockTable) {
        for (uint32_t i = 0; i < bucket.count; ++i) {
            const MemoryRecord& record = bucket.records[i];
            char text[1024];
            std::snprintf(text, sizeof text, "\n%s(%d) : Block 0x%08" PRIXPTR " : Size %8d\n",
                          record.file, int(record.line),
                          reinterpret_cast<uintptr_t>(record.pointer), int(record.size));
            MemoryCheckBlock(&record);
            MemoryOutput(text);
        }
    }
    FreeTables();
}

#endif  // CV_DEBUG_MEMORY
