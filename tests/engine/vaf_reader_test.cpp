#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "base/fatal_trap.h"
#include "base/velmora_log.h"
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
std::vector<CTexture*> LoadedTextures;

CTexture* RecordingLoader(const char* path) {
    LoadedPaths.emplace_back(path);
    return LoadedTextures.emplace_back(CreateTexture(2, 2, 0x8888));
}

CMesh* Find(CEntity& model, const char* name) {
    return static_cast<CMesh*>(model.FindByName(name));
}

std::string TextureName(const MeshFace& face) {
    return face.texture && face.texture->name ? face.texture->name : "-";
}

// The face whose corners are a, b, c, or null.
const MeshFace* FaceOf(const CMesh* mesh, uint32_t a, uint32_t b, uint32_t c) {
    for (uint32_t i = 0; i < mesh->faceCount[0]; ++i) {
        const uint32_t* v = mesh->faces[0][i].vertex;
        if (v[0] == a && v[1] == b && v[2] == c) return &mesh->faces[0][i];
    }
    return nullptr;
}

void ExpectVector(const Vector& v, float x, float y, float z, const std::string& what) {
    EXPECT_FLOAT_EQ(v.x, x) << what;
    EXPECT_FLOAT_EQ(v.y, y) << what;
    EXPECT_FLOAT_EQ(v.z, z) << what;
}

// Both null, or both there with the same bytes.
bool Equal(const void* a, const void* b, size_t size) {
    return (!a && !b) || (a && b && std::memcmp(a, b, size) == 0);
}

// A triangle of vertices 0, 1, 2 with the corners in this order.
std::string Tri(int a, int b, int c) {
    return "3, " + std::to_string(a) + ",0, " + std::to_string(b) + ",0, " + std::to_string(c) +
           ",0, ";
}

const char* const Triangle = "vertices { 0,0,0, 1,0,0, 0,1,0, } ";

// A key frame of perFrame vertices, each written as x, then its comma as a word of its own.
std::string KeyFrame(int frame, int perFrame, float scale) {
    std::string text = std::to_string(frame) + " : ";
    for (int i = 0; i < perFrame; ++i)
        text += std::to_string(float(i % 7) * scale) + " , " + std::to_string(float(i % 3)) + ", " +
                std::to_string(float(i * i) * scale) + ",\n";
    return text;
}

class VafTest : public testing::Test {
protected:
    void SetUp() override {
        VelmoraLogBeginRun();
        LoadedPaths.clear();
        LoadedTextures.clear();
        SetTextureLoadFunction(RecordingLoader);
        keep = new CMesh(&root);
        keep->SetName("keep");
        frame = new CFrame(&root);
        frame->SetName("plainframe");
    }
    void TearDown() override {
        SetTextureLoadFunction(nullptr);
        for (CTexture* texture : LoadedTextures) FreeTexture(texture);
    }
    bool Load(CMesh& into, const std::string& text, uint32_t keepSmoothing = 0,
              const char* name = "model.vaf") {
        WriteWholeFile(dir.File(name), text);
        return into.LoadVAF(dir.File(name).c_str(), keepSmoothing);
    }
    bool Untouched() const {
        return root.firstChild == frame && frame->nextSibling == keep && !keep->nextSibling &&
               !keep->keyAnimation && !keep->firstChild;
    }

    TempDir dir;
    DebugCapture capture;
    CMesh root{nullptr};
    CMesh* keep = nullptr;    // what the loading tree held before
    CFrame* frame = nullptr;  // a node that is no mesh
};

}  // namespace

// The grammar: words, blocks, names and the order of the tree.
TEST_F(VafTest, GrammarOfWordsBlocksAndNames) {
    const struct {
        const char* what;
        std::string text;
        std::function<void(CMesh&)> check;
    } cases[] = {
        {"plain words load as success and add nothing", "just words, } { \"and\" a quote\n",
         [](CMesh& m) { EXPECT_EQ(m.firstChild, nullptr); }},
        {"two objects stand newest first, with blanks in a name",
         "object \"first one\" { }\nobject \"second\" { }",
         [](CMesh& m) {
             ASSERT_NE(m.firstChild, nullptr);
             EXPECT_STREQ(m.firstChild->name, "second");
             EXPECT_STREQ(m.firstChild->nextSibling->name, "first one");
             EXPECT_EQ(m.firstChild->kind, EntityKindMesh);
         }},
        {"a word that holds a brace ends a block", "object \"a\" { }, object \"b\" {x}y }",
         [](CMesh& m) {
             EXPECT_NE(Find(m, "a"), nullptr);
             EXPECT_EQ(Find(m, "b")->parent, &m);
         }},
        {"an unknown section is walked word by word, and its words can match keywords",
         "object \"a\" { unknown { object \"b\" { } } }",
         [](CMesh& m) { EXPECT_EQ(Find(m, "b")->parent, Find(m, "a")); }},
        {"keywords are case-sensitive", "Object \"a\" { } OBJECT \"b\" { }",
         [](CMesh& m) { EXPECT_EQ(m.firstChild, nullptr); }},
        {"the matrix is read row after row: the last row holds the translation",
         "object \"a\" { matrix { 0,1,0,0, -1,0,0,0, 0,0,1,0, 5,6,7,1, } }",
         [](CMesh& m) {
             Matrix local;
             Find(m, "a")->GetLocalMatrix(local);
             const float expected[16] = {0, 1, 0, 0, -1, 0, 0, 0, 0, 0, 1, 0, 5, 6, 7, 1};
             for (int i = 0; i < 16; ++i) EXPECT_FLOAT_EQ(local[i], expected[i]) << i;
         }},
        {"a matrix without its last comma leaves the brace to end the object",
         "object \"a\" { matrix { 1,0,0,0, 0,1,0,0, 0,0,1,0, 0,0,0,1 } object \"b\" { } }",
         [](CMesh& m) { EXPECT_EQ(Find(m, "b")->parent, &m); }},
        {"objects nest, and an object without a mesh has no geometry and stays visible",
         "object \"a\" { object \"b\" { object \"c\" { } } }",
         [](CMesh& m) {
             CMesh* c = Find(m, "c");
             EXPECT_EQ(c->parent->parent, Find(m, "a"));
             EXPECT_EQ(c->vertexCount, 0);
             EXPECT_EQ(c->hidden, 0);
         }},
        {"the last word of a file that ends without a blank is read",
         "object \"a\" { }\nobject \"b\" { }", [](CMesh& m) { EXPECT_NE(Find(m, "b"), nullptr); }},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        CMesh model(nullptr);
        EXPECT_TRUE(Load(model, c.text));
        c.check(model);
    }
    EXPECT_EQ(capture.Text().find("VAFLoad"), npos) << capture.Text();
}

// DecodeMesh: positions, the face list's quirks, coordinates, normals, colours, smoothing.
TEST_F(VafTest, MeshBlocksBuildAsThePartSays) {
    const struct {
        const char* what;
        std::string mesh;
        uint32_t keepSmoothing;
        std::function<void(CMesh*)> check;
    } cases[] = {
        {"two faces that share an edge: the shared vertices get the mean, shorter than 1",
         "vertices { 0,0,0, 1,0,0, 0,1,0, 0,0,1, } faces { 3, 0,0, 1,0, 2,0, 3, 0,0, 3,0, 1,0, 0 }",
         0,
         [](CMesh* m) {
             ASSERT_EQ(m->vertexCount, 4);
             ASSERT_EQ(m->faceCount[0], 2u);
             ExpectVector(m->vertices[0].normal, 0, 0.5f, 0.5f, "shared 0");
             ExpectVector(m->vertices[1].normal, 0, 0.5f, 0.5f, "shared 1");
             ExpectVector(m->vertices[2].normal, 0, 0, 1, "first face only");
             ExpectVector(m->vertices[3].normal, 0, 1, 0, "second face only");
             EXPECT_LT(VectorLength(m->vertices[0].normal), 1.0f);
             ExpectVector(m->vertices[3].position, 0, 0, 1, "position");
         }},
        {"a vertex of no face, a face of no area and normals that are read, not used",
         "vertices { 0,0,0, 1,0,0, 2,0,0, 5,5,5, } normals { 9,9,9, 9,9 9,9,9, } "
         "faces { 3, 0,0, 1,0, 2,0 }",
         0,
         [](CMesh* m) {
             for (int i = 0; i < 4; ++i) ExpectVector(m->vertices[i].normal, 0, 0, 1, "flat");
         }},
        {"face_coordinates of 6 pairs on two faces: face 1 has pairs 3, 4, 5",
         std::string(Triangle) + "faces { " + Tri(0, 1, 2) + Tri(2, 1, 0) +
             "0 } face_coordinates { 0,0, 1,1, 2,2, 3,3, 4,4, 5,5, }",
         0,
         [](CMesh* m) {
             const MeshFace* second = FaceOf(m, 2, 1, 0);
             ASSERT_NE(second, nullptr);
             for (int k = 0; k < 6; ++k) EXPECT_EQ(second->uv[k], float(3 + k / 2)) << k;
         }},
        {"both coordinate lists share one array; per face reads from its start",
         std::string(Triangle) + "faces { " + Tri(0, 1, 2) +
             "} texture_coordinates { 10,10, 11,11, 12,12, } face_coordinates { 0,0,1,1,2,2, }",
         0,
         [](CMesh* m) {
             for (int k = 0; k < 6; ++k) EXPECT_EQ(m->faces[0][0].uv[k], float(10 + k / 2)) << k;
         }},
        {"per-vertex coordinates: each corner takes its vertex's pair",
         std::string(Triangle) + "faces { " + Tri(2, 0, 1) +
             "} texture_coordinates { 0.5,0.25, 1,2, 3,4, }",
         0,
         [](CMesh* m) {
             const float expected[6] = {3, 4, 0.5f, 0.25f, 1, 2};
             for (int k = 0; k < 6; ++k) EXPECT_EQ(m->faces[0][0].uv[k], expected[k]) << k;
         }},
        {"no coordinates at all give 0", std::string(Triangle) + "faces { " + Tri(0, 1, 2) + "}", 0,
         [](CMesh* m) {
             for (float uv : m->faces[0][0].uv) EXPECT_EQ(uv, 0.0f);
         }},
        {"a group of 4 corners shifts the faces that follow",
         "vertices { 0,0,0, 1,0,0, 0,1,0, 0,0,1, } faces { 4, 0,0, 1,0, 2,0, 3,0, " + Tri(0, 1, 2) +
             "0 }",
         0,
         [](CMesh* m) {
             ASSERT_EQ(m->faceCount[0], 2u);
             EXPECT_NE(FaceOf(m, 0, 1, 2), nullptr);
             EXPECT_NE(FaceOf(m, 3, 0, 1), nullptr);
         }},
        {"an explicit count of 0 ends the list though a pair's second number isn't 0",
         std::string(Triangle) + "faces { 3, 0,1, 1,1, 2,1, 0 } faces { " + Tri(2, 1, 0) + "}", 0,
         [](CMesh* m) {  // a repeated section adds to what is there
             ASSERT_EQ(m->faceCount[0], 2u);
             EXPECT_NE(FaceOf(m, 2, 1, 0), nullptr);
         }},
        {"a mesh whose faces have no texture is hidden, and so is one without faces",
         std::string(Triangle) + "faces { " + Tri(0, 1, 2) + "}", 0,
         [](CMesh* m) { EXPECT_EQ(m->hidden, 1); }},
        {"vertex_light: 255 times each component, cut; vertices without an entry get 0",
         std::string(Triangle) + "vertex_light { 1, 0.5 ,0.999, 0.1, 0.2 ,0.3, }", 0,
         [](CMesh* m) {
             ASSERT_NE(m->colours, nullptr);
             const uint8_t expected[9] = {255, 127, 254, 25, 51, 76, 0, 0, 0};
             for (int i = 0; i < 9; ++i) EXPECT_EQ(m->colours[i], expected[i]) << i;
             EXPECT_EQ(m->meshFlags & MeshFlagVertexColours, 0u);  // the Part sets only colours
         }},
        {"smoothing groups are kept on request",
         std::string(Triangle) + "faces { " + Tri(0, 1, 2) + Tri(1, 2, 0) +
             "} smoothing_groups { 5, -1, }",
         1,
         [](CMesh* m) {
             ASSERT_NE(m->smoothingGroups, nullptr);
             EXPECT_EQ(m->smoothingGroups[FaceOf(m, 0, 1, 2) - m->faces[0]], 5u);
             EXPECT_EQ(m->smoothingGroups[FaceOf(m, 1, 2, 0) - m->faces[0]], 0xFFFFFFFFu);
         }},
        {"and dropped otherwise",
         std::string(Triangle) + "faces { " + Tri(0, 1, 2) + "} smoothing_groups { 5, }", 0,
         [](CMesh* m) { EXPECT_EQ(m->smoothingGroups, nullptr); }},
        {"a second mesh block replaces the first",
         std::string(Triangle) + "faces { " + Tri(0, 1, 2) + "} } mesh { vertices { 7,7,7, } ", 0,
         [](CMesh* m) {
             EXPECT_EQ(m->vertexCount, 1);
             EXPECT_EQ(m->faceCount[0], 0u);
             EXPECT_EQ(m->vertices[0].position.x, 7.0f);
         }},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        CMesh model(nullptr);
        ASSERT_TRUE(Load(model, "object \"m\" { mesh { " + c.mesh + " } }", c.keepSmoothing));
        c.check(Find(model, "m"));
    }
    EXPECT_EQ(capture.Text().find("VAFLoad"), npos) << capture.Text();
}

// Materials: flags from the name, `material` for all faces, face_materials per face, the first
// material for an unknown name, names cut to 20, repeats, and the sort by texture.
TEST_F(VafTest, MaterialsGiveTexturesAndFlagsAndFacesSortByTexture) {
    std::string text =
        "material \"wall&\" { texture \"wall.tga\" }\n"
        "material \"glass%\" { colour { 1, 1, 1, 0.5 } specular { 0.2, 8 } texture \"glass.tga\" "
        "}\n"
        "material \"both&%\" { texture \"both.tga\" }\n"
        "material \"plain\" { }\n"
        "material \"abcdefghijklmnopqrstuvwxyz\" { texture \"long.tga\" }\n"
        "material \"wall&\" { texture \"again.tga\" }\n"
        "object \"m\" { mesh { vertices { 0,0,0, 1,0,0, 0,1,0, } faces { " +
        Tri(0, 1, 2) + Tri(1, 2, 0) + Tri(2, 0, 1) + Tri(0, 2, 1) + Tri(1, 0, 2) + Tri(2, 1, 0) +
        Tri(0, 1, 0) +
        "0 }\n material \"nowhere\" material \"glass%\"\n"
        "face_materials { \"wall&\" \"glass%\" \"both&%\" \"nowhere\" \"plain\" "
        "\"abcdefghijklmnopqrstuvwxyz\" \"abcdefghijklmnopqrst\" } } }\n"
        "object \"n\" { mesh { vertices { 0,0,0, } faces { 3,0,0,0,0,0,0, } material \"wall&\" "
        "} }";
    CMesh model(nullptr);
    ASSERT_TRUE(Load(model, text));
    // Every texture entry loads, in file order, the repeated material's too.
    EXPECT_EQ(LoadedPaths, (std::vector<std::string>{"wall.tga", "glass.tga", "both.tga",
                                                     "long.tga", "again.tga"}));
    EXPECT_NE(capture.Text().find("LOG: (NewVAFMaterial) Repeat material [wall&] - Mangled "
                                  "textures!"),
              npos);
    const CMesh* m = Find(model, "m");
    const struct {
        uint32_t a, b, c;
        const char* texture;
        uint32_t flags;
    } faces[] = {
        {0, 1, 2, "wall.tga", 1},   // & gives 1, and the older of two equal names is found
        {1, 2, 0, "glass.tga", 2},  // % gives 2
        {2, 0, 1, "both.tga", 3},
        {0, 2, 1, "wall.tga", 1},   // a name not in the list gives the first material
        {1, 0, 2, "glass.tga", 0},  // no texture: `material` gives its texture, not its flags
        {2, 1, 0, "wall.tga", 1},   // a name cut to 20 is never found again
        {0, 1, 0, "long.tga", 0},   // but its first 20 characters are
    };
    for (const auto& f : faces) {
        const MeshFace* face = FaceOf(m, f.a, f.b, f.c);
        ASSERT_NE(face, nullptr) << f.a << f.b << f.c;
        EXPECT_EQ(TextureName(*face), f.texture) << f.a << f.b << f.c;
        EXPECT_EQ(face->flags, f.flags) << f.a << f.b << f.c;
    }
    EXPECT_EQ(m->hidden, 0);
    EXPECT_EQ(TextureName(Find(model, "n")->faces[0][0]), "wall.tga");
    EXPECT_EQ(Find(model, "n")->faces[0][0].flags, 0u);
    for (uint32_t i = 1; i < m->faceCount[0]; ++i)
        EXPECT_LE(reinterpret_cast<uintptr_t>(m->faces[0][i - 1].texture),
                  reinterpret_cast<uintptr_t>(m->faces[0][i].texture));

    // A, B, A: sorted by pointer, the two A faces in file order, smoothing groups along.
    const std::string sorted =
        "material \"A\" { texture \"a.tga\" } material \"B\" { texture \"b.tga\" }\n"
        "object \"s\" { mesh { vertices { 0,0,0, 1,0,0, 0,1,0, } faces { " +
        Tri(0, 1, 2) + Tri(1, 2, 0) + Tri(2, 0, 1) +
        "} face_materials { \"A\" \"B\" \"A\" } smoothing_groups { 1, 2, 4, } } }";
    CMesh second(nullptr);
    ASSERT_TRUE(Load(second, sorted, 1));
    const CMesh* s = Find(second, "s");
    const MeshFace* faces3 = s->faces[0];
    CTexture* a = FaceOf(s, 0, 1, 2)->texture;
    CTexture* b = FaceOf(s, 1, 2, 0)->texture;
    ASSERT_TRUE(a && b && a != b);
    int firstA = reinterpret_cast<uintptr_t>(a) < reinterpret_cast<uintptr_t>(b) ? 0 : 1;
    EXPECT_EQ(faces3[firstA].vertex[0], 0u);  // A faces in file order
    EXPECT_EQ(faces3[firstA + 1].vertex[0], 2u);
    EXPECT_EQ(faces3[firstA ? 0 : 2].texture, b);
    for (uint32_t i = 0; i < 3; ++i)
        EXPECT_EQ(s->smoothingGroups[i], 1u << faces3[i].vertex[0]) << i;  // groups moved along

    // face_materials with no material at all: no texture, and so hidden.
    CMesh third(nullptr);
    ASSERT_TRUE(Load(third, "object \"t\" { mesh { " + std::string(Triangle) + "faces { " +
                                Tri(0, 1, 2) + "} material \"x\" face_materials { \"x\" } } }"));
    EXPECT_EQ(Find(third, "t")->faces[0][0].texture, nullptr);
    EXPECT_EQ(Find(third, "t")->hidden, 1);
}

// anim_vertices: key frames, the frame table, and the normals of every key frame.
TEST_F(VafTest, VertexAnimationKeyFramesAndFrameTable) {
    std::string text = "object \"w\" { mesh { anim_vertices 20 {\n" + KeyFrame(0, 100, 1.0f) +
                       KeyFrame(10, 100, 2.0f) + "}\n faces { 3, 0,0, 1,0, 2,0, 0 } } }";
    CMesh model(nullptr);
    ASSERT_TRUE(Load(model, text));
    CMesh* w = Find(model, "w");
    const VertexAnimation* shape = w->vertexAnimation;
    ASSERT_NE(shape, nullptr);
    EXPECT_EQ(w->features & MeshFeatureVertexAnimation, MeshFeatureVertexAnimation);
    EXPECT_EQ(shape->totalVertices, 200u);
    EXPECT_EQ(w->vertexCount, 100);
    EXPECT_EQ(shape->keyCount, 2u);
    EXPECT_EQ(shape->frameCount, 20u);
    EXPECT_EQ(shape->flags, uint32_t(VertexAnimationOwnsArrays));
    EXPECT_EQ(shape->keyFrames[0] * 100 + shape->keyFrames[1], 10u);
    EXPECT_EQ(shape->frameData, w->vertices);
    for (uint32_t f = 0; f < 20; ++f)
        EXPECT_EQ(shape->frameTable[f], w->vertices + (f < 10 ? 0 : 100)) << f;
    EXPECT_EQ(w->vertices[101].position.z, 2.0f);
    // Face 0, 1, 2 in both frames: (0,0,0), (1,1,1)·s, (2,2,2)·s... the second frame's normals
    // are made from its own positions, like the first frame's.
    for (int k = 0; k < 2; ++k) {
        const MeshVertex* v = w->vertices + 100 * k;
        Vector cb, ab, n;
        VectorSubtract(v[2].position, v[1].position, cb);
        VectorSubtract(v[0].position, v[1].position, ab);
        VectorCross(n, cb, ab);
        VectorNormalize(n);
        ExpectVector(v[1].normal, n.x, n.y, n.z, "key " + std::to_string(k));
        ExpectVector(v[50].normal, 0, 0, 1, "no face");
    }
    ExpectVector(w->vertices[0].normal, w->vertices[2].normal.x, w->vertices[2].normal.y,
                 w->vertices[2].normal.z, "one face");

    // Frame numbers are cut towards zero; vertices before the first key count as well.
    CMesh cut(nullptr);
    ASSERT_TRUE(Load(cut,
                     "object \"c\" { mesh { anim_vertices 3 { 1 , 1, 1, -0.5 : 2 , 2, 2, "
                     "2.9: 3 , 3, 3, 4 , 4, 4, } } }"));
    const CMesh* c = Find(cut, "c");
    ASSERT_NE(c->vertexAnimation, nullptr);
    EXPECT_EQ(c->vertexCount, 2);  // 4 positions over 2 keys
    EXPECT_EQ(c->vertexAnimation->keyFrames[1], 2u);
    EXPECT_EQ(c->vertexAnimation->frameTable[1], c->vertices);
    EXPECT_EQ(c->vertexAnimation->frameTable[2], c->vertices + 2);
}

// Animation blocks: keys by frame, values merged per frame, lastFrame, and the objects named.
TEST_F(VafTest, AnimationBlocksGiveKeysToTheObjectsTheyName) {
    const std::string text =
        "object \"a\" { matrix { 1,0,0,0, 0,1,0,0, 0,0,1,0, 5,6,7,1, } }\n"
        "object \"b\" { animation \"inside\" { object_name \"b\" position_keys { 3, 1,1,1, } } }\n"
        "object \"rig\" { animation \"spin\" { object_name \"a\"\n"
        "  rotate_keys { 10, 1,0,0,0, -1, 0,1,0,0, 5, 0.5,0.1,0.2,0.3, }\n"
        "  position_keys { 5, 1,2,3, } scale_keys { 0, 2,2,2, } }\n"
        " animation \"zero\" { object_name \"keep\" scale_keys { 0, 1,1,1, } }\n"
        " animation \"gone\" { object_name \"b\" }\n"
        " animation \"nobody\" { position_keys { 1, 1,1,1, } } }\n"
        "animation \"top\" { object_name \"a\" } at the top level these are plain words\n";
    ASSERT_TRUE(Load(root, text));
    const KeyAnimation* keys = Find(root, "a")->keyAnimation;
    ASSERT_NE(keys, nullptr);
    EXPECT_EQ(Find(root, "a")->features & MeshFeatureKeyAnimation, MeshFeatureKeyAnimation);
    EXPECT_EQ(keys->owner, 1);
    EXPECT_EQ(keys->form, uint32_t(KeyFormKeys));
    EXPECT_EQ(keys->currentFrame, uint32_t(KeyAnimationNoFrame));
    EXPECT_EQ(keys->lastFrame, 10u);
    ASSERT_EQ(keys->keyCount, 3u);  // frame -1 was dropped
    EXPECT_EQ(keys->keys[0].time, 0.0f);
    ASSERT_NE(keys->keys[0].scale, nullptr);
    EXPECT_EQ(keys->keys[0].rotation, nullptr);
    const AnimationKey& five = keys->keys[1];
    EXPECT_EQ(five.time, 5.0f);
    ASSERT_TRUE(five.rotation && five.translation);
    const Quaternion q{0.5f, 0.1f, 0.2f, 0.3f};  // s, x, y, z as the file has them
    EXPECT_EQ(std::memcmp(five.rotation, &q, sizeof q), 0);
    ExpectVector(*five.translation, 1, 2, 3, "translation");
    EXPECT_EQ(keys->keys[2].time, 10.0f);
    EXPECT_EQ(keys->baseMatrix[12], 5.0f);
    // A key on frame 0 alone gives lastFrame 1, on an object that was there before the load.
    ASSERT_NE(keep->keyAnimation, nullptr);
    EXPECT_EQ(keep->keyAnimation->lastFrame, 1u);
    // A block without keys takes the key animation of the object it names.
    EXPECT_EQ(Find(root, "b")->keyAnimation, nullptr);
    EXPECT_EQ(Find(root, "b")->features & MeshFeatureKeyAnimation, 0);

    // Two objects named by one block get the same keys, each in a record of its own; the base
    // matrix is the last named object's, as the format's shared record has it.
    CMesh model(nullptr);
    ASSERT_TRUE(Load(model,
                     "object \"p\" { matrix { 1,0,0,0, 0,1,0,0, 0,0,1,0, 1,2,3,1, } }\n"
                     "object \"q\" { animation \"both\" { object_name \"p\" "
                     "rotate_keys { 2, 1,0,0,0, } object_name \"q\" object_name \"p\" } }"));
    const KeyAnimation* p = Find(model, "p")->keyAnimation;
    const KeyAnimation* qk = Find(model, "q")->keyAnimation;
    ASSERT_TRUE(p && qk && p != qk && p->keys != qk->keys);
    EXPECT_EQ(p->keyCount, 1u);
    EXPECT_EQ(qk->keyCount, 1u);
    EXPECT_EQ(qk->lastFrame, 2u);
    EXPECT_NE(p->keys[0].rotation, qk->keys[0].rotation);
    EXPECT_EQ(p->baseMatrix[12], 1.0f);
    EXPECT_EQ(qk->baseMatrix[12], 1.0f);
}

// Each damage is refused with the file and the line, and leaves the loading tree as it was,
// with no texture loaded.
TEST_F(VafTest, EachDamageIsRefusedWithItsLineAndTheTreeUnchanged) {
    std::string deep;
    for (int i = 0; i < 257; ++i) deep += "object \"n\" {\n";
    std::string tooMany =
        "object \"x\" { mesh { anim_vertices 600000 { 0 : 0 , 0, 0, } } }\n"
        "object \"y\" { mesh { anim_vertices 600000 { 0 : 0 , 0, 0, } } }";
    const std::string tri = "material \"m\" { texture \"t.tga\" }\nobject \"m\" { mesh {\n";
    const struct {
        const char* fault;
        size_t line;
        std::string text;
        uint32_t keepSmoothing;
    } cases[] = {
        {"face 1 of \"m\" uses vertex 3, the mesh has 3", 5,
         tri + "vertices { 0,0,0, 1,0,0, 0,1,0, }\nfaces { 3, 0,0, 1,0, 2,0,\n3, 0,0, 3,0, "
               "1,0, 0 } } }",
         0},
        {"face 0 of \"m\" uses vertex -1, the mesh has 3", 3,
         tri + "vertices { 0,0,0, 1,0,0, 0,1,0, } faces { 3, 0,0, -1,0, 2,0 } } }", 0},
        {"face 0 of \"m\" uses vertex 2, its texture_coordinates give 2", 3,
         tri + "vertices { 0,0,0, 1,0,0, 0,1,0, } faces { 3, 0,0, 1,0, 2,0 }\n"
               "texture_coordinates { 0,0, 1,1, } } }",
         0},
        {"the face_coordinates of \"m\" give 2 pairs for 1 faces", 5,
         tri + "vertices { 0,0,0, 1,0,0, 0,1,0, } faces { 3, 0,0, 1,0, 2,0 }\n"
               "face_coordinates { 0,0, 1,1, }\n}\n}",
         0},
        {"the face_materials of \"m\" name 1 materials for 2 faces", 3,
         tri + "vertices { 0,0,0, 1,0,0, 0,1,0, } faces { " + Tri(0, 1, 2) + Tri(2, 1, 0) +
             "} face_materials { \"m\" } } }",
         0},
        {"the smoothing_groups of \"m\" give 1 groups for 2 faces", 3,
         tri + "vertices { 0,0,0, 1,0,0, 0,1,0, } faces { " + Tri(0, 1, 2) + Tri(2, 1, 0) +
             "} smoothing_groups { 1, } } }",
         1},
        {"the faces of \"m\" give 2 corners for 1 faces", 3,
         tri + "vertices { 0,0,0, 1,0,0, 0,1,0, } faces { 2, 0,0, 1,0, 0 } } }", 0},
        {"the faces of \"m\" have no end: the last pair's second number, 1,", 4,
         tri + "vertices { 0,0,0, 1,0,0, 0,1,0, } faces { 3, 0,1, 1,1, 2,1\n} } }", 0},
        {"a group of 3 corners in the faces of \"m\" breaks off after 2", 3,
         tri + "faces { 3, 0,0, 1,0, } } }", 0},
        {"the vertex_light of \"m\" has more entries than the 1 vertices before it", 4,
         tri + "vertices { 0,0,0, }\nvertex_light { 1,1,1, 1, 1 ,1,\n 1,1,1, } } }", 0},
        {"an entry of the vertex_light of \"m\" holds 2 of its 3 numbers", 3,
         tri + "vertices { 0,0,0, } vertex_light { 1,1 } } }", 0},
        {"the anim_vertices of \"m\" have a key at frame 5, where the frames are 0 to 4", 5,
         tri + "anim_vertices 5 {\n0 : 1 , 1, 1,\n5 : 2 , 2, 2, } } }", 0},
        {"the anim_vertices of \"m\" have a key at frame -1, where the frames are 0 to 4", 3,
         tri + "anim_vertices 5 { -1 : 1 , 1, 1, } } }", 0},
        {"the anim_vertices of \"m\" have no key at frame 0, their first is at frame 2", 3,
         tri + "anim_vertices 5 { 2 : 1 , 1, 1, } } }", 0},
        {"the anim_vertices of \"m\" have no key frame", 3,
         tri + "anim_vertices 5 { 1 , 1, 1, } } }", 0},
        {"the anim_vertices of \"m\" have key frame 1 after key frame 3, where key frames must "
         "ascend",
         3, tri + "anim_vertices 5 { 0 : 1 , 1, 1, 3: 2 , 2, 2, 1: 3 , 3, 3, } } }", 0},
        {"the anim_vertices of \"m\" have 0 frames", 3, tri + "anim_vertices 0 { } } }", 0},
        {"the anim_vertices of \"m\" have 2097152 frames", 3,
         tri + "anim_vertices 2097152 { 0 : 1 , 1, 1, } } }", 0},
        {"the anim_vertices of \"m\" have no frame count", 3, tri + "anim_vertices { } } }", 0},
        {"a vertex of the anim_vertices of \"m\" holds 2 of its 3 numbers", 3,
         tri + "anim_vertices 2 { 0 : 1 , 2 } } }", 0},
        {"the vertex animations up to \"y\" come to 1200000 frames, more than 1048576", 2, tooMany,
         0},
        {"an entry of the vertices of \"m\" holds 2 of its 3 numbers", 5,
         tri + "vertices {\n 0,0,0,\n 1,2 } } }", 0},
        {"an entry of the texture_coordinates of \"m\" holds 1 of its 2 numbers", 3,
         tri + "texture_coordinates { 1 } } }", 0},
        {"the number 99999999999 does not fit in 32 bits", 3, tri + "faces { 99999999999 } } }", 0},
        {"the number -2147483649 does not fit in 32 bits", 3,
         tri + "smoothing_groups { 1, -2147483649, } } }", 0},
        {"the number 1e39 is out of range", 3, tri + "vertices { 0, 1e39, 0, } } }", 0},
        {"the number nan is out of range", 3, tri + "vertices { 0, nan, 0, } } }", 0},
        {"the matrix of \"m\" holds 15 numbers where 16 belong", 2,
         "object \"m\" {\nmatrix { 1,0,0,0, 0,1,0,0, 0,0,1,0, 0,0,0 } }", 0},
        {"the matrix of \"m\" holds 3 numbers where 16 belong", 1,
         "object \"m\" { matrix { 1,0,0 0, } }", 0},
        {"object_name \"ghost\" names no object", 2,
         "object \"a\" {\nanimation \"x\" { object_name \"ghost\" } }", 0},
        {"object_name \"plainframe\" names a frame that is no mesh", 1,
         "object \"a\" { animation \"x\" { object_name \"plainframe\" } }", 0},
        {"a key of rotate_keys holds 3 of its 5 numbers", 2,
         "object \"a\" { animation \"x\" { object_name \"keep\"\nrotate_keys { 1, 1, 0 } } }", 0},
        {"a key of position_keys is on frame 1048576, beyond the last frame a model may have "
         "(1048575)",
         1, "object \"a\" { animation \"x\" { position_keys { 1048576, 0,0,0, } } }", 0},
        {"objects nest deeper than 256 levels", 257, deep, 0},
        {"the file ends inside the vertices of \"m\"", 4, tri + "vertices { 0,0,0,\n", 0},
        {"the file ends inside the faces of \"m\"", 3, tri + "faces { 3, 0,0, 1,", 0},
        {"the file ends inside the mesh of \"m\"", 3, tri + "vertices { 0,0,0, }", 0},
        {"the file ends inside the object \"a\"", 2, "object \"a\" {\nobject \"b\" { } ", 0},
        {"the file ends inside the material \"m\"", 1, "material \"m\" { texture \"t.tga\"", 0},
        {"the file ends inside the matrix of \"a\"", 1, "object \"a\" { matrix {", 0},
        {"the file ends inside an animation in \"a\"", 1,
         "object \"a\" { animation \"x\" { object_name \"keep\" rotate_keys { 1, 1,0,0,0, } ", 0},
        {"the file ends inside the rotate_keys of an animation", 1,
         "object \"a\" { animation \"x\" { rotate_keys { 1, 1,0,0,0,", 0},
        {"the file ends inside the anim_vertices of \"m\"", 3, tri + "anim_vertices 2 { 0 :", 0},
        {"the file ends inside the face_materials of \"m\"", 3, tri + "face_materials { \"m\" ", 0},
        {"the file ends inside a quoted name", 1, "object", 0},
        {"a quoted name that is never closed", 2, "\nobject \"a {\n }", 0},
    };
    for (const auto& c : cases) {
        capture.Clear();
        EXPECT_FALSE(Load(root, c.text, c.keepSmoothing, "bad.vaf")) << c.fault;
        std::string log = capture.Text();
        std::string line = "LOG: (VAFLoad) Corrupt VAF " + dir.File("bad.vaf") + " at line " +
                           std::to_string(c.line) + ": ";
        EXPECT_NE(log.find(line + c.fault), npos) << c.fault << "\n" << log;
        EXPECT_EQ(
            std::string(MeshReadFault())
                .find("the map file is damaged at line " + std::to_string(c.line) + ": " + c.fault),
            0u)
            << MeshReadFault();
        EXPECT_TRUE(Untouched()) << c.fault;
    }
    EXPECT_TRUE(LoadedPaths.empty());  // a refused file loads no textures
    EXPECT_NE(ReadWholeFile("velmora.log").find("names no object"), npos);

    capture.Clear();  // a file that can't be opened
    std::string missing = dir.File("missing.vaf");
    EXPECT_FALSE(root.LoadVAF(missing.c_str(), 0));
    EXPECT_NE(capture.Text().find("LOG: (VAFLoad) Could not find VAF:  " + missing + "\n"), npos)
        << capture.Text();
    EXPECT_NE(std::string(MeshReadFault()).find("can't be opened"), npos);
    EXPECT_FALSE(root.LoadVAF(dir.Path().c_str(), 0));  // a folder, not a file
    EXPECT_TRUE(Untouched());
    ASSERT_TRUE(Load(root, "object \"fine\" { }"));
    EXPECT_STREQ(MeshReadFault(), "");  // a good load clears the fault
}

// vertex_light before the vertices is the Part's one fatal report; inside a run's job the trap
// turns it into a refusal of that map.
TEST_F(VafTest, VertexLightBeforeTheVerticesIsFatal) {
    const std::string text =
        "object \"m\" { mesh { vertex_light { 1,1,1, } vertices { 0,0,0, } } }";
    EXPECT_DEATH(Load(root, text),
                 "DecodeMesh: Invalid VAF .*model.vaf\nvertex lighting chunk "
                 "before vertex definition");
    FatalReportTrap trap;
    EXPECT_FALSE(Load(root, text));
    EXPECT_TRUE(trap.Sprung());
    EXPECT_NE(std::string(trap.Reason()).find("vertex lighting chunk before vertex definition"),
              npos);
    EXPECT_NE(std::string(MeshReadFault())
                  .find("line 1: the vertex_light of \"m\" comes before "
                        "its vertices"),
              npos);
    EXPECT_TRUE(Untouched());
}

// Every prefix of a whole file either loads (it ends between blocks) or is refused at its end,
// and a refused one leaves the tree.
TEST_F(VafTest, EveryTruncationLoadsWholeBlocksOrIsRefused) {
    const std::string text =
        "material \"a&\" { texture \"a.tga\" colour { 1, 1, 1, 1 } }\n"
        "object \"m\" { matrix { 1,0,0,0, 0,1,0,0, 0,0,1,0, 0,0,0,1, }\n"
        " mesh { anim_vertices 4 { 0 : 0 , 0, 0, 1 , 0, 0, 0 , 1, 0, 2 : 0 , 0, 1, 1 , 0, 1, 0 , "
        "1, 1, }\n"
        "  faces { 3, 0,0, 1,0, 2,0, 0 } texture_coordinates { 0,0, 1,0, 0,1, }\n"
        "  vertex_light { 1,1,1, } smoothing_groups { 1, } face_materials { \"a&\" } }\n"
        " object \"c\" { } }\n"
        "object \"rig\" { animation \"x\" { object_name \"c\" rotate_keys { 1, 1,0,0,0, } } }\n";
    for (size_t size = 0; size <= text.size(); ++size) {
        capture.Clear();
        CMesh model(nullptr);
        CMesh* before = new CMesh(&model);
        bool loaded = Load(model, text.substr(0, size), 1);
        if (loaded) continue;
        ASSERT_NE(capture.Text().find("LOG: (VAFLoad) Corrupt VAF "), npos) << size;
        ASSERT_TRUE(model.firstChild == before && !before->nextSibling) << size;
    }
    CMesh whole(nullptr);
    ASSERT_TRUE(Load(whole, text, 1));
    EXPECT_NE(Find(whole, "c")->keyAnimation, nullptr);
    EXPECT_EQ(Find(whole, "m")->faces[0][0].flags, 1u);
}

// A VAF model saved as VBF and read back gives the same tree: names, matrices, vertices, faces,
// textures, colours, smoothing groups, key and vertex animations.
TEST_F(VafTest, AModelReadFromVafAndSavedAsVbfReadsBackTheSame) {
    std::string text =
        "material \"stone\" { texture \"stone.tga\" }\n"
        "material \"glass%\" { texture \"glass.tga\" }\n"
        "object \"hull\" { matrix { 0,1,0,0, -1,0,0,0, 0,0,1,0, 4,5,6,1, }\n"
        " mesh { vertices { 0,0,0, 2,0,0, 0,2,0, 0,0,2, }\n"
        "  faces { " +
        Tri(0, 1, 2) + Tri(0, 3, 1) + Tri(1, 3, 2) +
        "0 }\n"
        "  texture_coordinates { 0,0, 1,0, 0,1, 1,1, } vertex_light { 1,0,0, 0,1,0, 0,0,1, 1,1,1, "
        "}\n"
        "  smoothing_groups { 1, 2, 3, } face_materials { \"glass%\" \"stone\" \"glass%\" } }\n"
        " object \"turret\" { matrix { 1,0,0,0, 0,1,0,0, 0,0,1,0, 0,3,0,1, }\n"
        "  mesh { anim_vertices 6 { 0 : 0 , 0, 0, 1 , 0, 0, 0 , 1, 0, 3 : 0 , 0, 1, 2 , 0, 0, 0 , "
        "2, 0, }\n"
        "   faces { " +
        Tri(0, 1, 2) +
        "} face_coordinates { 0,0, 0.5,0, 0,0.5, } material \"stone\" } }\n"
        " object \"flag\" { } }\n"
        "object \"ground\" { mesh { vertices { -9,0,-9, 9,0,-9, 0,0,9, } faces { " +
        Tri(0, 2, 1) +
        "} } }\n"
        "object \"rig\" { animation \"a\" { object_name \"turret\"\n"
        " rotate_keys { 0, 1,0,0,0, 8, 0,0,1,0, } position_keys { 4, 0,3,1, } scale_keys { 8, "
        "1,2,1, } } }\n";
    CMesh source(nullptr);
    ASSERT_TRUE(Load(source, text, 1));
    ASSERT_TRUE(source.SaveVBF(dir.File("model.vbf").c_str(), nullptr, 0));
    CMesh loaded(nullptr);
    ASSERT_TRUE(loaded.LoadVBF(dir.File("model.vbf").c_str()));

    std::function<void(const CEntity&, const CEntity&, std::string)> same =
        [&](const CEntity& x, const CEntity& y, std::string path) {
            const CEntity* a = x.firstChild;
            const CEntity* b = y.firstChild;
            for (; a && b; a = a->nextSibling, b = b->nextSibling) {
                std::string at = path + "/" + a->name;
                SCOPED_TRACE(at);
                ASSERT_STREQ(a->name, b->name);
                const CMesh* m = static_cast<const CMesh*>(a);
                const CMesh* n = static_cast<const CMesh*>(b);
                Matrix ma, mb;
                m->GetLocalMatrix(ma);
                n->GetLocalMatrix(mb);
                EXPECT_EQ(std::memcmp(&ma, &mb, sizeof ma), 0);
                ASSERT_EQ(m->vertexCount, n->vertexCount);
                const VertexAnimation* va = m->vertexAnimation;
                const VertexAnimation* vb = n->vertexAnimation;
                ASSERT_EQ(!va, !vb);
                size_t stored = va ? va->totalVertices : size_t(m->vertexCount);
                if (va) {
                    EXPECT_EQ(va->totalVertices, vb->totalVertices);
                    EXPECT_EQ(va->frameCount, vb->frameCount);
                    ASSERT_EQ(va->keyCount, vb->keyCount);
                    for (uint32_t k = 0; k < va->keyCount; ++k)
                        EXPECT_EQ(va->keyFrames[k], vb->keyFrames[k]);
                    for (uint32_t f = 0; f < va->frameCount; ++f)
                        EXPECT_EQ(static_cast<MeshVertex*>(va->frameTable[f]) - m->vertices,
                                  static_cast<MeshVertex*>(vb->frameTable[f]) - n->vertices);
                }
                EXPECT_TRUE(Equal(m->vertices, n->vertices, stored * sizeof(MeshVertex)));
                ASSERT_EQ(m->faceCount[0], n->faceCount[0]);
                for (uint32_t i = 0; i < m->faceCount[0]; ++i) {
                    const MeshFace& f = m->faces[0][i];
                    const MeshFace& g = n->faces[0][i];
                    EXPECT_EQ(std::memcmp(f.vertex, g.vertex, sizeof f.vertex), 0) << i;
                    EXPECT_EQ(std::memcmp(f.uv, g.uv, sizeof f.uv), 0) << i;
                    EXPECT_EQ(f.flags, g.flags) << i;
                    EXPECT_EQ(TextureName(f), TextureName(g)) << i;
                }
                ASSERT_EQ(!m->colours, !n->colours);
                EXPECT_TRUE(Equal(m->colours, n->colours, stored * 3));
                ASSERT_EQ(!m->smoothingGroups, !n->smoothingGroups);
                EXPECT_TRUE(Equal(m->smoothingGroups, n->smoothingGroups, m->faceCount[0] * 4));
                const KeyAnimation* ka = m->keyAnimation;
                const KeyAnimation* kb = n->keyAnimation;
                ASSERT_EQ(!ka, !kb);
                if (ka) {
                    EXPECT_EQ(ka->lastFrame, kb->lastFrame);
                    EXPECT_EQ(std::memcmp(&ka->baseMatrix, &kb->baseMatrix, sizeof(Matrix)), 0);
                    ASSERT_EQ(ka->keyCount, kb->keyCount);
                    for (uint32_t k = 0; k < ka->keyCount; ++k) {
                        const AnimationKey& p = ka->keys[k];
                        const AnimationKey& q = kb->keys[k];
                        EXPECT_EQ(p.time, q.time);
                        ASSERT_EQ(!p.rotation, !q.rotation);
                        ASSERT_EQ(!p.scale, !q.scale);
                        ASSERT_EQ(!p.translation, !q.translation);
                        EXPECT_TRUE(Equal(p.rotation, q.rotation, sizeof(Quaternion)));
                        EXPECT_TRUE(Equal(p.scale, q.scale, sizeof(Vector)));
                        EXPECT_TRUE(Equal(p.translation, q.translation, sizeof(Vector)));
                    }
                }
                same(*a, *b, at);
            }
            EXPECT_EQ(!a, !b) << path;
        };
    same(source, loaded, "");
    // The model holds what the comparison is meant to cover.
    const CMesh* turret = Find(loaded, "turret");
    ASSERT_NE(turret->vertexAnimation, nullptr);
    ASSERT_NE(turret->keyAnimation, nullptr);
    EXPECT_EQ(turret->keyAnimation->keyCount, 3u);
    EXPECT_NE(Find(loaded, "hull")->colours, nullptr);
    EXPECT_EQ(TextureName(Find(loaded, "ground")->faces[0][0]), "-");
    EXPECT_EQ(Find(source, "ground")->hidden, 1);
}
