// Where each element of a flexible vertex format lies, shared by the device's checks, the
// processor's vertex transform and the GL side's attribute arrays.
#pragma once

#include "platform/dx7/d3d7.h"

struct DxVertexLayout {
    DWORD size;
    bool rhw;    // pre-transformed: x, y, z, rhw
    int normal;  // byte offsets, -1 where absent
    int diffuse;
    int specular;
    int texCount;
    int texOffset[8];
    int texFloats[8];
};
// False for a format this layer does not lay out (no position, blend weights, unknown bits).
bool DxLayoutVertex(DWORD fvf, DxVertexLayout& out);
