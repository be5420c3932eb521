// The tracker's checks of guards, pointers, contents and tables (tracked build only).
#ifdef CV_DEBUG_MEMORY

#include <cinttypes>
#include <cstdio>
#include <cstring>

#include "base/memory_tables.h"
#include "base/memory_tracker.h"

namespace {

// Lines of up to 8 bytes, 63 columns: byte i as hexadecimal at column 3i and as a character at
// column 28 + i, with control and high bytes shown as '.'.
void DumpBytes(const unsigned char* bytes, uint32_t count) {
    static const char Hex[] = "0123456789ABCDEF";
    for (uint32_t at = 0; at < count; at += 8) {
        char line[64];
        std::memset(line, ' ', 63);
        line[63] = '\0';
        uint32_t n = count - at < 8 ? count - at : 8;
        for (uint32_t i = 0; i < n; ++i) {
            unsigned char value = bytes[at + i];
            line[3 * i] = Hex[value >> 4];
            line[3 * i + 1] = Hex[value & 15];
            line[28 + i] = (value < 32 || value >= 128) ? '.' : char(value);
        }
        MemoryOutput(line);
        MemoryOutput("\n");
    }
}

bool GuardDamaged(const unsigned char* guard) {
    for (uint32_t i = 0; i < MemoryGuardSize; ++i) {
        if (guard[i] != MemoryGuardByte) return true;
    }
    return false;
}

}  // namespace

bool MemoryCheckBlock(const MemoryRecord* record) {
    if (!record || !MemoryGuardsOn()) return false;
    const unsigned char* block = static_cast<const unsigned char*>(record->pointer);
    const unsigned char* header = block - MemoryGuardSize;
    const unsigned char* tail = block + record->size;
    const uint32_t start = record->size < 32 ? record->size : 32;
    const uintptr_t address = reinterpret_cast<uintptr_t>(block);
    const int line = int(record->line);
    const int size = int(record->size);

    const bool headerDamaged = GuardDamaged(header);
    if (headerDamaged) {
        MemoryOutput("ERROR: Memory Block Has Header Damage\n**********\n");
        MemoryOutputFormat("%s(%d) : Block 0x%08" PRIXPTR " %8d\n", record->file, line, address,
                           size);
        MemoryOutput("**********\n");
        DumpBytes(header, MemoryGuardSize);
        MemoryOutput("**********\n");
        DumpBytes(block, start);
        MemoryOutput("**********\n");
    }
    const bool tailDamaged = GuardDamaged(tail);
    if (tailDamaged) {
        MemoryOutput("**********\n");
        MemoryOutput("ERROR: Memory Block Has Tail Damage\n");
        MemoryOutputFormat("%s(%d) : Block 0x%08" PRIXPTR " 0x%08d\n", record->file, line, address,
                           size);
        MemoryOutput("Boundary Block\n");
        DumpBytes(tail, MemoryGuardSize);
        MemoryOutput("Memory Block\n");
        DumpBytes(block, start);
        MemoryOutput("**********\n");
    }
    return headerDamaged || tailDamaged;
}

// Only the table and the guards are asked: this platform cannot ask whether an address may be
// read or executed, so null stands for every pointer that could not be.
bool MemoryValidate(const void* pointer, int32_t /*size*/, const char* file, int line) {
    const MemoryRecord* record = MemoryFindBlock(pointer);
    if (pointer && !(record && MemoryCheckBlock(record))) return true;
    char message[128];
    std::snprintf(message, sizeof message, "Could not validate pointer 0x%08" PRIXPTR ".",
                  reinterpret_cast<uintptr_t>(pointer));
    MemoryReportError(message, file, line, MemoryCodeInvalidPointer);
    return false;
}

bool MemoryCheckInitialised(const void* pointer, long end, long start) {
    if (!pointer) return true;
    const unsigned char* bytes = static_cast<const unsigned char*>(pointer);
    long first = -1;
    for (long at = start; at < end; ++at) {
        if (bytes[at] == MemoryNewByte) {
            first = at;
            break;
        }
    }
    if (first < 0) return true;
    MemoryOutputFormat("WARNING: Memory Block Contains unititialised data at 0x%08" PRIXPTR
                       " offset %ld\n**********\n",
                       reinterpret_cast<uintptr_t>(pointer), first);
    return false;
}

bool MemoryCheckTables() {
    bool good = true;
    for (uint32_t i = 0; i < MemoryBlockBuckets; ++i) {
        const MemoryBucket& bucket = MemoryBlockTable[i];
        MemoryOutputFormat("Memory block %d count %d\n", int(i), int(bucket.count));
        for (uint32_t r = 0; r < bucket.count; ++r) {
            if (!bucket.records[r].pointer) good = false;
        }
    }
    return good;
}

#endif  // CV_DEBUG_MEMORY
