#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <fstream>
#include <string>
#include <tuple>
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

    VbfBytes& U32(std::initializer_list<uint32_t> values) {
        for (uint32_t v : values)
            for (int i = 0; i < 4; ++i) bytes.push_back(char(v >> (8 * i)));
        return *this;
    }
    VbfBytes& F32(float v) {
        uint32_t bits;
        std::memcpy(&bits, &v, 4);
        return U32({bits});
    }
    VbfBytes& Text(const std::string& text) {
        bytes += text;
        bytes.push_back('\0');
        return *this;
    }
    // An object header with the identity matrix moved by x.
    VbfBytes& Object(int32_t vertexCount, uint32_t sections, uint32_t faceCount,
                     uint32_t childCount, const std::string& name, double x = 0.0) {
        U32({uint32_t(vertexCount), sections, faceCount, childCount});
        for (int i = 0; i < 16; ++i) {
            double value = i == 12 ? x : (i % 5 == 0 ? 1.0 : 0.0);
            bytes.append(reinterpret_cast<const char*>(&value), 8);
        }
        U32({uint32_t(name.size())});
        bytes += name;
        return *this;
    }
    VbfBytes& Vertex(float x) { return F32(x).F32(0).F32(0).F32(0).F32(1).F32(0); }
    VbfBytes& Face(uint32_t a, uint32_t b, uint32_t c, uint32_t texture) {
        U32({a, b, c, texture, 0});
        for (int i = 0; i < 6; ++i) F32(0.25f * float(i));
        return *this;
    }
    VbfBytes& End() { return U32({0xFFFFFFFF}); }
};

// Starts every file: header kind 0 and no textures.
VbfBytes Plain() {
    VbfBytes file;
    return file.U32({0, 0});
}

std::vector<std::string> LoadedPaths;
std::vector<CTexture*> LoadedTextures;

CTexture* RecordingLoader(const char* path) {
    LoadedPaths.emplace_back(path);
    LoadedTextures.push_back(CreateTexture(2, 2, 0x8888));
    return LoadedTextures.back();
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

template <typename T>
T* Zeroed(size_t count = 1) {
    auto* block = static_cast<T*>(MALLOC(count * sizeof(T)));
    std::memset(static_cast<void*>(block), 0, count * sizeof(T));
    return block;
}

VertexAnimation* NewShape(uint32_t frameCount, std::vector<uint32_t> keys) {
    auto* shape = Zeroed<VertexAnimation>();
    shape->flags = VertexAnimationOwnsArrays;
    shape->frameCount = frameCount;
    shape->keyCount = uint32_t(keys.size());
    shape->keyFrames = Zeroed<uint32_t>(keys.size());
    std::memcpy(shape->keyFrames, keys.data(), keys.size() * 4);
    shape->frameTable = Zeroed<void*>(frameCount);
    return shape;
}

// Packed frames of `records` 8-byte records; table entries are record numbers, -1 for null.
void SetPacked(CMesh* mesh, VertexAnimation* shape, uint32_t records, std::vector<int> table) {
    auto* data = Zeroed<int16_t>(records * 4);
    for (uint32_t i = 0; i < records * 4; ++i) data[i] = int16_t(i * 37 - 200);
    shape->flags |= VertexAnimationPacked | 8u << VertexAnimationFractionShift;
    shape->frameData = data;
    shape->totalVertices = records;
    for (size_t f = 0; f < table.size(); ++f)
        shape->frameTable[f] = table[f] < 0 ? nullptr : data + 4 * table[f];
    mesh->SetVertexAnimation(shape);
}

KeyAnimation* NewKeys(uint32_t form, uint32_t lastFrame, size_t dataBytes) {
    auto* keys = Zeroed<KeyAnimation>();
    keys->form = form;
    keys->lastFrame = lastFrame;
    keys->owner = 1;
    keys->currentFrame = KeyAnimationNoFrame;
    if (dataBytes) {
        auto* bytes = Zeroed<uint8_t>(dataBytes);
        for (size_t i = 0; i < dataBytes; ++i) bytes[i] = uint8_t(i * 13 + form);
        keys->frameData = bytes;
    }
    return keys;
}

CMesh* Node(CEntity* parent, const char* name, float angle = 0, float x = 0, float y = 0) {
    CMesh* mesh = new CMesh(parent);
    mesh->SetName(name);
    mesh->SetOrientation(Vector{std::sin(angle), 0.0f, std::cos(angle)}, Vector{0, 1, 0});
    mesh->SetPosition(x, y, x * 0.5f);
    return mesh;
}

// Children, grandchildren and a great-grandchild, with every section the format carries.
void BuildTree(CMesh* root, CTexture* brick, CTexture* grass) {
    CMesh* hull = Node(root, "hull", 0.5f, 1.0f, 2.0f);
    FillVertices(hull, 4, 1.0f);
    FillFaces(hull, 3, 4, {brick, nullptr, grass});
    hull->AllocColours(4);
    hull->meshFlags |= MeshFlagVertexColours;
    for (int i = 0; i < 12; ++i) hull->colours[i] = uint8_t(i * 20);
    hull->AllocSmoothingGroups();
    for (uint32_t i = 0; i < 3; ++i) hull->smoothingGroups[i] = 1u << i;
    KeyAnimation* hullKeys = NewKeys(KeyFormKeys, 20, 0);
    InsertRotationKey(hullKeys, nullptr, 10, Quaternion{0.5f, 0.5f, 0.5f, 0.5f});
    InsertRotationKey(hullKeys, nullptr, 0, Quaternion{1, 0, 0, 0});
    InsertTranslationKey(hullKeys, nullptr, 0, Vector{1, 2, 3});
    InsertScaleKey(hullKeys, nullptr, 5, Vector{2, 1, 1});
    InsertTranslationKey(hullKeys, nullptr, 20, Vector{-4, 0, 8});
    hull->SetKeyAnimation(hullKeys);

    CMesh* turret = Node(hull, "turret", -1.0f, 0.0f, 4.0f);
    FillVertices(turret, 3, 7.0f);
    FillFaces(turret, 1, 3, {brick});
    SetPacked(turret, NewShape(8, {2, 5}), 6, {-1, -1, 0, 0, 0, 3, 3, 3});  // as keys give
    turret->SetKeyAnimation(NewKeys(KeyFormRecords, 2, 3 * 48));

    CMesh* barrel = Node(turret, "barrel");
    FillVertices(barrel, 7, 3.0f);  // two key frames of 3 and one spare vertex
    VertexAnimation* unpacked = NewShape(5, {0, 3});
    unpacked->frameData = barrel->vertices;
    unpacked->totalVertices = 7;
    for (int f = 0; f < 5; ++f) unpacked->frameTable[f] = barrel->vertices + (f < 3 ? 0 : 3);
    barrel->vertexCount = 3;
    barrel->SetVertexAnimation(unpacked);
    FillFaces(barrel, 2, 3, {grass, grass});
    KeyAnimation* table = NewKeys(KeyFormTable, 3, 4 * 2 + 2 * 48);
    const uint16_t records[4] = {0, 1, 1, 0};
    std::memcpy(table->frameData, records, sizeof records);
    table->distinctCount = 2;
    barrel->SetKeyAnimation(table);

    CMesh* muzzle = Node(barrel, "muzzle");
    FillVertices(muzzle, 2, 9.0f);
    SetPacked(muzzle, NewShape(4, {0, 3}), 4, {0, -1, 2, 2});  // a halfway frame
    KeyAnimation* matrices = NewKeys(KeyFormKeys, 1, 2 * sizeof(Matrix));
    matrices->frameCached = Zeroed<uint8_t>(2);
    matrices->frameCached[0] = matrices->frameCached[1] = 1;
    muzzle->SetKeyAnimation(matrices);

    CMesh* flag = Node(hull, "flag");
    FillVertices(flag, 3, -2.0f);
    FillFaces(flag, 1, 3, {brick});

    CMesh* ground = Node(root, "ground", 0.0f, -1.0f);
    FillVertices(ground, 3, 0.0f);
    FillFaces(ground, 2, 3, {grass, brick});
}

// Every record of a mesh that the file carries, as bytes: pointers as offsets or texture names.
std::string Records(const CMesh* m) {
    std::string out = NameOf(m) + "|";
    auto add = [&](const void* p, size_t size) {
        out += p ? std::string(static_cast<const char*>(p), size) + "|" : "-|";
    };
    Matrix local;
    m->GetLocalMatrix(local);
    add(&local, sizeof local);
    add(m->vertices, size_t(m->vertexCount) * 24);
    for (uint32_t i = 0; i < m->faceCount[0]; ++i) {
        const MeshFace& f = m->faces[0][i];
        add(f.vertex, 12);
        add(f.uv, 24);
        add(&f.flags, 4);
        if (f.texture) out += f.texture->name + std::to_string(f.texture->flags & TextureFlagClamp);
    }
    add(m->colours, size_t(m->vertexCount) * 3);
    out += char(m->meshFlags & MeshFlagVertexColours ? 'C' : 'c');
    add(m->smoothingGroups, m->faceCount[0] * 4u);
    if (const VertexAnimation* v = m->vertexAnimation) {
        bool packed = v->flags & VertexAnimationPacked;
        for (uint32_t n : {v->flags, v->frameCount, v->keyCount, v->totalVertices}) add(&n, 4);
        add(v->keyFrames, v->keyCount * 4u);
        add(v->frameData, v->totalVertices * (packed ? 8u : 24u));
        for (uint32_t f = 0; f < v->frameCount; ++f) {
            const char* at = static_cast<const char*>(v->frameTable[f]);
            out += at ? std::to_string(at - static_cast<const char*>(v->frameData)) : "-";
        }
    }
    if (const KeyAnimation* k = m->keyAnimation) {
        for (uint32_t n : {k->form, k->lastFrame, k->keyCount, uint32_t(k->owner)}) add(&n, 4);
        for (uint32_t i = 0; i < k->keyCount; ++i) {
            add(&k->keys[i].time, 4);
            add(k->keys[i].rotation, sizeof(Quaternion));
            add(k->keys[i].scale, sizeof(Vector));
            add(k->keys[i].translation, sizeof(Vector));
        }
        uint32_t frames = k->lastFrame + 1;
        if (k->form == KeyFormKeys) {
            add(k->frameCached, frames);
            if (k->frameCached) add(k->frameData, frames * sizeof(Matrix));
        } else if (k->form == KeyFormRecords) {
            add(k->frameData, frames * 48);
        } else {
            add(k->frameData, frames * 2 + k->distinctCount * 48);
        }
    }
    return out;
}

void ExpectSameTree(const CEntity& a, const CEntity& b) {
    ASSERT_EQ(ChildCount(a), ChildCount(b)) << NameOf(&a);
    for (const CEntity *p = a.firstChild, *q = b.firstChild; p;
         p = p->nextSibling, q = q->nextSibling) {
        ASSERT_EQ(q->kind, uint32_t(EntityKindMesh));
        EXPECT_EQ(Records(static_cast<const CMesh*>(p)), Records(static_cast<const CMesh*>(q)))
            << NameOf(p);
        ExpectSameTree(*p, *q);
    }
}

}  // namespace

TEST_F(Vbf, WriteThenReadGivesTheSameRecordsAndOrder) {
    CMesh source(nullptr);
    BuildTree(&source, Texture("brick.tga", TextureFlagClamp), Texture("grass.tga"));
    const char data[] = "\x02\x00\x00\xA0\x08\x00\x00\x00\x40\x00\x00\x00\x20\x00\x00\x00";
    ASSERT_TRUE(source.SaveVBF(dir.File("tree.vbf").c_str(), data, sizeof data));

    CMesh loaded(nullptr);
    VBFUserData* userData = loaded.LoadVBFWithData(dir.File("tree.vbf").c_str());
    ASSERT_NE(userData, nullptr);
    EXPECT_EQ(std::string(userData->bytes, userData->bytes + userData->size),
              std::string(data, sizeof data));
    FreeVBFUserData(userData);
    ExpectSameTree(source, loaded);
    ASSERT_FALSE(HasFailure());
    EXPECT_EQ(NameOf(Child(loaded, 0)), "ground");  // the order the source had
    EXPECT_EQ(loaded.vertexCount, 0);               // the loading mesh gets no geometry
    const CMesh* barrel = Child(*Child(*Child(loaded, 1), 1), 0);
    EXPECT_EQ(barrel->keyAnimation->currentFrame, uint32_t(KeyAnimationNoFrame));
    Matrix local;
    barrel->GetLocalMatrix(local);
    EXPECT_EQ(std::memcmp(&barrel->keyAnimation->baseMatrix, &local, sizeof local), 0);

    // Each entry loads once, in the order of first use, and faces share the texture of an entry.
    EXPECT_EQ(LoadedPaths, (std::vector<std::string>{"grass.tga", "brick.tga"}));
    EXPECT_EQ(Child(loaded, 0)->faces[0][0].texture, barrel->faces[0][0].texture);
    EXPECT_EQ(capture.Text().find("VELMORALoadVBF"), std::string::npos) << capture.Text();

    // What was read writes the same bytes again.
    std::vector<uint8_t> first, second;
    ASSERT_TRUE(BuildVBFImage(&source, data, sizeof data, first));
    ASSERT_TRUE(BuildVBFImage(&loaded, data, sizeof data, second));
    EXPECT_EQ(first, second);
}

TEST_F(Vbf, WriterTurnsFixedKeysIntoFloatsAndKeepsOnlyWhatTheFormatHolds) {
    CMesh source(nullptr);
    CMesh* mesh = Node(&source, "fixed");
    FillVertices(mesh, 3, 1.0f);
    FillFaces(mesh, 1, 3, {});
    mesh->AllocFaces(1, 1);  // layer 1 has no place in the file
    KeyAnimation* fixed = NewKeys(KeyFormFixedTable, 1, 2 * 2 + 24);
    const int16_t tableAndRecord[14] = {0, 0, 2048, 0, -1024, 0, 2048, 0, 1, 0, 2048, 256, -128, 3};
    std::memcpy(fixed->frameData, tableAndRecord, sizeof tableAndRecord);
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
    std::vector<uint8_t> image;
    CMesh unnamed(nullptr);
    CMesh* mesh = new CMesh(&unnamed);
    FillVertices(mesh, 3, 0.0f);
    FillFaces(mesh, 1, 3, {Texture(nullptr)});
    EXPECT_FALSE(BuildVBFImage(&unnamed, nullptr, 0, image));

    CMesh halfFrames(nullptr);
    KeyAnimation* keys = NewKeys(KeyFormKeys, 4, 0);
    InsertTranslationKey(keys, nullptr, 1.5f, Vector{1, 1, 1});
    Node(&halfFrames, "keys")->SetKeyAnimation(keys);
    EXPECT_FALSE(BuildVBFImage(&halfFrames, nullptr, 0, image));

    CMesh deep(nullptr);
    CEntity* node = &deep;
    for (int i = 0; i < 257; ++i) node = new CMesh(node);
    EXPECT_FALSE(deep.SaveVBF(dir.File("deep.vbf").c_str(), nullptr, 0));
    EXPECT_FALSE(std::ifstream(dir.File("deep.vbf")).good());  // nothing written
    std::string log = capture.Text();
    for (const char* fault : {"texture without a name", "deeper than 256", "not a frame number"})
        EXPECT_NE(log.find(fault), std::string::npos) << fault << "\n" << log;
}

TEST_F(Vbf, ChildrenComeBetweenHeaderAndPayloadAndListsStandNewestFirst) {
    VbfBytes file = Plain();
    file.Object(1, 0, 0, 2, "a", 1.0);
    file.Object(1, 0, 0, 0, "a1").Vertex(11);
    file.Object(1, 0, 0, 0, "a2").Vertex(12);
    file.Vertex(10);  // a's own payload, after its descendants
    file.Object(1, 0, 0, 0, "b").Vertex(20).End();
    file.bytes += "trailing bytes are never read";

    CMesh root(nullptr);
    CMesh* old = new CMesh(&root);
    ASSERT_TRUE(Load(root, file));
    ASSERT_EQ(ChildCount(root), 3);
    CMesh* a = Child(root, 1);
    EXPECT_EQ(Child(root, 2), old);
    EXPECT_EQ(a->position.x, 1.0f);
    const CMesh* meshes[4] = {Child(root, 0), a, Child(*a, 0), Child(*a, 1)};
    const char* names[4] = {"b", "a", "a2", "a1"};
    const float payloads[4] = {20, 10, 12, 11};
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(NameOf(meshes[i]), names[i]);
        EXPECT_EQ(meshes[i]->vertices[0].position.x, payloads[i]) << names[i];
    }

    CMesh empty(nullptr);
    EXPECT_TRUE(Load(empty, Plain().End(), "empty.vbf"));
    EXPECT_EQ(empty.firstChild, nullptr);
}

TEST_F(Vbf, TextureEntriesLoadOncePerEntryAndFacesResolveToThem) {
    VbfBytes block;
    block.Text("stone.tga").bytes.push_back(char(VBFTextureSecondName | VBFTextureClamp));
    block.Text("stone_detail.tga");  // skipped, never looked up
    block.Text("water.tga").bytes.push_back(0);
    VbfBytes file;
    file.U32({0, uint32_t(block.bytes.size())}).bytes += block.bytes;
    file.Object(3, 0, 4, 0, "pond").Vertex(0).Vertex(1).Vertex(2);
    file.Face(0, 1, 2, 1).Face(0, 1, 2, 0).Face(2, 1, 0, VBFNoTexture).Face(0, 2, 1, 1).End();

    CMesh root(nullptr);
    ASSERT_TRUE(Load(root, file, "pond.vbf"));
    EXPECT_EQ(LoadedPaths, (std::vector<std::string>{"stone.tga", "water.tga"}));
    EXPECT_EQ(std::string(MeshFolder), dir.Path() + "/");
    MeshFace* faces = Child(root, 0)->faces[0];
    ASSERT_NE(faces[1].texture, nullptr);
    EXPECT_STREQ(faces[1].texture->name, "stone.tga");
    EXPECT_EQ(faces[1].texture->flags & TextureFlagClamp, uint32_t(TextureFlagClamp));
    EXPECT_STREQ(faces[0].texture->name, "water.tga");
    EXPECT_EQ(faces[0].texture->flags & TextureFlagClamp, 0u);
    EXPECT_EQ(faces[0].texture, faces[3].texture);
    EXPECT_EQ(faces[2].texture, nullptr);
    EXPECT_EQ(faces[3].vertex[1], 2u);
    EXPECT_EQ(faces[3].uv[5], 1.25f);
}

TEST_F(Vbf, UserDataIsHandedOverOnlyWhenThereIsSome) {
    VbfBytes map;
    map.U32({1, 16, 0xA0000002, 8, 64, 32, 0}).End();
    WriteWholeFile(dir.File("map.vbf"), map.bytes);
    CMesh root(nullptr);
    VBFUserData* data = root.LoadVBFWithData(dir.File("map.vbf").c_str());
    ASSERT_NE(data, nullptr);
    EXPECT_EQ(std::string(data->bytes, data->bytes + data->size), map.bytes.substr(8, 16));
    FreeVBFUserData(data);
    EXPECT_TRUE(root.LoadVBF(dir.File("map.vbf").c_str()));  // the same file, data dropped

    VbfBytes none;
    WriteWholeFile(dir.File("none.vbf"), none.U32({1, 0, 0}).End().bytes);
    EXPECT_EQ(root.LoadVBFWithData(dir.File("none.vbf").c_str()), nullptr);
    EXPECT_EQ(capture.Text().find("LOG:"), std::string::npos) << capture.Text();
}

TEST_F(Vbf, VertexAnimationNeedsTwoKeysAndCutsUnpackedFrames) {
    VbfBytes file = Plain();
    file.Object(6, VBFSectionVertexAnimation, 0, 0, "still");
    for (int i = 0; i < 6; ++i) file.Vertex(float(i));
    file.U32({10, 0, 1, 0});  // one key: no animation
    file.Object(300, VBFSectionVertexAnimation, 0, 0, "moving");
    for (int i = 0; i < 300; ++i) file.Vertex(float(i));
    file.U32({6, 0, 3, 1, 2, 4});
    file.Object(2, VBFSectionVertexAnimation, 0, 0, "packed").Vertex(0).Vertex(1);
    file.U32({4, 0xFFFFFFFF, 2, 1, 3, 4, 4});  // 4 fraction bits, 4 records, no table
    for (int i = 0; i < 16; ++i) file.bytes += std::string("\x10\x00", 2);
    file.End();

    CMesh root(nullptr);
    ASSERT_TRUE(Load(root, file));
    EXPECT_EQ(Child(root, 2)->vertexAnimation, nullptr);
    EXPECT_EQ(Child(root, 2)->vertexCount, 6);

    CMesh* moving = Child(root, 1);
    const VertexAnimation* shape = moving->vertexAnimation;
    ASSERT_NE(shape, nullptr);
    EXPECT_EQ(moving->vertexCount, 100);
    EXPECT_EQ(shape->totalVertices, 300u);
    MeshVertex* base = static_cast<MeshVertex*>(shape->frameData);
    const MeshVertex* table[6] = {nullptr, base, base + 100, base + 100, base + 200, base + 200};
    for (int f = 0; f < 6; ++f) EXPECT_EQ(shape->frameTable[f], table[f]) << f;  // 0: before a key

    const VertexAnimation* packed = Child(root, 0)->vertexAnimation;
    ASSERT_NE(packed, nullptr);
    EXPECT_EQ(Child(root, 0)->vertexCount, 2);
    EXPECT_EQ(packed->flags, VertexAnimationOwnsArrays | VertexAnimationPacked | 4u << 24);
    EXPECT_EQ(packed->totalVertices, 4u);
    const uint8_t* data = static_cast<const uint8_t*>(packed->frameData);
    EXPECT_EQ(std::tie(packed->frameTable[0], packed->frameTable[2], packed->frameTable[3]),
              std::make_tuple(nullptr, data, data + 16));
}

TEST_F(Vbf, KeyRecordsMergeByFrameAndAnEmptyListLeavesNoAnimation) {
    Quaternion q{0.5f, 0.1f, 0.2f, 0.3f};
    VbfBytes file = Plain();
    file.Object(0, VBFSectionKeyAnimation, 0, 0, "none").U32({9, 0});
    file.Object(0, VBFSectionKeyAnimation, 0, 0, "keys", 7.0).U32({9, 4});
    file.U32({9 | VBFKeyTranslation}).F32(9).F32(9).F32(9);
    file.U32({5 | VBFKeyRotation}).F32(q.x).F32(q.y).F32(q.z).F32(q.s);
    file.U32({5 | VBFKeyTranslation}).F32(1).F32(2).F32(3);
    file.U32({2 | VBFKeyScale | VBFKeyTranslation}).F32(2).F32(2).F32(2).F32(0).F32(0).F32(0);
    file.End();

    CMesh root(nullptr);
    ASSERT_TRUE(Load(root, file));
    EXPECT_EQ(Child(root, 1)->keyAnimation, nullptr);
    EXPECT_EQ(Child(root, 1)->features & MeshFeatureKeyAnimation, 0);
    const KeyAnimation* keys = Child(root, 0)->keyAnimation;
    ASSERT_NE(keys, nullptr);
    ASSERT_EQ(keys->keyCount, 3u);
    EXPECT_EQ(std::tie(keys->keys[0].time, keys->keys[1].time, keys->keys[2].time),
              std::make_tuple(2.0f, 5.0f, 9.0f));
    const AnimationKey& five = keys->keys[1];
    ASSERT_NE(five.rotation, nullptr);
    ASSERT_NE(five.translation, nullptr);
    EXPECT_EQ(five.scale, nullptr);
    EXPECT_EQ(std::memcmp(five.rotation, &q, sizeof q), 0);  // s first in memory
    EXPECT_EQ(five.translation->z, 3.0f);
    EXPECT_EQ(keys->baseMatrix[12], 7.0f);
    EXPECT_EQ(keys->lastFrame, 9u);
}

TEST_F(Vbf, LongNamesAreCutWithAWarning) {
    std::string name(300, 'n');
    name[254] = 'E';
    CMesh root(nullptr);
    ASSERT_TRUE(Load(root, Plain().Object(1, 0, 0, 0, name).Vertex(5).End()));
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
