#include "base/reslibrary_header.h"

#include <cstring>

#include "base/memory.h"
#include "base/services.h"

namespace {

uint32_t ReadU32(const uint8_t* p) {
    return uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24;
}

void WriteU32(uint8_t* p, uint32_t value) {
    p[0] = uint8_t(value);
    p[1] = uint8_t(value >> 8);
    p[2] = uint8_t(value >> 16);
    p[3] = uint8_t(value >> 24);
}

}  // namespace

bool ResourceNameLess::operator()(const char* a, const char* b) const {
    return std::strcmp(a, b) < 0;
}

void NormaliseResourceName(char* name) {
    for (char* c = name; *c; ++c) {
        if (*c == '/') *c = '\\';
        if (*c >= 'a' && *c <= 'z') *c = char(*c - 'a' + 'A');
    }
}

ResourceRecord* NewResourceRecord(const char* name, int32_t time, uint32_t method,
                                  uint32_t storedSize, uint32_t size, uint32_t volume,
                                  uint32_t offset) {
    char* copy = CopyString(name);
    if (!copy) return nullptr;
    NormaliseResourceName(copy);
    ResourceRecord* record = NEW ResourceRecord{uint32_t(std::strlen(copy) + 1),
                                                time,
                                                method,
                                                storedSize,
                                                size,
                                                copy,
                                                volume,
                                                offset};
    if (!record && copy) FREE(copy);
    return record;
}

void FreeResourceRecord(ResourceRecord* record) {
    if (!record) return;
    if (record->name) FREE(record->name);
    DELETE(record);
}

bool ReadResourceHeader(const uint8_t* bytes, size_t size, uint32_t volume,
                        ResourceRecordSink sink, void* context, size_t* damageAt) {
    size_t at = 0;
    while (at < size) {
        const size_t left = size - at;
        const uint32_t nameLength = left >= 4 ? ReadU32(bytes + at) : 0;
        const uint8_t* name = bytes + at + ResourceHeaderFixedSize;
        if (left < ResourceHeaderFixedSize || nameLength == 0 ||
            nameLength > left - ResourceHeaderFixedSize || name[nameLength - 1] != 0) {
            if (damageAt) *damageAt = at;
            return false;
        }
        const uint8_t* p = bytes + at;
        // The name may end before its length says; the stored length is recounted from the text.
        ResourceRecord* record =
            NewResourceRecord(reinterpret_cast<const char*>(name), int32_t(ReadU32(p + 4)),
                              ReadU32(p + 8), ReadU32(p + 12), ReadU32(p + 16), volume,
                              ReadU32(p + 20));
        if (record) sink(context, record);
        at += ResourceHeaderFixedSize + nameLength;
    }
    return true;
}

size_t WriteResourceHeaderRecord(const ResourceRecord& record, const char* name, uint8_t* out,
                                 size_t capacity) {
    const size_t nameLength = std::strlen(name) + 1;
    const size_t total = ResourceHeaderFixedSize + nameLength;
    if (capacity < total) return 0;
    WriteU32(out, uint32_t(nameLength));
    WriteU32(out + 4, uint32_t(record.time));
    WriteU32(out + 8, record.method);
    WriteU32(out + 12, record.storedSize);
    WriteU32(out + 16, record.size);
    WriteU32(out + 20, record.offset);
    std::memcpy(out + ResourceHeaderFixedSize, name, nameLength);
    return total;
}
