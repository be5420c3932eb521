#include "tool/import/chunk_tree.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <map>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include "base/memory.h"
#include "engine/mesh/mesh.h"
#include "engine/mesh/mesh_animation.h"

namespace {

struct FaceRef {
    uint32_t mesh;
    uint32_t face;
};

// The scene in float, as the map will store it.
struct RoundedMesh {
    std::vector<Vector> positions;
    std::vector<Vector> normals;
    std::vector<Vector> framePositions, frameNormals;  // an animated mesh's, frame after frame
};

std::vector<Vector> ToFloat(const std::vector<DVec3>& points) {
    std::vector<Vector> out;
    out.reserve(points.size());
    for (const DVec3& p : points) out.push_back({float(p.x), float(p.y), float(p.z)});
    return out;
}

bool Animated(const ImportMesh& mesh) {
    return mesh.frameCount >= 2 &&
           mesh.framePositions.size() == size_t(mesh.frameCount) * mesh.positions.size() &&
           mesh.frameNormals.size() == mesh.framePositions.size();
}

class TreeBuilder {
public:
    TreeBuilder(const ImportScene& input, ChunkTreeStats& counts) : scene(input), stats(counts) {}

    CMesh* Build(double chunkSize);

private:
    void Round();
    bool Degenerate(const FaceRef& ref) const;
    bool DegenerateIn(const FaceRef& ref, const Vector* positions) const;
    uint32_t Corner(const FaceRef& ref, int k) const {
        return scene.meshes[ref.mesh].triangles[size_t(ref.face) * 3 + k];
    }
    Vector Position(const FaceRef& ref, int k) const {
        return rounded[ref.mesh].positions[Corner(ref, k)];
    }
    void Uv(const FaceRef& ref, int k, float& u, float& v) const;
    size_t RenderVertices(const std::vector<FaceRef>& faces) const;
    void AddChunk(CMesh* parent, const std::string& name, std::vector<FaceRef>& faces);
    void MakeMesh(CMesh* parent, const std::string& name, const std::vector<FaceRef>& faces);
    void Animate(CMesh* made, uint32_t m, const std::vector<uint32_t>& sources);

    const ImportScene& scene;
    ChunkTreeStats& stats;
    std::vector<RoundedMesh> rounded;
};

void TreeBuilder::Round() {
    rounded.resize(scene.meshes.size());
    for (size_t m = 0; m < scene.meshes.size(); ++m) {
        const ImportMesh& mesh = scene.meshes[m];
        RoundedMesh& out = rounded[m];
        out.positions.reserve(mesh.positions.size());
        for (const DVec3& p : mesh.positions)
            out.positions.push_back({float(p.x), float(p.y), float(p.z)});
        out.normals.reserve(mesh.positions.size());
        for (size_t i = 0; i < mesh.positions.size(); ++i) {
            DVec3 n = i < mesh.normals.size() ? mesh.normals[i] : DVec3{0.0, 1.0, 0.0};
            out.normals.push_back({float(n.x), float(n.y), float(n.z)});
        }
        if (!Animated(mesh)) continue;
        out.framePositions = ToFloat(mesh.framePositions);
        out.frameNormals = ToFloat(mesh.frameNormals);
    }
}

// What the ray core would see: corners in float, the plane normal from their differences. A face
// of an animated mesh stays while any frame gives it an area.
bool TreeBuilder::Degenerate(const FaceRef& ref) const {
    uint32_t a = Corner(ref, 0), b = Corner(ref, 1), c = Corner(ref, 2);
    if (a == b || b == c || a == c) return true;
    const RoundedMesh& mesh = rounded[ref.mesh];
    if (mesh.framePositions.empty()) return DegenerateIn(ref, mesh.positions.data());
    size_t count = mesh.positions.size();
    for (size_t at = 0; at < mesh.framePositions.size(); at += count)
        if (!DegenerateIn(ref, mesh.framePositions.data() + at)) return false;
    return true;
}

bool TreeBuilder::DegenerateIn(const FaceRef& ref, const Vector* positions) const {
    Vector pa = positions[Corner(ref, 0)], pb = positions[Corner(ref, 1)],
           pc = positions[Corner(ref, 2)];
    DVec3 u = {double(pc.x) - pb.x, double(pc.y) - pb.y, double(pc.z) - pb.z};
    DVec3 w = {double(pa.x) - pb.x, double(pa.y) - pb.y, double(pa.z) - pb.z};
    DVec3 n = Cross(u, w);
    return Dot(n, n) == 0.0;
}

void TreeBuilder::Uv(const FaceRef& ref, int k, float& u, float& v) const {
    const ImportMesh& mesh = scene.meshes[ref.mesh];
    uint32_t index = Corner(ref, k);
    bool has = mesh.uvs.size() == mesh.positions.size() * 2;
    u = has ? mesh.uvs[size_t(index) * 2] : 0.0f;
    v = has ? mesh.uvs[size_t(index) * 2 + 1] : 0.0f;
}

// Distinct pairs of a vertex and its texture coordinates: one render vertex each.
size_t TreeBuilder::RenderVertices(const std::vector<FaceRef>& faces) const {
    struct Key {
        uint64_t vertex;
        uint64_t uv;
        bool operator==(const Key& o) const { return vertex == o.vertex && uv == o.uv; }
    };
    struct Hash {
        size_t operator()(const Key& k) const {
            return size_t(k.vertex * 0x9E3779B97F4A7C15ull ^ k.uv * 0xC2B2AE3D27D4EB4Full);
        }
    };
    std::unordered_set<Key, Hash> seen;
    seen.reserve(faces.size() * 3);
    for (const FaceRef& ref : faces)
        for (int k = 0; k < 3; ++k) {
            float u, v;
            Uv(ref, k, u, v);
            uint32_t ub, vb;
            std::memcpy(&ub, &u, 4);
            std::memcpy(&vb, &v, 4);
            seen.insert({uint64_t(ref.mesh) << 32 | Corner(ref, k), uint64_t(ub) << 32 | vb});
        }
    return seen.size();
}

void TreeBuilder::MakeMesh(CMesh* parent, const std::string& name,
                           const std::vector<FaceRef>& faces) {
    std::unordered_map<uint64_t, uint32_t> local;
    std::vector<MeshVertex> vertices;
    std::vector<uint32_t> sources;  // the scene mesh's vertex of each
    std::vector<MeshFace> out(faces.size());
    for (size_t f = 0; f < faces.size(); ++f) {
        const FaceRef& ref = faces[f];
        const ImportMesh& mesh = scene.meshes[ref.mesh];
        MeshFace& face = out[f];
        std::memset(&face, 0, sizeof face);
        for (int k = 0; k < 3; ++k) {
            uint32_t index = Corner(ref, k);
            auto found = local.emplace(uint64_t(ref.mesh) << 32 | index, uint32_t(vertices.size()));
            if (found.second) {
                vertices.push_back(
                    {rounded[ref.mesh].positions[index], rounded[ref.mesh].normals[index]});
                sources.push_back(index);
            }
            face.vertex[k] = found.first->second;
            Uv(ref, k, face.uv[2 * k], face.uv[2 * k + 1]);
        }
        face.texture =
            mesh.material >= 0 ? scene.materials[size_t(mesh.material)].texture : nullptr;
    }
    CMesh* made = new CMesh(parent);
    made->SetName(name.c_str());
    made->AllocVertices(int32_t(vertices.size()));
    std::memcpy(made->vertices, vertices.data(), vertices.size() * sizeof(MeshVertex));
    made->AllocFaces(uint32_t(out.size()), 0);
    std::memcpy(made->faces[0], out.data(), out.size() * sizeof(MeshFace));
    ++stats.meshes;
    stats.triangles += out.size();
    stats.mostRenderVertices = std::max(stats.mostRenderVertices, RenderVertices(faces));
    // An animated mesh's faces are never mixed with others'.
    if (!faces.empty() && !rounded[faces[0].mesh].framePositions.empty())
        Animate(made, faces[0].mesh, sources);
}

// One key frame where a frame's vertices differ from the frame before, each lasting until the
// next key; frames that change nothing leave the mesh static.
void TreeBuilder::Animate(CMesh* made, uint32_t m, const std::vector<uint32_t>& sources) {
    const RoundedMesh& source = rounded[m];
    const uint32_t frames = scene.meshes[m].frameCount;
    const size_t count = sources.size(), perFrame = source.positions.size();
    std::vector<MeshVertex> keys, frame(count);
    std::vector<uint32_t> keyFrames;
    for (uint32_t f = 0; f < frames; ++f) {
        for (size_t i = 0; i < count; ++i)
            frame[i] = {source.framePositions[f * perFrame + sources[i]],
                        source.frameNormals[f * perFrame + sources[i]]};
        if (f && !std::memcmp(frame.data(), keys.data() + keys.size() - count,
                              count * sizeof(MeshVertex)))
            continue;
        keyFrames.push_back(f);
        keys.insert(keys.end(), frame.begin(), frame.end());
    }
    if (keyFrames.size() < 2) return;
    made->AllocVertices(int32_t(keys.size()));
    std::memcpy(made->vertices, keys.data(), keys.size() * sizeof(MeshVertex));
    auto* animation = static_cast<VertexAnimation*>(MALLOC(sizeof(VertexAnimation)));
    std::memset(animation, 0, sizeof *animation);
    animation->flags = VertexAnimationOwnsArrays;
    animation->frameCount = frames;
    animation->keyCount = uint32_t(keyFrames.size());
    animation->totalVertices = uint32_t(keys.size());
    animation->frameData = made->vertices;
    animation->keyFrames = static_cast<uint32_t*>(MALLOC(keyFrames.size() * sizeof(uint32_t)));
    std::memcpy(animation->keyFrames, keyFrames.data(), keyFrames.size() * sizeof(uint32_t));
    animation->frameTable = static_cast<void**>(MALLOC(size_t(frames) * sizeof(void*)));
    for (uint32_t f = 0, key = 0; f < frames; ++f) {
        if (key + 1 < keyFrames.size() && keyFrames[key + 1] == f) ++key;
        animation->frameTable[f] = made->vertices + size_t(key) * count;
    }
    made->vertexCount = int32_t(count);
    made->SetVertexAnimation(animation);
    ++stats.animatedMeshes;
    stats.frames = std::max(stats.frames, frames);
    stats.frameTables += frames;
}

// A chunk that fits is one mesh; one that doesn't becomes a node whose parts, halves by the faces'
// centroids along the longer side, are cut again until each fits.
void TreeBuilder::AddChunk(CMesh* parent, const std::string& name, std::vector<FaceRef>& faces) {
    if (RenderVertices(faces) <= MaxRenderVertices || faces.size() < 2) {
        MakeMesh(parent, name, faces);
        return;
    }
    auto centroid = [&](const FaceRef& ref, bool alongX) {
        double sum = 0.0;
        for (int k = 0; k < 3; ++k) {
            Vector p = Position(ref, k);
            sum += alongX ? double(p.x) : double(p.z);
        }
        return sum;
    };
    double lo[2] = {HUGE_VAL, HUGE_VAL}, hi[2] = {-HUGE_VAL, -HUGE_VAL};
    for (const FaceRef& ref : faces)
        for (int axis = 0; axis < 2; ++axis) {
            double c = centroid(ref, axis == 0);
            lo[axis] = std::min(lo[axis], c);
            hi[axis] = std::max(hi[axis], c);
        }
    bool alongX = hi[0] - lo[0] >= hi[1] - lo[1];
    size_t half = faces.size() / 2;
    std::vector<FaceRef> sorted = faces;
    std::stable_sort(sorted.begin(), sorted.end(), [&](const FaceRef& a, const FaceRef& b) {
        return centroid(a, alongX) < centroid(b, alongX);
    });
    std::vector<FaceRef> first(sorted.begin(), sorted.begin() + long(half));
    std::vector<FaceRef> second(sorted.begin() + long(half), sorted.end());
    CMesh* node = new CMesh(parent);
    node->SetName(name.c_str());
    AddChunk(node, name + "_0", first);
    AddChunk(node, name + "_1", second);
}

CMesh* TreeBuilder::Build(double chunkSize) {
    Round();
    // Chunks in row order from the map's far edge, so the file is the same on every run.
    std::map<std::pair<int64_t, int64_t>, std::vector<FaceRef>> chunks;
    for (size_t m = 0; m < scene.meshes.size(); ++m) {
        size_t faces = scene.meshes[m].triangles.size() / 3;
        if (Animated(scene.meshes[m])) continue;
        for (size_t f = 0; f < faces; ++f) {
            FaceRef ref = {uint32_t(m), uint32_t(f)};
            if (Degenerate(ref)) {
                ++stats.degenerate;
                continue;
            }
            double cx = 0.0, cz = 0.0;
            for (int k = 0; k < 3; ++k) {
                Vector p = Position(ref, k);
                cx += p.x;
                cz += p.z;
            }
            int64_t column = int64_t(std::max(0.0, std::floor(cx / 3.0 / chunkSize)));
            int64_t row = int64_t(std::max(0.0, std::floor(-cz / 3.0 / chunkSize)));
            chunks[{row, column}].push_back(ref);
        }
    }
    CMesh* root = new CMesh(nullptr);
    root->SetName("map");
    for (auto& [cell, faces] : chunks)
        AddChunk(root, "chunk_" + std::to_string(cell.second) + "_" + std::to_string(cell.first),
                 faces);
    // An animated mesh moves across chunks, so it stays whole, cut only as the renderer needs.
    for (size_t m = 0, made = 0; m < scene.meshes.size(); ++m) {
        if (!Animated(scene.meshes[m])) continue;
        std::vector<FaceRef> faces;
        for (uint32_t f = 0; f < scene.meshes[m].triangles.size() / 3; ++f) {
            FaceRef ref = {uint32_t(m), f};
            if (Degenerate(ref))
                ++stats.degenerate;
            else
                faces.push_back(ref);
        }
        if (!faces.empty()) AddChunk(root, "animated_" + std::to_string(made++), faces);
    }
    return root;
}

}  // namespace

CMesh* BuildChunkTree(const ImportScene& scene, double chunkSize, ChunkTreeStats& stats) {
    TreeBuilder builder(scene, stats);
    return builder.Build(chunkSize);
}
