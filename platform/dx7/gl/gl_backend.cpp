// The device's draws on GL. Every render target is a framebuffer object over an RGBA8 texture;
// a surface's memory is uploaded when the processor changed it, and read back on demand.
//
// Rows: GL row 0 holds the screen's top row. Clip-space y is mirrored for that (gl_shader.cpp),
// so a texture uploaded from memory, a target drawn into and a target read back all keep rows
// top first, and render-to-texture samples the way Direct3D does. Window y equals Direct3D's
// screen y, which makes a clockwise triangle on screen counter-clockwise to GL.
#define GL_GLEXT_PROTOTYPES 1
#include "platform/dx7/gl/gl_backend.h"

#include <GL/gl.h>
#include <GL/glext.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "platform/debug/debug_output.h"
#include "platform/dx7/call_recorder.h"
#include "platform/dx7/gl/gl_offscreen.h"
#include "platform/dx7/gl/gl_pixels.h"
#include "platform/dx7/gl/gl_shader.h"
#include "platform/dx7/gl_context.h"
#include "platform/dx7/vertex_layout.h"

namespace {

constexpr int MaxLevels = 16;

struct Sampler {
    GLint wrapS = 0, wrapT = 0, minFilter = 0, magFilter = 0;
    DWORD border = 0;
    float anisotropy = 0;
    bool operator==(const Sampler&) const = default;
};

struct Surface {
    uint32_t id = 0;
    DWORD width = 0, height = 0;
    GLuint texture = 0;
    GLuint framebuffer = 0;
    GLuint renderbuffer = 0;   // of a Z buffer store
    GLuint attachedDepth = 0;  // the Z buffer's renderbuffer on framebuffer
    bool complete = false;
    int levels = 0;
    uint64_t versions[MaxLevels] = {};
    Sampler sampler;
};

struct Raster {
    GLint viewport[4] = {0, 0, 0, 0};
    float depthNear = 0, depthFar = 1;
    bool depthTest = false, depthWrite = true, blend = false, cull = false;
    GLenum depthFunc = GL_LESS, blendSrc = GL_ONE, blendDst = GL_ZERO, cullFace = GL_BACK;
    GLenum polygonMode = GL_FILL;
    bool operator==(const Raster&) const = default;
};

struct Program {
    GLuint id = 0;  // 0: the shaders failed, the draws that need them are dropped
    GLint uniforms = -1;
    bool loaded = false;
    float last[DxGlUCount * 4];
};

float FloatBits(DWORD value) {
    float f;
    memcpy(&f, &value, sizeof f);
    return f;
}

void Unpack(D3DCOLOR c, float* out) {
    out[0] = float((c >> 16) & 0xFF) / 255.0f;
    out[1] = float((c >> 8) & 0xFF) / 255.0f;
    out[2] = float(c & 0xFF) / 255.0f;
    out[3] = float(c >> 24) / 255.0f;
}

void Put(float* u, int slot, double x, double y, double z, double w) {
    u[slot * 4] = float(x);
    u[slot * 4 + 1] = float(y);
    u[slot * 4 + 2] = float(z);
    u[slot * 4 + 3] = float(w);
}

void PutColour(float* u, int slot, const D3DCOLORVALUE& c) {
    Put(u, slot, c.r, c.g, c.b, c.a);
}

GLenum Compare(DWORD func, GLenum otherwise) {
    static const GLenum funcs[8] = {GL_NEVER,   GL_LESS,     GL_EQUAL,  GL_LEQUAL,
                                    GL_GREATER, GL_NOTEQUAL, GL_GEQUAL, GL_ALWAYS};
    return func >= D3DCMP_NEVER && func <= D3DCMP_ALWAYS ? funcs[func - 1] : otherwise;
}

GLenum BlendFactor(DWORD blend, GLenum otherwise) {
    switch (blend) {
        case D3DBLEND_ZERO:
            return GL_ZERO;
        case D3DBLEND_ONE:
            return GL_ONE;
        case D3DBLEND_SRCCOLOR:
            return GL_SRC_COLOR;
        case D3DBLEND_INVSRCCOLOR:
            return GL_ONE_MINUS_SRC_COLOR;
        case D3DBLEND_SRCALPHA:
            return GL_SRC_ALPHA;
        case D3DBLEND_INVSRCALPHA:
            return GL_ONE_MINUS_SRC_ALPHA;
        case D3DBLEND_DESTALPHA:
            return GL_DST_ALPHA;
        case D3DBLEND_INVDESTALPHA:
            return GL_ONE_MINUS_DST_ALPHA;
        case D3DBLEND_DESTCOLOR:
            return GL_DST_COLOR;
        case D3DBLEND_INVDESTCOLOR:
            return GL_ONE_MINUS_DST_COLOR;
        case D3DBLEND_SRCALPHASAT:
            return GL_SRC_ALPHA_SATURATE;
        default:
            return otherwise;
    }
}

GLint Wrap(DWORD address) {
    switch (address) {
        case D3DTADDRESS_MIRROR:
            return GL_MIRRORED_REPEAT;
        case D3DTADDRESS_CLAMP:
            return GL_CLAMP_TO_EDGE;
        case D3DTADDRESS_BORDER:
            return GL_CLAMP_TO_BORDER;
        default:
            return GL_REPEAT;
    }
}

// a * b for row-vector matrices, in double.
void Multiply(const D3DMATRIX& a, const D3DMATRIX& b, double out[4][4]) {
    for (int r = 0; r < 4; ++r)
        for (int c = 0; c < 4; ++c) {
            double sum = 0;
            for (int k = 0; k < 4; ++k) sum += double(a.m[r][k]) * b.m[k][c];
            out[r][c] = sum;
        }
}

class GlBackend : public DxGlBackend {
public:
    GlBackend();
    ~GlBackend() override = default;  // names die with their context; see Get()

    void Draw(const DxDrawState& state, const DxPrimitive& primitive) override;
    void Clear(const DxDrawState& state, DWORD count, const D3DRECT* rects, DWORD flags,
               D3DCOLOR colour, D3DVALUE z, DWORD stencil) override;
    void ReadBack(DxSurfaceStore& store) override;
    void Forget(const DxSurfaceStore& store) override;

    void Invalidate();  // bindings may have changed behind our back

private:
    Surface& Find(const DxSurfaceStore& store);
    void SyncTexture(DxSurfaceStore& store, Surface& surface, int unit, bool mips, bool discard);
    bool PrepareTarget(DxSurfaceStore& target, DxSurfaceStore* depth, bool discard);
    Program* GetProgram(const DxGlShaderKey& key);
    void BindTexture(int unit, GLuint texture);
    void BindStages(const DxDrawState& state, const DxGlShaderKey& key);
    void ApplyRaster(const Raster& raster);
    void LoadUniforms(const DxDrawState& state, const DxGlShaderKey& key, Program& program);
    void SetAttributes(const DxVertexLayout& layout, const DxGlShaderKey& key, const uint8_t* base);
    void CheckErrors(const char* where);
    void Warn(const std::string& text);

    std::unordered_map<const DxSurfaceStore*, Surface> surfaces;
    std::unordered_map<std::string, Program> programs;
    DxGlShaderKey lastKey{};
    Program* lastProgram = nullptr;
    GLuint currentProgram = 0;
    GLuint white = 0;
    GLuint boundFramebuffer = 0;
    GLuint boundTextures[DxMaxStages] = {};
    int activeUnit = -1;
    unsigned enabledAttributes = 0;
    Raster applied;
    bool rasterKnown = false;
    float maxAnisotropy = 1;
    bool checkErrors = false;
    bool provokingVertex = false;
    std::vector<uint8_t> scratch;
    std::vector<std::string> warned;
};

GlBackend::GlBackend() {
#ifndef NDEBUG
    checkErrors = true;
#endif
    if (getenv("TENEBRIX_GL_CHECK")) checkErrors = true;
    GLint extensions = 0;
    glGetIntegerv(GL_NUM_EXTENSIONS, &extensions);
    for (GLint i = 0; i < extensions; ++i) {
        const char* name = reinterpret_cast<const char*>(glGetStringi(GL_EXTENSIONS, GLuint(i)));
        if (name && (!strcmp(name, "GL_EXT_texture_filter_anisotropic") ||
                     !strcmp(name, "GL_ARB_texture_filter_anisotropic")))
            glGetFloatv(GL_MAX_TEXTURE_MAX_ANISOTROPY_EXT, &maxAnisotropy);
    }
    GLint major = 0, minor = 0;
    glGetIntegerv(GL_MAJOR_VERSION, &major);
    glGetIntegerv(GL_MINOR_VERSION, &minor);
    provokingVertex = major > 3 || (major == 3 && minor >= 2);
    glGenTextures(1, &white);
    glBindTexture(GL_TEXTURE_2D, white);
    const uint8_t texel[4] = {255, 255, 255, 255};
    glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA8, 1, 1, 0, GL_RGBA, GL_UNSIGNED_BYTE, texel);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAX_LEVEL, 0);
    Invalidate();
}

void GlBackend::Invalidate() {
    glBindBuffer(GL_ARRAY_BUFFER, 0);
    glBindBuffer(GL_ELEMENT_ARRAY_BUFFER, 0);
    glBindVertexArray(0);
    glPixelStorei(GL_UNPACK_ALIGNMENT, 1);
    glPixelStorei(GL_PACK_ALIGNMENT, 1);
    glPixelStorei(GL_UNPACK_ROW_LENGTH, 0);
    glColorMask(GL_TRUE, GL_TRUE, GL_TRUE, GL_TRUE);
    glDisable(GL_SCISSOR_TEST);
    glDisable(GL_STENCIL_TEST);
    glFrontFace(GL_CCW);
    // Direct3D's flat shading takes the first vertex's colours.
    if (provokingVertex) glProvokingVertex(GL_FIRST_VERTEX_CONVENTION);
    rasterKnown = false;
    boundFramebuffer = ~0u;
    for (GLuint& t : boundTextures) t = ~0u;
    activeUnit = -1;
    currentProgram = ~0u;
    GLint attributes = 16;
    glGetIntegerv(GL_MAX_VERTEX_ATTRIBS, &attributes);
    for (GLint i = 0; i < attributes; ++i) glDisableVertexAttribArray(GLuint(i));
    enabledAttributes = 0;
}

void GlBackend::Warn(const std::string& text) {
    for (const std::string& w : warned)
        if (w == text) return;
    warned.push_back(text);
    OutputDebugStringA(("GL: " + text + "\n").c_str());
}

void GlBackend::CheckErrors(const char* where) {
    if (!checkErrors) return;
    for (GLenum error = glGetError(); error != GL_NO_ERROR; error = glGetError()) {
        char text[64];
        snprintf(text, sizeof text, "error 0x%04X after %s", unsigned(error), where);
        Warn(text);
    }
}

Surface& GlBackend::Find(const DxSurfaceStore& store) {
    Surface& s = surfaces[&store];
    if (s.id != store.id || s.width != store.width || s.height != store.height) {
        // A new surface at the address of one that went without Forget.
        if (s.texture || s.framebuffer || s.renderbuffer) Forget(store);
        Surface& fresh = surfaces[&store];
        fresh.id = store.id;
        fresh.width = store.width;
        fresh.height = store.height;
        return fresh;
    }
    return s;
}

// Leaves unit active, since uploads and parameters go to the active unit's texture.
void GlBackend::BindTexture(int unit, GLuint texture) {
    if (activeUnit != unit) glActiveTexture(GLenum(GL_TEXTURE0 + unit));
    activeUnit = unit;
    if (boundTextures[unit] == texture) return;
    glBindTexture(GL_TEXTURE_2D, texture);
    boundTextures[unit] = texture;
}

// Brings the GL copy up to the processor's: each level whose memory changed is uploaded.
// discard: the caller overwrites all of level 0, so its memory need not travel.
void GlBackend::SyncTexture(DxSurfaceStore& store, Surface& s, int unit, bool mips, bool discard) {
    DxSurfaceStore* chain[MaxLevels];
    int count = 0;
    for (DxSurfaceStore* level = &store; level && count < (mips ? MaxLevels : 1);
         level = level->nextLevel) {
        if (count && (level->width != std::max<DWORD>(1, chain[count - 1]->width / 2) ||
                      level->height != std::max<DWORD>(1, chain[count - 1]->height / 2)))
            break;
        chain[count++] = level;
    }
    bool created = !s.texture;
    if (created) glGenTextures(1, &s.texture);
    BindTexture(unit, s.texture);
    for (int i = 0; i < count; ++i) {
        DxSurfaceStore& level = *chain[i];
        bool allocated = !created && i < s.levels;
        if (allocated && s.versions[i] == level.cpuVersion) continue;
        GLsizei w = GLsizei(level.width), h = GLsizei(level.height);
        const void* pixels = nullptr;
        GLenum format = GL_RGBA, type = GL_UNSIGNED_BYTE;
        bool packed = (level.format.dwFlags & DDPF_FOURCC) ||
                      (DxIsArgb8888(level.format) && level.pitch == LONG(level.width * 4));
        if (discard && i == 0) {
            if (allocated) {
                s.versions[i] = level.glVersion = level.cpuVersion;
                continue;
            }
        } else if (packed && level.bytes.size() >= size_t(w) * h * 4) {
            pixels = level.bytes.data();
            format = GL_BGRA;
            type = GL_UNSIGNED_INT_8_8_8_8_REV;
        } else if (DxStoreToRgba(level, scratch)) {
            pixels = scratch.data();
        } else {
            scratch.assign(size_t(w) * h * 4, 0);  // a format without colours reads as black
            pixels = scratch.data();
        }
        if (allocated)
            glTexSubImage2D(GL_TEXTURE_2D, i, 0, 0, w, h, format, type, pixels);
        else
            glTexImage2D(GL_TEXTURE_2D, i, GL_RGBA8, w, h, 0, format, type, pixels);
        s.versions[i] = level.cpuVersion;
        level.glVersion = level.cpuVersion;
    }
    // A target's draw leaves the mip levels a texture use made.
    if (created || (mips && count != s.levels)) {
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAX_LEVEL, count - 1);
        s.levels = count;
        s.sampler = Sampler();
    }
}

bool GlBackend::PrepareTarget(DxSurfaceStore& target, DxSurfaceStore* depth, bool discard) {
    if (target.width == 0 || target.height == 0) return false;
    Surface& s = Find(target);
    SyncTexture(target, s, 0, false, discard);
    if (!s.framebuffer) {
        glGenFramebuffers(1, &s.framebuffer);
        glBindFramebuffer(GL_FRAMEBUFFER, s.framebuffer);
        glFramebufferTexture2D(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D, s.texture, 0);
        s.attachedDepth = ~0u;
    } else if (boundFramebuffer != s.framebuffer) {
        glBindFramebuffer(GL_FRAMEBUFFER, s.framebuffer);
    }
    boundFramebuffer = s.framebuffer;
    GLuint renderbuffer = 0;
    if (depth && depth->width && depth->height) {
        Surface& d = Find(*depth);
        if (!d.renderbuffer) {
            glGenRenderbuffers(1, &d.renderbuffer);
            glBindRenderbuffer(GL_RENDERBUFFER, d.renderbuffer);
            glRenderbufferStorage(GL_RENDERBUFFER, GL_DEPTH24_STENCIL8, GLsizei(depth->width),
                                  GLsizei(depth->height));
            depth->glVersion = depth->cpuVersion;  // tells the surface there is GL to free
        }
        renderbuffer = d.renderbuffer;
    }
    if (s.attachedDepth != renderbuffer) {
        glFramebufferRenderbuffer(GL_FRAMEBUFFER, GL_DEPTH_STENCIL_ATTACHMENT, GL_RENDERBUFFER,
                                  renderbuffer);
        s.attachedDepth = renderbuffer;
        s.complete = glCheckFramebufferStatus(GL_FRAMEBUFFER) == GL_FRAMEBUFFER_COMPLETE;
        if (!s.complete) Warn("a render target's framebuffer is incomplete");
    }
    return s.complete;
}

Program* GlBackend::GetProgram(const DxGlShaderKey& key) {
    if (lastProgram && !memcmp(&key, &lastKey, sizeof key)) return lastProgram;
    std::string name(reinterpret_cast<const char*>(&key), sizeof key);
    auto found = programs.find(name);
    if (found == programs.end()) {
        Program& p = programs[name];
        std::string sources[2];
        DxWriteShaders(key, sources[0], sources[1]);
        GLuint program = glCreateProgram();
        const GLenum kinds[2] = {GL_VERTEX_SHADER, GL_FRAGMENT_SHADER};
        for (int i = 0; i < 2; ++i) {
            GLuint shader = glCreateShader(kinds[i]);
            const char* text = sources[i].c_str();
            glShaderSource(shader, 1, &text, nullptr);
            glCompileShader(shader);
            glAttachShader(program, shader);
            glDeleteShader(shader);
        }
        glBindAttribLocation(program, DxGlAttribPosition, "aPos");
        glBindAttribLocation(program, DxGlAttribNormal, "aNormal");
        glBindAttribLocation(program, DxGlAttribDiffuse, "aDiffuse");
        glBindAttribLocation(program, DxGlAttribSpecular, "aSpecular");
        for (int i = 0; i < DxMaxStages; ++i)
            glBindAttribLocation(program, GLuint(DxGlAttribTex0 + i),
                                 ("aTex" + std::to_string(i)).c_str());
        glLinkProgram(program);
        GLint linked = 0;
        glGetProgramiv(program, GL_LINK_STATUS, &linked);
        if (!linked) {
            char log[1024] = "";
            glGetProgramInfoLog(program, sizeof log, nullptr, log);
            Warn(std::string("shaders failed: ") + log);
            glDeleteProgram(program);
        } else {
            p.id = program;
            p.uniforms = glGetUniformLocation(program, "U");
            glUseProgram(program);
            currentProgram = program;
            for (int i = 0; i < DxMaxStages; ++i) {
                GLint sampler = glGetUniformLocation(program, ("T" + std::to_string(i)).c_str());
                if (sampler >= 0) glUniform1i(sampler, i);
            }
        }
        found = programs.find(name);
    }
    lastKey = key;
    lastProgram = &found->second;
    return lastProgram;
}

void GlBackend::BindStages(const DxDrawState& state, const DxGlShaderKey& key) {
    for (int i = 0; i < key.stageCount; ++i) {
        if (!key.stages[i].sampled) continue;
        DxSurfaceStore* texture = state.textures[i];
        // A stage without a texture reads white; so does a target sampling itself.
        if (!texture || texture == state.target || !texture->width || !texture->height) {
            BindTexture(i, white);
            continue;
        }
        Surface& s = Find(*texture);
        SyncTexture(*texture, s, i, true, false);
        const DWORD* ss = state.stageStates[i];
        Sampler sampler;
        sampler.wrapS = Wrap(ss[D3DTSS_ADDRESSU]);
        sampler.wrapT = Wrap(ss[D3DTSS_ADDRESSV]);
        sampler.magFilter = ss[D3DTSS_MAGFILTER] == D3DTFG_POINT ? GL_NEAREST : GL_LINEAR;
        bool linear = ss[D3DTSS_MINFILTER] != D3DTFN_POINT;
        DWORD mip = s.levels > 1 ? ss[D3DTSS_MIPFILTER] : D3DTFP_NONE;
        if (mip == D3DTFP_POINT)
            sampler.minFilter = linear ? GL_LINEAR_MIPMAP_NEAREST : GL_NEAREST_MIPMAP_NEAREST;
        else if (mip == D3DTFP_LINEAR)
            sampler.minFilter = linear ? GL_LINEAR_MIPMAP_LINEAR : GL_NEAREST_MIPMAP_LINEAR;
        else
            sampler.minFilter = linear ? GL_LINEAR : GL_NEAREST;
        sampler.border = ss[D3DTSS_BORDERCOLOR];
        bool anisotropic = ss[D3DTSS_MAGFILTER] == D3DTFG_ANISOTROPIC ||
                           ss[D3DTSS_MINFILTER] == D3DTFN_ANISOTROPIC;
        sampler.anisotropy =
            anisotropic
                ? std::min(maxAnisotropy, float(std::max<DWORD>(1, ss[D3DTSS_MAXANISOTROPY])))
                : 1.0f;
        if (sampler == s.sampler) continue;
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, sampler.wrapS);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, sampler.wrapT);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, sampler.magFilter);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, sampler.minFilter);
        float border[4];
        Unpack(sampler.border, border);
        glTexParameterfv(GL_TEXTURE_2D, GL_TEXTURE_BORDER_COLOR, border);
        if (maxAnisotropy > 1)
            glTexParameterf(GL_TEXTURE_2D, GL_TEXTURE_MAX_ANISOTROPY_EXT, sampler.anisotropy);
        s.sampler = sampler;
    }
}

void GlBackend::ApplyRaster(const Raster& r) {
    if (rasterKnown && r == applied) return;
    glViewport(r.viewport[0], r.viewport[1], r.viewport[2], r.viewport[3]);
    glDepthRange(r.depthNear, r.depthFar);
    r.depthTest ? glEnable(GL_DEPTH_TEST) : glDisable(GL_DEPTH_TEST);
    glDepthFunc(r.depthFunc);
    glDepthMask(r.depthWrite ? GL_TRUE : GL_FALSE);
    r.blend ? glEnable(GL_BLEND) : glDisable(GL_BLEND);
    glBlendFunc(r.blendSrc, r.blendDst);
    r.cull ? glEnable(GL_CULL_FACE) : glDisable(GL_CULL_FACE);
    glCullFace(r.cullFace);
    glPolygonMode(GL_FRONT_AND_BACK, r.polygonMode);
    applied = r;
    rasterKnown = true;
}

void GlBackend::LoadUniforms(const DxDrawState& state, const DxGlShaderKey& key, Program& p) {
    float u[DxGlUCount * 4] = {};
    const DWORD* rs = state.renderStates;
    double wv[4][4];
    Multiply(state.world, state.view, wv);
    for (int r = 0; r < 4; ++r) {
        Put(u, DxGlUWorldView + r, wv[r][0], wv[r][1], wv[r][2], wv[r][3]);
        const float* p4 = state.projection.m[r];
        Put(u, DxGlUProjection + r, p4[0], p4[1], p4[2], p4[3]);
    }
    const D3DVIEWPORT7& vp = state.viewport;
    Put(u, DxGlUViewport, vp.dwX, vp.dwY, std::max<DWORD>(1, vp.dwWidth),
        std::max<DWORD>(1, vp.dwHeight));
    float start = FloatBits(rs[D3DRENDERSTATE_FOGSTART]);
    float end = FloatBits(rs[D3DRENDERSTATE_FOGEND]);
    double span = double(end) - start;
    Put(u, DxGlUFog, start, end, FloatBits(rs[D3DRENDERSTATE_FOGDENSITY]),
        span != 0 ? 1.0 / span : 0.0);
    Unpack(rs[D3DRENDERSTATE_FOGCOLOR], u + DxGlUFogColour * 4);
    Unpack(rs[D3DRENDERSTATE_TEXTUREFACTOR], u + DxGlUFactor * 4);
    int lights = 0;
    if (key.lighting) {
        // Normals take the inverse transpose of the world-view's 3x3 (cofactors over det).
        double c[3][3];
        for (int r = 0; r < 3; ++r)
            for (int k = 0; k < 3; ++k)
                c[r][k] = wv[(r + 1) % 3][(k + 1) % 3] * wv[(r + 2) % 3][(k + 2) % 3] -
                          wv[(r + 1) % 3][(k + 2) % 3] * wv[(r + 2) % 3][(k + 1) % 3];
        double det = wv[0][0] * c[0][0] + wv[0][1] * c[0][1] + wv[0][2] * c[0][2];
        for (int r = 0; r < 3; ++r) {
            if (det != 0)
                Put(u, DxGlUNormal + r, c[r][0] / det, c[r][1] / det, c[r][2] / det, 0);
            else
                Put(u, DxGlUNormal + r, wv[r][0], wv[r][1], wv[r][2], 0);
        }
        const D3DMATERIAL7& m = state.material;
        PutColour(u, DxGlUMaterial, m.dcvDiffuse);
        PutColour(u, DxGlUMaterial + 1, m.dcvAmbient);
        PutColour(u, DxGlUMaterial + 2, m.dcvSpecular);
        PutColour(u, DxGlUMaterial + 3, m.dcvEmissive);
        Put(u, DxGlUPower, m.dvPower, 0, 0, 0);
        Unpack(rs[D3DRENDERSTATE_AMBIENT], u + DxGlUAmbient * 4);
        const D3DMATRIX& v = state.view;
        for (const DxLightSlot& slot : state.lights) {
            const D3DLIGHT7& l = slot.light;
            if (!slot.set || !slot.enabled || l.dltType < D3DLIGHT_POINT ||
                l.dltType > D3DLIGHT_DIRECTIONAL)
                continue;
            int b = DxGlULights + DxGlULightSize * lights++;
            PutColour(u, b, l.dcvDiffuse);
            PutColour(u, b + 1, l.dcvSpecular);
            PutColour(u, b + 2, l.dcvAmbient);
            // Lights live in world space; the shader lights in camera space.
            const D3DVECTOR& p3 = l.dvPosition;
            double pos[3], dir[3];
            for (int k = 0; k < 3; ++k) {
                pos[k] = p3.x * double(v.m[0][k]) + p3.y * double(v.m[1][k]) +
                         p3.z * double(v.m[2][k]) + v.m[3][k];
                dir[k] = l.dvDirection.x * double(v.m[0][k]) + l.dvDirection.y * double(v.m[1][k]) +
                         l.dvDirection.z * double(v.m[2][k]);
            }
            double length = std::sqrt(dir[0] * dir[0] + dir[1] * dir[1] + dir[2] * dir[2]);
            if (length > 0)
                for (double& d : dir) d /= length;
            Put(u, b + 3, pos[0], pos[1], pos[2], double(l.dltType));
            Put(u, b + 4, dir[0], dir[1], dir[2], l.dvRange);
            Put(u, b + 5, l.dvAttenuation0, l.dvAttenuation1, l.dvAttenuation2, l.dvFalloff);
            Put(u, b + 6, std::cos(l.dvTheta / 2.0), std::cos(l.dvPhi / 2.0), 0, 0);
        }
    }
    Put(u, DxGlUMisc, double(rs[D3DRENDERSTATE_ALPHAREF] & 0xFF), lights, 0, 0);
    if (p.loaded && !memcmp(u, p.last, sizeof u)) return;
    glUniform4fv(p.uniforms, DxGlUCount, u);
    memcpy(p.last, u, sizeof u);
    p.loaded = true;
}

void GlBackend::SetAttributes(const DxVertexLayout& layout, const DxGlShaderKey& key,
                              const uint8_t* base) {
    unsigned wanted = 1u << DxGlAttribPosition;
    GLsizei stride = GLsizei(layout.size);
    glVertexAttribPointer(DxGlAttribPosition, layout.rhw ? 4 : 3, GL_FLOAT, GL_FALSE, stride,
                          base);
    if (key.normal) {
        wanted |= 1u << DxGlAttribNormal;
        glVertexAttribPointer(DxGlAttribNormal, 3, GL_FLOAT, GL_FALSE, stride,
                              base + layout.normal);
    }
    if (key.diffuse) {
        wanted |= 1u << DxGlAttribDiffuse;
        glVertexAttribPointer(DxGlAttribDiffuse, 4, GL_UNSIGNED_BYTE, GL_TRUE, stride,
                              base + layout.diffuse);
    }
    if (key.specular) {
        wanted |= 1u << DxGlAttribSpecular;
        glVertexAttribPointer(DxGlAttribSpecular, 4, GL_UNSIGNED_BYTE, GL_TRUE, stride,
                              base + layout.specular);
    }
    for (int i = 0; i < key.texSets; ++i) {
        wanted |= 1u << (DxGlAttribTex0 + i);
        glVertexAttribPointer(GLuint(DxGlAttribTex0 + i), layout.texFloats[i], GL_FLOAT,
                              GL_FALSE, stride, base + layout.texOffset[i]);
    }
    for (unsigned i = 0, change = wanted ^ enabledAttributes; change >> i; ++i) {
        if (!(change >> i & 1)) continue;
        if (wanted >> i & 1)
            glEnableVertexAttribArray(i);
        else
            glDisableVertexAttribArray(i);
    }
    enabledAttributes = wanted;
}

void GlBackend::Draw(const DxDrawState& state, const DxPrimitive& primitive) {
    static const GLenum modes[6] = {GL_POINTS,    GL_LINES,          GL_LINE_STRIP,
                                    GL_TRIANGLES, GL_TRIANGLE_STRIP, GL_TRIANGLE_FAN};
    if (!state.target || !primitive.vertices || primitive.vertexCount == 0) return;
    if (primitive.type < D3DPT_POINTLIST || primitive.type > D3DPT_TRIANGLEFAN) return;
    if (primitive.indices && primitive.indexCount == 0) return;
    DxVertexLayout layout;
    DxGlShaderKey key;
    if (!DxLayoutVertex(primitive.fvf, layout) || !DxMakeShaderKey(state, primitive.fvf, key))
        return;
    const D3DVIEWPORT7& vp = state.viewport;
    if (vp.dwWidth == 0 || vp.dwHeight == 0) return;
    Program* program = GetProgram(key);
    if (!program->id) return;
    DxSurfaceStore* depth = state.depth;
    if (!PrepareTarget(*state.target, depth, false)) return;
    BindStages(state, key);

    const DWORD* rs = state.renderStates;
    Raster r;
    r.viewport[0] = GLint(vp.dwX);
    r.viewport[1] = GLint(vp.dwY);
    r.viewport[2] = GLint(vp.dwWidth);
    r.viewport[3] = GLint(vp.dwHeight);
    // Pre-transformed z is already the depth to store.
    r.depthNear = key.transformed ? 0.0f : vp.dvMinZ;
    r.depthFar = key.transformed ? 1.0f : vp.dvMaxZ;
    r.depthTest = depth && rs[D3DRENDERSTATE_ZENABLE] != D3DZB_FALSE;
    r.depthFunc = Compare(rs[D3DRENDERSTATE_ZFUNC], GL_LEQUAL);
    r.depthWrite = rs[D3DRENDERSTATE_ZWRITEENABLE] != 0;
    r.blend = rs[D3DRENDERSTATE_ALPHABLENDENABLE] != 0;
    DWORD source = rs[D3DRENDERSTATE_SRCBLEND];
    if (source == D3DBLEND_BOTHSRCALPHA || source == D3DBLEND_BOTHINVSRCALPHA) {
        bool inverse = source == D3DBLEND_BOTHINVSRCALPHA;
        r.blendSrc = inverse ? GL_ONE_MINUS_SRC_ALPHA : GL_SRC_ALPHA;
        r.blendDst = inverse ? GL_SRC_ALPHA : GL_ONE_MINUS_SRC_ALPHA;
    } else {
        r.blendSrc = BlendFactor(source, GL_ONE);
        r.blendDst = BlendFactor(rs[D3DRENDERSTATE_DESTBLEND], GL_ZERO);
    }
    DWORD cull = rs[D3DRENDERSTATE_CULLMODE];
    r.cull = cull == D3DCULL_CW || cull == D3DCULL_CCW;
    r.cullFace = cull == D3DCULL_CW ? GL_FRONT : GL_BACK;
    DWORD fill = rs[D3DRENDERSTATE_FILLMODE];
    r.polygonMode = fill == D3DFILL_POINT       ? GL_POINT
                    : fill == D3DFILL_WIREFRAME ? GL_LINE
                                                : GL_FILL;
    ApplyRaster(r);
    if (currentProgram != program->id) glUseProgram(program->id);
    currentProgram = program->id;
    LoadUniforms(state, key, *program);
    SetAttributes(layout, key, primitive.vertices);
    GLenum mode = modes[primitive.type - 1];
    // The device has checked every index against the vertex count, so that is the range: no
    // second pass over the indices, and GL needs none of its own either.
    if (primitive.indices)
        glDrawRangeElements(mode, 0, primitive.vertexCount - 1, GLsizei(primitive.indexCount),
                            GL_UNSIGNED_SHORT, primitive.indices);
    else
        glDrawArrays(mode, 0, GLsizei(primitive.vertexCount));
    state.target->glNewer = true;
    CheckErrors("Draw");
}

void GlBackend::Clear(const DxDrawState& state, DWORD count, const D3DRECT* rects, DWORD flags,
                      D3DCOLOR colour, D3DVALUE z, DWORD stencil) {
    DxSurfaceStore* target = state.target;
    if (!target || !target->width || !target->height) return;
    DxSurfaceStore* depth = state.depth;
    GLbitfield mask = 0;
    if (flags & D3DCLEAR_TARGET) mask |= GL_COLOR_BUFFER_BIT;
    if (depth && (flags & D3DCLEAR_ZBUFFER)) mask |= GL_DEPTH_BUFFER_BIT;
    if (depth && (flags & D3DCLEAR_STENCIL)) mask |= GL_STENCIL_BUFFER_BIT;
    if (!mask) return;
    // Clears stay inside the viewport.
    const D3DVIEWPORT7& vp = state.viewport;
    LONG left = LONG(std::min<DWORD>(vp.dwX, target->width));
    LONG top = LONG(std::min<DWORD>(vp.dwY, target->height));
    LONG right = LONG(std::min<DWORD>(vp.dwX + vp.dwWidth, target->width));
    LONG bottom = LONG(std::min<DWORD>(vp.dwY + vp.dwHeight, target->height));
    if (!rects) count = 0;
    bool whole = (mask & GL_COLOR_BUFFER_BIT) && count == 0 && left == 0 && top == 0 &&
                 right == LONG(target->width) && bottom == LONG(target->height);
    if (!PrepareTarget(*target, depth, whole)) return;
    float c[4];
    Unpack(colour, c);
    glClearColor(c[0], c[1], c[2], c[3]);
    glClearDepth(std::clamp(double(z), 0.0, 1.0));
    glClearStencil(GLint(stencil));
    glDepthMask(GL_TRUE);
    glStencilMask(0xFF);
    rasterKnown = false;
    glEnable(GL_SCISSOR_TEST);
    D3DRECT viewport = {left, top, right, bottom};
    for (DWORD i = 0; i < std::max<DWORD>(count, 1); ++i) {
        const D3DRECT& rect = count ? rects[i] : viewport;
        LONG x1 = std::max(rect.x1, left), y1 = std::max(rect.y1, top);
        LONG x2 = std::min(rect.x2, right), y2 = std::min(rect.y2, bottom);
        if (x1 >= x2 || y1 >= y2) continue;
        glScissor(x1, y1, x2 - x1, y2 - y1);
        glClear(mask);
    }
    glDisable(GL_SCISSOR_TEST);
    if (mask & GL_COLOR_BUFFER_BIT) target->glNewer = true;
    CheckErrors("Clear");
}

void GlBackend::ReadBack(DxSurfaceStore& store) {
    if (!store.glNewer) return;
    store.glNewer = false;
    auto found = surfaces.find(&store);
    if (found == surfaces.end() || !found->second.framebuffer) return;
    Surface& s = found->second;
    if (boundFramebuffer != s.framebuffer) glBindFramebuffer(GL_FRAMEBUFFER, s.framebuffer);
    boundFramebuffer = s.framebuffer;
    glReadBuffer(GL_COLOR_ATTACHMENT0);
    GLsizei w = GLsizei(store.width), h = GLsizei(store.height);
    // Rows come out top first already (see the top of this file).
    const bool alpha = DxIsArgb8888(store.format);
    if ((alpha || DxIsXrgb8888(store.format)) && store.pitch == LONG(store.width * 4) &&
        store.bytes.size() >= size_t(w) * h * 4) {
        glReadPixels(0, 0, w, h, GL_BGRA, GL_UNSIGNED_INT_8_8_8_8_REV, store.bytes.data());
        // The top byte lies outside the masks, and such bits are 0 in a store.
        if (!alpha)
            for (size_t i = 3; i < size_t(w) * h * 4; i += 4) store.bytes[i] = 0;
    } else {
        scratch.resize(size_t(w) * h * 4);
        glReadPixels(0, 0, w, h, GL_RGBA, GL_UNSIGNED_BYTE, scratch.data());
        DxRgbaToStore(scratch.data(), store);
    }
    store.glVersion = store.cpuVersion;
    s.versions[0] = store.cpuVersion;
    CheckErrors("ReadBack");
}

void GlBackend::Forget(const DxSurfaceStore& store) {
    auto found = surfaces.find(&store);
    if (found == surfaces.end()) return;
    Surface& s = found->second;
    for (GLuint& t : boundTextures)
        if (t == s.texture) t = ~0u;
    if (boundFramebuffer == s.framebuffer) boundFramebuffer = ~0u;
    if (s.renderbuffer)
        for (auto& other : surfaces)
            if (other.second.attachedDepth == s.renderbuffer) other.second.attachedDepth = ~0u;
    if (s.texture) glDeleteTextures(1, &s.texture);
    if (s.framebuffer) glDeleteFramebuffers(1, &s.framebuffer);
    if (s.renderbuffer) glDeleteRenderbuffers(1, &s.renderbuffer);
    surfaces.erase(found);
}

}  // namespace

DxGlBackend* DxGlBackend::Get() {
    static DxGlContext* owner = nullptr;
    static std::unique_ptr<GlBackend> backend;
    if (DxGetRendering() == DxRendering::RecordOnly) return nullptr;
    DxGlContext* context = DxCurrentGlContext();
    if (!context || !context->MakeCurrent()) return nullptr;
    if (context != owner) {
        // The old backend's names belong to the old context; they go with it.
        backend.reset();
        backend = std::make_unique<GlBackend>();
        owner = context;
    } else if (!DxGlIsOffscreen(context)) {
        backend->Invalidate();
    }
    return backend.get();
}
