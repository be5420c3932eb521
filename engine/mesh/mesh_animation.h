// The animation records of a mesh: VertexAnimation swaps the vertices per frame number,
// KeyAnimation places the frame. Records and every array they point at are MALLOC blocks; a
// record that doesn't own its arrays (a clone's) shares them with its source.
#pragma once

#include <cstdint>

#include "engine/scene/maths.h"

class CMesh;
struct VertexAnimationBuffers;  // per-frame device buffers; they come with the renderer

enum VertexAnimationFlags : uint32_t {
    VertexAnimationOwnsArrays = 0x1,
    VertexAnimationPacked = 0x2,
    VertexAnimationFractionShift = 24,  // bits 24 to 28: fraction bits of packed positions
    VertexAnimationFractionMask = 0x1F000000,
};

struct VertexAnimation {
    uint32_t flags;  // VertexAnimationFlags
    uint32_t frameCount;
    void* frameData;  // unpacked: MeshVertex records of all key frames; packed: 8-byte records
    uint32_t currentFrame;
    void* currentData;  // frameTable entry of currentFrame
    uint32_t keyCount;
    uint32_t totalVertices;  // records in frameData (8-byte records when packed)
    void** frameTable;       // per frame; null: halfway between its neighbours (packed)
    uint32_t* keyFrames;     // keyCount frame numbers, ascending
    VertexAnimationBuffers* frameBuffers;  // or null
};

struct AnimationKey {
    Vector* scale;         // or null
    Quaternion* rotation;  // or null
    Vector* translation;   // or null
    float time;            // frame number of the key
};

enum KeyAnimationForm : uint32_t {
    KeyFormKeys = 0,        // keys, with an optional cache of one Matrix per frame
    KeyFormRecords = 1,     // 12 floats per frame: rotation, then position
    KeyFormTable = 2,       // u16 per frame, then 12-float records
    KeyFormFixedTable = 3,  // u16 per frame, then 12 i16 records
};

enum : uint32_t { KeyAnimationNoFrame = 0x100000 };  // currentFrame before the first set

struct KeyAnimation {
    AnimationKey* keys;  // sorted by time
    union {
        uint8_t* frameCached;    // form 0: per frame, non-zero when cached; null: no cache
        uint32_t distinctCount;  // forms 2 and 3: distinct records
    };
    uint8_t owner;  // 1: owns its arrays; 0 in a clone
    void* frameData;
    uint32_t form;       // KeyAnimationForm
    uint32_t lastFrame;  // frames are 0 to lastFrame
    uint32_t keyCount;
    uint32_t currentFrame;  // KeyAnimationNoFrame before the first
    Matrix baseMatrix;      // the frame's local matrix at load time
};

// Rounds to the nearest integer, a tie to the even one, as adding 1.5 * 2^23 in single precision
// does. Right from -2^22 up to 2^22.
int32_t AnimationFrameNumber(float frame);

// Frees the record, and its arrays and key values if it owns them.
void FreeKeyAnimation(KeyAnimation* animation);

// Puts the mesh's frame at key frame `frame` of its key animation; oldFrame is the frame that
// was in force (KeyAnimationNoFrame for none). Fills the form 0 matrix cache where one exists.
void PlaceKeyFrame(CMesh* mesh, uint32_t frame, uint32_t oldFrame);
// The local matrix that the keys give at a frame, cache or not.
void SampleKeyFrame(const KeyAnimation* keys, uint32_t frame, Matrix& out);

// What the mesh needs of its per-frame device buffers, which belong to the renderer: installed
// when the first VertexAnimationBuffers is made, so both are set wherever frameBuffers is.
struct FrameBufferHooks {
    bool (*hasFrame)(const VertexAnimationBuffers* buffers, uint32_t frame);
    void (*destroy)(VertexAnimationBuffers* buffers);
};
extern FrameBufferHooks FrameBufferOps;
