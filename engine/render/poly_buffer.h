// CPolyBuffer: a small run of pre-transformed triangles, drawn in runs of one texture each. The
// caller writes a copy in system memory, which survives a lost device and refills the vertex
// buffer after a reset.
#pragma once

#include <cstdint>

#include "platform/dx7/d3d7.h"

class CRenderer;
class CTexture;
struct VertexBufferInfo;

// One vertex of D3DFVF_TLVERTEX (0x1C4): screen position, colours, one coordinate pair.
struct PolyVertex {
    float x, y, z, rhw;
    D3DCOLOR diffuse;
    D3DCOLOR specular;
    float tu, tv;
};
static_assert(sizeof(PolyVertex) == 32);

enum PolyBufferFlags : uint32_t {
    PolyBufferNoDepthTest = 1,
};

class CPolyBuffer {
public:
    CPolyBuffer(CRenderer* renderer, int32_t triangles);
    ~CPolyBuffer();  // copies and unlocks a held lock first
    CPolyBuffer(const CPolyBuffer&) = delete;
    CPolyBuffer& operator=(const CPolyBuffer&) = delete;

    // The system-memory copy, three PolyVertex a triangle; null, with a warning, when there are
    // no vertices or the buffer is locked already.
    PolyVertex* Lock();
    void Unlock(DWORD lockFlags);  // copies to the device buffer
    void SetTexture(CTexture* texture, int32_t run);
    void SetRunCount(int32_t run, int32_t triangles);
    CTexture* GetTexture(int32_t run) const;  // null beyond the runs
    int32_t GetRunCount(int32_t run) const;   // 0 beyond the runs
    void Refill();                            // after a device reset, from the copy

    int32_t triangleCapacity;
    uint8_t locked;
    CTexture** textures;  // per run; runs are contiguous in the buffer
    int32_t* runCounts;   // triangles per run
    int32_t runCapacity;
    int32_t runsInUse;
    uint32_t flags;  // PolyBufferFlags
    CRenderer* renderer;
    VertexBufferInfo* vertices;  // null if the device could not give them
    uint16_t* indices;           // 0, 1, 2, ... for triangleCapacity triangles
    PolyVertex* shadow;
    int32_t layer;  // drawn with this layer; -1 at the end of the frame

private:
    bool GrowRuns(int32_t run);
    void CopyToDevice(DWORD lockFlags);
};

// The viewport's background: two triangles covering width by height pixels, coordinates 0 at the
// top left and 1 at the bottom right, as run 0. The buffer needs room for two triangles.
void FillBackgroundQuad(CPolyBuffer* buffer, int32_t width, int32_t height);
