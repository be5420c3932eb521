// Fuzz target: the zlib method's expander and a compress-expand round trip at the level that the
// first byte picks. The expander does not read the prefix, so it serves as the claim.
#include "base/compression/zlib_method.h"
#include "tests/fuzz/method_fuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const int32_t level = size ? int32_t(data[0] % 11) - 1 : -1;
    return FuzzMethod(data, size, ZlibExpand, ZlibCompress, level,
                      [](uint32_t length, uint32_t) { return length > ZlibPrefixSize; });
}
