// The fixed-function pipeline of Direct3D 7 as generated GLSL: one program per combination of
// vertex format, lighting, fog, alpha test and texture stage operations.
//
// Generated shaders rather than GL's texture env combine: the combiners lack the SPECULAR
// argument, ADDSMOOTH and per-stage colour material, and NVIDIA's fixed function stops at four
// texture units where Direct3D has eight stages. A shader gives the same arithmetic on
// llvmpipe and on a GPU, and the Direct3D light model (range, cone, material sources) exactly.
#pragma once

#include <cstdint>
#include <string>

#include "platform/dx7/gl/gl_backend.h"

// What a program depends on; all bytes, so it compares and hashes as memory.
struct DxGlStageKey {
    uint8_t colorOp;
    uint8_t colorArg1;
    uint8_t colorArg2;
    uint8_t alphaOp;
    uint8_t alphaArg1;
    uint8_t alphaArg2;
    uint8_t texSet;   // coordinate set the stage samples with; 0xFF where the vertex has none
    uint8_t sampled;  // some argument or the op reads the texture
};

enum : uint8_t {
    DxGlFogNone = 0,
    DxGlFogVertex = 1,    // factor per vertex from eye depth, by fogFormula
    DxGlFogTable = 2,     // factor per pixel from eye depth, by fogFormula
    DxGlFogSpecular = 3,  // the vertex's specular alpha is the factor
    DxGlSourceMaterial = 0,
    DxGlSourceDiffuse = 1,
    DxGlSourceSpecular = 2,
};

struct DxGlShaderKey {
    uint8_t transformed;  // XYZRHW positions
    uint8_t normal;
    uint8_t diffuse;
    uint8_t specular;
    uint8_t texSets;
    uint8_t lighting;
    uint8_t normalize;
    uint8_t localViewer;
    uint8_t specularEnable;
    uint8_t sources[4];  // diffuse, ambient, specular, emissive: DxGlSource*
    uint8_t fog;
    uint8_t fogFormula;  // D3DFOG_EXP, EXP2 or LINEAR
    uint8_t rangeFog;
    uint8_t flat;
    uint8_t alphaFunc;  // D3DCMP_*, 0 without alpha test
    uint8_t stageCount;
    DxGlStageKey stages[DxMaxStages];
};

// The key of a draw; false for a vertex format that cannot be drawn.
bool DxMakeShaderKey(const DxDrawState& state, DWORD fvf, DxGlShaderKey& key);

// Uniforms travel as one vec4 array; these are its slots.
enum : int {
    DxGlUWorldView = 0,   // 4 rows, p' = p * M as Direct3D writes it
    DxGlUProjection = 4,  // 4 rows
    DxGlUNormal = 8,      // 3 rows, the inverse transpose of the world-view's 3x3
    DxGlUViewport = 11,   // x, y, width, height for pre-transformed vertices
    DxGlUMaterial = 12,   // diffuse, ambient, specular, emissive
    DxGlUPower = 16,      // x: specular power
    DxGlUAmbient = 17,    // the AMBIENT render state
    DxGlUFog = 18,        // start, end, density, 1 / (end - start)
    DxGlUFogColour = 19,
    DxGlUFactor = 20,    // TEXTUREFACTOR
    DxGlUMisc = 21,      // x: ALPHAREF, y: enabled lights
    DxGlULights = 22,    // DxGlULightSize slots per light, see below
    DxGlULightSize = 7,  // diffuse, specular, ambient, position + type, direction + range,
                         // attenuation 0-2 + falloff, cos(theta/2) and cos(phi/2)
    DxGlUCount = DxGlULights + DxGlULightSize * DxMaxLights,
};

// Vertex attribute locations.
enum : int {
    DxGlAttribPosition = 0,
    DxGlAttribNormal = 1,
    DxGlAttribDiffuse = 2,
    DxGlAttribSpecular = 3,
    DxGlAttribTex0 = 4,
};

void DxWriteShaders(const DxGlShaderKey& key, std::string& vertex, std::string& fragment);
