#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "base/memory.h"
#include "engine/mesh/mesh.h"
#include "engine/mesh/mesh_animation.h"
#include "engine/mesh/vbf_reader.h"
#include "engine/mesh/vbf_writer.h"
#include "engine/texture/texture.h"
#include "engine/texture/texture_lookup.h"
#include "platform/debug/debug_output.h"
#include "tests/support/temp_dir.h"

namespace {

// Hand-made VBF bytes, for the layouts the writer never makes.
struct VbfBytes {
    std::string bytes;

    VbfBytes& U32(uint32_t v) {
        for (int i = 0; i < 4; ++i) bytes.push_back(char(v >> (8 * i)));
        return *this;
    }
    VbfBytes& F32(float v) {
        uint32_t bits;
        std::memcpy(&bits, &v, 4);
        return U32(bits);
    }
    VbfBytes& F64(double v) {
        uint64_t bits;
        std::memcpy(&bits, &v, 8);
        return U32(uint32_t(bits)).U32(uint32_t(bits >> 32));
    }
    VbfBytes& Text(const std::string& text) {
        bytes += text;
        bytes.push_back('\0');
        return *this;
    }
    // An object header with the identity matrix moved by x.
    VbfBytes& Object(int32_t vertexCount, uint32_t sections, uint32_t faceCount,
                     uint32_t childCount, const std::string& name, double x = 0.0) {
        U32(uint32_t(vertexCount)).U32(sections).U32(faceCount).U32(childCount);
        for (int i = 0; i < 16; ++i) F64(i == 12 ? x : (i % 5 == 0 ? 1.0 : 0.0));
        U32(uint32_t(name.size()));
        bytes += name;
        return *this;
    }
    VbfBytes& Vertex(float x) { return F32(x).F32(0).F32(0).F32(0).F32(1).F32(0); }
    VbfBytes& Face(uint32_t a, uint32_t b, uint32_t c, uint32_t texture) {
        U32(a).U32(b).U32(c).U32(texture).U32(0);
        for (int i = 0; i < 6; ++i) F32(0.25f * float(i));
        return *this;
    }
    VbfBytes& End() { return U32(0xFFFFFFFF); }
};

// Starts every file: header kind 0 and no textures.
VbfBytes Plain() {
    VbfBytes file;
    file.U32(0).U32(0);
    return file;
}

std::vector<std::string> LoadedPaths;
std::vector<CTexture*> LoadedTextures;

CTexture* RecordingLoader(const char* path) {
    LoadedPaths.emplace_back(path);
    CTexture* texture = CreateTexture(2, 2, 0x8888);
    LoadedTextures.push_back(texture);
    return texture;
}

class Vbf : public testing::Test {
protected:
    void SetUp() override {
        LoadedPaths.clear();
        LoadedTextures.clear();
        SetTextureLoadFunction(RecordingLoader);
    }
    void TearDown() override {
        SetTextureLoadFunction(nullptr);
        for (CTexture* texture : LoadedTextures) FreeTexture(texture);
        for (CTexture* texture : made) FreeTexture(texture);
    }

    bool Load(CMesh& root, const VbfBytes& file, const char* name = "model.vbf") {
        WriteWholeFile(dir.File(name), file.bytes);
        return root.LoadVBF(dir.File(name).c_str());
    }
    CTexture* Texture(const char* name, uint32_t flags = 0) {
        CTexture* texture = CreateTexture(2, 2, 0x8888);
        texture->SetName(name);
        texture->flags |= flags;
        made.push_back(texture);
        return texture;
    }

    TempDir dir;
    DebugCapture capture;
    std::vector<CTexture*> made;
};

CMesh* Child(const CEntity& node, int index) {
    CEntity* child = node.firstChild;
    while (child && index--) child = child->nextSibling;
    return static_cast<CMesh*>(child);
}

int ChildCount(const CEntity& node) {
    int count = 0;
    for (CEntity* child = node.firstChild; child; child = child->nextSibling) ++count;
    return count;
}

std::string NameOf(const CEntity* node) {
    return node && node->name ? node->name : "";
}

// --- The tree of the round trip -----------------------------------------------------------------

void FillVertices(CMesh* mesh, int32_t count, float seed) {
    mesh->AllocVertices(count);
    for (int32_t i = 0; i < count; ++i)
        mesh->vertices[i] = MeshVertex{{seed + float(i), -seed * 0.5f, float(i) * 0.125f},
                                       {0.0f, float(i % 2), float((i + 1) % 2)}};
}

void FillFaces(CMesh* mesh, uint32_t count, uint32_t vertexCount,
               std::initializer_list<CTexture*> textures) {
    mesh->AllocFaces(count, 0);
    auto texture = textures.begin();
    for (uint32_t i = 0; i < count; ++i) {
        MeshFace& face = mesh->faces[0][i];
        for (uint32_t c = 0; c < 3; ++c) face.vertex[c] = (i + c) % vertexCount;
        face.texture = texture == textures.end() ? nullptr : *texture++;
        face.flags = 0x1000u * (i % 2) + i;
        for (int k = 0; k < 6; ++k) face.uv[k] = float(i) + 0.1f * float(k);
    }
}

VertexAnimation* NewShape(uint32_t frameCount, std::vector<uint32_t> keys) {
    auto* shape = static_cast<VertexAnimation*>(MALLOC(sizeof(VertexAnimation)));
    std::memset(shape, 0, sizeof *shape);
    shape->flags = VertexAnimationOwnsArrays;
    shape->frameCount = frameCount;
    shape->keyCount = uint32_t(keys.size());
    shape->keyFrames = static_cast<uint32_t*>(MALLOC(keys.size() * 4));
    std::memcpy(shape->keyFrames, keys.data(), keys.size() * 4);
    shape->frameTable = static_cast<void**>(MALLOC(frameCount * sizeof(void*)));
    return shape;
}

// Packed frames of `records` 8-byte records; table entries are record numbers, -1 for null.
void SetPacked(CMesh* mesh, VertexAnimation* shape, uint32_t records, std::vector<int> table) {
    auto* data = static_cast<int16_t*>(MALLOC(records * 8));
    for (uint32_t i = 0; i < records * 4; ++i) data[i] = int16_t(i * 37 - 200);
    shape->flags |= VertexAnimationPacked | 8u << VertexAnimationFractionShift;
    shape->frameData = data;
    shape->totalVertices = records;
    for (size_t f = 0; f < table.size(); ++f)
        shape->frameTable[f] = table[f] < 0 ? nullptr : data + 4 * table[f];
    mesh->SetVertexAnimation(shape);
}

KeyAnimation* NewKeys(uint32_t form, uint32_t lastFrame, size_t dataBytes) {
    auto* keys = static_cast<KeyAnimation*>(MALLOC(sizeof(KeyAnimation)));
    std::memset(keys, 0, sizeof *keys);
    keys->form = form;
    keys->lastFrame = lastFrame;
    keys->owner = 1;
    keys->currentFrame = KeyAnimationNoFrame;
    if (dataBytes) {
        keys->frameData = MALLOC(dataBytes);
        auto* bytes = static_cast<uint8_t*>(keys->frameData);
        for (size_t i = 0; i < dataBytes; ++i) bytes[i] = uint8_t(i * 13 + form);
    }
    return keys;
}

void AddKey(KeyAnimation* keys, float time, const Quaternion* r, const Vector* s, const Vector* t) {
    if (r) InsertRotationKey(keys, nullptr, time, *r);
    if (s) InsertScaleKey(keys, nullptr, time, *s);
    if (t) InsertTranslationKey(keys, nullptr, time, *t);
}

void Place(CMesh* mesh, float angle, float x, float y, float z) {
    Matrix m{};
    m[0] = m[10] = std::cos(angle);
    m[2] = std::sin(angle);
    m[8] = -m[2];
    m[5] = m[15] = 1.0f;
    m[12] = x;
    m[13] = y;
    m[14] = z;
    mesh->SetMatrix(m);
}

// Children, grandchildren and a great-grandchild, with every section the format carries.
void BuildTree(CMesh* root, CTexture* brick, CTexture* grass) {
    CMesh* hull = new CMesh(root);
    hull->SetName("hull");
    Place(hull, 0.5f, 1.0f, 2.0f, -3.0f);
    FillVertices(hull, 4, 1.0f);
    FillFaces(hull, 3, 4, {brick, nullptr, grass});
    hull->AllocColours(4);
    hull->meshFlags |= MeshFlagVertexColours;
    for (int i = 0; i < 12; ++i) hull->colours[i] = uint8_t(i * 20);
    hull->AllocSmoothingGroups();
    for (uint32_t i = 0; i < 3; ++i) hull->smoothingGroups[i] = 1u << i;
    KeyAnimation* hullKeys = NewKeys(KeyFormKeys, 20, 0);
    Quaternion r0{1, 0, 0, 0}, r10{0.5f, 0.5f, 0.5f, 0.5f};
    Vector t0{1, 2, 3}, s5{2, 1, 1}, t20{-4, 0, 8};
    AddKey(hullKeys, 10, &r10, nullptr, nullptr);
    AddKey(hullKeys, 0, &r0, nullptr, &t0);
    AddKey(hullKeys, 5, nullptr, &s5, nullptr);
    AddKey(hullKeys, 20, nullptr, nullptr, &t20);
    hull->SetKeyAnimation(hullKeys);

    CMesh* turret = new CMesh(hull);
    turret->SetName("turret");
    Place(turret, -1.0f, 0.0f, 4.0f, 0.0f);
    FillVertices(turret, 3, 7.0f);
    FillFaces(turret, 1, 3, {brick});
    SetPacked(turret, NewShape(8, {2, 5}), 6, {-1, -1, 0, 0, 0, 3, 3, 3});  // as keys give
    turret->SetKeyAnimation(NewKeys(KeyFormRecords, 2, 3 * 48));

    CMesh* barrel = new CMesh(turret);
    barrel->SetName("barrel");
    FillVertices(barrel, 7, 3.0f);  // two key frames of 3 and one spare vertex
    VertexAnimation* unpacked = NewShape(5, {0, 3});
    unpacked->frameData = barrel->vertices;
    unpacked->totalVertices = 7;
    for (int f = 0; f < 5; ++f) unpacked->frameTable[f] = barrel->vertices + (f < 3 ? 0 : 3);
    barrel->vertexCount = 3;
    barrel->SetVertexAnimation(unpacked);
    FillFaces(barrel, 2, 3, {grass, grass});
    KeyAnimation* table = NewKeys(KeyFormTable, 3, 4 * 2 + 2 * 48);
    uint16_t records[4] = {0, 1, 1, 0};
    std::memcpy(table->frameData, records, sizeof records);
    table->distinctCount = 2;
    barrel->SetKeyAnimation(table);

    CMesh* muzzle = new CMesh(barrel);
    muzzle->SetName("muzzle");
    FillVertices(muzzle, 2, 9.0f);
    SetPacked(muzzle, NewShape(4, {0, 3}), 4, {0, -1, 2, 2});  // a halfway frame
    KeyAnimation* matrices = NewKeys(KeyFormKeys, 1, 2 * sizeof(Matrix));
    matrices->frameCached = static_cast<uint8_t*>(MALLOC(2));
    matrices->frameCached[0] = matrices->frameCached[1] = 1;
    muzzle->SetKeyAnimation(matrices);

    CMesh* flag = new CMesh(hull);
    flag->SetName("flag");
    FillVertices(flag, 3, -2.0f);
    FillFaces(flag, 1, 3, {brick});

    CMesh* ground = new CMesh(root);
    ground->SetName("ground");
    Place(ground, 0.0f, -1.0f, 0.0f, 0.0f);
    FillVertices(ground, 3, 0.0f);
    FillFaces(ground, 2, 3, {grass, brick});
}

// --- Record by record comparison ----------------------------------------------------------------

std::string TextureName(const CTexture* texture) {
    return texture ? (texture->name ? texture->name : "(unnamed)") : "(none)";
}

void ExpectSameBytes(const void* a, const void* b, size_t size, const std::string& what) {
    ASSERT_EQ(a == nullptr, b == nullptr) << what;
    if (a && size) {
        EXPECT_EQ(std::memcmp(a, b, size), 0) << what;
    }
}

void ExpectSameShape(const CMesh* a, const CMesh* b, const std::string& where) {
    const VertexAnimation* x = a->vertexAnimation;
    const VertexAnimation* y = b->vertexAnimation;
    ASSERT_EQ(x == nullptr, y == nullptr) << where;
    if (!x) return;
    EXPECT_EQ(x->flags, y->flags) << where;
    EXPECT_EQ(x->frameCount, y->frameCount) << where;
    EXPECT_EQ(x->keyCount, y->keyCount) << where;
    EXPECT_EQ(x->totalVertices, y->totalVertices) << where;
    ExpectSameBytes(x->keyFrames, y->keyFrames, x->keyCount * 4u, where + " key frames");
    bool packed = x->flags & VertexAnimationPacked;
    ExpectSameBytes(x->frameData, y->frameData, x->totalVertices * (packed ? 8u : 24u),
                    where + " frame data");
    for (uint32_t f = 0; f < x->frameCount; ++f) {
        auto offset = [](const VertexAnimation* v, uint32_t frame) -> long {
            if (!v->frameTable[frame]) return -1;
            return long(static_cast<const char*>(v->frameTable[frame]) -
                        static_cast<const char*>(v->frameData));
        };
        EXPECT_EQ(offset(x, f), offset(y, f)) << where << " frame " << f;
    }
}

void ExpectSameKeys(const CMesh* a, const CMesh* b, const std::string& where) {
    const KeyAnimation* x = a->keyAnimation;
    const KeyAnimation* y = b->keyAnimation;
    ASSERT_EQ(x == nullptr, y == nullptr) << where;
    if (!x) return;
    EXPECT_EQ(x->form, y->form) << where;
    EXPECT_EQ(x->lastFrame, y->lastFrame) << where;
    EXPECT_EQ(y->owner, 1) << where;
    EXPECT_EQ(y->currentFrame, uint32_t(KeyAnimationNoFrame)) << where;
    ASSERT_EQ(x->keyCount, y->keyCount) << where;
    for (uint32_t i = 0; i < x->keyCount; ++i) {
        const AnimationKey& p = x->keys[i];
        const AnimationKey& q = y->keys[i];
        std::string key = where + " key " + std::to_string(i);
        EXPECT_EQ(p.time, q.time) << key;
        ExpectSameBytes(p.rotation, q.rotation, sizeof(Quaternion), key + " rotation");
        ExpectSameBytes(p.scale, q.scale, sizeof(Vector), key + " scale");
        ExpectSameBytes(p.translation, q.translation, sizeof(Vector), key + " translation");
    }
    uint32_t frames = x->lastFrame + 1;
    Matrix local;
    b->GetLocalMatrix(local);
    ExpectSameBytes(&y->baseMatrix, &local, sizeof(Matrix), where + " base matrix");
    switch (x->form) {
        case KeyFormKeys:
            ExpectSameBytes(x->frameCached, y->frameCached, frames, where + " cache marks");
            if (x->frameCached)
                ExpectSameBytes(x->frameData, y->frameData, frames * sizeof(Matrix), where);
            break;
        case KeyFormRecords:
            ExpectSameBytes(x->frameData, y->frameData, frames * 48, where);
            break;
        default:
            EXPECT_EQ(x->distinctCount, y->distinctCount) << where;
            ExpectSameBytes(x->frameData, y->frameData, frames * 2 + x->distinctCount * 48, where);
    }
}

void ExpectSameTree(const CEntity* a, const CEntity* b, const std::string& path) {
    std::string where = path + "/" + NameOf(a);
    EXPECT_EQ(NameOf(a), NameOf(b)) << where;
    Matrix ma, mb;
    a->GetLocalMatrix(ma);
    b->GetLocalMatrix(mb);
    ExpectSameBytes(&ma, &mb, sizeof(Matrix), where + " matrix");
    ASSERT_EQ(b->kind, uint32_t(EntityKindMesh)) << where;
    const auto* x = static_cast<const CMesh*>(a);
    const auto* y = static_cast<const CMesh*>(b);
    ASSERT_EQ(x->vertexCount, y->vertexCount) << where;
    ExpectSameBytes(x->vertices, y->vertices, size_t(x->vertexCount) * 24, where + " vertices");
    ASSERT_EQ(x->faceCount[0], y->faceCount[0]) << where;
    for (uint32_t i = 0; i < x->faceCount[0]; ++i) {
        const MeshFace& p = x->faces[0][i];
        const MeshFace& q = y->faces[0][i];
        ExpectSameBytes(p.vertex, q.vertex, 12, where + " face vertices");
        EXPECT_EQ(p.flags, q.flags) << where;
        ExpectSameBytes(p.uv, q.uv, 24, where + " face uv");
        EXPECT_EQ(TextureName(p.texture), TextureName(q.texture)) << where << " face " << i;
        if (p.texture && q.texture) {
            EXPECT_EQ(p.texture->flags & 0x100, q.texture->flags & 0x100) << where;
        }
    }
    ExpectSameBytes(x->colours, y->colours, size_t(x->vertexCount) * 3, where + " colours");
    EXPECT_EQ(x->meshFlags & MeshFlagVertexColours, y->meshFlags & MeshFlagVertexColours);
    ExpectSameBytes(x->smoothingGroups, y->smoothingGroups, x->faceCount[0] * 4u, where);
    ExpectSameShape(x, y, where);
    ExpectSameKeys(x, y, where);
    ASSERT_EQ(ChildCount(*a), ChildCount(*b)) << where;
    for (const CEntity *p = a->firstChild, *q = b->firstChild; p;
         p = p->nextSibling, q = q->nextSibling)
        ExpectSameTree(p, q, where);
}

void ExpectSameChildren(const CMesh& a, const CMesh& b) {
    ASSERT_EQ(ChildCount(a), ChildCount(b));
    for (const CEntity *p = a.firstChild, *q = b.firstChild; p;
         p = p->nextSibling, q = q->nextSibling)
        ExpectSameTree(p, q, "");
}

}  // namespace

// --- Round trip ---------------------------------------------------------------------------------

TEST_F(Vbf, WriteThenReadGivesTheSameRecordsAndOrder) {
    CMesh source(nullptr);
    BuildTree(&source, Texture("brick.tga", TextureFlagClamp), Texture("grass.tga"));
    const char data[] = "\x02\x00\x00\xA0\x08\x00\x00\x00\x40\x00\x00\x00\x20\x00\x00\x00";
    ASSERT_TRUE(source.SaveVBF(dir.File("tree.vbf").c_str(), data, sizeof data));

    CMesh loaded(nullptr);
    VBFUserData* userData = loaded.LoadVBFWithData(dir.File("tree.vbf").c_str());
    ASSERT_NE(userData, nullptr);
    EXPECT_EQ(userData->size, sizeof data);
    EXPECT_EQ(std::memcmp(userData->bytes, data, sizeof data), 0);
    FreeVBFUserData(userData);
    ExpectSameChildren(source, loaded);
    ASSERT_FALSE(HasFailure());
    EXPECT_EQ(NameOf(Child(loaded, 0)), "ground");  // the order the source had
    EXPECT_EQ(NameOf(Child(*Child(loaded, 1), 0)), "flag");
    EXPECT_EQ(loaded.vertexCount, 0);  // the loading mesh gets no geometry

    // Each entry loads once, in the order of first use, and faces share the texture of an entry.
    EXPECT_EQ(LoadedPaths, (std::vector<std::string>{"grass.tga", "brick.tga"}));
    const CMesh* barrel = Child(*Child(*Child(loaded, 1), 1), 0);
    EXPECT_EQ(Child(loaded, 0)->faces[0][0].texture, barrel->faces[0][0].texture);
    EXPECT_EQ(capture.Text().find("VELMORALoadVBF"), std::string::npos) << capture.Text();

    // What was read writes the same bytes again.
    std::vector<uint8_t> first, second;
    ASSERT_TRUE(BuildVBFImage(&source, data, sizeof data, first));
    ASSERT_TRUE(BuildVBFImage(&loaded, data, sizeof data, second));
    EXPECT_EQ(first, second);
}

TEST_F(Vbf, WriterCoversWhatTheFormatHoldsDifferently) {
    CMesh source(nullptr);
    CMesh* mesh = new CMesh(&source);
    mesh->SetName("fixed");
    FillVertices(mesh, 3, 1.0f);
    FillFaces(mesh, 1, 3, {});
    mesh->AllocFaces(1, 1);  // layer 1 has no place in the file
    KeyAnimation* fixed = NewKeys(KeyFormFixedTable, 1, 2 * 2 + 24);
    uint16_t table[2] = {0, 0};
    int16_t record[12] = {2048, 0, -1024, 0, 2048, 0, 1, 0, 2048, 256, -128, 3};
    std::memcpy(fixed->frameData, table, 4);
    std::memcpy(static_cast<uint8_t*>(fixed->frameData) + 4, record, 24);
    fixed->distinctCount = 1;
    mesh->SetKeyAnimation(fixed);
    new CFrame(&source);  // a plain frame becomes an empty mesh
    ASSERT_TRUE(source.SaveVBF(dir.File("fixed.vbf").c_str(), nullptr, 0));

    CMesh loaded(nullptr);
    EXPECT_EQ(loaded.LoadVBFWithData(dir.File("fixed.vbf").c_str()), nullptr);  // header kind 0
    ASSERT_EQ(ChildCount(loaded), 2);
    EXPECT_EQ(Child(loaded, 0)->vertexCount, 0);
    CMesh* back = Child(loaded, 1);
    EXPECT_EQ(back->faceCount[1], 0u);
    const KeyAnimation* keys = back->keyAnimation;
    ASSERT_NE(keys, nullptr);
    EXPECT_EQ(keys->form, uint32_t(KeyFormTable));
    float values[12];
    std::memcpy(values, static_cast<uint8_t*>(keys->frameData) + 4, sizeof values);
    const float expected[12] = {1, 0, -0.5f, 0, 1, 0, 1.0f / 2048, 0, 1, 1, -0.5f, 3.0f / 256};
    for (int i = 0; i < 12; ++i) EXPECT_EQ(values[i], expected[i]) << i;
}

TEST_F(Vbf, WriterRefusesWhatTheReaderWouldNotTake) {
    CMesh unnamed(nullptr);
    CMesh* mesh = new CMesh(&unnamed);
    FillVertices(mesh, 3, 0.0f);
    CTexture* anonymous = Texture("x.tga");
    anonymous->SetName(nullptr);
    FillFaces(mesh, 1, 3, {anonymous});
    std::vector<uint8_t> image;
    EXPECT_FALSE(BuildVBFImage(&unnamed, nullptr, 0, image));

    CMesh deep(nullptr);
    CEntity* node = &deep;
    for (int i = 0; i < 257; ++i) node = new CMesh(node);
    EXPECT_FALSE(BuildVBFImage(&deep, nullptr, 0, image));

    CMesh halfFrames(nullptr);
    mesh = new CMesh(&halfFrames);
    mesh->SetName("keys");
    KeyAnimation* keys = NewKeys(KeyFormKeys, 4, 0);
    Vector t{1, 1, 1};
    AddKey(keys, 1.5f, nullptr, nullptr, &t);
    mesh->SetKeyAnimation(keys);
    EXPECT_FALSE(BuildVBFImage(&halfFrames, nullptr, 0, image));

    EXPECT_FALSE(deep.SaveVBF(dir.File("deep.vbf").c_str(), nullptr, 0));
    EXPECT_FALSE(std::ifstream(dir.File("deep.vbf")).good());  // nothing written
    std::string log = capture.Text();
    EXPECT_NE(log.find("texture without a name"), std::string::npos) << log;
    EXPECT_NE(log.find("deeper than 256 levels"), std::string::npos) << log;
    EXPECT_NE(log.find("not a frame number"), std::string::npos) << log;
}

// --- Layout and what the reader makes of it -----------------------------------------------------

TEST_F(Vbf, ChildrenComeBetweenHeaderAndPayloadAndListsStandNewestFirst) {
    VbfBytes file = Plain();
    file.Object(1, 0, 0, 2, "a", 1.0);
    file.Object(1, 0, 0, 0, "a1").Vertex(11);
    file.Object(1, 0, 0, 0, "a2").Vertex(12);
    file.Vertex(10);  // a's own payload, after its descendants
    file.Object(1, 0, 0, 0, "b").Vertex(20);
    file.End();
    file.bytes += "trailing bytes are never read";

    CMesh root(nullptr);
    CMesh* old = new CMesh(&root);
    ASSERT_TRUE(Load(root, file));
    ASSERT_EQ(ChildCount(root), 3);
    EXPECT_EQ(NameOf(Child(root, 0)), "b");
    EXPECT_EQ(NameOf(Child(root, 1)), "a");
    EXPECT_EQ(Child(root, 2), old);
    CMesh* a = Child(root, 1);
    EXPECT_EQ(a->vertices[0].position.x, 10.0f);
    EXPECT_EQ(a->position.x, 1.0f);
    EXPECT_EQ(NameOf(Child(*a, 0)), "a2");
    EXPECT_EQ(Child(*a, 0)->vertices[0].position.x, 12.0f);
    EXPECT_EQ(Child(*a, 1)->vertices[0].position.x, 11.0f);
    EXPECT_EQ(Child(root, 0)->vertices[0].position.x, 20.0f);

    CMesh empty(nullptr);
    EXPECT_TRUE(Load(empty, Plain().End(), "empty.vbf"));
    EXPECT_EQ(empty.firstChild, nullptr);
}

TEST_F(Vbf, TextureEntriesLoadOncePerEntryAndFacesResolveToThem) {
    VbfBytes file;
    file.U32(0);
    VbfBytes block;
    block.Text("stone.tga").bytes.push_back(char(VBFTextureSecondName | VBFTextureClamp));
    block.Text("stone_detail.tga");  // skipped, never looked up
    block.Text("water.tga").bytes.push_back(0);
    file.U32(uint32_t(block.bytes.size())).bytes += block.bytes;
    file.Object(3, 0, 4, 0, "pond").Vertex(0).Vertex(1).Vertex(2);
    file.Face(0, 1, 2, 1).Face(0, 1, 2, 0).Face(2, 1, 0, VBFNoTexture).Face(0, 2, 1, 1);
    file.End();

    CMesh root(nullptr);
    ASSERT_TRUE(Load(root, file, "pond.vbf"));
    EXPECT_EQ(LoadedPaths, (std::vector<std::string>{"stone.tga", "water.tga"}));
    EXPECT_EQ(std::string(MeshFolder), dir.Path() + "/");
    MeshFace* faces = Child(root, 0)->faces[0];
    EXPECT_EQ(TextureName(faces[0].texture), "water.tga");
    EXPECT_EQ(faces[0].texture, faces[3].texture);
    EXPECT_EQ(TextureName(faces[1].texture), "stone.tga");
    EXPECT_EQ(faces[1].texture->flags & TextureFlagClamp, uint32_t(TextureFlagClamp));
    EXPECT_EQ(faces[0].texture->flags & TextureFlagClamp, 0u);
    EXPECT_EQ(faces[2].texture, nullptr);
    EXPECT_EQ(faces[3].vertex[1], 2u);
    EXPECT_EQ(faces[3].uv[5], 1.25f);
}

TEST_F(Vbf, UserDataIsHandedOverOnlyWhenThereIsSome) {
    VbfBytes map;
    map.U32(1).U32(16).U32(0xA0000002).U32(8).U32(64).U32(32).U32(0).End();
    WriteWholeFile(dir.File("map.vbf"), map.bytes);
    CMesh root(nullptr);
    VBFUserData* data = root.LoadVBFWithData(dir.File("map.vbf").c_str());
    ASSERT_NE(data, nullptr);
    ASSERT_EQ(data->size, 16u);
    EXPECT_EQ(std::memcmp(data->bytes, map.bytes.data() + 8, 16), 0);
    FreeVBFUserData(data);
    EXPECT_TRUE(root.LoadVBF(dir.File("map.vbf").c_str()));  // the same file, data dropped

    VbfBytes none;
    none.U32(1).U32(0).U32(0).End();
    WriteWholeFile(dir.File("none.vbf"), none.bytes);
    EXPECT_EQ(root.LoadVBFWithData(dir.File("none.vbf").c_str()), nullptr);
    EXPECT_EQ(capture.Text().find("LOG:"), std::string::npos) << capture.Text();
}

TEST_F(Vbf, VertexAnimationNeedsTwoKeysAndCutsUnpackedFrames) {
    VbfBytes file = Plain();
    file.Object(6, VBFSectionVertexAnimation, 0, 0, "still");
    for (int i = 0; i < 6; ++i) file.Vertex(float(i));
    file.U32(10).U32(0).U32(1).U32(0);  // one key: no animation
    file.Object(300, VBFSectionVertexAnimation, 0, 0, "moving");
    for (int i = 0; i < 300; ++i) file.Vertex(float(i));
    file.U32(6).U32(0).U32(3).U32(1).U32(2).U32(4);
    file.Object(2, VBFSectionVertexAnimation, 0, 0, "packed");
    file.Vertex(0).Vertex(1);
    file.U32(4).U32(0xFFFFFFFF).U32(2).U32(1).U32(3);
    file.U32(4).U32(4);  // 4 fraction bits, 4 records, no table
    for (int i = 0; i < 16; ++i) file.bytes += std::string("\x10\x00", 2);
    file.End();

    CMesh root(nullptr);
    ASSERT_TRUE(Load(root, file));
    CMesh* still = Child(root, 2);
    EXPECT_EQ(still->vertexAnimation, nullptr);
    EXPECT_EQ(still->vertexCount, 6);

    CMesh* moving = Child(root, 1);
    ASSERT_NE(moving->vertexAnimation, nullptr);
    EXPECT_EQ(moving->vertexCount, 100);
    EXPECT_EQ(moving->features & MeshFeatureVertexAnimation, MeshFeatureVertexAnimation);
    const VertexAnimation* shape = moving->vertexAnimation;
    EXPECT_EQ(shape->totalVertices, 300u);
    MeshVertex* base = static_cast<MeshVertex*>(shape->frameData);
    EXPECT_EQ(shape->frameTable[0], nullptr);  // before the first key
    EXPECT_EQ(shape->frameTable[1], base);
    EXPECT_EQ(shape->frameTable[3], base + 100);
    EXPECT_EQ(shape->frameTable[4], base + 200);
    EXPECT_EQ(shape->frameTable[5], base + 200);

    const VertexAnimation* packed = Child(root, 0)->vertexAnimation;
    ASSERT_NE(packed, nullptr);
    EXPECT_EQ(Child(root, 0)->vertexCount, 2);
    EXPECT_EQ(packed->flags, VertexAnimationOwnsArrays | VertexAnimationPacked | 4u << 24);
    EXPECT_EQ(packed->totalVertices, 4u);
    const uint8_t* data = static_cast<const uint8_t*>(packed->frameData);
    EXPECT_EQ(packed->frameTable[0], nullptr);
    EXPECT_EQ(packed->frameTable[2], data);
    EXPECT_EQ(packed->frameTable[3], data + 16);
}

TEST_F(Vbf, KeyRecordsMergeByFrameAndAnEmptyListLeavesNoAnimation) {
    Quaternion q{0.5f, 0.1f, 0.2f, 0.3f};
    VbfBytes file = Plain();
    file.Object(0, VBFSectionKeyAnimation, 0, 0, "none").U32(9).U32(0);
    file.Object(0, VBFSectionKeyAnimation, 0, 0, "keys", 7.0).U32(9).U32(4);
    file.U32(9 | VBFKeyTranslation).F32(9).F32(9).F32(9);
    file.U32(5 | VBFKeyRotation).F32(q.x).F32(q.y).F32(q.z).F32(q.s);
    file.U32(5 | VBFKeyTranslation).F32(1).F32(2).F32(3);
    file.U32(2 | VBFKeyScale | VBFKeyTranslation).F32(2).F32(2).F32(2).F32(0).F32(0).F32(0);
    file.End();

    CMesh root(nullptr);
    ASSERT_TRUE(Load(root, file));
    EXPECT_EQ(Child(root, 1)->keyAnimation, nullptr);
    EXPECT_EQ(Child(root, 1)->features & MeshFeatureKeyAnimation, 0);
    const KeyAnimation* keys = Child(root, 0)->keyAnimation;
    ASSERT_NE(keys, nullptr);
    ASSERT_EQ(keys->keyCount, 3u);
    EXPECT_EQ(keys->keys[0].time, 2.0f);
    EXPECT_EQ(keys->keys[1].time, 5.0f);
    EXPECT_EQ(keys->keys[2].time, 9.0f);
    const AnimationKey& five = keys->keys[1];
    ASSERT_NE(five.rotation, nullptr);
    ASSERT_NE(five.translation, nullptr);
    EXPECT_EQ(five.scale, nullptr);
    EXPECT_EQ(std::memcmp(five.rotation, &q, sizeof q), 0);  // s first in memory
    EXPECT_EQ(five.translation->z, 3.0f);
    EXPECT_EQ(keys->baseMatrix[12], 7.0f);
    EXPECT_EQ(keys->lastFrame, 9u);
    EXPECT_EQ(keys->currentFrame, uint32_t(KeyAnimationNoFrame));
}

TEST_F(Vbf, LongNamesAreCutWithAWarning) {
    std::string name(300, 'n');
    name[254] = 'E';
    VbfBytes file = Plain();
    file.Object(1, 0, 0, 0, name).Vertex(5).End();
    CMesh root(nullptr);
    ASSERT_TRUE(Load(root, file));
    EXPECT_EQ(NameOf(Child(root, 0)), name.substr(0, 255));
    EXPECT_EQ(Child(root, 0)->vertices[0].position.x, 5.0f);  // the rest of the name read past
    EXPECT_NE(capture.Text().find("Name in VBF too long - truncated..."), std::string::npos);
}

// Every section of the tree is cut somewhere among these prefixes.
TEST_F(Vbf, EveryTruncationOfAWrittenFileIsRefusedAndLeavesTheTree) {
    CMesh source(nullptr);
    BuildTree(&source, Texture("brick.tga", TextureFlagClamp), Texture("grass.tga"));
    std::vector<uint8_t> image;
    ASSERT_TRUE(BuildVBFImage(&source, "user", 4, image));

    CMesh root(nullptr);
    CMesh* keep = new CMesh(&root);
    for (size_t size = 0; size < image.size(); ++size) {
        capture.Clear();
        // A block of exactly the prefix's size: a read past it is a sanitizer report.
        std::vector<uint8_t> prefix(image.begin(), image.begin() + long(size));
        VBFUserData* userData = nullptr;
        ASSERT_FALSE(VELMORALoadVBF(&root, prefix.data(), size, "cut.vbf", &userData)) << size;
        EXPECT_EQ(userData, nullptr);
        ASSERT_NE(capture.Text().find("LOG: (VELMORALoadVBF) Corrupt VBF cut.vbf at byte "),
                  std::string::npos)
            << size << ": " << capture.Text();
        ASSERT_EQ(root.firstChild, keep) << size;
        ASSERT_EQ(keep->nextSibling, nullptr) << size;
    }
    EXPECT_TRUE(LoadedPaths.empty());  // a refused file loads no textures

    WriteWholeFile(dir.File("cut.vbf"), std::string(image.begin(), image.end() - 1));
    EXPECT_EQ(root.LoadVBFWithData(dir.File("cut.vbf").c_str()), nullptr);
    EXPECT_EQ(root.firstChild, keep);
    EXPECT_TRUE(VELMORALoadVBF(&root, image.data(), image.size(), "whole.vbf", nullptr));
    EXPECT_EQ(ChildCount(root), 3);
}
