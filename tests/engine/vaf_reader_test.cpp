#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "base/fatal_trap.h"
#include "engine/mesh/mesh.h"
#include "engine/mesh/mesh_animation.h"
#include "engine/mesh/mesh_read_fault.h"
#include "engine/texture/texture.h"
#include "engine/texture/texture_lookup.h"
#include "platform/debug/debug_output.h"
#include "tests/support/temp_dir.h"

namespace {

constexpr size_t npos = std::string::npos;
std::vector<std::string> LoadedPaths;
std::vector<CTexture*> Textures;  // handed out in ascending address order: sorts are known

CTexture* RecordingLoader(const char* path) {
    LoadedPaths.emplace_back(path);
    return Textures.at(LoadedPaths.size() - 1);
}

void Add(std::string& out, const char* tag, const float* v, size_t count) {
    char text[32];
    for (size_t i = 0; i < count; ++i)
        out += (std::snprintf(text, sizeof text, "%s%g", i ? "," : tag, double(v[i])), text);
}

const Matrix One{{1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1}};

// Matrix, frame table (vertex offsets), key frames, vertices (position[/normal unless 0,0,1];
// v' past the first key), faces (corners[:texture][&flags][:uv][/group]), colours, hidden, keys.
std::string DumpMesh(const CMesh& m) {
    std::string out;
    Matrix local;
    m.GetLocalMatrix(local);
    if (std::memcmp(&local, &One, sizeof One)) Add(out, " M=", local.m, 16);
    const VertexAnimation* va = m.vertexAnimation;
    for (uint32_t f = 0; va && f < va->frameCount; ++f)
        out += (f ? "," : " frames=") +
               std::to_string(static_cast<MeshVertex*>(va->frameTable[f]) - m.vertices);
    for (uint32_t k = 0; va && k < va->keyCount; ++k)
        out += (k ? "," : " keys=") + std::to_string(va->keyFrames[k]);
    const size_t stored = va ? va->totalVertices : size_t(m.vertexCount);
    for (size_t i = 0; i < stored; ++i) {
        Add(out, i < size_t(m.vertexCount) ? " v=" : " v'=", &m.vertices[i].position.x, 3);
        if (std::memcmp(&m.vertices[i].normal, &One.m[8], 12))
            Add(out, "/", &m.vertices[i].normal.x, 3);
    }
    for (uint32_t i = 0; i < m.faceCount[0]; ++i) {
        const MeshFace& f = m.faces[0][i];
        for (int c = 0; c < 3; ++c) out += (c ? "," : " f=") + std::to_string(f.vertex[c]);
        if (f.texture) out += std::string(":") + f.texture->name;
        if (f.flags) out += "&" + std::to_string(f.flags);
        if (std::any_of(f.uv, f.uv + 6, [](float u) { return u != 0.0f; })) Add(out, ":", f.uv, 6);
        if (m.smoothingGroups) out += "/" + std::to_string(m.smoothingGroups[i]);
    }
    for (size_t i = 0; m.colours && i < 3 * stored; ++i)
        out += (i ? "," : " c=") + std::to_string(m.colours[i]);
    if (m.hidden) out += m.hidden == 1 ? " hidden" : " hidden?";
    if (const KeyAnimation* k = m.keyAnimation) {
        bool plain =
            k->owner == 1 && k->form == KeyFormKeys && k->currentFrame == KeyAnimationNoFrame;
        out += (plain ? " keys last=" : " keys? last=") + std::to_string(k->lastFrame);
        if (std::memcmp(&k->baseMatrix, &One, sizeof One)) Add(out, " base=", k->baseMatrix.m, 16);
        for (uint32_t i = 0; i < k->keyCount; ++i) {
            const AnimationKey& key = k->keys[i];
            Add(out, " @", &key.time, 1);
            if (key.rotation) Add(out, " r=", &key.rotation->s, 4);
            if (key.scale) Add(out, " s=", &key.scale->x, 3);
            if (key.translation) Add(out, " t=", &key.translation->x, 3);
        }
    }
    return out;
}

// A tree as text, newest first as the list stands, children in [ ].
std::string Dump(const CEntity* node) {
    std::string out;
    for (; node; node = node->nextSibling)
        out +=
            std::string(out.empty() ? "" : " ") + node->name + "{" +
            (node->kind == EntityKindMesh ? DumpMesh(*static_cast<const CMesh*>(node)) : " frame") +
            (node->firstChild ? " [" + Dump(node->firstChild) + "]" : "") + "}";
    return out;
}

// A face list of triangles written as their corners' digits: "012 210".
std::string Faces(const std::string& corners) {
    std::string text = "faces { ";
    for (size_t i = 0; i + 2 < corners.size(); i += 4)
        for (int k = 0; k < 3; ++k) text += (k ? "" : "3, ") + corners.substr(i + k, 1) + ",0, ";
    return text + "} ";
}
std::string Mesh(const std::string& body) {
    return "object \"m\" { mesh { " + body + " } }";
}
const std::string Triangle = "vertices { 0,0,0, 1,0,0, 0,1,0, } ";

class VafTest : public testing::Test {
protected:
    void SetUp() override {
        LoadedPaths.clear();
        Textures.clear();
        for (int i = 0; i < 32; ++i) Textures.push_back(CreateTexture(2, 2, 0x8888));
        std::sort(Textures.begin(), Textures.end(), std::less<>());
        SetTextureLoadFunction(RecordingLoader);
        (new CMesh(&root))->SetName("keep");
        (new CFrame(&root))->SetName("plainframe");
    }
    void TearDown() override {
        SetTextureLoadFunction(nullptr);
        for (CTexture* texture : Textures) FreeTexture(texture);
    }
    bool Load(CMesh& into, const std::string& text, uint32_t keepSmoothing = 0) {
        WriteWholeFile(dir.File("model.vaf"), text);
        return into.LoadVAF(dir.File("model.vaf").c_str(), keepSmoothing);
    }

    TempDir dir;
    DebugCapture capture;
    CMesh root{nullptr};  // holds "keep" and "plainframe", a node that is no mesh
};

}  // namespace

// What a good file builds: the tree loaded into a mesh that held "old", or the mesh "m" alone.
TEST_F(VafTest, EachFileBuildsItsTree) {
    const std::string four = "vertices { 0,0,0, 1,0,0, 0,1,0, 0,0,1, } ";
    const std::string materials =
        "material \"wall&\" { texture \"wall.tga\" }\nmaterial \"glass%\" { colour { 1, 1, 1, "
        "0.5 } specular { 0.2, 8 } texture \"glass.tga\" }\nmaterial \"both&%\" { texture "
        "\"both.tga\" }\nmaterial \"plain\" { }\nmaterial \"abcdefghijklmnopqrstuvwxyz\" { "
        "texture \"long.tga\" }\nmaterial \"wall&\" { texture \"again.tga\" }\n";
    const struct {
        std::string text;
        std::string tree;
        uint32_t keepSmoothing = 0;
    } cases[] = {
        {"just words, } { \"and\" a quote\nObject \"a\" { } OBJECT \"b\" { }", "old{}"},
        {"object \"first one\" { }\nobject \"second\" { }", "second{} first one{} old{}"},
        {"object \"a\" { }, object \"b\" {x}y }", "b{} a{} old{}"},
        {"object \"a\" { unknown { object \"b\" { } } }", "a{ [b{}]} old{}"},
        {"object \"a\" { matrix { 0,1,0,0, -1,0,0,0, 0,0,1,0, 5,6,7,1, } object \"b\" { } }",
         "a{ M=0,1,0,0,-1,0,0,0,0,0,1,0,5,6,7,1 [b{}]} old{}"},
        // Normals are means, not normalised again; `normals` are read, not used.
        {Mesh(four + "faces { 3, 0,0, 1,0, 2,0, 3, 0,0, 3,0, 1,0, 0 }"),
         " v=0,0,0/0,0.5,0.5 v=1,0,0/0,0.5,0.5 v=0,1,0 v=0,0,1/0,1,0 f=0,1,2 f=0,3,1 hidden"},
        {Mesh("vertices { 0,0,0, 1,0,0, 2,0,0, 5,5,5, } normals { 9,9 9,9,9, } " + Faces("012")),
         " v=0,0,0 v=1,0,0 v=2,0,0 v=5,5,5 f=0,1,2 hidden"},
        // Per face coordinates start at the start of the one array both lists fill.
        {Mesh(Triangle + Faces("012 210") + "face_coordinates { 0,0, 1,1, 2,2, 3,3, 4,4, 5,5, }"),
         " v=0,0,0/0,0,0 v=1,0,0/0,0,0 v=0,1,0/0,0,0 f=0,1,2:0,0,1,1,2,2 f=2,1,0:3,3,4,4,5,5 "
         "hidden"},
        {Mesh(Triangle + Faces("012") +
              "texture_coordinates { 7,7, 8,8, 9,9, } face_coordinates { 0,0,1,1,2,2, }"),
         " v=0,0,0 v=1,0,0 v=0,1,0 f=0,1,2:7,7,8,8,9,9 hidden"},
        {Mesh(Triangle + Faces("201") + "texture_coordinates { 0.5,0.25, 1,2, 3,4, }"),
         " v=0,0,0 v=1,0,0 v=0,1,0 f=2,0,1:3,4,0.5,0.25,1,2 hidden"},
        {Mesh(four + "faces { 4, 0,0, 1,0, 2,0, 3,0, 3, 0,0, 1,0, 2,0, 0 }"),
         " v=0,0,0/0,-0.5,0.5 v=1,0,0/0,-0.5,0.5 v=0,1,0 v=0,0,1/0,-1,0 f=0,1,2 f=3,0,1 hidden"},
        {Mesh(Triangle + "faces { 3, 0,1, 1,1, 2,1, 0 } smoothing_groups { 1, } " + Faces("210")),
         " v=0,0,0/0,0,0 v=1,0,0/0,0,0 v=0,1,0/0,0,0 f=0,1,2 f=2,1,0 hidden"},
        {Mesh(Triangle + "vertex_light { 1, 0.5 ,0.999, 0.1, 0.2 ,0.3, }"),
         " v=0,0,0 v=1,0,0 v=0,1,0 c=255,127,254,25,51,76,0,0,0 hidden"},
        {Mesh(Triangle + Faces("012 120") + "smoothing_groups { 5, -1, }"),
         " v=0,0,0 v=1,0,0 v=0,1,0 f=0,1,2/5 f=1,2,0/4294967295 hidden", 1},
        {Mesh(Triangle + Faces("012") + "} mesh { vertices { 7,7,7, } "), " v=7,7,7 hidden"},
        // `material` gives its texture, not its flags; an unknown name gives the first material.
        {materials + Mesh(Triangle + Faces("012 120 201 021 102 210 010") +
                          "material \"nowhere\" material \"glass%\"\nface_materials { \"wall&\" "
                          "\"glass%\" \"both&%\" \"nowhere\" \"plain\" "
                          "\"abcdefghijklmnopqrstuvwxyz\" \"abcdefghijklmnopqrst\" }"),
         " v=0,0,0/0,0,0.142857 v=1,0,0/0,0,0.142857 v=0,1,0/0,0,0 f=0,1,2:wall.tga&1 "
         "f=0,2,1:wall.tga&1 f=2,1,0:wall.tga&1 f=1,2,0:glass.tga&2 f=1,0,2:glass.tga "
         "f=2,0,1:both.tga&3 f=0,1,0:long.tga"},
        {"material \"A\" { texture \"a.tga\" } material \"B\" { texture \"b.tga\" }\n" +
             Mesh(Triangle + Faces("012 120 201") +
                  "face_materials { \"A\" \"B\" \"A\" } smoothing_groups { 1, 2, 4, }"),
         " v=0,0,0 v=1,0,0 v=0,1,0 f=0,1,2:a.tga/1 f=2,0,1:a.tga/4 f=1,2,0:b.tga/2", 1},
        // Every key frame's normals come from its own positions.
        {Mesh("anim_vertices 20 {\n0 : 0 , 0, 0, 0 , 1, 0, 0 , 0, 1, 5 , 5, 5,\n10 : 0 , 0, "
              "0, 0 , 0, 2, 2 , 0, 0, 5 , 5, 7, } " +
              Faces("012")),
         " frames=0,0,0,0,0,0,0,0,0,0,4,4,4,4,4,4,4,4,4,4 keys=0,10 v=0,0,0/1,0,0 v=0,1,0/1,0,0 "
         "v=0,0,1/1,0,0 v=5,5,5 v'=0,0,0/0,1,0 v'=0,0,2/0,1,0 v'=2,0,0/0,1,0 v'=5,5,7 f=0,1,2 "
         "hidden"},
        {Mesh("anim_vertices 3 { 1 , 1, 1, -0.5 : 2 , 2, 2, 2.9: 3 , 3, 3, 4 , 4, 4, }"),
         " frames=0,0,2 keys=0,2 v=1,1,1 v=2,2,2 v'=3,3,3 v'=4,4,4 hidden"},
        // Objects named by one block get the same keys, and the base matrix of the last named.
        {"object \"a\" { matrix { 1,0,0,0, 0,1,0,0, 0,0,1,0, 5,6,7,1, } }\nobject \"b\" { "
         "animation \"in\" { object_name \"b\" position_keys { 3, 1,1,1, } } }\nobject \"rig\" { "
         "animation \"spin\" { object_name \"a\"\n rotate_keys { 10, 1,0,0,0, -1, 0,1,0,0, 5, "
         "0.5,0.1,0.2,0.3, }\n position_keys { 5, 1,2,3, } scale_keys { 0, 2,2,2, } }\n "
         "animation \"zero\" { object_name \"old\" scale_keys { 0, 1,1,1, } }\n animation "
         "\"gone\" { object_name \"b\" }\n animation \"nobody\" { position_keys { 1, 1,1,1, } } "
         "}\nanimation \"top\" { object_name \"a\" } at the top these are words\n",
         "rig{} b{} a{ M=1,0,0,0,0,1,0,0,0,0,1,0,5,6,7,1 keys last=10 "
         "base=1,0,0,0,0,1,0,0,0,0,1,0,5,6,7,1 @0 s=2,2,2 @5 r=0.5,0.1,0.2,0.3 t=1,2,3 @10 "
         "r=1,0,0,0} old{ keys last=1 @0 s=1,1,1}"},
        {"object \"p\" { matrix { 1,0,0,0, 0,1,0,0, 0,0,1,0, 1,2,3,1, } }\nobject \"q\" { "
         "animation \"both\" { object_name \"p\" rotate_keys { 2, 1,0,0,0, } object_name \"q\" "
         "object_name \"p\" } }",
         "q{ keys last=2 base=1,0,0,0,0,1,0,0,0,0,1,0,1,2,3,1 @2 r=1,0,0,0} p{ "
         "M=1,0,0,0,0,1,0,0,0,0,1,0,1,2,3,1 keys last=2 base=1,0,0,0,0,1,0,0,0,0,1,0,1,2,3,1 @2 "
         "r=1,0,0,0} old{}"},
    };
    for (const auto& c : cases) {
        CMesh model(nullptr);
        (new CMesh(&model))->SetName("old");
        EXPECT_TRUE(Load(model, c.text, c.keepSmoothing)) << c.text;
        const auto* m = static_cast<const CMesh*>(model.FindByName("m"));
        EXPECT_EQ(m ? DumpMesh(*m) : Dump(model.firstChild), c.tree) << c.text;
    }
    EXPECT_EQ(capture.Text().find("VAFLoad"), npos) << capture.Text();
    EXPECT_EQ(LoadedPaths.size(), 7u);  // a repeated material's texture loads too
    EXPECT_NE(capture.Text().find("Repeat material [wall&] - Mangled textures!"), npos);
}

// Each damage is refused with the file and the line, and leaves the tree and the textures alone.
TEST_F(VafTest, EachDamageIsRefusedWithItsLineAndTheTreeUnchanged) {
    std::string deep;
    for (int i = 0; i < 257; ++i) deep += "object \"n\" {\n";
    const std::string m = "material \"m\" { texture \"t.tga\" }\nobject \"m\" { mesh {\n";
    const std::string t = m + Triangle;
    const std::string many = "object \"x\" { mesh { anim_vertices 600000 { 0 : 0 , 0, 0, } } }\n";
    const struct {
        size_t line;
        std::string text;
        const char* fault;
    } cases[] = {
        {4, t + "faces { 3, 0,0, 1,0,\n3,0, } } }", "uses vertex 3, the mesh has 3"},
        {3, t + "faces { 3, 0,0, -1,0, 2,0 } } }", "face 0 of \"m\" uses vertex -1"},
        {3, t + Faces("012") + "texture_coordinates { 0,0, 1,1, } } }", "coordinates give 2"},
        {4, t + Faces("012") + "face_coordinates { 0,0, 1,1, }\n} }", "give 2 pairs for 1 faces"},
        {3, t + "faces { 2, 0,0, 1,0, 0 } } }", "the faces of \"m\" give 2 corners for 1 faces"},
        {4, t + "faces { 3, 0,1, 1,1, 2,1\n} } }", "number, 1, stands as the next count"},
        {3, m + "faces { 3, 0,0, 1,0, } } }", "a group of 3 corners in the faces of \"m\" breaks"},
        {5, m + "vertices { 0,0,0, }\nvertex_light { 1,1,1,\n1,1,1, } } }", "more entries than"},
        {5, m + "anim_vertices 5 {\n0 : 1 , 1, 1,\n5 : 2 , 2, 2, } } }", "frame 5, where the"},
        {3, m + "anim_vertices 5 { -1 : 1 , 1, 1, } } }", "have a key at frame -1"},
        {3, m + "anim_vertices 5 { 2 : 1 , 1, 1, } } }", "first is at frame 2"},
        {3, m + "anim_vertices 5 { 1 , 1, 1, } } }", "have no key frame"},
        {3, m + "anim_vertices 5 { 0 : 1 , 1, 1, 3: 1: } } }", "key frame 1 after key frame 3"},
        {3, m + "anim_vertices 0 { } } }", "the anim_vertices of \"m\" have 0 frames"},
        {2, many + many, "the vertex animations up to \"x\" come to 1200000 frames"},
        {5, m + "vertices {\n 0,0,0,\n 1,2 } } }", "an entry of the vertices of \"m\" holds 2"},
        {3, m + "anim_vertices 2 { 0 : 1 , 2 } } }", "anim_vertices of \"m\" holds 2 of its 3"},
        {3, m + "texture_coordinates { 1 } } }", "the texture_coordinates of \"m\" holds 1"},
        {3, m + "faces { 99999999999 } } }", "the number 99999999999 does not fit in 32 bits"},
        {3, m + "vertices { 0, 1e39, 0, } } }", "the number 1e39 is out of range"},
        {2, "object \"m\" {\nmatrix { 1,0,0,0, 0,1,0,0, 0,0,1,0, 0,0,0 } }", "holds 15 numbers"},
        {2, "object \"a\" {\nanimation \"x\" { object_name \"ghost\" } }", "names no object"},
        {1, "object \"a\" { animation \"x\" { object_name \"plainframe\" } }", "no mesh"},
        {2, "object \"a\" { animation \"x\" {\nrotate_keys { 1, 1, 0 } } }", "holds 3 of its 5"},
        {1, "object \"a\" { animation \"x\" { position_keys { 1048576, 0,0,0, } } }",
         "position_keys is on frame 1048576"},
        {257, deep, "objects nest deeper than 256 levels"},
        {4, m + "vertices { 0,0,0,\n", "the file ends inside the vertices of \"m\""},
        {1, "object", "the file ends inside a quoted name"},
        {2, "\nobject \"a {\n }", "a quoted name that is never closed"},
    };
    const std::string before = Dump(root.firstChild);
    for (const auto& c : cases) {
        SCOPED_TRACE(c.fault);
        capture.Clear();
        EXPECT_FALSE(Load(root, c.text));
        const std::string at = " at line " + std::to_string(c.line) + ": ";
        const std::string fault = MeshReadFault(), message = fault.substr(fault.find(at) + 1);
        EXPECT_EQ(fault.find("the map file is damaged" + at), 0u) << fault;
        EXPECT_NE(message.find(c.fault), npos) << fault;
        EXPECT_NE(capture.Text().find(dir.File("model.vaf") + " " + message), npos);
        EXPECT_EQ(Dump(root.firstChild), before);
    }
    EXPECT_TRUE(LoadedPaths.empty());
    EXPECT_FALSE(root.LoadVAF(dir.File("missing.vaf").c_str(), 0));
    EXPECT_NE(std::string(MeshReadFault()).find("can't be opened"), npos);
    EXPECT_FALSE(root.LoadVAF(dir.Path().c_str(), 0));  // a folder
    EXPECT_NE(std::string(MeshReadFault()).find("can't be read"), npos);
    EXPECT_EQ(Dump(root.firstChild), before);

    const std::string light = Mesh("vertex_light { 1,1,1, } vertices { 0,0,0, }");
    EXPECT_DEATH(Load(root, light), "Invalid VAF .*model.vaf\nvertex lighting chunk before vertex");
    FatalReportTrap trap;  // inside a run's job the fatal report refuses the map
    EXPECT_FALSE(Load(root, light));
    EXPECT_TRUE(trap.Sprung());
    EXPECT_NE(std::string(MeshReadFault()).find("line 1: the vertex_light of \"m\" comes"), npos);
    EXPECT_EQ(Dump(root.firstChild), before);
    ASSERT_TRUE(Load(root, "object \"fine\" { }"));
    EXPECT_STREQ(MeshReadFault(), "");
}

// Every prefix loads whole blocks or is refused; the whole, saved as VBF, reads back the same.
TEST_F(VafTest, AWholeModelTruncatedAndSavedAsVbf) {
    const std::string text =
        "material \"stone\" { texture \"stone.tga\" }\nmaterial \"glass%\" { texture "
        "\"glass.tga\" }\nobject \"hull\" { matrix { 0,1,0,0, -1,0,0,0, 0,0,1,0, 4,5,6,1, }\n "
        "mesh { vertices { 0,0,0, 2,0,0, 0,2,0, 0,0,2, }\n faces { 3, 0,0, 1,0, 2,0, 3, 0,0, 3,0, "
        "1,0, 3, 1,0, 3,0, 2,0, } vertex_light { 1,0,0, 0,1,0, 0,0,1, 1,1,1, }\n smoothing_groups "
        "{ 1, 2, 3, } face_materials { \"glass%\" \"stone\" \"glass%\" } }\n object \"turret\" { "
        "matrix { 1,0,0,0, 0,1,0,0, 0,0,1,0, 0,3,0,1, }\n mesh { anim_vertices 6 { 0 : 0 , 0, 0, "
        "1 , 0, 0, 0 , 1, 0, 3 : 0 , 0, 1, 2 , 0, 0, 0 , 2, 0, }\n faces { 3, 0,0, 1,0, 2,0, } "
        "face_coordinates { 0,0, 0.5,0, 0,0.5, } material \"stone\" } }\n object \"flag\" { } }\n"
        "object \"rig\" { animation \"a\" { object_name \"turret\"\n rotate_keys { 0, 1,0,0,0, 8, "
        "0,0,1,0, } position_keys { 4, 0,3,1, } scale_keys { 8, 1,2,1, } } }\n";
    for (size_t size = 0; size <= text.size(); ++size) {
        capture.Clear();
        LoadedPaths.clear();  // each load takes the same textures
        CMesh model(nullptr);
        CMesh* before = new CMesh(&model);
        if (Load(model, text.substr(0, size), 1)) continue;
        ASSERT_NE(capture.Text().find("(VAFLoad) Corrupt VAF "), npos) << size;
        ASSERT_TRUE(model.firstChild == before && !before->nextSibling) << size;
    }
    CMesh source(nullptr), loaded(nullptr);
    ASSERT_TRUE(Load(source, text, 1));
    ASSERT_TRUE(source.SaveVBF(dir.File("model.vbf").c_str(), nullptr, 0));
    ASSERT_TRUE(loaded.LoadVBF(dir.File("model.vbf").c_str()));
    const std::string tree = Dump(source.firstChild);
    for (const char* part : {"frames=0,0,0,3,3,3 ", "keys last=8", "c=255,0,0,0", "/3", "[flag{}"})
        ASSERT_NE(tree.find(part), npos) << part;  // the model holds what the comparison covers
    EXPECT_EQ(Dump(loaded.firstChild), tree);
}
