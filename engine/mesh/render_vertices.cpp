#include "engine/mesh/render_vertices.h"

#include <cmath>
#include <cstring>
#include <vector>

#include "base/memory.h"
#include "engine/mesh/draw_group.h"
#include "engine/mesh/mesh.h"
#include "engine/mesh/mesh_animation.h"
#include "engine/mesh/packed_frame.h"

namespace {

constexpr MeshVertex NoVertex = {{0, 0, 0}, {0, 0, 0}};

const MeshVertex& SourceOf(const MeshVertex* vertices, int32_t vertexCount, uint32_t index) {
    return index < uint32_t(vertexCount) ? vertices[index] : NoVertex;
}

// Indexed by two layers * 4 + colours * 2 + speculars.
constexpr MeshVertexFormat Formats[8] = {
    {{0, 1, 2}, {3, 4, 5}, -1, -1, {6, 7}, {-1, -1}, 8, 0x112},
    {{0, 1, 2}, {3, 4, 5}, -1, 6, {7, 8}, {-1, -1}, 9, 0x192},
    {{0, 1, 2}, {-1, -1, -1}, 3, -1, {4, 5}, {-1, -1}, 6, 0x142},
    {{0, 1, 2}, {-1, -1, -1}, 3, 4, {5, 6}, {-1, -1}, 7, 0x1C2},
    {{0, 1, 2}, {3, 4, 5}, -1, -1, {6, 7}, {8, 9}, 10, 0x212},
    {{0, 1, 2}, {3, 4, 5}, -1, 6, {7, 8}, {9, 10}, 11, 0x292},
    {{0, 1, 2}, {-1, -1, -1}, 3, -1, {4, 5}, {6, 7}, 8, 0x242},
    {{0, 1, 2}, {-1, -1, -1}, 3, 4, {5, 6}, {7, 8}, 9, 0x2C2},
};

void PutWord(float* vertex, int32_t place, uint32_t word) {
    if (place >= 0) std::memcpy(vertex + place, &word, sizeof word);
}

void PutVector(float* vertex, const int32_t* places, const Vector& v) {
    if (places[0] < 0) return;
    vertex[places[0]] = v.x;
    vertex[places[1]] = v.y;
    vertex[places[2]] = v.z;
}

void PutUV(float* vertex, const int32_t* places, const float* uv) {
    if (places[0] < 0 || !uv) return;
    vertex[places[0]] = uv[0];
    vertex[places[1]] = uv[1];
}

bool FaceCornersInRange(const MeshFace& face, int32_t vertexCount) {
    for (uint32_t v : face.vertex)
        if (v >= uint32_t(vertexCount)) return false;
    return true;
}

// The weld's search: the first render vertex of the current run with a given source and layer 0
// u, v, found through an open hash table instead of a walk along the run. Each slot carries the
// run it was filled in, so a new run empties the table without touching it.
class RunCorners {
public:
    static constexpr uint32_t None = ~0u;

    explicit RunCorners(const RenderVertex* list) : vertices(list) { Resize(64); }

    void StartRun(uint32_t start) {
        ++run;
        runStart = start;
        filled = 0;
    }

    uint32_t Find(uint32_t source, const float* uv) const {
        if (std::isnan(uv[0]) || std::isnan(uv[1])) return None;  // equals nothing, as in a scan
        for (size_t i = Hash(source, uv) & mask;; i = (i + 1) & mask) {
            const Slot& slot = slots[i];
            if (slot.run != run) return None;
            const RenderVertex& rv = vertices[slot.vertex];
            if (rv.source == source && rv.uv[0][0] == uv[0] && rv.uv[0][1] == uv[1])
                return slot.vertex;
        }
    }

    // vertex, just made, becomes findable unless an earlier one of the run has its key.
    void Add(uint32_t vertex) {
        if (2 * (filled + 1) > slots.size()) {
            Resize(slots.size() * 2);
            for (uint32_t v = runStart; v < vertex; ++v) Insert(v);
        }
        Insert(vertex);
    }

private:
    struct Slot {
        uint32_t run;
        uint32_t vertex;
    };

    // -0 and +0 compare equal, so they must hash alike.
    static uint32_t Bits(float value) {
        uint32_t bits = 0;
        if (value != 0.0f) std::memcpy(&bits, &value, sizeof bits);
        return bits;
    }
    static size_t Hash(uint32_t source, const float* uv) {
        uint64_t h = source * 0x9E3779B97F4A7C15ull;
        h ^= (uint64_t(Bits(uv[0])) << 32 | Bits(uv[1])) * 0xC2B2AE3D27D4EB4Full;
        return size_t(h ^ h >> 29);
    }

    void Resize(size_t count) {
        slots.assign(count, Slot{0, 0});
        mask = count - 1;
        filled = 0;
    }

    void Insert(uint32_t vertex) {
        const RenderVertex& rv = vertices[vertex];
        if (Find(rv.source, rv.uv[0]) != None || std::isnan(rv.uv[0][0]) || std::isnan(rv.uv[0][1]))
            return;
        size_t i = Hash(rv.source, rv.uv[0]) & mask;
        while (slots[i].run == run) i = (i + 1) & mask;
        slots[i] = {run, vertex};
        ++filled;
    }

    const RenderVertex* vertices;
    std::vector<Slot> slots;
    size_t mask = 0;
    size_t filled = 0;
    uint32_t run = 1;  // slots start in run 0: empty
    uint32_t runStart = 0;
};

// The common refresh masks get exactly their attributes; any other writes all.
uint32_t RefreshSet(uint32_t mask) {
    switch (mask) {
        case 0:
        case 1:
        case 2:
        case 3:
        case 5:
        case 7:
        case 8:
        case 16:
        case 17:
        case 18:
        case 19:
        case 24:
        case 32:
            return mask;
        default:
            return RefreshAll;
    }
}

}  // namespace

MeshFreeVerticesFunction MeshFreeVertices = nullptr;
MeshRenderFunction MeshRender = nullptr;

void FaceNormal(const MeshVertex* vertices, uint32_t a, uint32_t b, uint32_t c, Vector& out) {
    Vector ca, ab;
    VectorSubtract(vertices[c].position, vertices[b].position, ca);
    VectorSubtract(vertices[a].position, vertices[b].position, ab);
    VectorCross(out, ca, ab);
    VectorNormalize(out);
}

RenderVertexList BuildRenderVertices(int32_t vertexCount, const MeshVertex* vertices,
                                     const uint32_t faceCount[2], MeshFace* const faces[2],
                                     uint16_t* indices) {
    RenderVertexList list = {nullptr, 0};
    if (vertexCount <= 0 || !vertices || faceCount[0] == 0 || !faces[0]) return list;
    list.vertices =
        static_cast<RenderVertex*>(MALLOC(size_t(faceCount[0]) * 3 * sizeof(RenderVertex)));
    if (!list.vertices) return list;
    const uint32_t secondCount = faces[1] ? faceCount[1] : 0;
    const CTexture* runTexture = faces[0][0].texture;
    RunCorners corners(list.vertices);
    for (uint32_t f = 0; f < faceCount[0]; ++f) {
        MeshFace& face = faces[0][f];
        MeshFace* second = f < secondCount ? faces[1] + f : nullptr;
        if (face.texture != runTexture) {
            corners.StartRun(list.count);
            runTexture = face.texture;
        }
        uint32_t corner[3] = {RunCorners::None, RunCorners::None, RunCorners::None};
        const bool flat = (face.flags & MeshFlatFace) != 0;
        Vector flatNormal = {0, 0, 0};
        if (flat && FaceCornersInRange(face, vertexCount))
            FaceNormal(vertices, face.vertex[0], face.vertex[1], face.vertex[2], flatNormal);
        // All three look before any is added: a face never welds to its own corners.
        for (int k = 0; !flat && k < 3; ++k)
            corner[k] = corners.Find(face.vertex[k], face.uv + k * 2);
        for (int k = 0; k < 3; ++k) {
            if (corner[k] != RunCorners::None) continue;
            RenderVertex& rv = list.vertices[list.count];
            rv.source = face.vertex[k];
            rv.normal = flat ? flatNormal : SourceOf(vertices, vertexCount, face.vertex[k]).normal;
            rv.uvSource[0] = face.uv + k * 2;
            rv.uv[0][0] = face.uv[k * 2];
            rv.uv[0][1] = face.uv[k * 2 + 1];
            rv.uvSource[1] = second ? second->uv + k * 2 : nullptr;
            rv.uv[1][0] = second ? second->uv[k * 2] : 0.0f;
            rv.uv[1][1] = second ? second->uv[k * 2 + 1] : 0.0f;
            corner[k] = list.count++;
            corners.Add(corner[k]);
        }
        if (indices)
            for (int k = 0; k < 3; ++k) indices[f * 3 + k] = uint16_t(corner[k]);
    }
    return list;
}

void FreeRenderVertices(RenderVertexList& list) {
    if (list.vertices) FREE(list.vertices);
    list.vertices = nullptr;
    list.count = 0;
}

bool HasTwoLayers(const CMesh* mesh) {
    return mesh->faces[1] && mesh->faceCount[1] == mesh->faceCount[0];
}

const MeshVertexFormat* SelectVertexFormat(bool twoLayers, bool colours, bool speculars) {
    return Formats + (twoLayers ? 4 : 0) + (colours ? 2 : 0) + (speculars ? 1 : 0);
}

const MeshVertexFormat* SelectVertexFormat(const CMesh* mesh) {
    return SelectVertexFormat(HasTwoLayers(mesh), mesh->colours != nullptr,
                              mesh->speculars != nullptr);
}

uint32_t PackMeshColour(const uint8_t* rgb) {
    return uint32_t(rgb[0]) << 16 | uint32_t(rgb[1]) << 8 | uint32_t(rgb[2]);
}

void PutRenderVertex(const CMesh* mesh, const MeshVertexFormat* format, const RenderVertex& rv,
                     const Vector& position, const Vector& normal, float* vertex) {
    const bool inRange = rv.source < uint32_t(mesh->vertexCount);
    PutVector(vertex, format->xyz, position);
    if (mesh->colours)
        PutWord(vertex, format->diffuse,
                inRange ? PackMeshColour(mesh->colours + size_t(rv.source) * 3) : 0);
    else
        PutVector(vertex, format->nxyz, normal);
    if (mesh->speculars)
        PutWord(vertex, format->specular, inRange ? mesh->speculars[rv.source] : 0);
    PutUV(vertex, format->uv0, rv.uv[0]);
    PutUV(vertex, format->uv1, rv.uv[1]);
}

void WriteRenderVertices(const CMesh* mesh, const RenderVertexList& list, float* out,
                         uint32_t* sourceTable, float** uv0Table, float** uv1Table) {
    const MeshVertexFormat* format = mesh->vertexFormat;
    if (!format || !out) return;
    for (uint32_t i = 0; i < list.count; ++i) {
        const RenderVertex& rv = list.vertices[i];
        PutRenderVertex(mesh, format, rv,
                        SourceOf(mesh->vertices, mesh->vertexCount, rv.source).position, rv.normal,
                        out + size_t(i) * size_t(format->stride));
        if (sourceTable) sourceTable[i] = rv.source;
        if (uv0Table) uv0Table[i] = rv.uvSource[0];
        if (uv1Table) uv1Table[i] = rv.uvSource[1];
    }
}

void RefreshRenderVertices(const CMesh* mesh, uint32_t mask, float* out) {
    const MeshVertexFormat* format = mesh->vertexFormat;
    const uint32_t set = RefreshSet(mask & RefreshAll);
    if (!format || !out || !mesh->renderVertexSource || set == 0) return;
    float* const* uv0 = mesh->renderVertexUV[0];
    float* const* uv1 = mesh->renderVertexUV[1];
    for (int32_t r = 0; r < mesh->renderVertexCount; ++r) {
        float* vertex = out + size_t(r) * size_t(format->stride);
        const uint32_t s = mesh->renderVertexSource[r];
        const bool inRange = s < uint32_t(mesh->vertexCount);
        const MeshVertex& source = SourceOf(mesh->vertices, mesh->vertexCount, s);
        if (set & RefreshPosition) PutVector(vertex, format->xyz, source.position);
        if ((set & RefreshNormal) && !mesh->colours) PutVector(vertex, format->nxyz, source.normal);
        if ((set & RefreshUV0) && uv0) PutUV(vertex, format->uv0, uv0[r]);
        if ((set & RefreshUV1) && uv1) PutUV(vertex, format->uv1, uv1[r]);
        if ((set & RefreshColour) && mesh->colours)
            PutWord(vertex, format->diffuse,
                    inRange ? PackMeshColour(mesh->colours + size_t(s) * 3) : 0);
        if ((set & RefreshSpecular) && mesh->speculars)
            PutWord(vertex, format->specular, inRange ? mesh->speculars[s] : 0);
    }
}

void WriteAnimationFrame(CMesh* mesh, float* out) {
    const VertexAnimation* animation = mesh->vertexAnimation;
    if (!animation || !animation->frameTable || animation->currentFrame >= animation->frameCount)
        return;
    const uint32_t frame = animation->currentFrame;
    if (!(animation->flags & VertexAnimationPacked)) {
        if (animation->frameTable[frame])
            mesh->vertices = static_cast<MeshVertex*>(animation->frameTable[frame]);
        mesh->dirtyMask |= RefreshPosition | (mesh->colours ? 0u : uint32_t(RefreshNormal));
        return;
    }
    const MeshVertexFormat* format = mesh->vertexFormat;
    PackedFrame packed;
    if (!format || !out || !mesh->renderVertexSource || !packed.Locate(animation, frame)) return;
    for (int32_t r = 0; r < mesh->renderVertexCount; ++r) {
        Vector position, normal;
        if (!packed.Vertex(mesh->renderVertexSource[r], position,
                           mesh->colours ? nullptr : &normal))
            continue;
        float* vertex = out + size_t(r) * size_t(format->stride);
        PutVector(vertex, format->xyz, position);
        if (!mesh->colours) PutVector(vertex, format->nxyz, normal);
    }
}

void MakeDrawGroups(CMesh* mesh, uint32_t vertexStart) {
    if (mesh->drawGroups) {
        // Back to vertex-relative indices, so a new grouping starts from the weld's numbers.
        for (int32_t g = 0; g < mesh->groupCount; ++g) {
            const DrawGroup& group = mesh->drawGroups[g];
            const uint32_t offset = group.firstVertex - vertexStart;
            for (uint32_t i = 0; i < group.indexCount; ++i)
                group.groupIndices[i] = uint16_t(group.groupIndices[i] + offset);
        }
        FREE(mesh->drawGroups);
        mesh->drawGroups = nullptr;
    }
    mesh->groupCount = 0;
    const uint32_t faceTotal = mesh->faceCount[0];
    const MeshFace* faces = mesh->faces[0];
    if (!faces || faceTotal == 0 || !mesh->indices || mesh->renderVertexCount <= 0) return;
    int32_t runs = 1;
    for (uint32_t f = 1; f < faceTotal; ++f)
        if (faces[f].texture != faces[f - 1].texture) ++runs;
    auto* groups = static_cast<DrawGroup*>(MALLOC(size_t(runs) * sizeof(DrawGroup)));
    if (!groups) return;
    const bool twoLayers = HasTwoLayers(mesh);
    int32_t g = 0;
    for (uint32_t first = 0; first < faceTotal;) {
        uint32_t end = first + 1;
        while (end < faceTotal && faces[end].texture == faces[first].texture) ++end;
        uint16_t* part = mesh->indices + size_t(first) * 3;
        const uint32_t indexCount = (end - first) * 3;
        uint32_t lowest = uint32_t(mesh->renderVertexCount - 1);
        uint32_t highest = 0;
        for (uint32_t i = 0; i < indexCount; ++i) {
            if (part[i] < lowest) lowest = part[i];
            if (part[i] > highest) highest = part[i];
        }
        if (highest < lowest) highest = lowest;
        for (uint32_t i = 0; i < indexCount; ++i) part[i] = uint16_t(part[i] - lowest);
        DrawGroup& group = groups[g++];
        group.world = &mesh->worldMatrix;
        group.firstVertex = lowest + vertexStart;
        group.vertexSpan = highest - lowest + 1;
        group.texture = &mesh->faces[0][first].texture;
        group.texture2 = twoLayers ? &mesh->faces[1][first].texture : nullptr;
        group.indexCount = indexCount;
        group.groupIndices = part;
        first = end;
    }
    mesh->drawGroups = groups;
    mesh->groupCount = runs;
}
