#include "platform/dx7/gl/gl_shader.h"

#include <cstring>

namespace {

uint8_t Source(DWORD value, const DxGlShaderKey& key) {
    if (value == D3DMCS_COLOR1 && key.diffuse) return DxGlSourceDiffuse;
    if (value == D3DMCS_COLOR2 && key.specular) return DxGlSourceSpecular;
    return DxGlSourceMaterial;
}

bool ReadsTexture(DWORD op, DWORD arg1, DWORD arg2) {
    return op == D3DTOP_BLENDTEXTUREALPHA || op == D3DTOP_BLENDTEXTUREALPHAPM ||
           (arg1 & D3DTA_SELECTMASK) == D3DTA_TEXTURE || (arg2 & D3DTA_SELECTMASK) == D3DTA_TEXTURE;
}

// An argument as a vec4 expression.
std::string Arg(uint8_t arg) {
    std::string e;
    switch (arg & D3DTA_SELECTMASK) {
        case D3DTA_DIFFUSE:
            e = "vDiffuse";
            break;
        case D3DTA_TEXTURE:
            e = "t";
            break;
        case D3DTA_TFACTOR:
            e = "U[" + std::to_string(DxGlUFactor) + "]";
            break;
        case D3DTA_SPECULAR:
            e = "vSpecular";
            break;
        default:
            e = "cur";
            break;
    }
    if (arg & D3DTA_COMPLEMENT) e = "(vec4(1.0) - " + e + ")";
    if (arg & D3DTA_ALPHAREPLICATE) e = "vec4(" + e + ".a)";
    return e;
}

// The result of op on the locals a and b, for the channels in x (".rgb" or ".a").
std::string Op(uint8_t op, const char* x) {
    std::string a = std::string("a") + x, b = std::string("b") + x;
    std::string factor = "U[" + std::to_string(DxGlUFactor) + "].a";
    switch (op) {
        case D3DTOP_SELECTARG1:
            return a;
        case D3DTOP_SELECTARG2:
            return b;
        case D3DTOP_MODULATE:
            return a + " * " + b;
        case D3DTOP_MODULATE2X:
            return "2.0 * " + a + " * " + b;
        case D3DTOP_MODULATE4X:
            return "4.0 * " + a + " * " + b;
        case D3DTOP_ADD:
            return a + " + " + b;
        case D3DTOP_ADDSIGNED:
            return a + " + " + b + " - 0.5";
        case D3DTOP_ADDSIGNED2X:
            return "2.0 * (" + a + " + " + b + " - 0.5)";
        case D3DTOP_SUBTRACT:
            return a + " - " + b;
        case D3DTOP_ADDSMOOTH:
            return a + " + " + b + " - " + a + " * " + b;
        case D3DTOP_BLENDDIFFUSEALPHA:
            return "mix(" + b + ", " + a + ", vDiffuse.a)";
        case D3DTOP_BLENDTEXTUREALPHA:
            return "mix(" + b + ", " + a + ", t.a)";
        case D3DTOP_BLENDFACTORALPHA:
            return "mix(" + b + ", " + a + ", " + factor + ")";
        case D3DTOP_BLENDTEXTUREALPHAPM:
            return a + " + " + b + " * (1.0 - t.a)";
        case D3DTOP_BLENDCURRENTALPHA:
            return "mix(" + b + ", " + a + ", cur.a)";
        case D3DTOP_PREMODULATE:
            return a;
        case D3DTOP_MODULATEALPHA_ADDCOLOR:
            return a + " + a.a * " + b;
        case D3DTOP_MODULATECOLOR_ADDALPHA:
            return a + " * " + b + " + a.a";
        case D3DTOP_MODULATEINVALPHA_ADDCOLOR:
            return "(1.0 - a.a) * " + b + " + " + a;
        case D3DTOP_MODULATEINVCOLOR_ADDALPHA:
            return "(1.0 - " + a + ") * " + b + " + a.a";
        case D3DTOP_DOTPRODUCT3:
            return std::string(x[2] ? "vec3" : "float") +
                   "(dot(a.rgb * 2.0 - 1.0, b.rgb * 2.0 - 1.0))";
        default:
            return std::string("cur") + x;  // bump mapping: the stage passes through
    }
}

const char* Compare(uint8_t func) {
    switch (func) {
        case D3DCMP_NEVER:
            return "false";
        case D3DCMP_LESS:
            return "ref < U[21].x";
        case D3DCMP_EQUAL:
            return "ref == U[21].x";
        case D3DCMP_LESSEQUAL:
            return "ref <= U[21].x";
        case D3DCMP_GREATER:
            return "ref > U[21].x";
        case D3DCMP_NOTEQUAL:
            return "ref != U[21].x";
        case D3DCMP_GREATEREQUAL:
            return "ref >= U[21].x";
        default:
            return "true";
    }
}

std::string FogFunction(uint8_t formula) {
    std::string body;
    if (formula == D3DFOG_LINEAR)
        body = "(U[18].y - d) * U[18].w";
    else if (formula == D3DFOG_EXP)
        body = "exp(-d * U[18].z)";
    else
        body = "exp(-(d * U[18].z) * (d * U[18].z))";
    return "float FogFactor(float d) { return clamp(" + body + ", 0.0, 1.0); }\n";
}

std::string Header(const DxGlShaderKey& key, const char* direction) {
    std::string s = "#version 130\nuniform vec4 U[" + std::to_string(DxGlUCount) + "];\n";
    const char* flat = key.flat ? "flat " : "";
    s += std::string(flat) + direction + " vec4 vDiffuse;\n";
    s += std::string(flat) + direction + " vec4 vSpecular;\n";
    for (int i = 0; i < key.texSets; ++i)
        s += std::string(direction) + " vec4 vTex" + std::to_string(i) + ";\n";
    if (key.fog != DxGlFogNone) s += std::string(direction) + " float vFog;\n";
    return s;
}

const char* SourceName(uint8_t source, int material) {
    static const char* materials[4] = {"U[12]", "U[13]", "U[14]", "U[15]"};
    if (source == DxGlSourceDiffuse) return "diffuse";
    if (source == DxGlSourceSpecular) return "specular";
    return materials[material];
}

void WriteLighting(const DxGlShaderKey& key, std::string& s) {
    s += "    vec3 P = eye.xyz;\n";
    s += key.normal ? "    vec3 N = mat3(U[8].xyz, U[9].xyz, U[10].xyz) * aNormal;\n"
                    : "    vec3 N = vec3(0.0);\n";
    if (key.normalize) s += "    if (dot(N, N) > 0.0) N = normalize(N);\n";
    s += "    vec4 md = " + std::string(SourceName(key.sources[0], 0)) + ";\n";
    s += "    vec4 ma = " + std::string(SourceName(key.sources[1], 1)) + ";\n";
    s += "    vec4 ms = " + std::string(SourceName(key.sources[2], 2)) + ";\n";
    s += "    vec4 me = " + std::string(SourceName(key.sources[3], 3)) + ";\n";
    // The viewer looks down +z in Direct3D's camera space.
    s += key.localViewer ? "    vec3 V = dot(P, P) > 0.0 ? -normalize(P) : vec3(0.0, 0.0, -1.0);\n"
                         : "    vec3 V = vec3(0.0, 0.0, -1.0);\n";
    s += "    vec3 amb = vec3(0.0), dif = vec3(0.0), spe = vec3(0.0);\n"
         "    int count = int(U[21].y);\n"
         "    for (int i = 0; i < count; ++i) {\n"
         "        int b = 22 + 7 * i;\n"
         "        vec4 pos = U[b + 3], dir = U[b + 4], at = U[b + 5], cone = U[b + 6];\n"
         "        vec3 L = -dir.xyz;\n"
         "        float k = 1.0;\n"
         "        if (pos.w != 3.0) {\n"
         "            vec3 d = pos.xyz - P;\n"
         "            float dist = length(d);\n"
         "            if (dist > dir.w) continue;\n"
         "            L = dist > 0.0 ? d / dist : vec3(0.0);\n"
         "            float den = at.x + at.y * dist + at.z * dist * dist;\n"
         "            k = den > 0.0 ? 1.0 / den : 1.0;\n"
         "            if (pos.w == 2.0) {\n"
         "                float rho = dot(-dir.xyz, L);\n"
         "                if (rho <= cone.y) k = 0.0;\n"
         "                else if (rho < cone.x)\n"
         "                    k *= pow((rho - cone.y) / (cone.x - cone.y), at.w);\n"
         "            }\n"
         "        }\n"
         "        float nl = max(dot(N, L), 0.0);\n"
         "        amb += k * U[b + 2].rgb;\n"
         "        dif += k * nl * U[b].rgb;\n";
    if (key.specularEnable)
        s += "        if (nl > 0.0 && U[16].x > 0.0)\n"
             "            spe += k * pow(max(dot(N, normalize(L + V)), 0.0), U[16].x) * "
             "U[b + 1].rgb;\n";
    s += "    }\n"
         "    diffuse = vec4(me.rgb + ma.rgb * (U[17].rgb + amb) + md.rgb * dif, md.a);\n"
         "    specular = vec4(ms.rgb * spe, specular.a);\n";
}

}  // namespace

bool DxMakeShaderKey(const DxDrawState& state, DWORD fvf, DxGlShaderKey& key) {
    memset(&key, 0, sizeof key);
    const DWORD* rs = state.renderStates;
    DWORD position = fvf & D3DFVF_POSITION_MASK;
    DWORD texSets = (fvf & D3DFVF_TEXCOUNT_MASK) >> D3DFVF_TEXCOUNT_SHIFT;
    if (position == 0 || texSets > DxMaxStages) return false;
    key.transformed = position == D3DFVF_XYZRHW;
    key.normal = (fvf & D3DFVF_NORMAL) != 0;
    key.diffuse = (fvf & D3DFVF_DIFFUSE) != 0;
    key.specular = (fvf & D3DFVF_SPECULAR) != 0;
    key.texSets = uint8_t(texSets);
    key.lighting = !key.transformed && rs[D3DRENDERSTATE_LIGHTING];
    if (key.lighting) {
        key.normalize = rs[D3DRENDERSTATE_NORMALIZENORMALS] != 0;
        key.localViewer = rs[D3DRENDERSTATE_LOCALVIEWER] != 0;
        bool colourVertex = rs[D3DRENDERSTATE_COLORVERTEX] != 0;
        const D3DRENDERSTATETYPE states[4] = {
            D3DRENDERSTATE_DIFFUSEMATERIALSOURCE, D3DRENDERSTATE_AMBIENTMATERIALSOURCE,
            D3DRENDERSTATE_SPECULARMATERIALSOURCE, D3DRENDERSTATE_EMISSIVEMATERIALSOURCE};
        for (int i = 0; i < 4; ++i)
            key.sources[i] =
                colourVertex ? Source(rs[states[i]], key) : uint8_t(DxGlSourceMaterial);
    }
    key.specularEnable = rs[D3DRENDERSTATE_SPECULARENABLE] != 0;
    if (rs[D3DRENDERSTATE_FOGENABLE]) {
        DWORD table = rs[D3DRENDERSTATE_FOGTABLEMODE], vertex = rs[D3DRENDERSTATE_FOGVERTEXMODE];
        if (table >= D3DFOG_EXP && table <= D3DFOG_LINEAR) {
            key.fog = DxGlFogTable;
            key.fogFormula = uint8_t(table);
        } else if (!key.transformed && vertex >= D3DFOG_EXP && vertex <= D3DFOG_LINEAR) {
            key.fog = DxGlFogVertex;
            key.fogFormula = uint8_t(vertex);
            key.rangeFog = rs[D3DRENDERSTATE_RANGEFOGENABLE] != 0;
        } else if (key.specular) {
            key.fog = DxGlFogSpecular;
        }
    }
    key.flat = rs[D3DRENDERSTATE_SHADEMODE] == D3DSHADE_FLAT;
    if (rs[D3DRENDERSTATE_ALPHATESTENABLE]) {
        DWORD func = rs[D3DRENDERSTATE_ALPHAFUNC];
        key.alphaFunc =
            uint8_t(func >= D3DCMP_NEVER && func <= D3DCMP_ALWAYS ? func : D3DCMP_ALWAYS);
    }
    for (int i = 0; i < DxMaxStages; ++i) {
        const DWORD* ss = state.stageStates[i];
        DWORD op = ss[D3DTSS_COLOROP];
        if (op <= D3DTOP_DISABLE || op > D3DTOP_DOTPRODUCT3) break;
        DxGlStageKey& stage = key.stages[i];
        stage.colorOp = uint8_t(op);
        stage.colorArg1 = uint8_t(ss[D3DTSS_COLORARG1] & 0x3F);
        stage.colorArg2 = uint8_t(ss[D3DTSS_COLORARG2] & 0x3F);
        DWORD alphaOp = ss[D3DTSS_ALPHAOP];
        stage.alphaOp = uint8_t(alphaOp <= D3DTOP_DOTPRODUCT3 ? alphaOp : D3DTOP_DISABLE);
        stage.alphaArg1 = uint8_t(ss[D3DTSS_ALPHAARG1] & 0x3F);
        stage.alphaArg2 = uint8_t(ss[D3DTSS_ALPHAARG2] & 0x3F);
        DWORD set = ss[D3DTSS_TEXCOORDINDEX] & 0xFFFF;
        stage.texSet = uint8_t(set < texSets ? set : 0xFF);
        bool alphaOn = stage.alphaOp > D3DTOP_DISABLE;
        stage.sampled = ReadsTexture(op, stage.colorArg1, stage.colorArg2) ||
                        (alphaOn && ReadsTexture(alphaOp, stage.alphaArg1, stage.alphaArg2));
        key.stageCount = uint8_t(i + 1);
    }
    return true;
}

void DxWriteShaders(const DxGlShaderKey& key, std::string& vertex, std::string& fragment) {
    std::string& v = vertex;
    v = Header(key, "out");
    v += "in vec4 aPos;\n";
    if (key.normal) v += "in vec3 aNormal;\n";
    if (key.diffuse) v += "in vec4 aDiffuse;\n";
    if (key.specular) v += "in vec4 aSpecular;\n";
    for (int i = 0; i < key.texSets; ++i) v += "in vec4 aTex" + std::to_string(i) + ";\n";
    if (key.fog == DxGlFogVertex) v += FogFunction(key.fogFormula);
    v += "void main() {\n";
    // D3DCOLOR is B, G, R, A in memory.
    v += key.diffuse ? "    vec4 diffuse = aDiffuse.zyxw;\n" : "    vec4 diffuse = vec4(1.0);\n";
    v +=
        key.specular ? "    vec4 specular = aSpecular.zyxw;\n" : "    vec4 specular = vec4(0.0);\n";
    v += "    float depth;\n";
    if (key.transformed) {
        // Screen position with rhw: w = 1 / rhw keeps texturing perspective-correct.
        v += "    float w = aPos.w > 0.0 ? 1.0 / aPos.w : 1.0;\n"
             "    vec2 ndc = (aPos.xy - U[11].xy) / U[11].zw * 2.0 - 1.0;\n"
             "    gl_Position = vec4(ndc, aPos.z * 2.0 - 1.0, 1.0) * w;\n"
             "    depth = w;\n";
    } else {
        // Direct3D's clip z runs 0..w, GL's -w..w; y is mirrored so that GL's row 0 is the
        // screen's top row (see gl_backend.cpp).
        v += "    vec4 eye = mat4(U[0], U[1], U[2], U[3]) * vec4(aPos.xyz, 1.0);\n"
             "    vec4 clip = mat4(U[4], U[5], U[6], U[7]) * eye;\n"
             "    gl_Position = vec4(clip.x, -clip.y, 2.0 * clip.z - clip.w, clip.w);\n";
        v += key.rangeFog ? "    depth = length(eye.xyz);\n" : "    depth = eye.z;\n";
        if (key.lighting) WriteLighting(key, v);
    }
    v += "    vDiffuse = clamp(diffuse, 0.0, 1.0);\n"
         "    vSpecular = clamp(specular, 0.0, 1.0);\n";
    for (int i = 0; i < key.texSets; ++i)
        v += "    vTex" + std::to_string(i) + " = aTex" + std::to_string(i) + ";\n";
    if (key.fog == DxGlFogVertex) v += "    vFog = FogFactor(depth);\n";
    if (key.fog == DxGlFogTable) v += "    vFog = depth;\n";
    if (key.fog == DxGlFogSpecular) v += "    vFog = vSpecular.a;\n";
    v += "}\n";

    std::string& f = fragment;
    f = Header(key, "in");
    for (int i = 0; i < key.stageCount; ++i)
        if (key.stages[i].sampled) f += "uniform sampler2D T" + std::to_string(i) + ";\n";
    if (key.fog == DxGlFogTable) f += FogFunction(key.fogFormula);
    f += "void main() {\n"
         "    vec4 cur = vDiffuse, t = vec4(1.0), a, b, r;\n";
    for (int i = 0; i < key.stageCount; ++i) {
        const DxGlStageKey& stage = key.stages[i];
        std::string n = std::to_string(i);
        if (stage.sampled) {
            std::string uv =
                stage.texSet == 0xFF ? "vec2(0.0)" : "vTex" + std::to_string(stage.texSet) + ".xy";
            f += "    t = texture(T" + n + ", " + uv + ");\n";
        }
        f += "    a = " + Arg(stage.colorArg1) + ";\n    b = " + Arg(stage.colorArg2) + ";\n";
        f += "    r.rgb = clamp(" + Op(stage.colorOp, ".rgb") + ", 0.0, 1.0);\n";
        if (stage.alphaOp > D3DTOP_DISABLE) {
            f += "    a = " + Arg(stage.alphaArg1) + ";\n    b = " + Arg(stage.alphaArg2) + ";\n";
            f += "    r.a = clamp(" + Op(stage.alphaOp, ".a") + ", 0.0, 1.0);\n";
        } else {
            f += "    r.a = cur.a;\n";
        }
        f += "    cur = r;\n";
    }
    if (key.specularEnable) f += "    cur.rgb = min(cur.rgb + vSpecular.rgb, 1.0);\n";
    if (key.fog != DxGlFogNone)
        f += std::string("    cur.rgb = mix(U[19].rgb, cur.rgb, ") +
             (key.fog == DxGlFogTable ? "FogFactor(vFog)" : "clamp(vFog, 0.0, 1.0)") + ");\n";
    if (key.alphaFunc) {
        f += "    float ref = floor(cur.a * 255.0 + 0.5);\n";
        f += std::string("    if (!(") + Compare(key.alphaFunc) + ")) discard;\n";
    }
    f += "    gl_FragColor = cur;\n}\n";
}
