// A forward cursor over a VBF file image held in memory. Every read checks the bytes that remain
// and copies with memcpy, so neither a short image nor a hostile count reads past its end, and
// nothing is read through a misaligned pointer. Values are little-endian whatever the host.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

class VBFCursor {
public:
    VBFCursor(const uint8_t* image, size_t length) : data(image), size(length), offset(0) {}

    size_t Offset() const { return offset; }
    size_t Remaining() const { return size - offset; }
    // Whether count more bytes lie in the image. Counts come as products of file values, so they
    // are taken as 64-bit and compared before anything is allocated for them.
    bool Has(uint64_t count) const { return count <= Remaining(); }
    const uint8_t* Here() const { return data + offset; }

    bool Skip(uint64_t count) {
        if (!Has(count)) return false;
        offset += size_t(count);
        return true;
    }
    bool ReadBytes(void* out, uint64_t count) {
        if (!Has(count)) return false;
        if (count) std::memcpy(out, data + offset, size_t(count));
        offset += size_t(count);
        return true;
    }
    bool ReadU8(uint8_t& out) { return ReadBytes(&out, 1); }
    bool ReadU16(uint16_t& out) {
        uint8_t b[2];
        if (!ReadBytes(b, 2)) return false;
        out = uint16_t(b[0] | (b[1] << 8));
        return true;
    }
    bool ReadU32(uint32_t& out) {
        uint8_t b[4];
        if (!ReadBytes(b, 4)) return false;
        out = uint32_t(b[0]) | uint32_t(b[1]) << 8 | uint32_t(b[2]) << 16 | uint32_t(b[3]) << 24;
        return true;
    }
    bool ReadI32(int32_t& out) {
        uint32_t bits;
        if (!ReadU32(bits)) return false;
        out = int32_t(bits);
        return true;
    }
    bool ReadF32(float& out) {
        uint32_t bits;
        if (!ReadU32(bits)) return false;
        std::memcpy(&out, &bits, sizeof out);
        return true;
    }
    bool ReadF64(double& out) {
        uint32_t low, high;
        if (!ReadU32(low) || !ReadU32(high)) return false;
        uint64_t bits = uint64_t(high) << 32 | low;
        std::memcpy(&out, &bits, sizeof out);
        return true;
    }
    // A zero-terminated string whose terminator lies within the next limit bytes. text points
    // into the image; length leaves the terminator out.
    bool ReadString(const char*& text, size_t& length, size_t limit) {
        if (limit > Remaining()) limit = Remaining();
        const void* end = std::memchr(data + offset, 0, limit);
        if (!end) return false;
        text = reinterpret_cast<const char*>(data + offset);
        length = size_t(static_cast<const uint8_t*>(end) - (data + offset));
        offset += length + 1;
        return true;
    }

private:
    const uint8_t* data;
    size_t size;
    size_t offset;
};
