// The VBF binary mesh format: the constants that its reader and writer share, the parse of a file
// image, and the key insertion that the text mesh reader uses too.
#pragma once

#include <cstddef>
#include <cstdint>

#include "engine/scene/maths.h"

class CMesh;
struct KeyAnimation;
struct VBFUserData;

// Record sizes in the file.
enum : uint32_t {
    VBFObjectHeaderSize = 148,  // before the name
    VBFVertexSize = 24,
    VBFFaceSize = 44,
    VBFPackedVertexSize = 8,
    VBFNoTexture = 0xFFFFFFFF,  // texture word of a face without one
    VBFMaxNameLength = 255,     // longer names are cut, with a warning
};

// sectionFlags of an object record.
enum : uint32_t {
    VBFSectionColours = 0x1,
    VBFSectionSmoothing = 0x2,
    VBFSectionVertexAnimation = 0x4,
    VBFSectionKeyAnimation = 0x8,
};

// textureFlags of a texture entry.
enum : uint8_t {
    VBFTextureSecondName = 0x1,
    VBFTextureClamp = 0x2,  // sets TextureFlagClamp on the loaded texture
};

// packInfo of a packed vertex animation.
enum : uint32_t {
    VBFPackFractionMask = 0x1F,
    VBFPackFrameTable = 0x80000000,
};

// keyMark of a key animation: a count of key records, or one of the stored forms.
enum : uint32_t {
    VBFKeyMatrices = 0xFFFFFFFF,
    VBFKeyRecords = 0xFFFFFFFE,
    VBFKeyTable = 0xFFFFFFFD,
};

// keyHead of a key record.
enum : uint32_t {
    VBFKeyFrameMask = 0x0FFFFFFF,
    VBFKeyRotation = 0x10000000,
    VBFKeyScale = 0x20000000,
    VBFKeyTranslation = 0x40000000,
};

// Bounds the reader puts on a hostile file, and the writer on what it will write. The nesting
// bound keeps the recursive walk off the end of the stack; the frame bound keeps every wrapped
// frame number below KeyAnimationNoFrame, and derived tables of frameCount entries small.
enum : uint32_t {
    VBFMaxDepth = 256,
    VBFMaxFrames = 0x100000,
};

// The parse: reads a whole file image into new objects under root. The new subtree is built
// apart and joins root only when the whole image read cleanly; otherwise the engine log gets the
// fault with fileName and the byte where it was found, and root is left as it was. A header
// kind other than 0 or 1 is fatal. userData null: the user data is dropped; otherwise *userData
// receives it, or null where there is none.
bool VELMORALoadVBF(CMesh* root, const uint8_t* image, size_t size, const char* fileName,
                    VBFUserData** userData);

// Insertion of one key value at frame time: a key at that time gets the value (a new block in
// place of any it had); otherwise a new key goes in at its sorted place with the other values
// null. capacity is the room of keys; when it is full, keys grows by one. With a null capacity
// keys is taken to be exactly keyCount long.
void InsertRotationKey(KeyAnimation* animation, uint32_t* capacity, float time,
                       const Quaternion& value);
void InsertScaleKey(KeyAnimation* animation, uint32_t* capacity, float time, const Vector& value);
void InsertTranslationKey(KeyAnimation* animation, uint32_t* capacity, float time,
                          const Vector& value);
