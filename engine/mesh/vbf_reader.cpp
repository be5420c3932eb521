#include "engine/mesh/vbf_reader.h"

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <vector>

#include "base/diagnostics.h"
#include "base/memory.h"
#include "base/velmora_log.h"
#include "engine/mesh/mesh.h"
#include "engine/mesh/mesh_animation.h"
#include "engine/mesh/mesh_read_fault.h"
#include "engine/mesh/vbf_cursor.h"
#include "engine/texture/texture.h"
#include "engine/texture/texture_lookup.h"

// Vertex records, smoothing groups and key frame blocks are copied from the image as they lie.
static_assert(std::endian::native == std::endian::little,
              "VBF block copies need a little-endian host");
static_assert(sizeof(MeshVertex) == VBFVertexSize);

namespace {

// Larger files are refused before anything is allocated for them; a directory opened as a file
// also reports an absurd length.
constexpr long VBFMaxFileBytes = long(1) << 30;

// One key record as the file has it; the rotation is x, y, z, s.
struct KeyRecord {
    uint32_t head;
    float rotation[4];
    float scale[3];
    float translation[3];
};

struct TextureEntry {
    const char* name;  // points into the image, terminated there
    uint8_t flags;
};

// Appends to a MALLOC array that doubles as it fills.
template <typename T>
void Append(T*& array, size_t& count, size_t& capacity, T value) {
    if (count == capacity) {
        size_t grown = capacity ? capacity * 2 : 64;
        array = static_cast<T*>(CvReallocCopy(array, capacity * sizeof(T), grown * sizeof(T)));
        capacity = grown;
    }
    array[count++] = value;
}

void FreeVertexAnimationRecord(VertexAnimation* animation) {
    if (animation->frameTable) FREE(animation->frameTable);
    if (animation->keyFrames) FREE(animation->keyFrames);
    if ((animation->flags & VertexAnimationPacked) && animation->frameData)
        FREE(animation->frameData);
    if (animation) FREE(animation);
}

// Frames before the first key get null; each key's data lasts until the next key's frame. A key
// whose frame never comes up is never reached. False if a reached key's data would end past
// available bytes.
bool WalkFrameTable(VertexAnimation* animation, uint8_t* base, uint64_t stride,
                    uint64_t available) {
    void* current = nullptr;
    uint32_t key = 0;
    for (uint32_t frame = 0; frame < animation->frameCount; ++frame) {
        if (key < animation->keyCount && animation->keyFrames[key] == frame) {
            uint64_t start = uint64_t(key) * stride;
            if (start + stride > available) return false;
            current = base ? base + start : nullptr;
            ++key;
        }
        animation->frameTable[frame] = current;
    }
    return true;
}

class Reader {
public:
    Reader(const uint8_t* image, size_t size, const char* name)
        : cursor(image, size), fileName(name) {}
    ~Reader() {
        if (textures) FREE(textures);
        if (faceTextures) FREE(faceTextures);
        if (meshes) FREE(meshes);
    }
    Reader(const Reader&) = delete;
    Reader& operator=(const Reader&) = delete;

    bool Parse(CMesh* root, VBFUserData** userDataOut);

private:
    enum class Record { Object, EndMark, Fault };

    // Keeps the first fault and where it was met; always false.
    bool Fail(const char* format, ...) __attribute__((format(printf, 2, 3)));
    bool ReadHeader(VBFUserData** userData);
    bool ReadTextureBlock();
    bool ReadTextureEntries(VBFCursor& block, uint32_t* count, size_t blockStart);
    Record ReadObject(CEntity* parent, uint32_t depth);
    bool ReadPayload(CMesh* mesh, int32_t vertexCount, uint32_t faceCount, uint32_t sectionFlags);
    bool ReadFaces(CMesh* mesh, uint32_t count);
    bool ReadVertexAnimation(CMesh* mesh, int32_t storedVertices);
    bool ReadPackedFrames(CMesh* mesh, VertexAnimation* animation);
    bool ReadKeyAnimation(CMesh* mesh);
    bool ReadKeyRecords(CMesh* mesh, KeyAnimation* animation, uint32_t count);
    bool CheckFaceVertices(const CMesh* mesh);
    void ResolveTextures();

    VBFCursor cursor;
    const char* fileName;
    char fault[240] = "";
    size_t faultOffset = 0;
    bool failed = false;

    TextureEntry* textures = nullptr;
    uint32_t textureCount = 0;
    // The texture index of every face in reading order, and the meshes in the order of their
    // payloads. Textures load only once the whole file has read cleanly.
    uint32_t* faceTextures = nullptr;
    size_t faceTextureCount = 0, faceTextureCapacity = 0;
    CMesh** meshes = nullptr;
    size_t meshCount = 0, meshCapacity = 0;
    uint64_t framesClaimed = 0;  // frame table entries of the animations read so far
};

bool Reader::Fail(const char* format, ...) {
    if (failed) return false;
    failed = true;
    faultOffset = cursor.Offset();
    va_list args;
    va_start(args, format);
    if (std::vsnprintf(fault, sizeof fault, format, args) < 0) fault[0] = '\0';
    va_end(args);
    return false;
}

bool Reader::Parse(CMesh* root, VBFUserData** userDataOut) {
    VBFUserData* userData = nullptr;
    CEntity holder(nullptr);  // the new subtree, apart from root until it is whole
    bool read = ReadHeader(userDataOut ? &userData : nullptr) && ReadTextureBlock();
    while (read) {
        Record record = ReadObject(&holder, 1);
        if (record == Record::EndMark) break;
        read = record == Record::Object;
    }
    if (!read) {
        VelmoraLog("VELMORALoadVBF", "Corrupt VBF %s at byte %zu: %s\n", fileName, faultOffset,
                   fault);
        SetMeshReadFault("the map file is damaged at byte %zu: %s", faultOffset, fault);
        FreeVBFUserData(userData);
        return false;
    }
    ResolveTextures();
    // holder stands newest first, as root's list must; reversed once, each AddChild then puts
    // the next object at root's front, before the children root already had.
    CEntity fileOrder(nullptr);
    while (holder.firstChild) fileOrder.AddChild(holder.firstChild);
    while (fileOrder.firstChild) root->AddChild(fileOrder.firstChild);
    if (userDataOut) *userDataOut = userData;
    return true;
}

bool Reader::ReadHeader(VBFUserData** userData) {
    uint32_t headerKind;
    if (!cursor.ReadU32(headerKind)) return Fail("the file ends before its header");
    if (headerKind > 1) {
        VelmoraDataFatal("VELMORALoadVBF", "invalid header\n");
        return Fail("its header kind is %u, where a map file has 0 or 1",
                    headerKind);  // reached inside a run's job only
    }
    if (headerKind == 0) return true;
    uint32_t size;
    if (!cursor.ReadU32(size)) return Fail("the file ends before its user data size");
    if (!cursor.Has(size))
        return Fail("user data of %u bytes, %zu are left", size, cursor.Remaining());
    if (userData && size) {
        VBFUserData* block = static_cast<VBFUserData*>(MALLOC(sizeof(VBFUserData)));
        block->size = size;
        block->bytes = static_cast<uint8_t*>(MALLOC(size));
        std::memcpy(block->bytes, cursor.Here(), size);
        *userData = block;
    }
    return cursor.Skip(size);
}

bool Reader::ReadTextureBlock() {
    uint32_t blockSize;
    if (!cursor.ReadU32(blockSize)) return Fail("the file ends before its texture block");
    if (!cursor.Has(blockSize))
        return Fail("texture block of %u bytes, %zu are left", blockSize, cursor.Remaining());
    size_t blockStart = cursor.Offset();
    // Counted in one walk, kept in a second, as the table is sized by the count.
    VBFCursor counting(cursor.Here(), blockSize);
    if (!ReadTextureEntries(counting, &textureCount, blockStart)) return false;
    if (textureCount) {
        textures = static_cast<TextureEntry*>(MALLOC(textureCount * sizeof(TextureEntry)));
        VBFCursor keeping(cursor.Here(), blockSize);
        ReadTextureEntries(keeping, nullptr, blockStart);
    }
    return cursor.Skip(blockSize);
}

// With count given, counts and checks the entries; without, fills textures.
bool Reader::ReadTextureEntries(VBFCursor& block, uint32_t* count, size_t blockStart) {
    uint32_t index = 0;
    while (block.Remaining()) {
        TextureEntry entry;
        size_t length;
        const char* second;
        bool whole = block.ReadString(entry.name, length, block.Remaining()) &&
                     block.ReadU8(entry.flags) &&
                     (!(entry.flags & VBFTextureSecondName) ||
                      block.ReadString(second, length, block.Remaining()));
        if (!whole) {
            Fail("texture entry %u runs past the end of its block", index);
            faultOffset = blockStart + block.Offset();
            return false;
        }
        if (!count) textures[index] = entry;
        ++index;
    }
    if (count) *count = index;
    return true;
}

Reader::Record Reader::ReadObject(CEntity* parent, uint32_t depth) {
    int32_t vertexCount;
    if (!cursor.ReadI32(vertexCount)) {
        Fail("the file ends before the end mark of its objects");
        return Record::Fault;
    }
    if (vertexCount < 0) return Record::EndMark;
    if (depth > VBFMaxDepth) {
        Fail("objects nest deeper than %u levels", uint32_t(VBFMaxDepth));
        return Record::Fault;
    }
    uint32_t sectionFlags = 0, faceCount = 0, childCount = 0, nameLength = 0;
    double matrix[16];
    bool header =
        cursor.ReadU32(sectionFlags) && cursor.ReadU32(faceCount) && cursor.ReadU32(childCount);
    for (int i = 0; header && i < 16; ++i) header = cursor.ReadF64(matrix[i]);
    if (!header || !cursor.ReadU32(nameLength)) {
        Fail("the file ends inside an object header");
        return Record::Fault;
    }
    if (!cursor.Has(nameLength)) {
        Fail("name length %u, %zu bytes are left", nameLength, cursor.Remaining());
        return Record::Fault;
    }
    char name[VBFMaxNameLength + 1];
    uint32_t kept = nameLength < VBFMaxNameLength ? nameLength : uint32_t(VBFMaxNameLength);
    cursor.ReadBytes(name, kept);
    name[kept] = '\0';
    cursor.Skip(nameLength - kept);
    if (nameLength > kept) CorvaneWarning("Name in VBF too long - truncated...\n");

    // The children lie between here and the payload, so these are bounds, not exact sizes; they
    // stop a hostile count before anything is allocated for it.
    uint64_t vertexBytes = uint64_t(vertexCount) * VBFVertexSize;
    if (sectionFlags & VBFSectionColours) vertexBytes += uint64_t(vertexCount) * 3;
    uint64_t faceBytes = uint64_t(faceCount) * VBFFaceSize;
    if (sectionFlags & VBFSectionSmoothing) faceBytes += uint64_t(faceCount) * 4;
    if (!cursor.Has(vertexBytes)) {
        Fail("object \"%s\" has %d vertices, %zu bytes are left", name, vertexCount,
             cursor.Remaining());
        return Record::Fault;
    }
    if (!cursor.Has(vertexBytes + faceBytes)) {
        Fail("object \"%s\" has %u faces, %zu bytes are left", name, faceCount, cursor.Remaining());
        return Record::Fault;
    }
    if (!cursor.Has(vertexBytes + faceBytes + uint64_t(childCount) * 4)) {
        Fail("object \"%s\" has %u children, %zu bytes are left", name, childCount,
             cursor.Remaining());
        return Record::Fault;
    }

    CMesh* mesh = NEW CMesh(parent);
    mesh->SetName(name);
    Matrix local;
    for (int i = 0; i < 16; ++i) local[i] = float(matrix[i]);
    mesh->SetMatrix(local);
    for (uint32_t child = 0; child < childCount; ++child)
        if (ReadObject(mesh, depth + 1) == Record::Fault) return Record::Fault;
    if (!ReadPayload(mesh, vertexCount, faceCount, sectionFlags)) return Record::Fault;
    return Record::Object;
}

bool Reader::ReadPayload(CMesh* mesh, int32_t vertexCount, uint32_t faceCount,
                         uint32_t sectionFlags) {
    const char* name = mesh->name;
    uint64_t vertexBytes = uint64_t(vertexCount) * VBFVertexSize;
    if (!cursor.Has(vertexBytes))
        return Fail("the vertices of \"%s\" run past the end of the file", name);
    mesh->AllocVertices(vertexCount);
    cursor.ReadBytes(mesh->vertices, vertexBytes);
    if (!ReadFaces(mesh, faceCount)) return false;
    if ((sectionFlags & VBFSectionColours) && vertexCount > 0) {
        if (!cursor.Has(uint64_t(vertexCount) * 3))
            return Fail("the colours of \"%s\" run past the end of the file", name);
        mesh->AllocColours(vertexCount);
        cursor.ReadBytes(mesh->colours, uint64_t(vertexCount) * 3);
        mesh->meshFlags |= MeshFlagVertexColours;
    }
    if ((sectionFlags & VBFSectionSmoothing) && faceCount) {
        if (!cursor.Has(uint64_t(faceCount) * 4))
            return Fail("the smoothing groups of \"%s\" run past the end of the file", name);
        mesh->AllocSmoothingGroups();
        cursor.ReadBytes(mesh->smoothingGroups, uint64_t(faceCount) * 4);
    }
    if ((sectionFlags & VBFSectionVertexAnimation) && !ReadVertexAnimation(mesh, vertexCount))
        return false;
    if ((sectionFlags & VBFSectionKeyAnimation) && !ReadKeyAnimation(mesh)) return false;
    if (!CheckFaceVertices(mesh)) return false;
    Append(meshes, meshCount, meshCapacity, mesh);
    return true;
}

bool Reader::ReadFaces(CMesh* mesh, uint32_t count) {
    if (!cursor.Has(uint64_t(count) * VBFFaceSize))
        return Fail("the faces of \"%s\" run past the end of the file", mesh->name);
    mesh->AllocFaces(count, 0);
    for (uint32_t i = 0; i < count; ++i) {
        MeshFace& face = mesh->faces[0][i];
        uint32_t texture = 0;
        cursor.ReadU32(face.vertex[0]);
        cursor.ReadU32(face.vertex[1]);
        cursor.ReadU32(face.vertex[2]);
        cursor.ReadU32(texture);
        cursor.ReadU32(face.flags);
        for (float& uv : face.uv) cursor.ReadF32(uv);
        face.texture = nullptr;
        if (texture != VBFNoTexture && texture >= textureCount)
            return Fail("face %u of \"%s\" uses texture %u, the file has %u", i, mesh->name,
                        texture, textureCount);
        Append(faceTextures, faceTextureCount, faceTextureCapacity, texture);
    }
    return true;
}

// Against the vertices of one frame: an unpacked animation has cut vertexCount down by now.
bool Reader::CheckFaceVertices(const CMesh* mesh) {
    for (uint32_t i = 0; i < mesh->faceCount[0]; ++i) {
        for (uint32_t corner : mesh->faces[0][i].vertex) {
            if (corner >= uint32_t(mesh->vertexCount))
                return Fail("face %u of \"%s\" uses vertex %u, the object has %d", i, mesh->name,
                            corner, mesh->vertexCount);
        }
    }
    return true;
}

bool Reader::ReadVertexAnimation(CMesh* mesh, int32_t storedVertices) {
    const char* name = mesh->name;
    uint32_t frameCount, keyCount;
    int32_t packedMark;
    if (!cursor.ReadU32(frameCount) || !cursor.ReadI32(packedMark) || !cursor.ReadU32(keyCount))
        return Fail("the vertex animation of \"%s\" is cut short", name);
    if (!cursor.Has(uint64_t(keyCount) * 4))
        return Fail("the vertex animation of \"%s\" has %u key frames, %zu bytes are left", name,
                    keyCount, cursor.Remaining());
    if (keyCount < 2) return cursor.Skip(uint64_t(keyCount) * 4);  // the mesh stays static
    if (frameCount == 0 || frameCount > VBFMaxFrames)
        return Fail("the vertex animation of \"%s\" has %u frames", name, frameCount);
    // Frame tables are not stored in the file, so their sum is held to one table's limit: a
    // small file must not claim gigabytes through many animated objects.
    framesClaimed += frameCount;
    if (framesClaimed > VBFMaxFrames)
        return Fail("the vertex animations up to \"%s\" come to %llu frames, more than %u", name,
                    (unsigned long long)framesClaimed, unsigned(VBFMaxFrames));

    VertexAnimation* animation = static_cast<VertexAnimation*>(MALLOC(sizeof(VertexAnimation)));
    std::memset(animation, 0, sizeof *animation);
    animation->flags = VertexAnimationOwnsArrays;
    animation->frameCount = frameCount;
    animation->keyCount = keyCount;
    animation->totalVertices = uint32_t(storedVertices);
    animation->keyFrames = static_cast<uint32_t*>(MALLOC(size_t(keyCount) * 4));
    for (uint32_t i = 0; i < keyCount; ++i) cursor.ReadU32(animation->keyFrames[i]);
    animation->frameTable = static_cast<void**>(MALLOC(size_t(frameCount) * sizeof(void*)));

    if (packedMark < 0) {
        if (!ReadPackedFrames(mesh, animation)) {
            FreeVertexAnimationRecord(animation);
            return false;
        }
    } else {
        // The stored vertices are all key frames one after the other.
        uint32_t perFrame = uint32_t(storedVertices) / keyCount;
        animation->frameData = mesh->vertices;
        WalkFrameTable(animation, reinterpret_cast<uint8_t*>(mesh->vertices),
                       uint64_t(perFrame) * VBFVertexSize,
                       uint64_t(storedVertices) * VBFVertexSize);
        mesh->vertexCount = int32_t(perFrame);
    }
    mesh->SetVertexAnimation(animation);
    return true;
}

bool Reader::ReadPackedFrames(CMesh* mesh, VertexAnimation* animation) {
    const char* name = mesh->name;
    uint32_t packInfo, packedCount;
    if (!cursor.ReadU32(packInfo) || !cursor.ReadU32(packedCount))
        return Fail("the packed animation of \"%s\" is cut short", name);
    uint64_t dataBytes = uint64_t(packedCount) * VBFPackedVertexSize;
    if (!cursor.Has(dataBytes))
        return Fail("the packed animation of \"%s\" has %u records, %zu bytes are left", name,
                    packedCount, cursor.Remaining());
    animation->flags |= VertexAnimationPacked | (packInfo & 0xFF) << VertexAnimationFractionShift;
    animation->totalVertices = packedCount;
    uint8_t* data = static_cast<uint8_t*>(MALLOC(dataBytes ? size_t(dataBytes) : 1));
    animation->frameData = data;
    cursor.ReadBytes(data, dataBytes);

    uint64_t frameBytes = uint64_t(mesh->vertexCount) * VBFPackedVertexSize;
    if (!(packInfo & VBFPackFrameTable)) {
        if (!WalkFrameTable(animation, data, frameBytes, dataBytes))
            return Fail(
                "the packed animation of \"%s\" has %u records, too few for %u key "
                "frames of %d vertices",
                name, packedCount, animation->keyCount, mesh->vertexCount);
        return true;
    }
    if (!cursor.Has(uint64_t(animation->frameCount) * 4))
        return Fail("the frame table of \"%s\" runs past the end of the file", name);
    for (uint32_t frame = 0; frame < animation->frameCount; ++frame) {
        uint32_t value = 0;
        cursor.ReadU32(value);
        animation->frameTable[frame] = nullptr;  // halfway between its neighbours
        if (!value) continue;
        uint64_t start = 2 * (uint64_t(value) - 1);
        if (start + frameBytes > dataBytes)
            return Fail("frame %u of the packed animation of \"%s\" lies past its data", frame,
                        name);
        animation->frameTable[frame] = data + start;
    }
    return true;
}

bool Reader::ReadKeyAnimation(CMesh* mesh) {
    const char* name = mesh->name;
    uint32_t lastFrame, keyMark;
    if (!cursor.ReadU32(lastFrame) || !cursor.ReadU32(keyMark))
        return Fail("the key animation of \"%s\" is cut short", name);
    if (lastFrame >= VBFMaxFrames)
        return Fail("the key animation of \"%s\" has a last frame of %u", name, lastFrame);
    uint64_t frames = uint64_t(lastFrame) + 1;

    KeyAnimation* animation = static_cast<KeyAnimation*>(MALLOC(sizeof(KeyAnimation)));
    std::memset(animation, 0, sizeof *animation);
    animation->currentFrame = KeyAnimationNoFrame;
    animation->owner = 1;
    animation->lastFrame = lastFrame;
    mesh->GetLocalMatrix(animation->baseMatrix);

    uint64_t recordBytes = 0;  // of the stored forms
    uint32_t distinct = 0;
    switch (keyMark) {
        case VBFKeyMatrices:
            recordBytes = frames * sizeof(Matrix);
            break;
        case VBFKeyRecords:
            recordBytes = frames * 48;
            break;
        case VBFKeyTable:
            if (!cursor.ReadU32(distinct)) {
                FreeKeyAnimation(animation);
                return Fail("the key animation of \"%s\" is cut short", name);
            }
            recordBytes = frames * 2 + uint64_t(distinct) * 48;
            break;
        default:
            if (!ReadKeyRecords(mesh, animation, keyMark)) {
                FreeKeyAnimation(animation);
                return false;
            }
            if (animation->keyCount == 0) {
                FreeKeyAnimation(animation);
                return true;
            }
            mesh->SetKeyAnimation(animation);
            return true;
    }

    if (!cursor.Has(recordBytes)) {
        FreeKeyAnimation(animation);
        return Fail("the key frames of \"%s\" need %llu bytes, %zu are left", name,
                    static_cast<unsigned long long>(recordBytes), cursor.Remaining());
    }
    animation->frameData = MALLOC(size_t(recordBytes));
    cursor.ReadBytes(animation->frameData, recordBytes);
    if (keyMark == VBFKeyMatrices) {
        animation->form = KeyFormKeys;
        animation->frameCached = static_cast<uint8_t*>(MALLOC(size_t(frames)));
        std::memset(animation->frameCached, 1, size_t(frames));
    } else if (keyMark == VBFKeyRecords) {
        animation->form = KeyFormRecords;
    } else {
        animation->form = KeyFormTable;
        animation->distinctCount = distinct;
        const uint8_t* table = static_cast<const uint8_t*>(animation->frameData);
        for (uint64_t frame = 0; frame < frames; ++frame) {
            uint16_t record = uint16_t(table[2 * frame] | table[2 * frame + 1] << 8);
            if (record >= distinct) {
                FreeKeyAnimation(animation);
                return Fail("frame %llu of \"%s\" uses key record %u of %u",
                            static_cast<unsigned long long>(frame), name, record, distinct);
            }
        }
    }
    mesh->SetKeyAnimation(animation);
    return true;
}

bool Reader::ReadKeyRecords(CMesh* mesh, KeyAnimation* animation, uint32_t count) {
    if (!cursor.Has(uint64_t(count) * 4))
        return Fail("the key animation of \"%s\" has %u keys, %zu bytes are left", mesh->name,
                    count, cursor.Remaining());
    // Sorted by frame first, keeping file order within a frame, so that each insertion lands at
    // the end or on the last key: a file of keys in falling order costs no quadratic moves.
    std::vector<KeyRecord> records;
    for (uint32_t i = 0; i < count; ++i) {
        KeyRecord record = {};
        bool whole = cursor.ReadU32(record.head);
        for (float& v : record.rotation)
            whole = whole && (!(record.head & VBFKeyRotation) || cursor.ReadF32(v));
        for (float& v : record.scale)
            whole = whole && (!(record.head & VBFKeyScale) || cursor.ReadF32(v));
        for (float& v : record.translation)
            whole = whole && (!(record.head & VBFKeyTranslation) || cursor.ReadF32(v));
        if (!whole) return Fail("key %u of \"%s\" is cut short", i, mesh->name);
        if (record.head & (VBFKeyRotation | VBFKeyScale | VBFKeyTranslation))
            records.push_back(record);
    }
    std::stable_sort(records.begin(), records.end(), [](const KeyRecord& a, const KeyRecord& b) {
        return (a.head & VBFKeyFrameMask) < (b.head & VBFKeyFrameMask);
    });

    // A work array of one slot per record; keys that share a frame leave some unused.
    uint32_t capacity = uint32_t(records.size());
    if (capacity)
        animation->keys = static_cast<AnimationKey*>(MALLOC(capacity * sizeof(AnimationKey)));
    for (const KeyRecord& record : records) {
        float time = float(record.head & VBFKeyFrameMask);
        const float* r = record.rotation;
        if (record.head & VBFKeyRotation)
            InsertRotationKey(animation, &capacity, time, Quaternion{r[3], r[0], r[1], r[2]});
        if (record.head & VBFKeyScale)
            InsertScaleKey(animation, &capacity, time,
                           Vector{record.scale[0], record.scale[1], record.scale[2]});
        if (record.head & VBFKeyTranslation)
            InsertTranslationKey(
                animation, &capacity, time,
                Vector{record.translation[0], record.translation[1], record.translation[2]});
    }
    // The record keeps an array that fits its keys exactly.
    if (animation->keyCount < capacity) {
        size_t used = animation->keyCount * sizeof(AnimationKey);
        if (used) {
            animation->keys =
                static_cast<AnimationKey*>(CvReallocCopy(animation->keys, used, used));
        } else {
            if (animation->keys) FREE(animation->keys);
            animation->keys = nullptr;
        }
    }
    return true;
}

void Reader::ResolveTextures() {
    CTexture** loaded = nullptr;
    if (textureCount) {
        loaded = static_cast<CTexture**>(MALLOC(textureCount * sizeof(CTexture*)));
        for (uint32_t i = 0; i < textureCount; ++i) {
            loaded[i] = VALoadTexture(textures[i].name);
            if (loaded[i] && (textures[i].flags & VBFTextureClamp))
                loaded[i]->flags |= TextureFlagClamp;
        }
    }
    size_t next = 0;
    for (size_t m = 0; m < meshCount; ++m) {
        CMesh* mesh = meshes[m];
        for (uint32_t i = 0; i < mesh->faceCount[0]; ++i) {
            uint32_t index = faceTextures[next++];
            mesh->faces[0][i].texture = index == VBFNoTexture ? nullptr : loaded[index];
        }
    }
    if (loaded) FREE(loaded);
}

template <typename T>
void InsertKeyValue(KeyAnimation* animation, uint32_t* capacity, float time, const T& value,
                    T* AnimationKey::*field) {
    T* block = static_cast<T*>(MALLOC(sizeof(T)));
    *block = value;
    // Keys are sorted: the first at or after time, found from the end first, where a file's
    // keys arrive.
    uint32_t at = animation->keyCount;
    if (at && !(animation->keys[at - 1].time < time)) {
        uint32_t low = 0;
        while (low < at) {
            uint32_t middle = low + (at - low) / 2;
            if (animation->keys[middle].time < time)
                low = middle + 1;
            else
                at = middle;
        }
    }
    if (at < animation->keyCount && animation->keys[at].time == time) {
        if (animation->keys[at].*field) FREE(animation->keys[at].*field);
        animation->keys[at].*field = block;
        return;
    }
    uint32_t room = capacity ? *capacity : animation->keyCount;
    if (animation->keyCount >= room) {
        size_t size = animation->keyCount * sizeof(AnimationKey);
        animation->keys = static_cast<AnimationKey*>(
            CvReallocCopy(animation->keys, size, size + sizeof(AnimationKey)));
        if (capacity) *capacity = animation->keyCount + 1;
    }
    AnimationKey* keys = animation->keys;
    std::memmove(keys + at + 1, keys + at, (animation->keyCount - at) * sizeof(AnimationKey));
    keys[at] = AnimationKey{nullptr, nullptr, nullptr, time};
    keys[at].*field = block;
    ++animation->keyCount;
}

bool LoadVBFFile(CMesh* root, const char* path, const char* tag, VBFUserData** userData) {
    SetMeshFolderFromPath(path);
    ClearMeshReadFault();
    std::FILE* file = path ? std::fopen(path, "rb") : nullptr;
    if (!file) {
        SetMeshReadFault("the map file can't be opened (%s)", std::strerror(errno));
        VelmoraLog(tag, "Failed to open VBF: %s", path ? path : "");
        return false;
    }
    long length = -1;
    if (std::fseek(file, 0, SEEK_END) == 0) length = std::ftell(file);
    uint8_t* image = nullptr;
    size_t got = 0;
    if (length >= 0 && length <= VBFMaxFileBytes && std::fseek(file, 0, SEEK_SET) == 0) {
        image = static_cast<uint8_t*>(MALLOC(length ? size_t(length) : 1));
        got = std::fread(image, 1, size_t(length), file);
    }
    std::fclose(file);
    if (!image || got != size_t(length)) {
        SetMeshReadFault(length > VBFMaxFileBytes
                             ? "the map file is over 1 GiB, more than a map may be"
                             : "the map file can't be read");
        VelmoraLog(tag, "Failed to read VBF: %s\n", path);
        if (image) FREE(image);
        return false;
    }
    bool read = VELMORALoadVBF(root, image, got, path, userData);
    if (image) FREE(image);
    return read;
}

}  // namespace

bool VELMORALoadVBF(CMesh* root, const uint8_t* image, size_t size, const char* fileName,
                    VBFUserData** userData) {
    if (userData) *userData = nullptr;
    ClearMeshReadFault();
    Reader reader(image, size, fileName ? fileName : "(image)");
    return reader.Parse(root, userData);
}

void InsertRotationKey(KeyAnimation* animation, uint32_t* capacity, float time,
                       const Quaternion& value) {
    InsertKeyValue(animation, capacity, time, value, &AnimationKey::rotation);
}

void InsertScaleKey(KeyAnimation* animation, uint32_t* capacity, float time, const Vector& value) {
    InsertKeyValue(animation, capacity, time, value, &AnimationKey::scale);
}

void InsertTranslationKey(KeyAnimation* animation, uint32_t* capacity, float time,
                          const Vector& value) {
    InsertKeyValue(animation, capacity, time, value, &AnimationKey::translation);
}

void FreeVBFUserData(VBFUserData* userData) {
    if (!userData) return;
    if (userData->bytes) FREE(userData->bytes);
    if (userData) FREE(userData);
}

bool CMesh::LoadVBF(const char* path) {
    return LoadVBFFile(this, path, "CMesh::LoadVBF", nullptr);
}

VBFUserData* CMesh::LoadVBFWithData(const char* path) {
    VBFUserData* userData = nullptr;
    LoadVBFFile(this, path, "CMesh::LoadVBFWithData", &userData);
    return userData;
}
