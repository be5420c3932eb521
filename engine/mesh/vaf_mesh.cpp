// DecodeMesh: one mesh block of a VAF file, read into work arrays and built into the mesh when
// its closing word comes; the textures, the hidden flag and the sort by texture follow once the
// whole file has read cleanly (ResolveFaces).
#include <algorithm>
#include <cstring>
#include <numeric>

#include "base/memory.h"
#include "base/velmora_log.h"
#include "engine/mesh/mesh.h"
#include "engine/mesh/mesh_animation.h"
#include "engine/mesh/vaf_reader.h"
#include "engine/mesh/vbf_reader.h"

struct VAFReader::MeshWork {
    std::vector<float> positions;    // x, y, z of `vertices` and of every key frame
    std::vector<int32_t> corners;    // vertex indices of the face list, three per face
    std::vector<uint32_t> cornerAt;  // where each stands in the file, for messages
    uint32_t groups = 0;             // the face count
    std::vector<float> uv;           // u, v of texture_coordinates and face_coordinates
    bool perFace = false;            // face_coordinates came
    bool lightGiven = false;
    std::vector<float> light;  // red, green, blue
    bool smoothingGiven = false;
    std::vector<uint32_t> smoothing;
    bool materialGiven = false;
    int32_t material = VAFNoMaterial;
    bool faceMaterialsGiven = false;
    std::vector<int32_t> faceMaterials;
    bool animated = false;  // anim_vertices came; the last one counts
    uint32_t frameCount = 0;
    std::vector<uint32_t> keyFrames;  // ascending
    size_t animatedAt = 0;
};

namespace {

bool Holds(std::string_view word, char c) {
    return word.find(c) != std::string_view::npos;
}

// The quoted name inside a word of face_materials: what follows its first '"', up to the next
// one or the end of the word. A word without a quote names "".
std::string_view QuotedInWord(std::string_view word) {
    size_t open = word.find('"');
    if (open == std::string_view::npos) return {};
    word.remove_prefix(open + 1);
    return word.substr(0, word.find('"'));
}

// 255 times a component, cut towards zero, its low byte stored, as the x86 conversion through a
// 32-bit integer gives it; out of that integer's range the conversion gives 0x80000000.
uint8_t ColourByte(float component) {
    double value = double(component) * 255.0;
    if (!(value > -2147483649.0 && value < 2147483648.0)) return 0;
    return uint8_t(uint32_t(int32_t(value)));
}

// (c - b) x (a - b), of unit length; (0, 0, 1) for a face of no area.
Vector FaceNormal(const MeshVertex* v, const MeshFace& face) {
    Vector cb, ab, n;
    VectorSubtract(v[face.vertex[2]].position, v[face.vertex[1]].position, cb);
    VectorSubtract(v[face.vertex[0]].position, v[face.vertex[1]].position, ab);
    VectorCross(n, cb, ab);
    float length = VectorLength(n);
    if (length == 0.0f) return Vector{0.0f, 0.0f, 1.0f};
    return Vector{float(double(n.x) / length), float(double(n.y) / length),
                  float(double(n.z) / length)};
}

// The normal of each of count vertices: the mean of the normals of the faces that use it, not
// normalised again; (0, 0, 1) for a vertex of no face. Summed face by face in face order, as a
// walk over the faces for each vertex sums them, in one pass.
void VertexNormals(MeshVertex* v, uint32_t count, const MeshFace* faces, uint32_t faceCount) {
    std::vector<Vector> sums(count, Vector{0.0f, 0.0f, 0.0f});
    std::vector<uint32_t> uses(count, 0);
    for (uint32_t i = 0; i < faceCount; ++i) {
        const MeshFace& face = faces[i];
        Vector n = FaceNormal(v, face);
        const uint32_t* c = face.vertex;
        for (int k = 0; k < 3; ++k) {
            if ((k > 0 && c[k] == c[0]) || (k > 1 && c[k] == c[1])) continue;  // once a face
            VectorAdd(sums[c[k]], n, sums[c[k]]);
            ++uses[c[k]];
        }
    }
    for (uint32_t i = 0; i < count; ++i) {
        const Vector& s = sums[i];
        double n = uses[i];
        v[i].normal = uses[i] ? Vector{float(s.x / n), float(s.y / n), float(s.z / n)}
                              : Vector{0.0f, 0.0f, 1.0f};
    }
}

}  // namespace

bool VAFReader::DecodeMesh(CMesh* mesh) {
    MeshWork work;
    scan.Scan(" { ");
    for (;;) {
        std::string_view word;
        size_t at = 0;
        if (!scan.Word(word, at)) return scan.FailEnd("the mesh of \"%.60s\"", Named());
        bool read = true;
        if (word == "vertices") {
            read = ReadVectors("vertices", " %f , %f , %f , ", 3, &work.positions, true);
        } else if (word == "anim_vertices") {
            read = ReadVertexAnimation(work, at);
        } else if (word == "smoothing_groups") {
            work.smoothingGiven = true;
            scan.Scan(" { ");
            int32_t group = 0;
            int got;
            while ((got = scan.Scan(" %d , ", &group)) == 1)
                if (keepSmoothing) work.smoothing.push_back(uint32_t(group));
            if (got == VAFEnd) return scan.FailEnd("the smoothing_groups of \"%.60s\"", Named());
            scan.Scan(" } ");
        } else if (word == "normals") {
            read = ReadVectors("normals", " %f , %f , %f , ", 3, nullptr, false);  // not used
        } else if (word == "texture_coordinates") {
            read = ReadVectors("texture_coordinates", " %f , %f , ", 2, &work.uv, true);
        } else if (word == "face_coordinates") {
            read = ReadVectors("face_coordinates", " %f , %f , ", 2, &work.uv, true);
            work.perFace = true;
        } else if (word == "vertex_light") {
            read = ReadVertexLight(work, at);
        } else if (word == "faces") {
            read = ReadFaces(work);
        } else if (word == "material") {
            std::string_view name;
            read = scan.QuotedName(name);
            work.materialGiven = true;
            work.material = FindMaterial(name);  // the last one counts
        } else if (word == "face_materials") {
            read = ReadFaceMaterials(work);
        } else if (Holds(word, '}')) {
            return BuildMesh(mesh, work, at);
        }
        if (!read) return false;
    }
}

// A list of entries of count numbers, up to where an entry converts nothing. An entry that
// converts part of its numbers is damage where the numbers are used; where they are not, the
// list goes on from there, as the format's loop does.
bool VAFReader::ReadVectors(const char* section, const char* format, int count,
                            std::vector<float>* out, bool partialIsDamage) {
    scan.Scan(" { ");
    for (;;) {
        scan.SkipSpace();
        size_t at = scan.Offset();
        float v[3] = {0, 0, 0};
        int read =
            count == 3 ? scan.Scan(format, &v[0], &v[1], &v[2]) : scan.Scan(format, &v[0], &v[1]);
        if (read == 0) break;
        if (read == VAFEnd) return scan.FailEnd("the %s of \"%.60s\"", section, Named());
        if (read < count) {
            if (!partialIsDamage) continue;
            return scan.Fail(at, "an entry of the %s of \"%.60s\" holds %d of its %d numbers",
                             section, Named(), read, count);
        }
        if (out) out->insert(out->end(), v, v + count);
    }
    scan.Scan(" } ");
    return !scan.Failed();
}

// Groups of a count and that many pairs; the second number of a pair lands where the count is
// kept, so where a count doesn't convert, the last pair's second number stands for it, and 0
// ends the list. Any other number there would never end it: that file is damaged.
bool VAFReader::ReadFaces(MeshWork& work) {
    scan.Scan(" { ");
    int32_t count = 0;
    for (;;) {
        scan.SkipSpace();
        size_t at = scan.Offset();
        int read = scan.Scan(" %d ", &count);
        if (scan.Failed()) return false;
        if (count == 0) break;
        if (read == VAFEnd) return scan.FailEnd("the faces of \"%.60s\"", Named());
        if (read == 0)
            return scan.Fail(at,
                             "the faces of \"%.60s\" have no end: the last pair's second "
                             "number, %d, stands as the next count, where 0 would end them",
                             Named(), count);
        ++work.groups;
        scan.Scan(" , ");
        const int32_t pairs = count;
        for (int32_t i = 0; i < pairs; ++i) {
            scan.SkipSpace();
            size_t pairAt = scan.Offset();
            int32_t corner = 0;
            int first = scan.Scan(" %d , ", &corner);
            int second = first == 1 ? scan.Scan(" %d , ", &count) : first;
            if (first == VAFEnd || second == VAFEnd)
                return scan.FailEnd("the faces of \"%.60s\"", Named());
            if (second != 1)
                return scan.Fail(pairAt,
                                 "a group of %d corners in the faces of \"%.60s\" breaks "
                                 "off after %d",
                                 pairs, Named(), i);
            work.corners.push_back(corner);
            work.cornerAt.push_back(uint32_t(pairAt));
        }
    }
    scan.Scan(" } ");
    return !scan.Failed();
}

// The frame count, then numbers each followed by a word: a word starting with ':' makes the
// number a key frame, any other is the comma of a vertex whose y and z follow.
bool VAFReader::ReadVertexAnimation(MeshWork& work, size_t at) {
    scan.SkipSpace();
    size_t countAt = scan.Offset();
    int32_t frames = 0;
    int read = scan.Scan(" %d ", &frames);
    if (read == VAFEnd) return scan.FailEnd("the anim_vertices of \"%.60s\"", Named());
    if (read == 0)
        return scan.Fail(countAt, "the anim_vertices of \"%.60s\" have no frame count", Named());
    if (frames < 1 || uint32_t(frames) > VBFMaxFrames)
        return scan.Fail(countAt,
                         "the anim_vertices of \"%.60s\" have %d frames, where 1 to %u "
                         "may be",
                         Named(), frames, uint32_t(VBFMaxFrames));
    // Frame tables are made for the counts the file claims, so their sum is held to one table's
    // limit: a small file must not claim gigabytes through many animated meshes.
    framesClaimed += uint32_t(frames);
    if (framesClaimed > VBFMaxFrames)
        return scan.Fail(countAt,
                         "the vertex animations up to \"%.60s\" come to %llu frames, "
                         "more than %u",
                         Named(), (unsigned long long)framesClaimed, uint32_t(VBFMaxFrames));
    work.animated = true;  // a new record in place of any earlier one
    work.frameCount = uint32_t(frames);
    work.keyFrames.clear();
    work.animatedAt = at;
    scan.Scan(" { ");
    for (;;) {
        scan.SkipSpace();
        size_t numberAt = scan.Offset();
        float number = 0;
        read = scan.Scan(" %f ", &number);
        if (read == 0) break;
        std::string_view word;
        size_t wordAt = 0;
        if (read == VAFEnd || !scan.Word(word, wordAt))
            return scan.FailEnd("the anim_vertices of \"%.60s\"", Named());
        if (!word.empty() && word[0] == ':') {
            if (!(number > -1.0f && number < float(frames)))
                return scan.Fail(numberAt,
                                 "the anim_vertices of \"%.60s\" have a key at frame "
                                 "%g, where the frames are 0 to %d",
                                 Named(), double(number), frames - 1);
            uint32_t frame = uint32_t(int32_t(number));  // cut towards zero
            if (!work.keyFrames.empty() && frame <= work.keyFrames.back())
                return scan.Fail(numberAt,
                                 "the anim_vertices of \"%.60s\" have key frame %u "
                                 "after key frame %u, where key frames must ascend",
                                 Named(), frame, work.keyFrames.back());
            work.keyFrames.push_back(frame);
            continue;
        }
        float yz[2];
        read = scan.Scan(" %f , %f , ", &yz[0], &yz[1]);
        if (read == VAFEnd) return scan.FailEnd("the anim_vertices of \"%.60s\"", Named());
        if (read < 2)
            return scan.Fail(numberAt,
                             "a vertex of the anim_vertices of \"%.60s\" holds %d of "
                             "its 3 numbers",
                             Named(), 1 + read);
        work.positions.insert(work.positions.end(), {number, yz[0], yz[1]});
    }
    scan.Scan(" } ");
    if (scan.Failed()) return false;
    if (work.keyFrames.empty())
        return scan.Fail(at, "the anim_vertices of \"%.60s\" have no key frame", Named());
    if (work.keyFrames[0] != 0)
        return scan.Fail(at,
                         "the anim_vertices of \"%.60s\" have no key at frame 0, their "
                         "first is at frame %u",
                         Named(), work.keyFrames[0]);
    return true;
}

bool VAFReader::ReadVertexLight(MeshWork& work, size_t at) {
    if (work.positions.empty()) {
        VelmoraDataFatal("DecodeMesh",
                         "Invalid VAF %s\nvertex lighting chunk before vertex definition\n", path);
        return scan.Fail(at, "the vertex_light of \"%.60s\" comes before its vertices", Named());
    }
    work.lightGiven = true;
    scan.Scan(" { ");
    for (;;) {
        scan.SkipSpace();
        size_t entryAt = scan.Offset();
        float c[3];
        int read = scan.Scan(" %f , %f ,%f, ", &c[0], &c[1], &c[2]);
        if (read == 0) break;
        if (read == VAFEnd) return scan.FailEnd("the vertex_light of \"%.60s\"", Named());
        if (read < 3)
            return scan.Fail(entryAt,
                             "an entry of the vertex_light of \"%.60s\" holds %d of its "
                             "3 numbers",
                             Named(), read);
        if (work.light.size() >= work.positions.size())
            return scan.Fail(entryAt,
                             "the vertex_light of \"%.60s\" has more entries than the "
                             "%zu vertices before it",
                             Named(), work.positions.size() / 3);
        work.light.insert(work.light.end(), c, c + 3);
    }
    scan.Scan(" } ");
    return !scan.Failed();
}

bool VAFReader::ReadFaceMaterials(MeshWork& work) {
    work.faceMaterialsGiven = true;
    scan.Scan(" { ");
    for (;;) {
        std::string_view word;
        size_t at = 0;
        if (!scan.Word(word, at)) return scan.FailEnd("the face_materials of \"%.60s\"", Named());
        if (Holds(word, '}')) return true;
        int32_t material = FindMaterial(QuotedInWord(word));
        work.faceMaterials.push_back(material == VAFNoMaterial ? VAFClearMaterial : material);
    }
}

// Every count and index against what the block gave, before anything is built.
bool VAFReader::CheckMesh(const MeshWork& work, size_t at, uint32_t perFrame) {
    const uint64_t faces = work.groups;
    if (work.corners.size() < 3 * faces)
        return scan.Fail(at, "the faces of \"%.60s\" give %zu corners for %llu faces", Named(),
                         work.corners.size(), (unsigned long long)faces);
    const size_t pairs = work.uv.size() / 2;
    for (size_t k = 0; k < 3 * faces; ++k) {
        int32_t corner = work.corners[k];
        if (corner < 0 || uint32_t(corner) >= perFrame)
            return scan.Fail(work.cornerAt[k],
                             "face %zu of \"%.60s\" uses vertex %d, the mesh "
                             "has %u",
                             k / 3, Named(), corner, perFrame);
        if (!work.perFace && pairs && uint32_t(corner) >= pairs)
            return scan.Fail(work.cornerAt[k],
                             "face %zu of \"%.60s\" uses vertex %d, its "
                             "texture_coordinates give %zu",
                             k / 3, Named(), corner, pairs);
    }
    if (work.perFace && pairs < 3 * faces)
        return scan.Fail(at, "the face_coordinates of \"%.60s\" give %zu pairs for %llu faces",
                         Named(), pairs, (unsigned long long)faces);
    if (work.faceMaterialsGiven && work.faceMaterials.size() < faces)
        return scan.Fail(at, "the face_materials of \"%.60s\" name %zu materials for %llu faces",
                         Named(), work.faceMaterials.size(), (unsigned long long)faces);
    if (keepSmoothing && work.smoothingGiven && work.smoothing.size() < faces)
        return scan.Fail(at, "the smoothing_groups of \"%.60s\" give %zu groups for %llu faces",
                         Named(), work.smoothing.size(), (unsigned long long)faces);
    return true;
}

bool VAFReader::BuildMesh(CMesh* mesh, MeshWork& work, size_t at) {
    const size_t total = work.positions.size() / 3;
    if (total > size_t(INT32_MAX))
        return scan.Fail(at, "the mesh of \"%.60s\" has %zu vertices", Named(), total);
    const uint32_t keyCount = work.animated ? uint32_t(work.keyFrames.size()) : 0;
    const uint32_t perFrame = keyCount ? uint32_t(total / keyCount) : uint32_t(total);
    if (!CheckMesh(work, at, perFrame)) return false;
    const uint32_t faceCount = work.groups;

    // A second mesh block in one object replaces the first one's geometry.
    auto earlier = pendingOf.find(mesh);
    if (earlier != pendingOf.end()) pendingMeshes[earlier->second].mesh = nullptr;
    mesh->ClearGeometry();

    mesh->AllocVertices(int32_t(total));
    for (size_t i = 0; i < total; ++i) {
        const float* p = &work.positions[3 * i];
        mesh->vertices[i] = MeshVertex{{p[0], p[1], p[2]}, {0.0f, 0.0f, 1.0f}};
    }
    mesh->vertexCount = int32_t(perFrame);
    if (work.lightGiven) {
        mesh->AllocColours(int32_t(total));
        if (total) std::memset(mesh->colours, 0, total * 3);
        for (size_t i = 0; i < work.light.size(); ++i) mesh->colours[i] = ColourByte(work.light[i]);
    }

    mesh->AllocFaces(faceCount, 0);
    PendingMesh pending{mesh, std::vector<FaceMaterial>(faceCount)};
    for (uint32_t i = 0; i < faceCount; ++i) {
        MeshFace& face = mesh->faces[0][i];
        for (int c = 0; c < 3; ++c) face.vertex[c] = uint32_t(work.corners[3 * i + c]);
        face.texture = nullptr;
        face.flags = 0;
        for (int c = 0; c < 3; ++c) {
            // Per face the pairs 3i to 3i + 2 from the start of the shared array; per vertex
            // the pair of the corner's vertex; no coordinates at all give 0.
            size_t pair = work.perFace ? 3 * size_t(i) + c : face.vertex[c];
            bool given = work.perFace || pair < work.uv.size() / 2;
            face.uv[2 * c] = given ? work.uv[2 * pair] : 0.0f;
            face.uv[2 * c + 1] = given ? work.uv[2 * pair + 1] : 0.0f;
        }
        pending.materials[i] =
            FaceMaterial{work.materialGiven ? work.material : VAFNoMaterial,
                         work.faceMaterialsGiven ? work.faceMaterials[i] : VAFNoMaterial};
    }
    // The normals of every key frame, each from its own positions: a consumer that shows a
    // later frame finds them as the first frame's are made.
    uint32_t frames = keyCount ? keyCount : 1;
    for (uint32_t k = 0; perFrame && k < frames; ++k)
        VertexNormals(mesh->vertices + size_t(k) * perFrame, perFrame, mesh->faces[0], faceCount);

    if (keepSmoothing && work.smoothingGiven && faceCount) {
        mesh->AllocSmoothingGroups();
        std::memcpy(mesh->smoothingGroups, work.smoothing.data(), faceCount * sizeof(uint32_t));
    }

    if (work.animated) {
        auto* animation = static_cast<VertexAnimation*>(MALLOC(sizeof(VertexAnimation)));
        std::memset(animation, 0, sizeof *animation);
        animation->flags = VertexAnimationOwnsArrays;
        animation->frameCount = work.frameCount;
        animation->keyCount = keyCount;
        animation->totalVertices = uint32_t(total);
        animation->keyFrames = static_cast<uint32_t*>(MALLOC(keyCount * sizeof(uint32_t)));
        std::memcpy(animation->keyFrames, work.keyFrames.data(), keyCount * sizeof(uint32_t));
        animation->frameTable =
            static_cast<void**>(MALLOC(size_t(work.frameCount) * sizeof(void*)));
        animation->frameData = mesh->vertices;
        // A frame shows the last key at or before it; frame 0 is a key.
        void* shown = nullptr;
        uint32_t key = 0;
        for (uint32_t frame = 0; frame < work.frameCount; ++frame) {
            if (key < keyCount && work.keyFrames[key] == frame) {
                shown = mesh->vertices ? mesh->vertices + size_t(key) * perFrame : nullptr;
                ++key;
            }
            animation->frameTable[frame] = shown;
        }
        mesh->SetVertexAnimation(animation);
    }
    pendingOf[mesh] = pendingMeshes.size();
    pendingMeshes.push_back(std::move(pending));
    return true;
}

// Textures and flags from the materials, hidden where no face has a texture, and the faces in
// ascending order of their texture pointers, equal ones in file order, smoothing groups along.
void VAFReader::ResolveFaces(PendingMesh& pending) {
    CMesh* mesh = pending.mesh;
    const uint32_t count = mesh->faceCount[0];
    MeshFace* faces = mesh->faces[0];
    bool textured = false;
    for (uint32_t i = 0; i < count; ++i) {
        MeshFace& face = faces[i];
        const FaceMaterial& ref = pending.materials[i];
        face.texture = ref.base >= 0 ? materials[size_t(ref.base)].texture : nullptr;
        face.flags = 0;
        if (ref.chosen >= 0 && materials[size_t(ref.chosen)].texture) {
            face.texture = materials[size_t(ref.chosen)].texture;
            face.flags = materials[size_t(ref.chosen)].flags;
        } else if (ref.chosen == VAFClearMaterial) {
            face.texture = nullptr;
            face.flags = 0;
        }
        textured = textured || face.texture;
    }
    if (!textured) mesh->hidden = 1;

    auto key = [&](uint32_t i) { return reinterpret_cast<uintptr_t>(faces[i].texture); };
    std::vector<uint32_t> order(count);
    std::iota(order.begin(), order.end(), 0u);
    std::stable_sort(order.begin(), order.end(),
                     [&](uint32_t a, uint32_t b) { return key(a) < key(b); });
    bool moved = false;
    for (uint32_t i = 0; i < count; ++i) moved = moved || order[i] != i;
    if (!moved) return;
    std::vector<MeshFace> sorted(count);
    std::vector<uint32_t> groups(mesh->smoothingGroups ? count : 0);
    for (uint32_t i = 0; i < count; ++i) {
        sorted[i] = faces[order[i]];
        if (mesh->smoothingGroups) groups[i] = mesh->smoothingGroups[order[i]];
    }
    std::copy(sorted.begin(), sorted.end(), faces);
    if (mesh->smoothingGroups) std::copy(groups.begin(), groups.end(), mesh->smoothingGroups);
}
