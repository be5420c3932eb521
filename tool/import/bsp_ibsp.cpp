// Third-generation levels (IBSP version 46): faces are planar polygons and meshes, both already
// cut into triangles over the face's own run of vertices, and curved patches given as grids of
// control points, which are tessellated here.
#include <array>
#include <cmath>
#include <string>
#include <vector>

#include "tool/import/bsp_level.h"

namespace {

enum IbspLump { Shaders = 1, Vertices = 10, MeshVerts = 11, Faces = 13 };

const std::vector<const char*> IbspLumpNames = {
    "entities",    "textures", "planes",    "nodes",      "leafs",    "leaffaces",
    "leafbrushes", "models",   "brushes",   "brushsides", "vertexes", "meshverts",
    "effects",     "faces",    "lightmaps", "lightvols",  "visdata"};

constexpr uint32_t ShaderSize = 72, VertexSize = 44, MeshVertSize = 4, FaceSize = 104;
enum FaceType { Polygon = 1, Patch = 2, Mesh = 3, Billboard = 4 };

// Each 3 x 3 piece of a patch becomes PatchSteps x PatchSteps quads: enough for arches and pipes
// to cast their shape, few enough to keep curved levels small.
constexpr int PatchSteps = 4;
// A side of more control points is damaged; the compilers stop far below.
constexpr int32_t MaxPatchSide = 257;

struct IbspFace {
    int32_t shader, type, firstVertex, vertexCount, firstIndex, indexCount;
    DVec3 normal;
    int32_t width, height;  // a patch's control points
};

IbspFace LoadFace(const uint8_t* p) {
    return {LoadI32(p),      LoadI32(p + 8),   LoadI32(p + 12), LoadI32(p + 16), LoadI32(p + 20),
            LoadI32(p + 24), LoadVec3(p + 84), LoadI32(p + 96), LoadI32(p + 100)};
}

class IbspReader {
public:
    IbspReader(BspFile& source, BspLevel& target) : file(source), level(target) {}

    bool Run();

private:
    bool ReadFace(uint32_t index);
    bool Vertex(uint32_t vertex, DVec3& position, DVec3& normal);
    bool AddTriangles(const std::string& name, const IbspFace& face, ImportMesh& mesh);
    bool AddPatch(const std::string& name, const IbspFace& face, ImportMesh& mesh);

    BspFile& file;
    BspLevel& level;
    uint32_t shaders = 0, vertices = 0, meshVerts = 0;
    std::vector<DVec3> points, normals;  // the face's vertices
};

bool IbspReader::Run() {
    uint32_t faces = 0;
    if (!file.Count(Shaders, ShaderSize, shaders) || !file.Count(Vertices, VertexSize, vertices) ||
        !file.Count(MeshVerts, MeshVertSize, meshVerts) || !file.Count(Faces, FaceSize, faces))
        return false;
    for (uint32_t f = 0; f < faces; ++f)
        if (!ReadFace(f)) return false;
    return true;
}

bool IbspReader::Vertex(uint32_t vertex, DVec3& position, DVec3& normal) {
    const uint8_t* record = file.Record(Vertices, VertexSize, vertex);
    position = LoadVec3(record);
    normal = LoadVec3(record + 28);
    if (!IsFinite(position) || !IsFinite(normal))
        return file.Fail("vertex " + std::to_string(vertex) +
                         " has a position or normal that is not finite");
    return true;
}

bool IbspReader::ReadFace(uint32_t index) {
    IbspFace face = LoadFace(file.Record(Faces, FaceSize, index));
    std::string name = "face " + std::to_string(index);
    if (face.shader < 0 || uint32_t(face.shader) >= shaders)
        return file.Fail(name + " names texture " + std::to_string(face.shader) +
                         "; the textures lump has " + std::to_string(shaders));
    if (face.type < Polygon || face.type > Billboard)
        return file.Fail(name + " is of type " + std::to_string(face.type) +
                         "; types 1 to 4 are known");
    const uint8_t* shader = file.Record(Shaders, ShaderSize, uint32_t(face.shader));
    std::string texture = FieldText(shader, 64);
    BspSkip skip = face.type == Billboard
                       ? BspSkip::Billboard
                       : ShaderSkip(texture, LoadU32(shader + 64), LoadU32(shader + 68));
    if (skip != BspSkip::None) {
        level.Skip(skip);
        return true;
    }
    if (face.firstVertex < 0 || face.vertexCount < 0 ||
        int64_t(face.firstVertex) + face.vertexCount > vertices)
        return file.Fail(name + ": vertices " + std::to_string(face.firstVertex) + " + " +
                         std::to_string(face.vertexCount) + " lie outside the vertexes lump (" +
                         std::to_string(vertices) + ")");
    if (face.type == Polygon && !IsFinite(face.normal))
        return file.Fail(name + " has a normal that is not finite");
    points.resize(size_t(face.vertexCount));
    normals.resize(points.size());
    DVec3 front = {0, 0, 0};
    for (size_t v = 0; v < points.size(); ++v) {
        if (!Vertex(uint32_t(face.firstVertex) + uint32_t(v), points[v], normals[v])) return false;
        // A polygon is flat: the face's normal is its front at every corner.
        if (face.type == Polygon) normals[v] = face.normal;
        front = front + normals[v];
    }
    if (LooksDown(front)) {
        level.Skip(BspSkip::Ceiling);
        return true;
    }
    ImportMesh& mesh = level.MeshFor(texture);
    return face.type == Patch ? AddPatch(name, face, mesh) : AddTriangles(name, face, mesh);
}

bool IbspReader::AddTriangles(const std::string& name, const IbspFace& face, ImportMesh& mesh) {
    if (face.firstIndex < 0 || face.indexCount < 0 ||
        int64_t(face.firstIndex) + face.indexCount > meshVerts)
        return file.Fail(name + ": mesh indices " + std::to_string(face.firstIndex) + " + " +
                         std::to_string(face.indexCount) + " lie outside the meshverts lump (" +
                         std::to_string(meshVerts) + ")");
    if (face.indexCount % 3 != 0)
        return file.Fail(name + " has " + std::to_string(face.indexCount) +
                         " mesh indices, not whole triangles");
    if (!level.Take(uint64_t(face.indexCount / 3))) return false;
    uint32_t first = uint32_t(mesh.positions.size());
    mesh.positions.insert(mesh.positions.end(), points.begin(), points.end());
    mesh.normals.insert(mesh.normals.end(), normals.begin(), normals.end());
    uint32_t corner[3];
    for (int32_t i = 0; i < face.indexCount; ++i) {
        uint32_t at = uint32_t(face.firstIndex + i);
        int32_t offset = LoadI32(file.Record(MeshVerts, MeshVertSize, at));
        if (offset < 0 || offset >= face.vertexCount)
            return file.Fail(name + ": mesh index " + std::to_string(at) + " is " +
                             std::to_string(offset) + "; the face has " +
                             std::to_string(face.vertexCount) + " vertices");
        corner[i % 3] = first + uint32_t(offset);
        if (i % 3 == 2) BspLevel::AddFacing(mesh, corner[0], corner[1], corner[2]);
    }
    return true;
}

// Each 3 x 3 piece of control points is a biquadratic Bezier surface; neighbouring pieces share
// their edge's control points, so the tessellations meet without cracks.
bool IbspReader::AddPatch(const std::string& name, const IbspFace& face, ImportMesh& mesh) {
    int32_t width = face.width, height = face.height;
    if (width < 3 || height < 3 || width % 2 == 0 || height % 2 == 0 || width > MaxPatchSide ||
        height > MaxPatchSide)
        return file.Fail(name + ": a patch of " + std::to_string(width) + " x " +
                         std::to_string(height) +
                         " control points; each side takes an odd "
                         "number from 3 to " +
                         std::to_string(MaxPatchSide));
    if (int64_t(width) * height > face.vertexCount)
        return file.Fail(name + ": a patch of " + std::to_string(width) + " x " +
                         std::to_string(height) + " control points over " +
                         std::to_string(face.vertexCount) + " vertices");
    uint64_t pieces = uint64_t((width - 1) / 2) * uint64_t((height - 1) / 2);
    if (!level.Take(pieces * PatchSteps * PatchSteps * 2)) return false;

    auto weights = [](double t) {
        return std::array<double, 3>{(1 - t) * (1 - t), 2 * t * (1 - t), t * t};
    };
    constexpr uint32_t side = PatchSteps + 1;
    for (int32_t row = 0; row + 2 < height; row += 2)
        for (int32_t column = 0; column + 2 < width; column += 2) {
            uint32_t first = uint32_t(mesh.positions.size());
            for (uint32_t j = 0; j < side; ++j)
                for (uint32_t i = 0; i < side; ++i) {
                    std::array<double, 3> wv = weights(double(j) / PatchSteps),
                                          wu = weights(double(i) / PatchSteps);
                    DVec3 p = {0, 0, 0}, n = {0, 0, 0};
                    for (int r = 0; r < 3; ++r)
                        for (int c = 0; c < 3; ++c) {
                            size_t at = size_t(row + r) * size_t(width) + size_t(column + c);
                            double w = wv[r] * wu[c];
                            p = p + DVec3{points[at].x * w, points[at].y * w, points[at].z * w};
                            n = n + DVec3{normals[at].x * w, normals[at].y * w, normals[at].z * w};
                        }
                    double length = std::sqrt(Dot(n, n));
                    if (length > 0.0) n = {n.x / length, n.y / length, n.z / length};
                    mesh.positions.push_back(p);
                    mesh.normals.push_back(n);
                }
            for (uint32_t j = 0; j < PatchSteps; ++j)
                for (uint32_t i = 0; i < PatchSteps; ++i) {
                    uint32_t a = first + j * side + i;
                    BspLevel::AddFacing(mesh, a, a + 1, a + side + 1);
                    BspLevel::AddFacing(mesh, a, a + side + 1, a + side);
                }
        }
    return true;
}

}  // namespace

bool ReadIbspLevel(BspFile& file, BspLevel& level) {
    if (!file.ReadDirectory(8, IbspLumpNames)) return false;
    IbspReader reader(file, level);
    return reader.Run();
}
