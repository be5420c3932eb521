// Records and constants of Direct3D 7 that the engine uses, in their published layouts.
#pragma once

#include <cstdint>

using D3DVALUE = float;

struct D3DCOLORVALUE {
    D3DVALUE r, g, b, a;
};

struct D3DVECTOR {
    D3DVALUE x, y, z;
};

enum D3DLIGHTTYPE : uint32_t {
    D3DLIGHT_POINT = 1,
    D3DLIGHT_SPOT = 2,
    D3DLIGHT_DIRECTIONAL = 3,
};

struct D3DLIGHT7 {
    D3DLIGHTTYPE dltType;
    D3DCOLORVALUE dcvDiffuse;
    D3DCOLORVALUE dcvSpecular;
    D3DCOLORVALUE dcvAmbient;
    D3DVECTOR dvPosition;
    D3DVECTOR dvDirection;
    D3DVALUE dvRange;
    D3DVALUE dvFalloff;
    D3DVALUE dvAttenuation0;
    D3DVALUE dvAttenuation1;
    D3DVALUE dvAttenuation2;
    D3DVALUE dvTheta;
    D3DVALUE dvPhi;
};
static_assert(sizeof(D3DLIGHT7) == 104);
