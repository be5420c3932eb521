#include "engine/mesh/vaf_reader.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include <sys/stat.h>

#include "base/memory.h"
#include "base/velmora_log.h"
#include "engine/mesh/mesh.h"
#include "engine/mesh/mesh_animation.h"
#include "engine/mesh/mesh_read_fault.h"
#include "engine/mesh/vbf_reader.h"
#include "engine/texture/texture_lookup.h"

namespace {

// Larger files are refused before anything is allocated for them, as VBF files are.
constexpr long VAFMaxFileBytes = long(1) << 30;

bool Holds(std::string_view word, char c) {
    return word.find(c) != std::string_view::npos;
}

// A key animation of the same keys and values in blocks of its own, for a second object that an
// animation block names: each object owns and frees its record.
KeyAnimation* CopyKeyAnimation(const KeyAnimation* source) {
    auto* copy = static_cast<KeyAnimation*>(MALLOC(sizeof(KeyAnimation)));
    *copy = *source;
    copy->keys = nullptr;
    if (source->keyCount) {
        copy->keys = static_cast<AnimationKey*>(MALLOC(source->keyCount * sizeof(AnimationKey)));
        for (uint32_t i = 0; i < source->keyCount; ++i) {
            const AnimationKey& from = source->keys[i];
            AnimationKey& to = copy->keys[i];
            to = AnimationKey{nullptr, nullptr, nullptr, from.time};
            if (from.scale) to.scale = static_cast<Vector*>(MALLOC(sizeof(Vector)));
            if (from.scale) *to.scale = *from.scale;
            if (from.rotation) to.rotation = static_cast<Quaternion*>(MALLOC(sizeof(Quaternion)));
            if (from.rotation) *to.rotation = *from.rotation;
            if (from.translation) to.translation = static_cast<Vector*>(MALLOC(sizeof(Vector)));
            if (from.translation) *to.translation = *from.translation;
        }
    }
    return copy;
}

}  // namespace

VAFReader::VAFReader(const char* text, size_t size, const char* filePath, CMesh* rootMesh,
                     bool keep)
    : scan(text, size), path(filePath), root(rootMesh), keepSmoothing(keep), holder(nullptr) {}

VAFReader::~VAFReader() {
    for (const Binding& binding : bindings) FreeKeyAnimation(binding.animation);
}

const char* VAFReader::Named() const {
    return current && current->name ? current->name : "";
}

bool VAFReader::Read() {
    CEntity scratch(nullptr);  // the new objects, apart from root until the file is whole
    holder = &scratch;
    ReadTopLevel();
    if (scan.Failed()) {
        VelmoraLog("VAFLoad", "Corrupt VAF %s at line %zu: %s\n", path, scan.FaultLine(),
                   scan.Fault());
        SetMeshReadFault("the map file is damaged at line %zu: %s", scan.FaultLine(), scan.Fault());
        holder = nullptr;
        return false;
    }
    Commit();
    holder = nullptr;
    return true;
}

// Top level: material and object blocks; any other word is passed over.
void VAFReader::ReadTopLevel() {
    std::string_view word;
    size_t at = 0;
    while (scan.Word(word, at)) {
        if (word == "material") {
            if (!ReadMaterial()) return;
        } else if (word == "object") {
            if (!ReadObject(holder, 1, at)) return;
        }
    }
}

void VAFReader::NewVAFMaterial(std::string_view name) {
    std::string whole(name);
    if (whole.size() <= VAFMaterialNameLength && materialIndex.count(whole))
        VelmoraLog("NewVAFMaterial", "Repeat material [%s] - Mangled textures!", whole.c_str());
    VafMaterial material;
    material.name = whole.substr(0, VAFMaterialNameLength);
    uint32_t index = uint32_t(materials.size());
    materialIndex.emplace(material.name, index);  // lookups find the older one first
    materials.push_back(std::move(material));
}

int32_t VAFReader::FindMaterial(std::string_view name) const {
    if (materials.empty()) return VAFNoMaterial;
    if (name.size() <= VAFMaterialNameLength) {
        auto found = materialIndex.find(std::string(name));
        if (found != materialIndex.end()) return int32_t(found->second);
    }
    return 0;  // a name not in the list gives the first material
}

bool VAFReader::ReadMaterial() {
    std::string_view name;
    if (!scan.QuotedName(name)) return false;
    NewVAFMaterial(name);
    uint32_t index = uint32_t(materials.size() - 1);
    VafMaterial& material = materials[index];
    if (Holds(name, '&')) material.flags |= VAFMaterialAmpersand;
    if (Holds(name, '%')) material.flags |= VAFMaterialPercent;
    scan.Scan(" { ");
    for (;;) {
        std::string_view word;
        size_t at = 0;
        if (!scan.Word(word, at))
            return scan.FailEnd("the material \"%.*s\"", int(std::min<size_t>(name.size(), 60)),
                                name.data());
        if (word == "texture") {
            std::string_view file;
            if (!scan.QuotedName(file)) return false;
            textureLoads.push_back(TextureLoad{index, std::string(file)});
        } else if (word == "colour") {
            float c[4];
            scan.Scan(" { %f , %f , %f , %f } ", &c[0], &c[1], &c[2], &c[3]);  // not used
        } else if (word == "specular") {
            float s[2];
            scan.Scan(" { %f , %f } ", &s[0], &s[1]);  // not used
        } else if (Holds(word, '}')) {
            return true;
        }
    }
}

bool VAFReader::ReadObject(CEntity* parent, uint32_t depth, size_t at) {
    if (depth > VAFMaxDepth)
        return scan.Fail(at, "objects nest deeper than %u levels", uint32_t(VAFMaxDepth));
    std::string_view name;
    if (!scan.QuotedName(name)) return false;
    CMesh* mesh = NEW CMesh(parent);
    mesh->SetName(std::string(name).c_str());
    CMesh* outer = current;
    current = mesh;
    scan.Scan(" { ");
    for (;;) {
        std::string_view word;
        size_t wordAt = 0;
        if (!scan.Word(word, wordAt)) return scan.FailEnd("the object \"%.60s\"", Named());
        bool read = true;
        if (word == "matrix")
            read = ReadMatrix(mesh, wordAt);
        else if (word == "mesh")
            read = DecodeMesh(mesh);
        else if (word == "object")
            read = ReadObject(mesh, depth + 1, wordAt);
        else if (word == "animation")
            read = ReadAnimation();
        else if (Holds(word, '}'))
            break;
        if (!read) return false;
        current = mesh;  // a child object was read in between
    }
    current = outer;
    return true;
}

// Sixteen numbers, row after row, in two reads as the format has them; a matrix that doesn't
// hold all sixteen is damage, as the missing ones would be left to chance.
bool VAFReader::ReadMatrix(CMesh* mesh, size_t at) {
    Matrix local;
    float* m = local.m;
    int first = scan.Scan(" { %f , %f , %f, %f , %f , %f , %f , %f , ", &m[0], &m[1], &m[2], &m[3],
                          &m[4], &m[5], &m[6], &m[7]);
    int second = first == 8 ? scan.Scan(" %f , %f , %f, %f , %f , %f , %f , %f , } ", &m[8], &m[9],
                                        &m[10], &m[11], &m[12], &m[13], &m[14], &m[15])
                            : 0;
    if (first == VAFEnd || second == VAFEnd)
        return scan.FailEnd("the matrix of \"%.60s\"", Named());
    if (first + second != 16)
        return scan.Fail(at, "the matrix of \"%.60s\" holds %d numbers where 16 belong", Named(),
                         first + second);
    mesh->SetMatrix(local);
    return true;
}

// An animation block: the objects it names, and its keys. Keys are gathered first and go in
// sorted by frame, keeping file order within a frame, which gives the keys that inserting them
// one by one in file order gives, without quadratic moves for a file of keys in falling order.
bool VAFReader::ReadAnimation() {
    std::string_view unused;
    if (!scan.QuotedName(unused)) return false;
    scan.Scan(" { ");
    std::vector<KeyEvent> events;
    std::vector<CMesh*> targets;
    Matrix base{};
    for (;;) {
        std::string_view word;
        size_t at = 0;
        if (!scan.Word(word, at)) return scan.FailEnd("an animation in \"%.60s\"", Named());
        bool read = true;
        if (word == "object_name") {
            std::string_view name;
            if (!scan.QuotedName(name)) return false;
            CEntity* found = FindObject(name);
            int length = int(std::min<size_t>(name.size(), 60));
            if (!found)
                return scan.Fail(at, "object_name \"%.*s\" names no object", length, name.data());
            if (found->kind != EntityKindMesh)
                return scan.Fail(at, "object_name \"%.*s\" names a frame that is no mesh", length,
                                 name.data());
            CMesh* target = static_cast<CMesh*>(found);
            // The objects share one record in the format: its base matrix is the last one's.
            target->GetLocalMatrix(base);
            if (std::find(targets.begin(), targets.end(), target) == targets.end())
                targets.push_back(target);
        } else if (word == "rotate_keys") {
            read = ReadKeys("rotate_keys", " %d , %f , %f , %f , %f , ", 0, 4, events);
        } else if (word == "scale_keys") {
            read = ReadKeys("scale_keys", " %d , %f , %f , %f , ", 1, 3, events);
        } else if (word == "position_keys") {
            read = ReadKeys("position_keys", " %d , %f , %f , %f , ", 2, 3, events);
        } else if (Holds(word, '}')) {
            break;
        }
        if (!read) return false;
    }
    KeyAnimation* animation = events.empty() ? nullptr : BuildKeyAnimation(events);
    if (animation) animation->baseMatrix = base;
    for (size_t i = 0; i < targets.size(); ++i)
        bindings.push_back(
            Binding{targets[i], animation && i ? CopyKeyAnimation(animation) : animation});
    if (targets.empty()) FreeKeyAnimation(animation);
    return true;
}

bool VAFReader::ReadKeys(const char* section, const char* format, int kind, int values,
                         std::vector<KeyEvent>& events) {
    scan.Scan(" { ");
    for (;;) {
        scan.SkipSpace();
        size_t at = scan.Offset();
        KeyEvent key{0, kind, {0, 0, 0, 0}};
        float* v = key.value;
        int read = values == 4 ? scan.Scan(format, &key.frame, &v[0], &v[1], &v[2], &v[3])
                               : scan.Scan(format, &key.frame, &v[0], &v[1], &v[2]);
        if (read == 0) break;
        if (read == VAFEnd) return scan.FailEnd("the %s of an animation", section);
        if (read < values + 1)
            return scan.Fail(at, "a key of %s holds %d of its %d numbers", section, read,
                             values + 1);
        if (key.frame < 0) continue;  // dropped
        if (uint32_t(key.frame) >= VBFMaxFrames)
            return scan.Fail(at,
                             "a key of %s is on frame %d, beyond the last frame a model may "
                             "have (%u)",
                             section, key.frame, uint32_t(VBFMaxFrames) - 1);
        events.push_back(key);
    }
    scan.Scan(" } ");
    return !scan.Failed();
}

KeyAnimation* VAFReader::BuildKeyAnimation(std::vector<KeyEvent>& events) {
    std::stable_sort(events.begin(), events.end(),
                     [](const KeyEvent& a, const KeyEvent& b) { return a.frame < b.frame; });
    auto* animation = static_cast<KeyAnimation*>(MALLOC(sizeof(KeyAnimation)));
    std::memset(animation, 0, sizeof *animation);
    animation->owner = 1;
    animation->currentFrame = KeyAnimationNoFrame;
    animation->form = KeyFormKeys;
    uint32_t capacity = uint32_t(events.size());
    animation->keys = static_cast<AnimationKey*>(MALLOC(capacity * sizeof(AnimationKey)));
    int32_t highest = 1;
    for (const KeyEvent& key : events) {
        highest = std::max(highest, key.frame);
        float time = float(key.frame);
        const float* v = key.value;
        if (key.kind == 0)
            InsertRotationKey(animation, &capacity, time, Quaternion{v[0], v[1], v[2], v[3]});
        else if (key.kind == 1)
            InsertScaleKey(animation, &capacity, time, Vector{v[0], v[1], v[2]});
        else
            InsertTranslationKey(animation, &capacity, time, Vector{v[0], v[1], v[2]});
    }
    animation->lastFrame = uint32_t(highest);
    // The record keeps an array that fits its keys exactly.
    size_t used = animation->keyCount * sizeof(AnimationKey);
    if (animation->keyCount < capacity)
        animation->keys = static_cast<AnimationKey*>(CvReallocCopy(animation->keys, used, used));
    return animation;
}

// CEntity::FindByName from root, with the new objects standing in front of root's old children
// as they will: the root, every node of a list before any of their children, and the children of
// a list's later nodes before those of its earlier ones. Walked with a stack of lists, so a long
// list costs no depth of recursion.
CEntity* VAFReader::FindObject(std::string_view name) {
    std::string text(name);
    auto named = [&](const CEntity* node) {
        return node->name && std::strcmp(node->name, text.c_str()) == 0;
    };
    if (named(root)) return root;
    std::vector<CEntity*> lists;
    for (CEntity* top : {holder->firstChild, root->firstChild}) {
        for (CEntity* node = top; node; node = node->nextSibling) {
            if (named(node)) return node;
            if (node->firstChild) lists.push_back(node->firstChild);
        }
    }
    while (!lists.empty()) {
        CEntity* list = lists.back();
        lists.pop_back();
        for (CEntity* node = list; node; node = node->nextSibling) {
            if (named(node)) return node;
            if (node->firstChild) lists.push_back(node->firstChild);
        }
    }
    return nullptr;
}

// The file read cleanly: textures load in the order of the file's texture entries, faces take
// them and are sorted, the new objects join root, and the key animations go to their objects.
void VAFReader::Commit() {
    for (const TextureLoad& load : textureLoads)
        materials[load.material].texture = VALoadTexture(load.name.c_str());
    for (PendingMesh& pending : pendingMeshes)
        if (pending.mesh) ResolveFaces(pending);
    // holder stands newest first, as root's list must; reversed once, each AddChild then puts
    // the next object at root's front, before the children root already had.
    CEntity fileOrder(nullptr);
    while (holder->firstChild) fileOrder.AddChild(holder->firstChild);
    while (fileOrder.firstChild) root->AddChild(fileOrder.firstChild);
    for (Binding& binding : bindings) {
        KeyAnimation* old = binding.target->keyAnimation;
        if (old && old != binding.animation) FreeKeyAnimation(old);
        binding.target->SetKeyAnimation(binding.animation);
        binding.animation = nullptr;  // the mesh owns it now
    }
}

bool CMesh::LoadVAF(const char* path, uint32_t keepSmoothing) {
    SetMeshFolderFromPath(path);
    ClearMeshReadFault();
    std::FILE* file = path ? std::fopen(path, "rb") : nullptr;
    if (!file) {
        SetMeshReadFault("the map file can't be opened (%s)", std::strerror(errno));
        VelmoraLog("VAFLoad", "Could not find VAF:  %s\n", path ? path : "");
        return false;
    }
    // A folder opens as a file here; it is no map.
    struct stat status;
    bool regular = fstat(fileno(file), &status) == 0 && S_ISREG(status.st_mode);
    long length = -1;
    if (regular && std::fseek(file, 0, SEEK_END) == 0) length = std::ftell(file);
    char* text = nullptr;
    size_t got = 0;
    if (length >= 0 && length <= VAFMaxFileBytes && std::fseek(file, 0, SEEK_SET) == 0) {
        text = static_cast<char*>(MALLOC(size_t(length) + 1));
        got = std::fread(text, 1, size_t(length), file);
    }
    std::fclose(file);
    if (!text || got != size_t(length)) {
        SetMeshReadFault(length > VAFMaxFileBytes
                             ? "the map file is over 1 GiB, more than a map may be"
                             : "the map file can't be read");
        VelmoraLog("VAFLoad", "Failed to read VAF: %s\n", path);
        if (text) FREE(text);
        return false;
    }
    text[got] = '\0';
    bool read;
    {
        VAFReader reader(text, got, path, this, keepSmoothing != 0);
        read = reader.Read();
    }
    FREE(text);
    return read;
}
