#include "base/compression/huffman.h"

#include <cstring>

#include "base/diagnostics.h"

namespace {

enum : uint32_t {
    FirstNode = 256,
    SpareNode = 512,  // fills a merged place, so no scan picks it again
    RepeatedSize = HuffmanHeaderSize + 4,
};

// Places not in play weigh the most a weight can, and the scans pick only weights strictly below
// their start, so they are never chosen. Weights of an input sum to at most 2^32 - 1, so every
// merge of every input size finds two children.
constexpr uint64_t NotInPlay = UINT64_MAX;

uint32_t Load32(const uint8_t* p) {
    return uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24;
}

void Store32(uint8_t* p, uint32_t value) {
    p[0] = uint8_t(value);
    p[1] = uint8_t(value >> 8);
    p[2] = uint8_t(value >> 16);
    p[3] = uint8_t(value >> 24);
}

struct Code {
    uint64_t bits;  // first step from the root in bit 0
    uint32_t length;
};

// Collects bits into 32-bit words, lowest bit first, and stores each full word behind the
// header; refuses a word that would pass the capacity.
struct BitWriter {
    uint8_t* target;
    uint32_t capacity;
    uint32_t used = HuffmanHeaderSize;
    uint64_t pending = 0;
    uint32_t pendingBits = 0;

    bool Put(uint32_t bits, uint32_t count) {  // count at most 32
        pending |= uint64_t(bits) << pendingBits;
        pendingBits += count;
        if (pendingBits < 32) return true;
        if (!Flush()) return false;
        pending >>= 32;
        pendingBits -= 32;
        return true;
    }
    bool Flush() {
        if (capacity - used < 4) return false;
        Store32(target + used, uint32_t(pending));
        used += 4;
        return true;
    }
};

uint32_t RefuseCapacity(uint32_t capacity) {
    CorvaneWarning("HuffmanCompress: %u bytes of room are too few", capacity);
    return 0;
}

}  // namespace

uint32_t HuffmanCompress(const uint8_t* source, uint8_t* target, uint32_t size, uint32_t capacity,
                         int32_t /*level*/) {
    ASSERT(target && (source || size == 0));
    if (!target || (!source && size)) return 0;
    if (capacity < HuffmanHeaderSize) return RefuseCapacity(capacity);

    uint32_t counts[256] = {};
    for (uint32_t i = 0; i < size; ++i) ++counts[source[i]];
    uint32_t distinct = 0;
    uint32_t lastValue = 0;
    for (uint32_t value = 0; value < 256; ++value) {
        if (!counts[value]) continue;
        ++distinct;
        lastValue = value;
    }

    std::memset(target, 0, HuffmanHeaderSize);
    Store32(target, size);
    if (distinct == 0) return HuffmanHeaderSize;  // nothing to code: root 0, no stream
    if (distinct == 1) {
        // The root is the value itself; the word behind the tree carries nothing.
        if (capacity < RepeatedSize) return RefuseCapacity(capacity);
        Store32(target + 4, lastValue);
        Store32(target + HuffmanHeaderSize, 0);
        return RepeatedSize;
    }

    uint64_t weight[SpareNode + 1];
    uint16_t place[256];
    for (uint32_t i = 0; i < 256; ++i) {
        weight[i] = counts[i] ? counts[i] : NotInPlay;
        place[i] = uint16_t(i);
    }
    weight[SpareNode] = NotInPlay;

    uint16_t tree[HuffmanTreeValues] = {};
    uint16_t parent[SpareNode];
    uint8_t branch[SpareNode];
    uint32_t node = FirstNode;
    for (uint32_t merge = 0; merge + 1 < distinct; ++merge, ++node) {
        // Of equal weights the earlier place wins, which fixes the tree bit for bit.
        uint64_t smallest = NotInPlay;
        uint64_t second = NotInPlay;
        uint32_t smallestPlace = 0;
        uint32_t secondPlace = 0;
        for (uint32_t p = 0; p < 256; ++p) {
            const uint64_t w = weight[place[p]];
            if (w < smallest) {
                second = smallest;
                secondPlace = smallestPlace;
                smallest = w;
                smallestPlace = p;
            } else if (w < second) {
                second = w;
                secondPlace = p;
            }
        }
        const uint16_t zero = place[smallestPlace];
        const uint16_t one = place[secondPlace];
        tree[2 * node] = zero;
        tree[2 * node + 1] = one;
        weight[node] = smallest + second;
        parent[zero] = uint16_t(node);
        branch[zero] = 0;
        parent[one] = uint16_t(node);
        branch[one] = 1;
        place[smallestPlace] = uint16_t(node);
        place[secondPlace] = SpareNode;
    }
    const uint32_t root = node - 1;

    // A code of length L needs a total weight of at least the Fibonacci number F(L + 2), so
    // weights below 2^32 keep every code within 45 bits, and a 64-bit code holds any.
    Code codes[256] = {};
    for (uint32_t value = 0; value < 256; ++value) {
        if (!counts[value]) continue;
        uint32_t length = 0;
        for (uint32_t n = value; n != root; n = parent[n]) ++length;
        uint64_t bits = 0;
        uint32_t depth = length;
        for (uint32_t n = value; n != root; n = parent[n]) bits |= uint64_t(branch[n]) << --depth;
        ASSERT(length <= 64);
        codes[value] = {bits, length};
    }

    Store32(target + 4, root);
    for (uint32_t i = 0; i < HuffmanTreeValues; ++i) {
        target[8 + 2 * i] = uint8_t(tree[i]);
        target[9 + 2 * i] = uint8_t(tree[i] >> 8);
    }

    BitWriter writer{target, capacity};
    for (uint32_t i = 0; i < size; ++i) {
        const Code& code = codes[source[i]];
        bool fits = code.length <= 32 ? writer.Put(uint32_t(code.bits), code.length)
                                      : writer.Put(uint32_t(code.bits), 32) &&
                                            writer.Put(uint32_t(code.bits >> 32), code.length - 32);
        if (!fits) return RefuseCapacity(capacity);
    }
    if (writer.pendingBits && !writer.Flush()) return RefuseCapacity(capacity);
    return writer.used;
}

bool HuffmanExpand(const uint8_t* source, uint8_t* target, uint32_t* sizeOut, uint32_t storedSize,
                   uint32_t size) {
    ASSERT(sizeOut && (source || storedSize == 0) && (target || size == 0));
    if (!sizeOut) return false;
    *sizeOut = 0;
    if ((!source && storedSize) || (!target && size)) return false;
    if (storedSize < HuffmanHeaderSize) {
        CorvaneWarning("Huffman entry of %u bytes is shorter than its header", storedSize);
        return false;
    }
    const uint32_t claimed = Load32(source);
    if (claimed != size) {
        CorvaneWarning("Huffman entry holds %u bytes where %u were expected", claimed, size);
        return false;
    }
    const uint32_t root = Load32(source + 4);
    if (root < FirstNode) {
        if (size) std::memset(target, int(root), size);
        *sizeOut = size;
        return true;
    }
    if (root >= SpareNode) {
        CorvaneWarning("Huffman entry's root %u is no node", root);
        return false;
    }
    // With every value below 512, any node indexes the table: a damaged tree can only send the
    // walk the wrong way, and the end of the bit stream stops it.
    uint16_t tree[HuffmanTreeValues];
    for (uint32_t i = 0; i < HuffmanTreeValues; ++i) {
        tree[i] = uint16_t(source[8 + 2 * i] | source[9 + 2 * i] << 8);
        if (tree[i] >= SpareNode) {
            CorvaneWarning("Huffman entry's tree holds %u, which is no node", tree[i]);
            return false;
        }
    }

    const uint8_t* words = source + HuffmanHeaderSize;
    const uint32_t wordCount = (storedSize - HuffmanHeaderSize) / 4;
    uint32_t nextWord = 0;
    uint32_t word = 0;
    uint32_t bitsLeft = 0;
    for (uint32_t i = 0; i < size; ++i) {
        uint32_t node = root;
        while (node >= FirstNode) {
            if (bitsLeft == 0) {
                if (nextWord == wordCount) {
                    CorvaneWarning("Huffman entry's bit stream ends after %u of %u bytes", i, size);
                    return false;
                }
                word = Load32(words + 4 * nextWord++);
                bitsLeft = 32;
            }
            node = tree[2 * node + (word & 1)];
            word >>= 1;
            --bitsLeft;
        }
        target[i] = uint8_t(node);
    }
    *sizeOut = size;
    return true;
}
