// Compression method 1: a Huffman coder whose whole tree travels with each entry.
//
// Stored bytes, little-endian:
//   0     4     uncompressed size
//   4     4     root node number; for an input of one repeated byte value, that value
//   8     2048  tree: 1024 u16; node n (numbered from 256) keeps its child for bit 0 in value 2n
//               and for bit 1 in value 2n+1; a value below 256 is a byte value (a leaf)
//   2056  4k    bit stream in 32-bit words, each used from its lowest bit up; a byte's code runs
//               from the root down; the last word is written only if it holds a bit
// The stream has no length of its own: the uncompressed size ends it.
#pragma once

#include <cstdint>

enum : uint32_t {
    HuffmanHeaderSize = 2056,
    HuffmanTreeValues = 1024,
};

// Compresses size bytes of source into target and gives the bytes stored: 2056 plus 4 per word
// of bit stream, or 2060 for an input of one repeated value. Level is not used. Gives 0, with a
// warning, where the output would not fit in capacity; size + 2060 always suffices. Works on its
// own stack only, so calls may run side by side.
uint32_t HuffmanCompress(const uint8_t* source, uint8_t* target, uint32_t size, uint32_t capacity,
                         int32_t level);

// Expands storedSize bytes of source into target, which holds size bytes: size is what the entry
// claims as its uncompressed size. Every read stays inside storedSize and every write inside
// size. True, with *sizeOut set to size, when the stored size field equals size and the tree and
// bit stream decode all of it. Otherwise a warning names what is wrong, *sizeOut is 0, the
// result is false, and target may hold part of the output.
bool HuffmanExpand(const uint8_t* source, uint8_t* target, uint32_t* sizeOut, uint32_t storedSize,
                   uint32_t size);
