#include "base/compression/zlib_method.h"

#include <zlib.h>

#include "base/diagnostics.h"

uint32_t ZlibCompress(const uint8_t* source, uint8_t* target, uint32_t size, uint32_t capacity,
                      int32_t level) {
    ASSERT(target && (source || size == 0));
    if (!target || (!source && size)) return 0;
    if (capacity < ZlibPrefixSize) {
        CorvaneWarning("ZlibCompress: %u bytes of room are too few", capacity);
        return 0;
    }
    target[0] = uint8_t(size);
    target[1] = uint8_t(size >> 8);
    target[2] = uint8_t(size >> 16);
    target[3] = uint8_t(size >> 24);
    const Bytef empty = 0;
    uLongf length = capacity - ZlibPrefixSize;
    const int result =
        compress2(target + ZlibPrefixSize, &length, source ? source : &empty, size, level);
    if (result != Z_OK) {
        CorvaneWarning("ZlibCompress: zlib gives %d for %u bytes at level %d", result, size, level);
        return 0;
    }
    return uint32_t(length) + ZlibPrefixSize;
}

bool ZlibExpand(const uint8_t* source, uint8_t* target, uint32_t* sizeOut, uint32_t storedSize,
                uint32_t size) {
    ASSERT(sizeOut && (source || storedSize == 0) && (target || size == 0));
    if (!sizeOut) return false;
    *sizeOut = 0;
    if ((!source && storedSize) || (!target && size)) return false;
    if (storedSize < ZlibPrefixSize) {
        CorvaneWarning("Zlib entry of %u bytes is shorter than its prefix", storedSize);
        return false;
    }
    // zlib wants somewhere to write even when nothing is expected, to see a stream that would
    // give more.
    Bytef spare = 0;
    uLongf length = size;
    const int result = uncompress(size ? target : &spare, &length, source + ZlibPrefixSize,
                                  storedSize - ZlibPrefixSize);
    if (result != Z_OK) {
        CorvaneWarning("Zlib entry of %u bytes does not expand to %u bytes: zlib gives %d",
                       storedSize, size, result);
        return false;
    }
    if (length != size) {
        CorvaneWarning("Zlib entry expands to %lu bytes where %u were expected",
                       static_cast<unsigned long>(length), size);
        return false;
    }
    *sizeOut = size;
    return true;
}
