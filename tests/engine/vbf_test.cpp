#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstring>
#include <string>
#include <tuple>
#include <vector>

#include "base/memory.h"
#include "base/velmora_log.h"
#include "engine/mesh/mesh.h"
#include "engine/mesh/mesh_animation.h"
#include "engine/mesh/vbf_reader.h"
#include "engine/mesh/vbf_writer.h"
#include "engine/texture/texture.h"
#include "engine/texture/texture_lookup.h"
#include "platform/debug/debug_output.h"
#include "tests/support/temp_dir.h"

namespace {

constexpr size_t npos = std::string::npos;

// Hand-made VBF bytes, for the layouts the writer never makes and for damage.
struct Vbf {
    std::string bytes;

    Vbf& U32(std::initializer_list<uint32_t> values) {
        for (uint32_t v : values)
            for (int i = 0; i < 4; ++i) bytes.push_back(char(v >> (8 * i)));
        return *this;
    }
    Vbf& F32(float v) { return U32({std::bit_cast<uint32_t>(v)}); }
    Vbf& Raw(const std::string& text) { return bytes += text, *this; }
    Vbf& Zeros(size_t count) { return Raw(std::string(count, '\0')); }
    // An object header with the identity matrix moved by x; nameLength < 0: the name's own.
    Vbf& Object(int32_t vertexCount, uint32_t sections, uint32_t faceCount, uint32_t children,
                const std::string& name, double x = 0.0, int64_t nameLength = -1) {
        U32({uint32_t(vertexCount), sections, faceCount, children});
        for (int i = 0; i < 16; ++i) {
            double value = i == 12 ? x : (i % 5 == 0 ? 1.0 : 0.0);
            bytes.append(reinterpret_cast<const char*>(&value), 8);
        }
        return U32({uint32_t(nameLength < 0 ? name.size() : size_t(nameLength))}).Raw(name);
    }
    Vbf& Vertex(float x) { return F32(x).F32(0).F32(0).F32(0).F32(1).F32(0); }
    Vbf& Face(uint32_t a, uint32_t b, uint32_t c, uint32_t texture) {
        U32({a, b, c, texture, 0});
        for (int i = 0; i < 6; ++i) F32(0.25f * float(i));
        return *this;
    }
    Vbf& End() { return U32({0xFFFFFFFF}); }
};

const auto Plain = [] { return Vbf().U32({0, 0}); };  // header kind 0, no textures

std::vector<std::string> LoadedPaths;
std::vector<CTexture*> LoadedTextures;

CTexture* RecordingLoader(const char* path) {
    LoadedPaths.emplace_back(path);
    return LoadedTextures.emplace_back(CreateTexture(2, 2, 0x8888));
}

std::vector<CMesh*> Kids(const CEntity& node) {
    std::vector<CMesh*> kids;
    for (CEntity* c = node.firstChild; c; c = c->nextSibling)
        kids.push_back(static_cast<CMesh*>(c));
    return kids;
}

const auto NameOf = [](const CEntity* node) { return std::string(node->name ? node->name : ""); };

template <typename T>
T* Zeroed(size_t count = 1) {
    auto* block = static_cast<T*>(MALLOC(count * sizeof(T)));
    std::memset(static_cast<void*>(block), 0, count * sizeof(T));
    return block;
}

// A mesh of numbered vertices, and faces with the given textures over the first three.
CMesh* Node(CEntity* parent, const char* name, int32_t vertices, float seed,
            std::vector<CTexture*> textures = {}, float angle = 0, float x = 0, float y = 0) {
    CMesh* mesh = new CMesh(parent);
    mesh->SetName(name);
    mesh->SetOrientation(Vector{std::sin(angle), 0.0f, std::cos(angle)}, Vector{0, 1, 0});
    mesh->SetPosition(x, y, x * 0.5f);
    mesh->AllocVertices(vertices);
    for (int32_t i = 0; i < vertices; ++i)
        mesh->vertices[i] = MeshVertex{{seed + float(i), -seed * 0.5f, float(i) * 0.125f},
                                       {0.0f, float(i % 2), float((i + 1) % 2)}};
    if (textures.size()) mesh->AllocFaces(uint32_t(textures.size()), 0);
    for (uint32_t i = 0; i < textures.size(); ++i) {
        MeshFace& face = mesh->faces[0][i];
        for (uint32_t c = 0; c < 3; ++c) face.vertex[c] = (i + c) % 3;
        face.texture = textures[i];
        face.flags = 0x1000u * (i % 2) + i;
        for (int k = 0; k < 6; ++k) face.uv[k] = float(i) + 0.1f * float(k);
    }
    return mesh;
}

// A vertex animation over the mesh's vertices, or over `records` packed 8-byte records; table
// entries are vertex or record numbers, -1 for null.
void Animate(CMesh* mesh, std::vector<uint32_t> keys, std::vector<int> table, uint32_t records) {
    auto* shape = Zeroed<VertexAnimation>();
    shape->flags = VertexAnimationOwnsArrays;
    shape->frameCount = uint32_t(table.size()), shape->keyCount = uint32_t(keys.size());
    shape->keyFrames = Zeroed<uint32_t>(keys.size());
    std::memcpy(shape->keyFrames, keys.data(), keys.size() * 4);
    shape->frameTable = Zeroed<void*>(table.size());
    shape->totalVertices = records ? records : uint32_t(mesh->vertexCount);
    auto* data = reinterpret_cast<char*>(mesh->vertices);
    if (records) {
        auto* packed = Zeroed<int16_t>(records * 4);
        for (uint32_t i = 0; i < records * 4; ++i) packed[i] = int16_t(i * 37 - 200);
        shape->flags |= VertexAnimationPacked | 8u << VertexAnimationFractionShift;
        data = reinterpret_cast<char*>(packed);
    }
    shape->frameData = data;
    for (size_t f = 0; f < table.size(); ++f)
        shape->frameTable[f] = table[f] < 0 ? nullptr : data + (records ? 8 : 24) * table[f];
    mesh->SetVertexAnimation(shape);
}

KeyAnimation* NewKeys(uint32_t form, uint32_t lastFrame, size_t dataBytes) {
    auto* keys = Zeroed<KeyAnimation>();
    keys->form = form, keys->lastFrame = lastFrame, keys->owner = 1;
    keys->currentFrame = KeyAnimationNoFrame;
    auto* bytes = dataBytes ? Zeroed<uint8_t>(dataBytes) : nullptr;
    for (size_t i = 0; i < dataBytes; ++i) bytes[i] = uint8_t(i * 13);
    keys->frameData = bytes;
    return keys;
}

// Children, grandchildren and a great-grandchild, with every section the format carries.
void BuildTree(CMesh* root, CTexture* brick, CTexture* grass) {
    CMesh* hull = Node(root, "hull", 4, 1.0f, {brick, nullptr, grass}, 0.5f, 1.0f, 2.0f);
    hull->AllocColours(4), hull->AllocSmoothingGroups();
    hull->meshFlags |= MeshFlagVertexColours;
    for (int i = 0; i < 12; ++i) hull->colours[i] = uint8_t(i * 20);
    for (uint32_t i = 0; i < 3; ++i) hull->smoothingGroups[i] = 1u << i;
    KeyAnimation* hullKeys = NewKeys(KeyFormKeys, 20, 0);
    InsertRotationKey(hullKeys, nullptr, 10, Quaternion{0.5f, 0.5f, 0.5f, 0.5f});
    InsertRotationKey(hullKeys, nullptr, 0, Quaternion{1, 0, 0, 0});
    InsertTranslationKey(hullKeys, nullptr, 0, Vector{1, 2, 3});
    InsertScaleKey(hullKeys, nullptr, 5, Vector{2, 1, 1});
    InsertTranslationKey(hullKeys, nullptr, 20, Vector{-4, 0, 8});
    hull->SetKeyAnimation(hullKeys);

    CMesh* turret = Node(hull, "turret", 3, 7.0f, {brick}, -1.0f, 0.0f, 4.0f);
    Animate(turret, {2, 5}, {-1, -1, 0, 0, 0, 3, 3, 3}, 6);  // as the keys give
    turret->SetKeyAnimation(NewKeys(KeyFormRecords, 2, 3 * 48));
    CMesh* barrel = Node(turret, "barrel", 7, 3.0f, {grass, grass});  // 2 frames of 3, 1 spare
    Animate(barrel, {0, 3}, {0, 0, 0, 3, 3}, 0);
    barrel->vertexCount = 3;
    KeyAnimation* table = NewKeys(KeyFormTable, 3, 4 * 2 + 2 * 48);
    const uint16_t records[4] = {0, 1, 1, 0};
    std::memcpy(table->frameData, records, sizeof records);
    table->distinctCount = 2, barrel->SetKeyAnimation(table);
    CMesh* muzzle = Node(barrel, "muzzle", 2, 9.0f);
    Animate(muzzle, {0, 3}, {0, -1, 2, 2}, 4);  // a halfway frame
    KeyAnimation* matrices = NewKeys(KeyFormKeys, 1, 2 * sizeof(Matrix));
    matrices->frameCached = Zeroed<uint8_t>(2);
    matrices->frameCached[0] = matrices->frameCached[1] = 1;
    muzzle->SetKeyAnimation(matrices);
    Node(hull, "flag", 3, -2.0f, {brick});
    Node(root, "ground", 3, 0.0f, {grass, brick}, 0.0f, -1.0f);
}

Vbf Nested(int depth) {  // each object holds the next, the innermost holds none
    Vbf file = Plain();
    for (int level = 1; level <= depth; ++level) file.Object(0, 0, 0, level < depth, "n");
    return file.End();
}

class VbfTest : public testing::Test {
protected:
    void SetUp() override {
        VelmoraLogBeginRun();
        LoadedPaths.clear();
        LoadedTextures.clear();
        SetTextureLoadFunction(RecordingLoader);
        keep = new CMesh(&root);
    }
    void TearDown() override {
        SetTextureLoadFunction(nullptr);
        for (CTexture* texture : LoadedTextures) FreeTexture(texture);
        for (CTexture* texture : made) FreeTexture(texture);
    }
    bool Unchanged() const { return root.firstChild == keep && !keep->nextSibling; }
    bool Load(const Vbf& file, const char* name = "model.vbf") {
        WriteWholeFile(dir.File(name), file.bytes);
        return root.LoadVBF(dir.File(name).c_str());
    }
    void Tree(CMesh* source) {
        BuildTree(source, Texture("brick.tga", TextureFlagClamp), Texture("grass.tga"));
    }
    CTexture* Texture(const char* name, uint32_t flags = 0) {
        CTexture* texture = made.emplace_back(CreateTexture(2, 2, 0x8888));
        texture->SetName(name);
        texture->flags |= flags;
        return texture;
    }

    TempDir dir;
    DebugCapture capture;
    std::vector<CTexture*> made;
    CMesh root{nullptr};
    CMesh* keep = nullptr;  // what the loading tree held before
};

}  // namespace

// Every prefix of a written file is refused: every section of the tree is cut somewhere.
TEST_F(VbfTest, WriteThenReadGivesTheSameRecordsAndOrderAndEveryCutIsRefused) {
    CMesh source(nullptr), loaded(nullptr);
    Tree(&source);
    const char data[] = "\x02\x00\x00\xA0\x08\x00\x00\x00\x40\x00\x00\x00\x20\x00\x00\x00";
    ASSERT_TRUE(source.SaveVBF(dir.File("tree.vbf").c_str(), data, sizeof data));
    VBFUserData* userData = loaded.LoadVBFWithData(dir.File("tree.vbf").c_str());
    ASSERT_NE(userData, nullptr);
    EXPECT_EQ(std::string(userData->bytes, userData->bytes + userData->size),
              std::string(data, sizeof data));
    FreeVBFUserData(userData);
    EXPECT_EQ(NameOf(Kids(loaded)[0]), "ground");  // the order the source had
    EXPECT_EQ(loaded.vertexCount, 0);              // the loading mesh gets no geometry
    const CMesh* barrel = Kids(*Kids(*Kids(loaded)[1])[1])[0];
    EXPECT_EQ(barrel->keyAnimation->currentFrame, uint32_t(KeyAnimationNoFrame));
    Matrix local;
    barrel->GetLocalMatrix(local);
    EXPECT_EQ(std::memcmp(&barrel->keyAnimation->baseMatrix, &local, sizeof local), 0);
    // Each entry loads once, in the order of first use, and faces share the texture of an entry.
    EXPECT_EQ(LoadedPaths, (std::vector<std::string>{"grass.tga", "brick.tga"}));
    EXPECT_EQ(Kids(loaded)[0]->faces[0][0].texture, barrel->faces[0][0].texture);
    EXPECT_EQ(capture.Text().find("VELMORALoadVBF"), npos) << capture.Text();

    std::vector<uint8_t> image, again;  // what was read writes the same bytes again
    ASSERT_TRUE(BuildVBFImage(&source, data, sizeof data, image));
    ASSERT_TRUE(BuildVBFImage(&loaded, data, sizeof data, again));
    EXPECT_EQ(image, again);
    // What a writer could leave out and its reader then miss again.
    const CMesh* hull = Kids(loaded)[1];
    ASSERT_TRUE(hull->colours && hull->smoothingGroups && Kids(*hull)[1]->vertexAnimation &&
                barrel->vertexAnimation);
    EXPECT_EQ(std::make_tuple(hull->colours[11], hull->smoothingGroups[2],
                              Kids(loaded)[0]->faces[0][1].texture->flags & TextureFlagClamp),
              std::make_tuple(220, 4u, uint32_t(TextureFlagClamp)));
    EXPECT_TRUE(loaded.LoadVBF(dir.File("tree.vbf").c_str()));  // user data dropped
    WriteWholeFile(dir.File("none.vbf"), Vbf().U32({1, 0, 0}).End().bytes);
    EXPECT_EQ(loaded.LoadVBFWithData(dir.File("none.vbf").c_str()), nullptr);  // none in it

    LoadedPaths.clear();
    for (size_t size = 0; size < image.size(); ++size) {
        capture.Clear();
        // A block of exactly the prefix's size: a read past it is a sanitizer report.
        std::vector<uint8_t> prefix(image.begin(), image.begin() + long(size));
        ASSERT_FALSE(VELMORALoadVBF(&root, prefix.data(), size, "cut.vbf", &userData)) << size;
        EXPECT_EQ(userData, nullptr);
        ASSERT_NE(capture.Text().find("LOG: (VELMORALoadVBF) Corrupt VBF cut.vbf at byte "), npos)
            << size << ": " << capture.Text();
        ASSERT_TRUE(Unchanged()) << size;
    }
    EXPECT_TRUE(LoadedPaths.empty());
    EXPECT_TRUE(VELMORALoadVBF(&root, image.data(), image.size(), "whole.vbf", nullptr));
    EXPECT_EQ(Kids(root).size(), 3u);
}

TEST_F(VbfTest, WriterLeavesOutWhatTheFormatCannotHoldAndRefusesWhatTheReaderWouldNotTake) {
    CMesh source(nullptr), loaded(nullptr);
    Node(&source, "layers", 3, 1.0f, {nullptr})->AllocFaces(1, 1);  // layer 1 has no place
    new CFrame(&source);                                            // a plain frame: an empty mesh
    ASSERT_TRUE(source.SaveVBF(dir.File("plain.vbf").c_str(), nullptr, 0));
    EXPECT_EQ(loaded.LoadVBFWithData(dir.File("plain.vbf").c_str()), nullptr);  // header kind 0
    ASSERT_EQ(Kids(loaded).size(), 2u);
    EXPECT_EQ(Kids(loaded)[0]->vertexCount, 0);
    EXPECT_EQ(Kids(loaded)[1]->faceCount[0] * 10 + Kids(loaded)[1]->faceCount[1], 10u);

    std::vector<uint8_t> image;
    CMesh unnamed(nullptr), halfFrames(nullptr), deep(nullptr);
    Node(&unnamed, "u", 3, 0.0f, {Texture(nullptr)});
    EXPECT_FALSE(BuildVBFImage(&unnamed, nullptr, 0, image));
    KeyAnimation* half = NewKeys(KeyFormKeys, 4, 0);
    InsertTranslationKey(half, nullptr, 1.5f, Vector{1, 1, 1});
    Node(&halfFrames, "keys", 0, 0.0f)->SetKeyAnimation(half);
    EXPECT_FALSE(BuildVBFImage(&halfFrames, nullptr, 0, image));
    CEntity* node = &deep;
    for (int i = 0; i < 257; ++i) node = new CMesh(node);
    EXPECT_FALSE(deep.SaveVBF(dir.File("deep.vbf").c_str(), nullptr, 0));
    EXPECT_EQ(ReadWholeFile(dir.File("deep.vbf")), "");  // nothing written
    for (const char* fault : {"texture without a name", "deeper than 256", "not a frame number"})
        EXPECT_NE(capture.Text().find(fault), npos) << fault;
}

TEST_F(VbfTest, ChildrenComeBetweenHeaderAndPayloadAndListsStandNewestFirst) {
    std::string longName(300, 'n');
    longName[254] = 'E';
    Vbf file = Plain().Object(1, 0, 0, 2, "a", 1.0).Object(1, 0, 0, 0, "a1").Vertex(11);
    file.Object(1, 0, 0, 0, longName).Vertex(12);  // cut with a warning, the rest read past
    file.Vertex(10);                               // a's own payload, after its descendants
    file.Object(1, 0, 0, 0, "b").Vertex(20).End().Raw("trailing bytes are never read");
    ASSERT_TRUE(Load(file));
    std::vector<CMesh*> top = Kids(root);
    ASSERT_EQ(top.size(), 3u);
    EXPECT_EQ(std::tie(top[2], top[1]->position.x), std::make_tuple(keep, 1.0f));
    const CMesh* meshes[4] = {top[0], top[1], Kids(*top[1])[0], Kids(*top[1])[1]};
    const std::string names[4] = {"b", "a", longName.substr(0, 255), "a1"};
    const float payloads[4] = {20, 10, 12, 11};
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(NameOf(meshes[i]), names[i]);
        EXPECT_EQ(meshes[i]->vertices[0].position.x, payloads[i]) << names[i];
    }
    EXPECT_NE(capture.Text().find("Name in VBF too long - truncated..."), npos);
    capture.Clear();
    EXPECT_TRUE(Load(Plain().Object(1, 0, 0, 0, std::string(255, 's')).Vertex(1).End()));
    EXPECT_EQ(capture.Text().find("too long"), npos);  // 255 fits
    Vbf coloured = Plain().Object(5, VBFSectionColours, 0, 0, "c").Zeros(120);
    EXPECT_TRUE(Load(coloured.Raw("0123456789abcde").End()));  // colours right before the end
    const CMesh* c = Kids(root)[0];
    EXPECT_EQ(std::string(reinterpret_cast<char*>(c->colours), 15), "0123456789abcde");
    EXPECT_EQ(c->meshFlags & MeshFlagVertexColours, uint32_t(MeshFlagVertexColours));
    EXPECT_TRUE(Load(Plain().Object(0, VBFSectionColours, 0, 0, "bare").End()));  // none to flag
    EXPECT_EQ(Kids(root)[0]->meshFlags & MeshFlagVertexColours, 0u);
    EXPECT_TRUE(Load(Plain().End()));
    EXPECT_EQ(Kids(root).size(), 6u);
}

TEST_F(VbfTest, TextureEntriesLoadOncePerEntryAndFacesResolveToThem) {
    std::string block("stone.tga\0\3stone_detail.tga\0water.tga\0\0", 39);  // second name skipped
    Vbf file = Vbf().U32({0, uint32_t(block.size())}).Raw(block);
    file.Object(3, 0, 4, 0, "pond").Vertex(0).Vertex(1).Vertex(2);
    file.Face(0, 1, 2, 1).Face(0, 1, 2, 0).Face(2, 1, 0, VBFNoTexture).Face(0, 2, 1, 1).End();
    ASSERT_TRUE(Load(file, "pond.vbf"));
    EXPECT_EQ(LoadedPaths, (std::vector<std::string>{"stone.tga", "water.tga"}));
    EXPECT_EQ(std::string(MeshFolder), dir.Path() + "/");
    MeshFace* faces = Kids(root)[0]->faces[0];
    ASSERT_TRUE(faces[0].texture && faces[1].texture);
    EXPECT_EQ(faces[1].texture->name + std::to_string(faces[1].texture->flags & TextureFlagClamp),
              "stone.tga" + std::to_string(TextureFlagClamp));
    EXPECT_EQ(faces[0].texture->name + std::to_string(faces[0].texture->flags & TextureFlagClamp),
              "water.tga0");
    EXPECT_EQ(
        std::make_tuple(faces[0].texture, faces[2].texture, faces[3].vertex[1], faces[3].uv[5]),
        std::make_tuple(faces[3].texture, nullptr, 2u, 1.25f));
}

// Vertex animations need two keys, and an unpacked one cuts the vertices into frames; key records
// merge by frame, and an empty list leaves no animation.
TEST_F(VbfTest, AnimationsOfHandMadeLayouts) {
    const uint32_t VA = VBFSectionVertexAnimation, KA = VBFSectionKeyAnimation;
    Vbf file = Plain().Object(6, VA, 0, 0, "still");
    for (int i = 0; i < 6; ++i) file.Vertex(float(i));
    file.U32({10, 0, 1, 0}).Object(300, VA, 0, 0, "moving");  // one key: no animation
    for (int i = 0; i < 300; ++i) file.Vertex(float(i));
    file.U32({6, 0, 3, 1, 2, 4}).Object(2, VA, 0, 0, "packed").Vertex(0).Vertex(1);
    file.U32({4, 0xFFFFFFFF, 2, 1, 3, 4, 4});  // 4 fraction bits, 4 records, no table
    for (int i = 0; i < 16; ++i) file.Raw(std::string("\x10\x00", 2));
    Quaternion q{0.5f, 0.1f, 0.2f, 0.3f};
    file.Object(0, KA, 0, 0, "none").U32({9, 0}).Object(0, KA, 0, 0, "keys", 7.0).U32({9, 4});
    file.U32({9 | VBFKeyTranslation}).F32(9).F32(9).F32(9);
    file.U32({5 | VBFKeyRotation}).F32(q.x).F32(q.y).F32(q.z).F32(q.s);
    file.U32({5 | VBFKeyTranslation}).F32(1).F32(2).F32(3);
    file.U32({2 | VBFKeyScale | VBFKeyTranslation}).F32(2).F32(2).F32(2).F32(0).F32(0).F32(0);
    ASSERT_TRUE(Load(file.End()));
    std::vector<CMesh*> kids = Kids(root);
    EXPECT_EQ(std::tie(kids[4]->vertexAnimation, kids[4]->vertexCount),
              std::make_tuple(nullptr, 6));
    const VertexAnimation* shape = kids[3]->vertexAnimation;
    ASSERT_NE(shape, nullptr);
    EXPECT_EQ(kids[3]->vertexCount * 1000 + int(shape->totalVertices), 100300);
    MeshVertex* base = static_cast<MeshVertex*>(shape->frameData);
    const MeshVertex* table[6] = {nullptr, base, base + 100, base + 100, base + 200, base + 200};
    for (int f = 0; f < 6; ++f) EXPECT_EQ(shape->frameTable[f], table[f]) << f;  // 0: before a key
    const VertexAnimation* packed = kids[2]->vertexAnimation;
    ASSERT_NE(packed, nullptr);
    EXPECT_EQ(kids[2]->vertexCount * 10 + int(packed->totalVertices), 24);
    EXPECT_EQ(packed->flags, VertexAnimationOwnsArrays | VertexAnimationPacked | 4u << 24);
    const uint8_t* data = static_cast<const uint8_t*>(packed->frameData);
    EXPECT_EQ(std::tie(packed->frameTable[0], packed->frameTable[2], packed->frameTable[3]),
              std::make_tuple(nullptr, data, data + 16));

    EXPECT_EQ(std::make_tuple(kids[1]->keyAnimation, kids[1]->features & MeshFeatureKeyAnimation),
              std::make_tuple(nullptr, 0));
    const KeyAnimation* keys = kids[0]->keyAnimation;
    ASSERT_NE(keys, nullptr);
    ASSERT_EQ(keys->keyCount, 3u);
    EXPECT_EQ(std::tie(keys->keys[0].time, keys->keys[1].time, keys->keys[2].time),
              std::make_tuple(2.0f, 5.0f, 9.0f));
    const AnimationKey& five = keys->keys[1];
    ASSERT_TRUE(five.rotation && five.translation);
    EXPECT_EQ(five.scale, nullptr);
    EXPECT_EQ(std::memcmp(five.rotation, &q, sizeof q), 0);  // s first in memory
    EXPECT_EQ(five.translation->z, 3.0f);
    EXPECT_EQ(keys->baseMatrix[12] * 100 + float(keys->lastFrame), 709.0f);
}

// Each damage is refused with a line naming the file and the fault, before anything is
// allocated for a count it claims, and leaves the loading tree as it was.
TEST_F(VbfTest, EachDamageIsRefusedWithItsOwnLineAndTheTreeUnchanged) {
    const uint32_t VA = VBFSectionVertexAnimation, KA = VBFSectionKeyAnimation;
    // Two key frames of 2 vertices, then the packing header.
    Vbf packed = Plain().Object(2, VA, 0, 0, "p").Zeros(48).U32({4, 0xFFFFFFFF, 2, 0, 1});
    // Two key frames of 3 vertices: an index fits the stored 6 but not one frame.
    Vbf anim = Plain().Object(6, VA, 1, 0, "anim").Zeros(144).Face(0, 1, 4, ~0u);
    Vbf textured = Vbf().U32({0, 7}).Raw(std::string("a.tga\0\0", 7)).Object(3, 0, 1, 0, "t");
    auto keyed = [&](const char* name) { return Plain().Object(0, KA, 0, 0, name); };
    auto shaped = [&](const char* name) { return Plain().Object(2, VA, 0, 0, name).Zeros(48); };
    // A child's bytes pass the parent's header checks; then the parent's payload runs out.
    auto parent = [&](int32_t vertices, uint32_t sections, uint32_t faces, const char* name) {
        return Plain().Object(vertices, sections, faces, 1, name).Object(0, 0, 0, 0, "w");
    };
    Vbf many = shaped("x").U32({1u << 19, 0, 2, 0, 1}).Object(2, VA, 0, 0, "y").Zeros(48);
    many.U32({(1u << 19) + 1, 0, 2, 0, 1}).End();  // frame tables together above one's limit
    // What the log line must say, and the file.
    const std::pair<const char*, Vbf> cases[] = {
        {"the file ends before its header", Vbf().Raw("\1")},
        {"the file ends before its user data size", Vbf().U32({1})},
        {"user data of 4294967280 bytes", Vbf().U32({1, 0xFFFFFFF0})},
        {"user data of 5 bytes, 4 are left", Vbf().U32({1, 5, 0})},
        {"the file ends before its texture block", Vbf().U32({0})},
        {"texture block of 1000 bytes", Vbf().U32({0, 1000}).End()},
        {"texture entry 0 runs past", Vbf().U32({0, 3}).Raw("abc").End()},
        {"texture entry 1 runs past", Vbf().U32({0, 9}).Raw(std::string("a.tga\0\0b\0", 9)).End()},
        {"ends before the end mark", Plain()},
        {"the file ends inside an object header", Plain().U32({1, 0, 0, 0})},
        {"\"huge\" has 2147483647 vertices", Plain().Object(0x7FFFFFFF, 0, 0, 0, "huge").End()},
        {"\"c\" has 2 vertices, 52 bytes", Plain().Object(2, 1, 0, 0, "c").Zeros(48).End()},
        {"\"many\" has 4026531840 faces", Plain().Object(0, 0, 0xF0000000, 0, "many").End()},
        {"\"s\" has 1 faces, 44 bytes", Plain().Object(0, 2, 1, 0, "s").Face(0, 0, 0, 0)},
        {"\"crowd\" has 1073741824 children", Plain().Object(0, 0, 0, 1u << 30, "crowd").End()},
        {"\"kids\" has 2 children, 4 bytes", Plain().Object(0, 0, 0, 2, "kids").End()},
        {"name length 4294967295", Plain().Object(1, 0, 0, 0, "", 0, 0xFFFFFFFF).End()},
        {"name length 2147483648", Plain().Object(1, 0, 0, 0, "", 0, 0x80000000).End()},
        {"the vertices of \"v\" run past", parent(1, 0, 0, "v").Zeros(20)},
        {"the faces of \"fc\" run past", parent(0, 0, 1, "fc").Zeros(40)},
        {"the colours of \"col\" run past", parent(1, 1, 0, "col").Zeros(26)},
        {"the smoothing groups of \"sg\" run past",
         parent(0, 2, 1, "sg").Face(0, 0, 0, ~0u).Zeros(3)},
        {"face 1 of \"tri\" uses vertex 3, the object has 3",
         Plain().Object(3, 0, 2, 0, "tri").Zeros(72).Face(0, 1, 2, ~0u).Face(0, 3, 2, ~0u).End()},
        {"face 0 of \"anim\" uses vertex 4, the object has 3",
         Vbf(anim).U32({2, 0, 2, 0, 1}).End()},
        {"face 0 of \"t\" uses texture 1, the file has 1",
         Vbf(textured).Zeros(72).Face(0, 1, 2, 1).End()},
        {"the vertex animation of \"q\" is cut short", shaped("q").U32({4, 0})},
        {"\"k\" has 1073741824 key frames", shaped("k").U32({4, 0, 1u << 30}).End()},
        {"\"z\" has 0 frames", shaped("z").U32({0, 0, 2, 0, 1}).End()},
        {"\"w\" has 2097152 frames", shaped("w").U32({1u << 21, 0, 2, 0, 1}).End()},
        {"the vertex animations up to \"y\" come to 1048577 frames, more than 1048576", many},
        {"the packed animation of \"p\" is cut short", Vbf(packed).U32({0})},
        {"\"p\" has 536870912 records", Vbf(packed).U32({0, 1u << 29}).End()},
        {"\"p\" has 3 records, too few for 2 key frames of 2 vertices",
         Vbf(packed).U32({0, 3}).Zeros(28)},
        {"the frame table of \"p\" runs past", Vbf(packed).U32({VBFPackFrameTable, 4}).Zeros(44)},
        {"frame 3 of the packed animation of \"p\" lies past its data",
         Vbf(packed).U32({VBFPackFrameTable, 4}).Zeros(32).U32({1, 0, 9, 13}).End()},
        {"the key animation of \"h\" is cut short", keyed("h").U32({5})},
        {"\"a\" has a last frame of 1048576", keyed("a").U32({1u << 20, 0}).End()},
        {"\"b\" has 8 keys, 4 bytes are left", keyed("b").U32({5, 8}).End()},
        {"key 0 of \"c\" is cut short", keyed("c").U32({5, 1, 3 | VBFKeyRotation, 0, 0})},
        {"key 0 of \"g\" is cut short", keyed("g").U32({5, 1, 3 | VBFKeyScale, 0, 0})},
        {"key 0 of \"i\" is cut short", keyed("i").U32({5, 1, 3 | VBFKeyTranslation, 0, 0})},
        {"the key frames of \"d\" need 384 bytes", keyed("d").U32({5, VBFKeyMatrices}).End()},
        {"the key frames of \"r\" need 288 bytes", keyed("r").U32({5, VBFKeyRecords}).End()},
        {"the key animation of \"f\" is cut short", keyed("f").U32({1, VBFKeyTable})},
        {"the key frames of \"j\" need 100 bytes", keyed("j").U32({1, VBFKeyTable, 2}).Zeros(52)},
        {"frame 0 of \"e\" uses key record 256 of 1",  // the high byte counts
         keyed("e").U32({1, VBFKeyTable, 1, 0x00000100}).Zeros(48).End()},
        {"objects nest deeper than 256 levels", Nested(1000)},
    };
    for (const auto& [fault, file] : cases) {
        capture.Clear();
        EXPECT_FALSE(Load(file, "bad.vbf")) << fault;
        std::string log = capture.Text();
        EXPECT_NE(log.find("LOG: (VELMORALoadVBF) Corrupt VBF " + dir.File("bad.vbf")), npos)
            << log;
        EXPECT_NE(log.find(fault), npos) << fault << "\n" << log;
        EXPECT_TRUE(Unchanged()) << fault;
    }
    EXPECT_TRUE(LoadedPaths.empty());  // a refused file loads no textures
    EXPECT_NE(ReadWholeFile("velmora.log").find("key record 256 of 1"), npos);

    capture.Clear();  // files that can't be read are logged under the caller's tag
    std::string missing = dir.File("missing.vbf");
    EXPECT_FALSE(root.LoadVBF(missing.c_str()));
    EXPECT_EQ(root.LoadVBFWithData(missing.c_str()), nullptr);
    EXPECT_FALSE(root.LoadVBF(dir.Path().c_str()));  // a folder, not a file
    EXPECT_NE(capture.Text().find("LOG: (CMesh::LoadVBF) Failed to open VBF: " + missing), npos);
    EXPECT_NE(capture.Text().find("LOG: (CMesh::LoadVBFWithData) Failed to open VBF: " + missing),
              npos);
    EXPECT_TRUE(Unchanged());
    EXPECT_DEATH(Load(Vbf().U32({2, 0}).End()), "VELMORALoadVBF: invalid header");

    EXPECT_TRUE(Load(Nested(256)));  // the deepest the writer makes
    int depth = 0;
    for (CEntity* node = root.firstChild; node; node = node->firstChild) ++depth;
    EXPECT_EQ(depth, 256);
}
