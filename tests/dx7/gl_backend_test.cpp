// The GL side on its own: hand-made device state and vertices drawn into a 64 x 64 target, the
// pixels read back. Skipped where no GL context can be made.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <deque>
#include <vector>

#include "platform/dx7/adapter_table.h"
#include "platform/dx7/call_recorder.h"
#include "platform/dx7/gl/gl_backend.h"
#include "platform/dx7/gl_context.h"

namespace {

struct TlVertex {  // XYZRHW | DIFFUSE | TEX2
    float x, y, z, rhw;
    uint32_t diffuse;
    float u0, v0, u1, v1;
};
constexpr DWORD TlFvf = D3DFVF_XYZRHW | D3DFVF_DIFFUSE | 0x200;

struct Vertex {  // XYZ | NORMAL | DIFFUSE
    float x, y, z, nx, ny, nz;
    uint32_t diffuse;
};
constexpr DWORD VertexFvf = D3DFVF_XYZ | D3DFVF_NORMAL | D3DFVF_DIFFUSE;

DWORD Bits(float f) {
    DWORD d;
    memcpy(&d, &f, sizeof d);
    return d;
}

// A strip over x1..x2, y1..y2 on screen, clockwise as seen; texture coordinates 0..1.
std::vector<TlVertex> Quad(float x1, float y1, float x2, float y2, float z, uint32_t colour) {
    return {{x1, y1, z, 1, colour, 0, 0, 0, 0},
            {x2, y1, z, 1, colour, 1, 0, 1, 0},
            {x1, y2, z, 1, colour, 0, 1, 0, 1},
            {x2, y2, z, 1, colour, 1, 1, 1, 1}};
}

class GlBackendTest : public testing::Test {
protected:
    void SetUp() override {
        DxSetRendering(DxRendering::GlWhenAvailable);
        backend = DxGlBackend::Get();
        if (!backend) GTEST_SKIP() << DxGlFailure();
        target = Store(64, 64, DxRgbFormat(32, 0xFF0000, 0xFF00, 0xFF, 0xFF000000));
        depth = Store(64, 64, DxDepthFormat(24, 8));
        memset(&state, 0, sizeof state);
        DWORD* rs = state.renderStates;
        rs[D3DRENDERSTATE_ZENABLE] = D3DZB_TRUE;
        rs[D3DRENDERSTATE_ZWRITEENABLE] = 1;
        rs[D3DRENDERSTATE_ZFUNC] = D3DCMP_LESSEQUAL;
        rs[D3DRENDERSTATE_CULLMODE] = D3DCULL_CCW;
        rs[D3DRENDERSTATE_SHADEMODE] = D3DSHADE_GOURAUD;
        rs[D3DRENDERSTATE_FILLMODE] = D3DFILL_SOLID;
        rs[D3DRENDERSTATE_TEXTUREFACTOR] = 0xFFFFFFFF;
        for (int i = 0; i < DxMaxStages; ++i) {
            DWORD* ss = state.stageStates[i];
            ss[D3DTSS_COLOROP] = i ? D3DTOP_DISABLE : D3DTOP_MODULATE;
            ss[D3DTSS_ALPHAOP] = i ? D3DTOP_DISABLE : D3DTOP_SELECTARG1;
            ss[D3DTSS_COLORARG1] = ss[D3DTSS_ALPHAARG1] = D3DTA_TEXTURE;
            ss[D3DTSS_COLORARG2] = ss[D3DTSS_ALPHAARG2] = D3DTA_CURRENT;
            ss[D3DTSS_TEXCOORDINDEX] = DWORD(i);
            ss[D3DTSS_MAGFILTER] = ss[D3DTSS_MINFILTER] = D3DTFG_POINT;
        }
        for (int i = 0; i < 4; ++i)
            state.world.m[i][i] = state.view.m[i][i] = state.projection.m[i][i] = 1;
        state.viewport = {0, 0, 64, 64, 0, 1};
        state.target = target;
        state.depth = depth;
        backend->Clear(state, 0, nullptr, D3DCLEAR_TARGET | D3DCLEAR_ZBUFFER, 0xFF0000FF, 1, 0);
    }
    void TearDown() override {
        for (DxSurfaceStore& s : stores)
            if (backend) backend->Forget(s);
    }
    DxSurfaceStore* Store(DWORD w, DWORD h, const DDPIXELFORMAT& format) {
        DxSurfaceStore& s = stores.emplace_back();
        s.id = 1000 + uint32_t(stores.size());
        s.width = w, s.height = h, s.format = format;
        s.pitch = LONG(w * std::max<DWORD>(1, format.dwRGBBitCount / 8));
        s.bytes.assign(size_t(s.pitch) * h, 0);
        return &s;
    }
    void Draw(DWORD fvf, const void* v, DWORD n, D3DPRIMITIVETYPE type = D3DPT_TRIANGLESTRIP) {
        backend->Draw(state, {type, fvf, static_cast<const uint8_t*>(v), n, nullptr, 0});
    }
    void Draw(const std::vector<TlVertex>& v) { Draw(TlFvf, v.data(), DWORD(v.size())); }
    uint32_t At(int x, int y) {
        backend->ReadBack(*target);
        uint32_t v;
        memcpy(&v, target->bytes.data() + y * target->pitch + x * 4, 4);
        return v;
    }
    // Red, green and blue within 3 levels.
    static void ExpectColour(uint32_t got, uint32_t want, const char* what) {
        for (int shift = 0; shift < 24; shift += 8)
            EXPECT_NEAR(int(got >> shift & 0xFF), int(want >> shift & 0xFF), 3)
                << what << ": got " << std::hex << got << ", want " << want;
    }

    DxGlBackend* backend = nullptr;
    std::deque<DxSurfaceStore> stores;
    DxSurfaceStore* target = nullptr;
    DxSurfaceStore* depth = nullptr;
    DxDrawState state;
};

TEST_F(GlBackendTest, PreTransformedQuadCoversExactPixelsOverMemoryContents) {
    // The background comes from memory, as a colour fill Blt leaves it.
    for (size_t i = 0; i < target->bytes.size(); i += 4)
        memcpy(&target->bytes[i], "\x00\xFF\x00\xFF", 4);
    ++target->cpuVersion;
    state.stageStates[0][D3DTSS_COLOROP] = D3DTOP_SELECTARG2;
    Draw(Quad(16, 8, 48, 24, 0.5f, 0xFFFF0000));
    const struct {
        int x, y;
        uint32_t colour;
    } cases[] = {{16, 8, 0xFF0000}, {47, 23, 0xFF0000}, {15, 8, 0xFF00}, {48, 23, 0xFF00},
                 {16, 7, 0xFF00},   {16, 24, 0xFF00},   {0, 63, 0xFF00}};
    for (const auto& c : cases) ExpectColour(At(c.x, c.y), c.colour, "pixel");
}

TEST_F(GlBackendTest, TextureStagesCombineAsDirect3D) {
    // 2 x 2 in 5-6-5: red, green / blue, white; the second texture 1 x 1 grey with alpha 0x40.
    DxSurfaceStore* first = Store(2, 2, DxRgbFormat(16, 0xF800, 0x7E0, 0x1F, 0));
    const uint16_t texels[4] = {0xF800, 0x07E0, 0x001F, 0xFFFF};
    memcpy(first->bytes.data(), texels, sizeof texels);
    DxSurfaceStore* second = Store(1, 1, DxRgbFormat(32, 0xFF0000, 0xFF00, 0xFF, 0xFF000000));
    memcpy(second->bytes.data(), "\x80\x80\x80\x40", 4);
    state.textures[0] = first;
    state.textures[1] = second;
    state.renderStates[D3DRENDERSTATE_TEXTUREFACTOR] = 0x80206090;
    const struct {
        DWORD op, arg1, arg2;
        uint32_t quadrants[4];  // stage 1's result over the four texels of stage 0
    } cases[] = {
        {D3DTOP_MODULATE, D3DTA_TEXTURE, D3DTA_CURRENT, {0x800000, 0x8000, 0x80, 0x808080}},
        {D3DTOP_MODULATE2X, D3DTA_TEXTURE, D3DTA_CURRENT, {0xFF0000, 0xFF00, 0xFF, 0xFFFFFF}},
        {D3DTOP_ADD, D3DTA_TFACTOR, D3DTA_CURRENT, {0xFF6090, 0x20FF90, 0x2060FF, 0xFFFFFF}},
        {D3DTOP_SUBTRACT, D3DTA_CURRENT, D3DTA_TEXTURE, {0x7F0000, 0x7F00, 0x7F, 0x7F7F7F}},
        {D3DTOP_ADDSIGNED, D3DTA_CURRENT, D3DTA_TFACTOR, {0x9F0010, 0xDF10, 0xFF, 0x9FDFFF}},
        {D3DTOP_SELECTARG1, D3DTA_CURRENT | D3DTA_COMPLEMENT, 0, {0xFFFF, 0xFF00FF, 0xFFFF00, 0}},
        {D3DTOP_SELECTARG1,
         D3DTA_TEXTURE | D3DTA_ALPHAREPLICATE,
         0,
         {0x404040, 0x404040, 0x404040, 0x404040}},
        {D3DTOP_BLENDTEXTUREALPHA,
         D3DTA_TFACTOR,
         D3DTA_CURRENT,
         {0xC71824, 0x08D724, 0x0818E3, 0xC7D7E3}},
        {D3DTOP_ADDSMOOTH, D3DTA_CURRENT, D3DTA_TEXTURE, {0xFF8080, 0x80FF80, 0x8080FF, 0xFFFFFF}},
        {D3DTOP_SELECTARG2, D3DTA_CURRENT, D3DTA_SPECULAR, {0, 0, 0, 0}},
    };
    for (const auto& c : cases) {
        DWORD* ss = state.stageStates[1];
        ss[D3DTSS_COLOROP] = c.op;
        ss[D3DTSS_COLORARG1] = c.arg1;
        ss[D3DTSS_COLORARG2] = c.arg2;
        Draw(Quad(0, 0, 64, 64, 0.5f, 0xFFFFFFFF));
        const int points[4][2] = {{16, 16}, {48, 16}, {16, 48}, {48, 48}};
        for (int q = 0; q < 4; ++q)
            ExpectColour(At(points[q][0], points[q][1]), c.quadrants[q], "stage op");
    }
    // Without a texture a stage reads white, so modulation leaves the diffuse colour.
    state.textures[0] = state.textures[1] = nullptr;
    state.stageStates[1][D3DTSS_COLOROP] = D3DTOP_DISABLE;
    Draw(Quad(0, 0, 64, 64, 0.5f, 0xFF336699));
    ExpectColour(At(5, 5), 0x336699, "no texture");
}

TEST_F(GlBackendTest, DepthTestKeepsTheNearerTriangleInEitherOrder) {
    const struct {
        DWORD func, write;
        float clear;
        uint32_t nearFirst, farFirst;
    } cases[] = {
        {D3DCMP_LESSEQUAL, 1, 1, 0xFF00, 0xFF00},   {D3DCMP_LESS, 1, 1, 0xFF00, 0xFF00},
        {D3DCMP_GREATER, 1, 0, 0xFF0000, 0xFF0000}, {D3DCMP_ALWAYS, 1, 1, 0xFF0000, 0xFF00},
        {D3DCMP_NEVER, 1, 1, 0xFF, 0xFF},           {D3DCMP_LESS, 0, 1, 0xFF0000, 0xFF00},
    };
    for (const auto& c : cases) {
        state.renderStates[D3DRENDERSTATE_ZFUNC] = c.func;
        state.renderStates[D3DRENDERSTATE_ZWRITEENABLE] = c.write;
        for (int order = 0; order < 2; ++order) {
            backend->Clear(state, 0, nullptr, D3DCLEAR_TARGET | D3DCLEAR_ZBUFFER, 0xFF0000FF,
                           c.clear, 0);
            std::vector<TlVertex> nearer = Quad(8, 8, 40, 40, 0.25f, 0xFF00FF00);
            std::vector<TlVertex> farther = Quad(20, 20, 56, 56, 0.75f, 0xFFFF0000);
            Draw(order ? farther : nearer);
            Draw(order ? nearer : farther);
            ExpectColour(At(30, 30), order ? c.farFirst : c.nearFirst, "overlap");
        }
    }
}

TEST_F(GlBackendTest, BlendingAndAlphaTestOverAKnownBackground) {
    const struct {
        DWORD blend, source, dest, test, func, ref;
        uint32_t colour;
    } cases[] = {
        {1, D3DBLEND_SRCALPHA, D3DBLEND_INVSRCALPHA, 0, 0, 0, 0x4000BF},
        {1, D3DBLEND_BOTHSRCALPHA, D3DBLEND_ZERO, 0, 0, 0, 0x4000BF},
        {1, D3DBLEND_BOTHINVSRCALPHA, D3DBLEND_ZERO, 0, 0, 0, 0xBF0040},
        {1, D3DBLEND_ONE, D3DBLEND_ONE, 0, 0, 0, 0xFF00FF},
        {1, D3DBLEND_DESTCOLOR, D3DBLEND_ZERO, 0, 0, 0, 0},
        {0, 0, 0, 1, D3DCMP_GREATER, 0x40, 0x0000FF},
        {0, 0, 0, 1, D3DCMP_GREATEREQUAL, 0x40, 0xFF0000},
        {0, 0, 0, 1, D3DCMP_EQUAL, 0x41, 0x0000FF},
        {0, 0, 0, 1, D3DCMP_LESS, 0x41, 0xFF0000},
    };
    state.stageStates[0][D3DTSS_COLOROP] = D3DTOP_SELECTARG2;
    state.stageStates[0][D3DTSS_ALPHAOP] = D3DTOP_SELECTARG2;
    for (const auto& c : cases) {
        DWORD* rs = state.renderStates;
        rs[D3DRENDERSTATE_ALPHABLENDENABLE] = c.blend;
        rs[D3DRENDERSTATE_SRCBLEND] = c.source;
        rs[D3DRENDERSTATE_DESTBLEND] = c.dest;
        rs[D3DRENDERSTATE_ALPHATESTENABLE] = c.test;
        rs[D3DRENDERSTATE_ALPHAFUNC] = c.func;
        rs[D3DRENDERSTATE_ALPHAREF] = c.ref;
        backend->Clear(state, 0, nullptr, D3DCLEAR_TARGET, 0xFF0000FF, 1, 0);
        Draw(Quad(0, 0, 64, 64, 0.5f, 0x40FF0000));
        ExpectColour(At(32, 32), c.colour, "blend");
    }
}

TEST_F(GlBackendTest, FogByDistance) {
    // Eye z is the distance; the projection maps z 0..100 onto depth 0..1.
    state.projection.m[0][0] = state.projection.m[1][1] = 1.0f / 32;
    state.projection.m[2][2] = 0.01f;
    DWORD* rs = state.renderStates;
    rs[D3DRENDERSTATE_FOGENABLE] = 1;
    rs[D3DRENDERSTATE_FOGCOLOR] = 0xFF000000;
    rs[D3DRENDERSTATE_FOGSTART] = Bits(10);
    rs[D3DRENDERSTATE_FOGEND] = Bits(20);
    rs[D3DRENDERSTATE_ZENABLE] = 0;
    state.stageStates[0][D3DTSS_COLOROP] = D3DTOP_SELECTARG2;
    const struct {
        DWORD table, vertex;
        float density, z;
        int level;
    } cases[] = {
        {D3DFOG_LINEAR, D3DFOG_NONE, 0, 12.5f, 191}, {D3DFOG_NONE, D3DFOG_LINEAR, 0, 12.5f, 191},
        {D3DFOG_LINEAR, D3DFOG_NONE, 0, 5, 255},     {D3DFOG_NONE, D3DFOG_LINEAR, 0, 30, 0},
        {D3DFOG_EXP, D3DFOG_NONE, 0.1f, 10, 94},     {D3DFOG_NONE, D3DFOG_EXP2, 0.05f, 20, 94},
    };
    for (const auto& c : cases) {
        rs[D3DRENDERSTATE_FOGTABLEMODE] = c.table;
        rs[D3DRENDERSTATE_FOGVERTEXMODE] = c.vertex;
        rs[D3DRENDERSTATE_FOGDENSITY] = Bits(c.density);
        const Vertex v[4] = {{-32, 32, c.z, 0, 0, 0, ~0u},
                             {32, 32, c.z, 0, 0, 0, ~0u},
                             {-32, -32, c.z, 0, 0, 0, ~0u},
                             {32, -32, c.z, 0, 0, 0, ~0u}};
        Draw(VertexFvf, v, 4);
        ExpectColour(At(32, 32), uint32_t(c.level) * 0x010101, "fog");
    }
}

TEST_F(GlBackendTest, CullingFollowsTheWindingOnScreen) {
    auto corner = [](float x, float y) { return TlVertex{x, y, 0.5f, 1, ~0u, 0, 0, 0, 0}; };
    const TlVertex clockwise[3] = {corner(10, 10), corner(50, 10), corner(10, 50)};
    const TlVertex anticlockwise[3] = {clockwise[0], clockwise[2], clockwise[1]};
    // The same clockwise triangle through the matrices: y runs up before the viewport.
    const Vertex world[3] = {{-0.6875f, 0.6875f, 0.5f, 0, 0, 0, ~0u},
                             {0.5625f, 0.6875f, 0.5f, 0, 0, 0, ~0u},
                             {-0.6875f, -0.5625f, 0.5f, 0, 0, 0, ~0u}};
    state.stageStates[0][D3DTSS_COLOROP] = D3DTOP_SELECTARG2;
    const struct {
        DWORD fvf;
        const void* vertices;
        DWORD cull;
        bool drawn;
    } cases[] = {
        {TlFvf, clockwise, D3DCULL_CCW, true},      {TlFvf, clockwise, D3DCULL_CW, false},
        {TlFvf, anticlockwise, D3DCULL_CCW, false}, {TlFvf, anticlockwise, D3DCULL_CW, true},
        {TlFvf, anticlockwise, D3DCULL_NONE, true}, {VertexFvf, world, D3DCULL_CCW, true},
        {VertexFvf, world, D3DCULL_CW, false},
    };
    for (const auto& c : cases) {
        state.renderStates[D3DRENDERSTATE_CULLMODE] = c.cull;
        backend->Clear(state, 0, nullptr, D3DCLEAR_TARGET | D3DCLEAR_ZBUFFER, 0xFF0000FF, 1, 0);
        Draw(c.fvf, c.vertices, 3, D3DPT_TRIANGLELIST);
        ExpectColour(At(15, 15), c.drawn ? 0xFFFFFF : 0xFF, "cull");
        ExpectColour(At(45, 45), 0xFF, "outside");
    }
}

TEST_F(GlBackendTest, LightsOnAFlatFace) {
    DWORD* rs = state.renderStates;
    rs[D3DRENDERSTATE_LIGHTING] = 1;
    rs[D3DRENDERSTATE_ZENABLE] = 0;
    state.stageStates[0][D3DTSS_COLOROP] = D3DTOP_SELECTARG2;
    state.material.dcvDiffuse = {1, 0.5f, 0.25f, 1};
    state.material.dcvAmbient = {1, 1, 1, 1};
    state.material.dcvSpecular = {0, 0, 1, 1};
    DxLightSlot& slot = state.lights[3];
    slot = {D3DLIGHT7{}, true, true};
    slot.light.dcvDiffuse = slot.light.dcvSpecular = {1, 1, 1, 1};
    slot.light.dvAttenuation0 = 1;
    // The face looks at the camera (-z); a direction points away from the light. A point light
    // lights the corners, sqrt(3) away, and the centre is their blend.
    const float s = std::sqrt(0.75f);
    const struct {
        D3DLIGHTTYPE type;
        D3DVECTOR vector;  // direction or position
        float attenuation1, range, power;
        DWORD ambient;
        uint32_t colour;
    } cases[] = {
        {D3DLIGHT_DIRECTIONAL, {0, 0, 1}, 0, 0, 0, 0, 0xFF8040},
        {D3DLIGHT_DIRECTIONAL, {0, s, 0.5f}, 0, 0, 0, 0, 0x804020},
        {D3DLIGHT_DIRECTIONAL, {0, 0, -1}, 0, 0, 0, 0x202020, 0x202020},
        {D3DLIGHT_DIRECTIONAL, {0, 0, 1}, 0, 0, 0, 0x202020, 0xFFA060},
        {D3DLIGHT_DIRECTIONAL, {0, 0, 1}, 0, 0, 4, 0, 0xFF80FF},
        {D3DLIGHT_POINT, {0, 0, -0.5f}, 1, 10, 0, 0, 0x361B0D},
        {D3DLIGHT_POINT, {0, 0, -0.5f}, 1, 1.7f, 0, 0, 0},
    };
    for (const auto& c : cases) {
        slot.light.dltType = c.type;
        slot.light.dvDirection = slot.light.dvPosition = c.vector;
        slot.light.dvAttenuation1 = c.attenuation1;
        slot.light.dvRange = c.range;
        state.material.dvPower = c.power;
        rs[D3DRENDERSTATE_SPECULARENABLE] = c.power > 0;
        rs[D3DRENDERSTATE_AMBIENT] = c.ambient;
        const Vertex v[4] = {{-1, 1, 0.5f, 0, 0, -1, 0},
                             {1, 1, 0.5f, 0, 0, -1, 0},
                             {-1, -1, 0.5f, 0, 0, -1, 0},
                             {1, -1, 0.5f, 0, 0, -1, 0}};
        Draw(VertexFvf, v, 4);  // without COLORVERTEX the black diffuse is not the material
        ExpectColour(At(32, 32), c.colour, "light");
    }
}

TEST_F(GlBackendTest, ReadBackConvertsIntoTheTargetsFormat) {
    const struct {
        DDPIXELFORMAT format;
        uint32_t pixel;  // of colour 0xFF8040 plus alpha 0x80
    } cases[] = {
        {DxRgbFormat(16, 0xF800, 0x7E0, 0x1F, 0), 0xFC08},
        {DxRgbFormat(16, 0x7C00, 0x3E0, 0x1F, 0x8000), 0xFE08},
        {DxRgbFormat(32, 0xFF0000, 0xFF00, 0xFF, 0xFF000000), 0x80FF8040},
        {DxRgbFormat(32, 0xFF0000, 0xFF00, 0xFF, 0), 0xFF8040},
        {DxRgbFormat(32, 0xFF000000, 0xFF00, 0xFF, 0), 0xFF008040},  // not the one-copy read
        {DxRgbFormat(24, 0xFF0000, 0xFF00, 0xFF, 0), 0xFF8040},
    };
    for (const auto& c : cases) {
        DxSurfaceStore* store = Store(64, 64, c.format);
        state.target = store;
        backend->Clear(state, 0, nullptr, D3DCLEAR_TARGET, 0x80FF8040, 1, 0);
        backend->ReadBack(*store);
        EXPECT_FALSE(store->glNewer);
        uint32_t v = 0;
        size_t bytes = c.format.dwRGBBitCount / 8;
        memcpy(&v, store->bytes.data() + 5 * store->pitch + 7 * bytes, bytes);
        EXPECT_EQ(v, c.pixel) << c.format.dwRGBBitCount << " bits";
    }
}

}  // namespace
