// The records of a resource library's header file, and the life of one record.
//
// A header file is a plain series of records to its end, all numbers 32-bit little-endian:
// name length N (terminator included), time, method, stored size, size, offset, then N bytes of
// name ending in a zero byte. Nothing else marks the file, so its length is the one bound.
#pragma once

#include <cstddef>
#include <cstdint>

#include "base/ResLibrary.h"

enum : uint32_t { ResourceHeaderFixedSize = 24 };

// Turns every "/" into "\" and every ASCII letter to upper case, in place.
void NormaliseResourceName(char* name);

// A record with a normalised copy of name; null if memory can't be had.
ResourceRecord* NewResourceRecord(const char* name, int32_t time, uint32_t method,
                                  uint32_t storedSize, uint32_t size, uint32_t volume,
                                  uint32_t offset);
void FreeResourceRecord(ResourceRecord* record);

using ResourceRecordSink = void (*)(void* context, ResourceRecord* record);

// Hands each record of the header bytes, with the given volume, to sink, which takes it over.
// Stops at the first record that does not fit in the bytes left, whose name length is 0, or whose
// name does not end in its terminator: false then, with that record's offset in *damageAt. The
// records before it have been handed over.
bool ReadResourceHeader(const uint8_t* bytes, size_t size, uint32_t volume,
                        ResourceRecordSink sink, void* context, size_t* damageAt);

// The six fields and the name of one record as they stand in a header file; the bytes written,
// or 0 if out (capacity bytes) is too small.
size_t WriteResourceHeaderRecord(const ResourceRecord& record, const char* name, uint8_t* out,
                                 size_t capacity);
