// Per-frame device buffers of a vertex animation. Each stored frame of a range is written once
// into a pool run of its own, so that a change of frame costs no rewrite of the mesh's run, only
// another buffer at draw time. Frames next to each other with the same frameTable entry share
// one run. Nothing makes them on its own: a caller attaches them with AttachFrameBuffers once
// the mesh's faces are final (the runs follow the weld of the faces as they are then).
//
// A frame's run holds what rewriting the mesh's own run would: positions and normals of the
// frame itself (for a flat face too, as the refresh of an animated run does), so a frame looks
// the same whichever way it is drawn.
#pragma once

#include <cstdint>

#include "engine/mesh/render_vertices.h"

class CMesh;
class CRenderer;
struct MeshVertex;
struct VertexBufferInfo;
struct VertexBufferPool;

struct VertexAnimationBuffers {
    VertexAnimationBuffers(CMesh* animated, CRenderer* renderer);
    ~VertexAnimationBuffers();
    VertexAnimationBuffers(const VertexAnimationBuffers&) = delete;
    VertexAnimationBuffers& operator=(const VertexAnimationBuffers&) = delete;

    // The weld and the room for one decoded frame, which AddFrameRange writes from.
    void PrepareFrameWrites();
    void ReleaseFrameWrites();
    // Frames first to last, held to the animation's, get runs: one for each stretch of equal
    // frameTable entries that starts at a frame without one. Frames that have one keep it.
    void AddFrameRange(int32_t first, int32_t last);
    // Null for a frame out of range, without an entry, or whose run could not be had.
    VertexBufferInfo* GetFrameBuffer(int32_t frame) const;
    // Writes the frame into its run again after a device reset took the vertices.
    void RefillFrame(int32_t frame);

    CMesh* mesh;
    CRenderer* device;
    VertexBufferInfo** buffers;  // one entry per run added; null where none was made
    int32_t bufferCount;
    uint16_t* frameSlots;  // per frame: its entry in buffers + 1; 0 for none
    int32_t slotCount;     // frames of the animation
    int32_t renderVertexCount;
    RenderVertexList renderVertices;  // the weld of the mesh's current vertices
    uint16_t* weldIndices;            // three per face of layer 0; nothing reads them
    MeshVertex* frameVertices;        // the frame being written

private:
    void DecodeFrame(uint32_t frame);
    void WriteFrame(uint32_t frame, VertexBufferInfo* info);

    int32_t frameVertexCount = 0;  // room in frameVertices
};

// The mesh's buffers, made and handed to its vertex animation (which frees them with its
// arrays) if it has none yet. Null for a mesh without a vertex animation that owns its arrays.
VertexAnimationBuffers* AttachFrameBuffers(CMesh* mesh, CRenderer* device);

// Where the mesh's groups draw from for its current frame: the pool of the frame's own run, with
// *shift added to each group's first vertex; null with *shift 0 for the mesh's own run.
VertexBufferPool* FrameDrawPool(CMesh* mesh, int32_t* shift);
