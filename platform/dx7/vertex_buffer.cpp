// Vertex buffers in memory, and ProcessVertices: the fixed-function transform and lighting done
// on the processor, for the batches the engine draws as screen-space vertices.
#include <algorithm>
#include <cmath>
#include <cstring>

#include "platform/dx7/dx_objects.h"

namespace {

struct Vec {
    double x, y, z;
};

Vec Add(Vec a, Vec b) {
    return {a.x + b.x, a.y + b.y, a.z + b.z};
}
Vec Sub(Vec a, Vec b) {
    return {a.x - b.x, a.y - b.y, a.z - b.z};
}
Vec Scale(Vec a, double s) {
    return {a.x * s, a.y * s, a.z * s};
}
double Dot(Vec a, Vec b) {
    return a.x * b.x + a.y * b.y + a.z * b.z;
}
Vec Normalise(Vec a) {
    double length = std::sqrt(Dot(a, a));
    return length > 0 ? Scale(a, 1.0 / length) : a;
}
Vec FromD3d(const D3DVECTOR& v) {
    return {v.x, v.y, v.z};
}

struct Colour {
    double r, g, b, a;
};

Colour FromValue(const D3DCOLORVALUE& c) {
    return {c.r, c.g, c.b, c.a};
}
Colour FromPacked(DWORD argb) {
    return {((argb >> 16) & 0xFF) / 255.0, ((argb >> 8) & 0xFF) / 255.0, (argb & 0xFF) / 255.0,
            (argb >> 24) / 255.0};
}
DWORD Pack(const Colour& c) {
    auto channel = [](double v) { return DWORD(std::lround(std::clamp(v, 0.0, 1.0) * 255.0)); };
    return channel(c.a) << 24 | channel(c.r) << 16 | channel(c.g) << 8 | channel(c.b);
}

// Row vectors: p' = p · M.
struct Matrix {
    double m[4][4];
};

Matrix FromD3d(const D3DMATRIX& d) {
    Matrix out;
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j) out.m[i][j] = d.m[i][j];
    return out;
}

Matrix Multiply(const Matrix& a, const Matrix& b) {
    Matrix out{};
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j)
            for (int k = 0; k < 4; ++k) out.m[i][j] += a.m[i][k] * b.m[k][j];
    return out;
}

void TransformPoint(const Matrix& m, Vec p, double out[4]) {
    for (int j = 0; j < 4; ++j)
        out[j] = p.x * m.m[0][j] + p.y * m.m[1][j] + p.z * m.m[2][j] + m.m[3][j];
}

Vec TransformPointAffine(const Matrix& m, Vec p) {
    double out[4];
    TransformPoint(m, p, out);
    return {out[0], out[1], out[2]};
}

Vec TransformDirection(const Matrix& m, Vec v) {
    return {v.x * m.m[0][0] + v.y * m.m[1][0] + v.z * m.m[2][0],
            v.x * m.m[0][1] + v.y * m.m[1][1] + v.z * m.m[2][1],
            v.x * m.m[0][2] + v.y * m.m[1][2] + v.z * m.m[2][2]};
}

float ReadFloat(const uint8_t* at) {
    float value;
    memcpy(&value, at, sizeof value);
    return value;
}
void WriteFloat(uint8_t* at, double value) {
    float stored = float(value);
    memcpy(at, &stored, sizeof stored);
}
DWORD ReadDword(const uint8_t* at) {
    DWORD value;
    memcpy(&value, at, sizeof value);
    return value;
}
void WriteDword(uint8_t* at, DWORD value) {
    memcpy(at, &value, sizeof value);
}

// Lights in camera space, worked out once per call.
struct PreparedLight {
    const D3DLIGHT7* light;
    Vec position;
    Vec direction;  // normalised, pointing from the light
};

// The material colour a vertex takes from COLORVERTEX and the material source states.
Colour MaterialColour(const DxDrawState& state, DWORD sourceState, const D3DCOLORVALUE& material,
                      const uint8_t* vertex, const DxVertexLayout& layout) {
    if (!state.renderStates[D3DRENDERSTATE_COLORVERTEX]) return FromValue(material);
    DWORD source = state.renderStates[sourceState];
    if (source == D3DMCS_COLOR1 && layout.diffuse >= 0)
        return FromPacked(ReadDword(vertex + layout.diffuse));
    if (source == D3DMCS_COLOR2 && layout.specular >= 0)
        return FromPacked(ReadDword(vertex + layout.specular));
    return FromValue(material);
}

void Light(const DxDrawState& state, const std::vector<PreparedLight>& lights, Vec position,
           Vec normal, const uint8_t* vertex, const DxVertexLayout& layout, DWORD& diffuseOut,
           DWORD& specularOut) {
    const D3DMATERIAL7& material = state.material;
    Colour md = MaterialColour(state, D3DRENDERSTATE_DIFFUSEMATERIALSOURCE, material.dcvDiffuse,
                               vertex, layout);
    Colour ma = MaterialColour(state, D3DRENDERSTATE_AMBIENTMATERIALSOURCE, material.dcvAmbient,
                               vertex, layout);
    Colour ms = MaterialColour(state, D3DRENDERSTATE_SPECULARMATERIALSOURCE, material.dcvSpecular,
                               vertex, layout);
    Colour me = MaterialColour(state, D3DRENDERSTATE_EMISSIVEMATERIALSOURCE, material.dcvEmissive,
                               vertex, layout);
    Colour ambientSum = FromPacked(state.renderStates[D3DRENDERSTATE_AMBIENT]);
    Colour diffuse{0, 0, 0, 0}, specular{0, 0, 0, 0};
    bool withSpecular = state.renderStates[D3DRENDERSTATE_SPECULARENABLE] != 0;
    bool localViewer = state.renderStates[D3DRENDERSTATE_LOCALVIEWER] != 0;
    for (const PreparedLight& prepared : lights) {
        const D3DLIGHT7& light = *prepared.light;
        Vec toLight;
        double factor = 1.0;
        if (light.dltType == D3DLIGHT_DIRECTIONAL) {
            toLight = Scale(prepared.direction, -1.0);
        } else {
            Vec offset = Sub(prepared.position, position);
            double distance = std::sqrt(Dot(offset, offset));
            if (distance > light.dvRange) continue;
            toLight = distance > 0 ? Scale(offset, 1.0 / distance) : Vec{0, 0, 0};
            double falloff = double(light.dvAttenuation0) + light.dvAttenuation1 * distance +
                             light.dvAttenuation2 * distance * distance;
            factor = falloff > 0 ? 1.0 / falloff : 1.0;
            if (light.dltType == D3DLIGHT_SPOT) {
                double rho = Dot(Scale(toLight, -1.0), prepared.direction);
                double inner = std::cos(light.dvTheta / 2.0), outer = std::cos(light.dvPhi / 2.0);
                if (rho <= outer)
                    factor = 0;
                else if (rho <= inner && inner > outer)
                    factor *= std::pow((rho - outer) / (inner - outer), double(light.dvFalloff));
            }
        }
        if (factor <= 0) continue;
        ambientSum.r += light.dcvAmbient.r * factor;
        ambientSum.g += light.dcvAmbient.g * factor;
        ambientSum.b += light.dcvAmbient.b * factor;
        double lambert = std::max(0.0, Dot(normal, toLight));
        diffuse.r += light.dcvDiffuse.r * lambert * factor;
        diffuse.g += light.dcvDiffuse.g * lambert * factor;
        diffuse.b += light.dcvDiffuse.b * lambert * factor;
        if (withSpecular && lambert > 0) {
            // The halfway vector as published: towards the camera, or back along z for a viewer
            // at infinity.
            Vec eye = localViewer ? Normalise(Scale(position, -1.0)) : Vec{0, 0, -1};
            Vec half = Normalise(Add(eye, toLight));
            double highlight = std::pow(std::max(0.0, Dot(normal, half)), double(material.dvPower));
            specular.r += light.dcvSpecular.r * highlight * factor;
            specular.g += light.dcvSpecular.g * highlight * factor;
            specular.b += light.dcvSpecular.b * highlight * factor;
        }
    }
    Colour lit{me.r + ma.r * ambientSum.r + md.r * diffuse.r,
               me.g + ma.g * ambientSum.g + md.g * diffuse.g,
               me.b + ma.b * ambientSum.b + md.b * diffuse.b, md.a};
    diffuseOut = Pack(lit);
    specularOut = Pack({ms.r * specular.r, ms.g * specular.g, ms.b * specular.b, 1.0});
}

}  // namespace

DxVertexBuffer* DxAsVertexBuffer(IDirect3DVertexBuffer7* buffer) {
    return dynamic_cast<DxVertexBuffer*>(buffer);
}

DxVertexBuffer::DxVertexBuffer(DxDirect3D* ownerObject, const D3DVERTEXBUFFERDESC& asked,
                               const DxVertexLayout& vertexLayout)
    : owner(ownerObject), desc(asked), layout(vertexLayout) {
    desc.dwCaps &= ~D3DVBCAPS_OPTIMIZED;
    bytes.assign(size_t(layout.size) * desc.dwNumVertices, 0);
    owner->Grab();
}

DxVertexBuffer::~DxVertexBuffer() {
    owner->Drop();
}

HRESULT DxVertexBuffer::Lock(DWORD flags, LPVOID* data, LPDWORD size) {
    DxNote("Lock(%s, %u)", DxRef(this).c_str(), flags);
    if (!data) return DDERR_INVALIDPARAMS;
    *data = nullptr;
    // An optimised buffer's contents belong to the driver, as published.
    if (desc.dwCaps & D3DVBCAPS_OPTIMIZED) return D3DERR_VERTEXBUFFEROPTIMIZED;
    if (DxFaultSwitches().locks > 0) {
        --DxFaultSwitches().locks;
        return DDERR_SURFACELOST;
    }
    if (locked) return D3DERR_VERTEXBUFFERLOCKED;
    locked = true;
    *data = bytes.data();
    if (size) *size = DWORD(bytes.size());
    return D3D_OK;
}

HRESULT DxVertexBuffer::Unlock() {
    DxNote("Unlock(%s)", DxRef(this).c_str());
    if (!locked) return D3DERR_VERTEXBUFFERUNLOCKFAILED;
    locked = false;
    return D3D_OK;
}

HRESULT DxVertexBuffer::GetVertexBufferDesc(LPD3DVERTEXBUFFERDESC out) {
    DxNote("GetVertexBufferDesc(%s)", DxRef(this).c_str());
    if (!out) return DDERR_INVALIDPARAMS;
    *out = desc;
    out->dwSize = sizeof(D3DVERTEXBUFFERDESC);
    return D3D_OK;
}

HRESULT DxVertexBuffer::Optimize(LPDIRECT3DDEVICE7 device, DWORD flags) {
    DxNote("Optimize(%s, %s, %u)", DxRef(this).c_str(), DxRef(device).c_str(), flags);
    if (!device || !DxAsDevice(device) || flags) return DDERR_INVALIDPARAMS;
    if (locked) return D3DERR_VERTEXBUFFERLOCKED;
    if (desc.dwCaps & D3DVBCAPS_OPTIMIZED) return D3DERR_VERTEXBUFFEROPTIMIZED;
    // The vertices stay where they are; the flag is what the engine and the lock go by.
    desc.dwCaps |= D3DVBCAPS_OPTIMIZED;
    return D3D_OK;
}

HRESULT DxVertexBuffer::ProcessVertices(DWORD operations, DWORD destIndex, DWORD count,
                                        LPDIRECT3DVERTEXBUFFER7 sourceInterface, DWORD sourceIndex,
                                        LPDIRECT3DDEVICE7 deviceInterface, DWORD flags) {
    DxNote("ProcessVertices(%s, %u, %u, %u, %s, %u, %u)", DxRef(this).c_str(), operations,
           destIndex, count, DxRef(sourceInterface).c_str(), sourceIndex, flags);
    DxVertexBuffer* source = sourceInterface ? DxAsVertexBuffer(sourceInterface) : nullptr;
    DxDevice* device = deviceInterface ? DxAsDevice(deviceInterface) : nullptr;
    if (!source || !device) return DDERR_INVALIDPARAMS;
    const DWORD known = D3DVOP_TRANSFORM | D3DVOP_LIGHT | D3DVOP_CLIP | D3DVOP_EXTENTS;
    if ((operations & ~known) || !(operations & D3DVOP_TRANSFORM)) return DDERR_INVALIDPARAMS;
    if (flags & ~DWORD(D3DPV_DONOTCOPYDATA)) return DDERR_INVALIDPARAMS;
    if (locked || source->locked) return D3DERR_VERTEXBUFFERLOCKED;
    if (desc.dwCaps & D3DVBCAPS_OPTIMIZED) return D3DERR_VERTEXBUFFEROPTIMIZED;
    if (source->layout.rhw || !layout.rhw) return DDERR_INVALIDPARAMS;
    if (uint64_t(sourceIndex) + count > source->desc.dwNumVertices ||
        uint64_t(destIndex) + count > desc.dwNumVertices)
        return DDERR_INVALIDPARAMS;

    const DxDrawState& state = device->state;
    Matrix world = FromD3d(state.world), view = FromD3d(state.view);
    Matrix worldView = Multiply(world, view);
    Matrix all = Multiply(worldView, FromD3d(state.projection));
    const D3DVIEWPORT7& viewport = state.viewport;
    bool lighting = operations & D3DVOP_LIGHT;
    bool copy = !(flags & D3DPV_DONOTCOPYDATA);
    bool normalise = state.renderStates[D3DRENDERSTATE_NORMALIZENORMALS] != 0;

    std::vector<PreparedLight> lights;
    if (lighting) {
        for (const DxLightSlot& slot : state.lights) {
            if (!slot.set || !slot.enabled) continue;
            lights.push_back(
                {&slot.light, TransformPointAffine(view, FromD3d(slot.light.dvPosition)),
                 Normalise(TransformDirection(view, FromD3d(slot.light.dvDirection)))});
        }
    }

    // A snapshot when a buffer processes into itself, so no vertex is read after it is written.
    std::vector<uint8_t> snapshot;
    const uint8_t* input = source->bytes.data();
    if (source == this) {
        snapshot = bytes;
        input = snapshot.data();
    }
    const DxVertexLayout& in = source->layout;
    for (DWORD i = 0; i < count; ++i) {
        const uint8_t* from = input + size_t(sourceIndex + i) * in.size;
        uint8_t* to = bytes.data() + size_t(destIndex + i) * layout.size;
        Vec position{ReadFloat(from), ReadFloat(from + 4), ReadFloat(from + 8)};
        double clip[4];
        TransformPoint(all, position, clip);
        double rhw = clip[3] != 0 ? 1.0 / clip[3] : 0.0;
        WriteFloat(to, viewport.dwX + (1.0 + clip[0] * rhw) * viewport.dwWidth / 2.0);
        WriteFloat(to + 4, viewport.dwY + (1.0 - clip[1] * rhw) * viewport.dwHeight / 2.0);
        WriteFloat(to + 8, viewport.dvMinZ + clip[2] * rhw * (viewport.dvMaxZ - viewport.dvMinZ));
        WriteFloat(to + 12, rhw);

        if (lighting) {
            Vec normal{0, 0, 0};
            if (in.normal >= 0) {
                normal = TransformDirection(
                    worldView, {ReadFloat(from + in.normal), ReadFloat(from + in.normal + 4),
                                ReadFloat(from + in.normal + 8)});
                if (normalise) normal = Normalise(normal);
            }
            DWORD diffuse, specular;
            Light(state, lights, TransformPointAffine(worldView, position), normal, from, in,
                  diffuse, specular);
            if (layout.diffuse >= 0) WriteDword(to + layout.diffuse, diffuse);
            if (layout.specular >= 0) WriteDword(to + layout.specular, specular);
        } else if (copy) {
            if (layout.diffuse >= 0)
                WriteDword(to + layout.diffuse,
                           in.diffuse >= 0 ? ReadDword(from + in.diffuse) : 0xFFFFFFFFu);
            if (layout.specular >= 0)
                WriteDword(to + layout.specular,
                           in.specular >= 0 ? ReadDword(from + in.specular) : 0);
        }
        if (!copy) continue;
        for (int set = 0; set < layout.texCount; ++set) {
            uint8_t* coords = to + layout.texOffset[set];
            int floats = layout.texFloats[set];
            int given = set < in.texCount ? std::min(floats, in.texFloats[set]) : 0;
            if (given) memcpy(coords, from + in.texOffset[set], size_t(given) * 4);
            if (floats > given) memset(coords + given * 4, 0, size_t(floats - given) * 4);
        }
    }
    return D3D_OK;
}
