#include "engine/mesh/vbf_writer.h"

#include <cmath>
#include <cstdio>
#include <cstring>
#include <unordered_map>

#include "base/velmora_log.h"
#include "engine/mesh/mesh.h"
#include "engine/mesh/mesh_animation.h"
#include "engine/mesh/vbf_reader.h"
#include "engine/texture/texture.h"
#include "platform/crt/replacing_file.h"

namespace {

const char* const WriterTag = "CMesh::SaveVBF";

// What a key animation becomes in the file.
enum class KeySection { None, Keys, Matrices, Records, Table, FixedTable };

KeySection KeySectionOf(const KeyAnimation* animation) {
    if (!animation) return KeySection::None;
    uint64_t frames = uint64_t(animation->lastFrame) + 1;
    switch (animation->form) {
        case KeyFormKeys:
            if (animation->keyCount) return KeySection::Keys;  // a cache is made from them again
            if (!animation->frameCached || !animation->frameData) return KeySection::None;
            for (uint64_t i = 0; i < frames; ++i)
                if (!animation->frameCached[i]) return KeySection::None;
            return KeySection::Matrices;
        case KeyFormRecords:
            return animation->frameData ? KeySection::Records : KeySection::None;
        case KeyFormTable:
            return animation->frameData ? KeySection::Table : KeySection::None;
        case KeyFormFixedTable:
            return animation->frameData ? KeySection::FixedTable : KeySection::None;
        default:
            return KeySection::None;
    }
}

const CMesh* AsMesh(const CEntity* node) {
    return node->kind == EntityKindMesh ? static_cast<const CMesh*>(node) : nullptr;
}

// Children in the order they are written: last first.
std::vector<const CEntity*> WrittenChildren(const CEntity* node) {
    std::vector<const CEntity*> children;
    for (const CEntity* child = node->firstChild; child; child = child->nextSibling)
        children.push_back(child);
    return std::vector<const CEntity*>(children.rbegin(), children.rend());
}

bool IsUnpacked(const VertexAnimation* animation) {
    return animation && !(animation->flags & VertexAnimationPacked);
}

class Writer {
public:
    explicit Writer(std::vector<uint8_t>& image) : out(image) {}

    bool Check(const CEntity* node, uint32_t depth);
    void WriteHeader(const void* userData, uint32_t userDataSize);
    void WriteTextureBlock();
    void WriteObject(const CEntity* node);
    void WriteEndMark() { I32(-1); }

private:
    void U8(uint8_t v) { out.push_back(v); }
    void U32(uint32_t v) {
        for (int i = 0; i < 4; ++i) out.push_back(uint8_t(v >> (8 * i)));
    }
    void I32(int32_t v) { U32(uint32_t(v)); }
    void F32(float v) {
        uint32_t bits;
        std::memcpy(&bits, &v, sizeof bits);
        U32(bits);
    }
    void F64(double v) {
        uint64_t bits;
        std::memcpy(&bits, &v, sizeof bits);
        U32(uint32_t(bits));
        U32(uint32_t(bits >> 32));
    }
    void Bytes(const void* data, size_t size) {
        const uint8_t* bytes = static_cast<const uint8_t*>(data);
        if (size) out.insert(out.end(), bytes, bytes + size);
    }

    bool CheckMesh(const CMesh* mesh);
    void WriteFaces(const CMesh* mesh);
    void WriteVertexAnimation(const CMesh* mesh);
    void WriteKeyAnimation(const KeyAnimation* animation, KeySection section);

    std::vector<uint8_t>& out;
    std::vector<const CTexture*> textures;  // in the order of first use in the file
    std::unordered_map<const CTexture*, uint32_t> textureIndex;
};

const char* NameOf(const CEntity* node) {
    return node->name ? node->name : "(unnamed)";
}

// Visits in writing order, so texture entries are numbered by their first use in the file.
bool Writer::Check(const CEntity* node, uint32_t depth) {
    if (depth > VBFMaxDepth) {
        VelmoraLog(WriterTag, "%s nests deeper than %u levels\n", NameOf(node),
                   uint32_t(VBFMaxDepth));
        return false;
    }
    for (const CEntity* child : WrittenChildren(node))
        if (!Check(child, depth + 1)) return false;
    const CMesh* mesh = AsMesh(node);
    return !mesh || CheckMesh(mesh);
}

bool Writer::CheckMesh(const CMesh* mesh) {
    for (uint32_t i = 0; i < mesh->faceCount[0]; ++i) {
        const CTexture* texture = mesh->faces[0][i].texture;
        if (!texture || textureIndex.count(texture)) continue;
        if (!texture->name || !texture->name[0]) {
            VelmoraLog(WriterTag, "a face of %s has a texture without a name\n", NameOf(mesh));
            return false;
        }
        textureIndex[texture] = uint32_t(textures.size());
        textures.push_back(texture);
    }
    const VertexAnimation* shape = mesh->vertexAnimation;
    if (shape && shape->keyCount >= 2 &&
        (shape->frameCount == 0 || shape->frameCount > VBFMaxFrames)) {
        VelmoraLog(WriterTag, "the vertex animation of %s has %u frames\n", NameOf(mesh),
                   shape->frameCount);
        return false;
    }
    const KeyAnimation* keys = mesh->keyAnimation;
    if (KeySectionOf(keys) == KeySection::None) return true;
    if (keys->lastFrame >= VBFMaxFrames || keys->keyCount >= VBFKeyTable) {
        VelmoraLog(WriterTag, "the key animation of %s has %u frames and %u keys\n", NameOf(mesh),
                   keys->lastFrame, keys->keyCount);
        return false;
    }
    for (uint32_t i = 0; KeySectionOf(keys) == KeySection::Keys && i < keys->keyCount; ++i) {
        float time = keys->keys[i].time;
        if (!(time >= 0.0f && time <= float(VBFKeyFrameMask) && std::floor(time) == time)) {
            VelmoraLog(WriterTag, "key %u of %s has the time %g, not a frame number\n", i,
                       NameOf(mesh), double(time));
            return false;
        }
    }
    return true;
}

void Writer::WriteHeader(const void* userData, uint32_t userDataSize) {
    if (!userData) {
        U32(0);
        return;
    }
    U32(1);
    U32(userDataSize);
    Bytes(userData, userDataSize);
}

void Writer::WriteTextureBlock() {
    std::vector<uint8_t> block;
    for (const CTexture* texture : textures) {
        block.insert(block.end(), texture->name, texture->name + std::strlen(texture->name) + 1);
        block.push_back((texture->flags & TextureFlagClamp) ? uint8_t(VBFTextureClamp) : 0);
    }
    U32(uint32_t(block.size()));
    Bytes(block.data(), block.size());
}

void Writer::WriteObject(const CEntity* node) {
    const CMesh* mesh = AsMesh(node);
    const VertexAnimation* shape = mesh ? mesh->vertexAnimation : nullptr;
    // An unpacked animation keeps all key frames in frameData; vertices is only the current one.
    const void* vertexData = IsUnpacked(shape) ? shape->frameData : mesh ? mesh->vertices : nullptr;
    int32_t storedVertices = IsUnpacked(shape) ? int32_t(shape->totalVertices)
                             : mesh            ? mesh->vertexCount
                                               : 0;
    uint32_t faceCount = mesh ? mesh->faceCount[0] : 0;
    KeySection keySection = KeySectionOf(mesh ? mesh->keyAnimation : nullptr);
    uint32_t sectionFlags = 0;
    if (mesh && mesh->colours && storedVertices > 0) sectionFlags |= VBFSectionColours;
    if (mesh && mesh->smoothingGroups && faceCount) sectionFlags |= VBFSectionSmoothing;
    if (shape) sectionFlags |= VBFSectionVertexAnimation;
    if (keySection != KeySection::None) sectionFlags |= VBFSectionKeyAnimation;
    std::vector<const CEntity*> children = WrittenChildren(node);

    I32(storedVertices);
    U32(sectionFlags);
    U32(faceCount);
    U32(uint32_t(children.size()));
    Matrix local;
    node->GetLocalMatrix(local);
    for (int i = 0; i < 16; ++i) F64(double(local[i]));
    uint32_t nameLength = node->name ? uint32_t(std::strlen(node->name)) : 0;
    U32(nameLength);
    Bytes(node->name, nameLength);

    for (const CEntity* child : children) WriteObject(child);
    if (!mesh) return;
    Bytes(vertexData, size_t(storedVertices) * VBFVertexSize);
    WriteFaces(mesh);
    if (sectionFlags & VBFSectionColours) {
        for (int32_t i = 0; i < storedVertices; ++i)
            for (int c = 0; c < 3; ++c) U8(i < mesh->vertexCount ? mesh->colours[3 * i + c] : 0);
    }
    if (sectionFlags & VBFSectionSmoothing)
        for (uint32_t i = 0; i < faceCount; ++i) U32(mesh->smoothingGroups[i]);
    if (shape) WriteVertexAnimation(mesh);
    if (keySection != KeySection::None) WriteKeyAnimation(mesh->keyAnimation, keySection);
}

void Writer::WriteFaces(const CMesh* mesh) {
    for (uint32_t i = 0; i < mesh->faceCount[0]; ++i) {
        const MeshFace& face = mesh->faces[0][i];
        for (uint32_t corner : face.vertex) U32(corner);
        U32(face.texture ? textureIndex.find(face.texture)->second : uint32_t(VBFNoTexture));
        U32(face.flags);
        for (float uv : face.uv) F32(uv);
    }
}

// Whether the reader's walk over the key frames makes this very table, so that the file can
// leave it out.
bool TableFollowsKeys(const VertexAnimation* shape, uint64_t stride) {
    const uint8_t* base = static_cast<const uint8_t*>(shape->frameData);
    uint64_t current = 0;
    bool any = false;
    uint32_t key = 0;
    for (uint32_t frame = 0; frame < shape->frameCount; ++frame) {
        if (key < shape->keyCount && shape->keyFrames[key] == frame) {
            current = uint64_t(key++) * stride;
            any = true;
        }
        const uint8_t* entry = static_cast<const uint8_t*>(shape->frameTable[frame]);
        if (any != (entry != nullptr)) return false;
        if (entry && uint64_t(entry - base) != current) return false;
    }
    return true;
}

void Writer::WriteVertexAnimation(const CMesh* mesh) {
    const VertexAnimation* shape = mesh->vertexAnimation;
    bool packed = !IsUnpacked(shape);
    U32(shape->frameCount);
    I32(packed ? -1 : 0);
    U32(shape->keyCount);
    for (uint32_t i = 0; i < shape->keyCount; ++i) U32(shape->keyFrames[i]);
    // The unpacked frames are the stored vertices themselves; below two keys nothing follows.
    if (!packed || shape->keyCount < 2) return;
    uint64_t stride = uint64_t(mesh->vertexCount) * VBFPackedVertexSize;
    bool table = shape->frameTable && !TableFollowsKeys(shape, stride);
    U32((shape->flags >> VertexAnimationFractionShift & 0xFF) |
        (table ? uint32_t(VBFPackFrameTable) : 0u));
    U32(shape->totalVertices);
    Bytes(shape->frameData, size_t(shape->totalVertices) * VBFPackedVertexSize);
    if (!table) return;
    const uint8_t* base = static_cast<const uint8_t*>(shape->frameData);
    for (uint32_t frame = 0; frame < shape->frameCount; ++frame) {
        const uint8_t* entry = static_cast<const uint8_t*>(shape->frameTable[frame]);
        U32(entry ? uint32_t((entry - base) / 2 + 1) : 0);
    }
}

void Writer::WriteKeyAnimation(const KeyAnimation* animation, KeySection section) {
    uint64_t frames = uint64_t(animation->lastFrame) + 1;
    U32(animation->lastFrame);
    const uint8_t* data = static_cast<const uint8_t*>(animation->frameData);
    switch (section) {
        case KeySection::Matrices:
            U32(VBFKeyMatrices);
            Bytes(data, size_t(frames) * sizeof(Matrix));
            return;
        case KeySection::Records:
            U32(VBFKeyRecords);
            Bytes(data, size_t(frames) * 48);
            return;
        case KeySection::Table:
            U32(VBFKeyTable);
            U32(animation->distinctCount);
            Bytes(data, size_t(frames) * 2 + size_t(animation->distinctCount) * 48);
            return;
        case KeySection::FixedTable: {
            // The file has no fixed-point form; the values are exact as floats.
            U32(VBFKeyTable);
            U32(animation->distinctCount);
            Bytes(data, size_t(frames) * 2);
            const uint8_t* records = data + frames * 2;
            for (size_t i = 0; i < size_t(animation->distinctCount) * 12; ++i) {
                int16_t value;
                std::memcpy(&value, records + 2 * i, sizeof value);
                F32(float(double(value) * (i % 12 < 9 ? 1.0 / 2048.0 : 1.0 / 256.0)));
            }
            return;
        }
        case KeySection::Keys:
            break;
        case KeySection::None:
            return;
    }
    U32(animation->keyCount);
    for (uint32_t i = 0; i < animation->keyCount; ++i) {
        const AnimationKey& key = animation->keys[i];
        uint32_t head = uint32_t(key.time);
        if (key.rotation) head |= VBFKeyRotation;
        if (key.scale) head |= VBFKeyScale;
        if (key.translation) head |= VBFKeyTranslation;
        U32(head);
        if (const Quaternion* q = key.rotation) {
            F32(q->x);
            F32(q->y);
            F32(q->z);
            F32(q->s);
        }
        if (const Vector* s = key.scale) {
            F32(s->x);
            F32(s->y);
            F32(s->z);
        }
        if (const Vector* t = key.translation) {
            F32(t->x);
            F32(t->y);
            F32(t->z);
        }
    }
}

}  // namespace

bool BuildVBFImage(const CMesh* root, const void* userData, uint32_t userDataSize,
                   std::vector<uint8_t>& image) {
    image.clear();
    Writer writer(image);
    std::vector<const CEntity*> objects = WrittenChildren(root);
    for (const CEntity* object : objects)
        if (!writer.Check(object, 1)) return false;
    writer.WriteHeader(userData, userDataSize);
    writer.WriteTextureBlock();
    for (const CEntity* object : objects) writer.WriteObject(object);
    writer.WriteEndMark();
    return true;
}

bool CMesh::SaveVBF(const char* path, const void* userData, uint32_t userDataSize) const {
    std::vector<uint8_t> image;
    if (!BuildVBFImage(this, userData, userDataSize, image)) return false;
    bool written = path && WriteFileAtomically(path, image.data(), image.size());
    if (!written) VelmoraLog(WriterTag, "Failed to write VBF: %s\n", path ? path : "");
    return written;
}
