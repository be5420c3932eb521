// First-generation levels: version 29 and its widened forms BSP2 and 2PSB, which differ from it in
// the face and edge records only, as far as the faces are concerned. A face is a convex polygon:
// its surfedges name edges, an edge's sign says which of its two vertices starts the side.
#include <algorithm>
#include <cstddef>
#include <string>
#include <vector>

#include "tool/import/bsp_level.h"

namespace {

enum QuakeLump {
    Planes = 1,
    Textures = 2,
    Vertices = 3,
    TexInfo = 6,
    Faces = 7,
    Edges = 12,
    SurfEdges = 13
};

const std::vector<const char*> QuakeLumpNames = {
    "entities", "planes",       "textures", "vertices",  "visibility",
    "nodes",    "texinfo",      "faces",    "lighting",  "clipnodes",
    "leaves",   "marksurfaces", "edges",    "surfedges", "models"};

constexpr uint32_t PlaneSize = 20, VertexSize = 12, TexInfoSize = 40, SurfEdgeSize = 4;

struct QuakeFace {
    uint32_t plane, texinfo;
    bool back;  // the face's front is the plane's back
    int64_t firstEdge, edges;
};

QuakeFace LoadFace(const uint8_t* p, bool wide) {
    if (wide)
        return {LoadU32(p), LoadU32(p + 16), LoadI32(p + 4) != 0, LoadI32(p + 8), LoadI32(p + 12)};
    return {LoadU16(p), LoadU16(p + 10), LoadU16(p + 2) != 0, LoadI32(p + 4), LoadU16(p + 8)};
}

// The texture name of every texinfo record, through the textures lump's directory.
bool TexInfoNames(BspFile& file, std::vector<std::string>& names) {
    const uint8_t* lump = file.Lump(Textures);
    uint64_t length = file.Length(Textures);
    int64_t textures = length >= 4 ? LoadI32(lump) : 0;
    if (textures < 0 || 4 + uint64_t(textures) * 4 > std::max<uint64_t>(length, 4))
        return file.Fail("the textures lump lists " + std::to_string(textures) + " textures in " +
                         std::to_string(length) + " bytes");
    std::vector<std::string> textureNames;
    for (int64_t t = 0; t < textures; ++t) {
        int32_t at = LoadI32(lump + 4 + t * 4);
        if (at < 0) {  // left out by the compiler
            textureNames.push_back("texture " + std::to_string(t));
        } else if (uint64_t(at) + 16 > length) {
            return file.Fail("texture " + std::to_string(t) + " (offset " + std::to_string(at) +
                             ") lies past the end of the textures lump");
        } else {
            textureNames.push_back(FieldText(lump + at, 16));
        }
    }
    uint32_t count = 0;
    if (!file.Count(TexInfo, TexInfoSize, count)) return false;
    for (uint32_t i = 0; i < count; ++i) {
        int32_t texture = LoadI32(file.Record(TexInfo, TexInfoSize, i) + 32);
        if (texture < 0 || texture >= textures)
            return file.Fail("texinfo " + std::to_string(i) + " names texture " +
                             std::to_string(texture) + "; the textures lump has " +
                             std::to_string(textures));
        names.push_back(textureNames[size_t(texture)]);
    }
    return true;
}

// Sides are often split where a neighbour's corner touches them. Such a corner, on a straight
// side within the rounding of float coordinates, would give slivers of no area whose winding is
// noise; the fan goes over the true corners instead.
void DropStraightCorners(std::vector<DVec3>& polygon) {
    constexpr double MaxSine = 1e-3;
    for (bool dropped = true; dropped && polygon.size() > 3;) {
        dropped = false;
        for (size_t k = 0; k < polygon.size() && polygon.size() > 3;) {
            size_t n = polygon.size();
            DVec3 in = polygon[k] - polygon[(k + n - 1) % n],
                  out = polygon[(k + 1) % n] - polygon[k];
            DVec3 turn = Cross(in, out);
            if (Dot(turn, turn) <= MaxSine * MaxSine * Dot(in, in) * Dot(out, out)) {
                polygon.erase(polygon.begin() + std::ptrdiff_t(k));
                dropped = true;
            } else {
                ++k;
            }
        }
    }
}

class QuakeReader {
public:
    QuakeReader(BspFile& source, bool wideRecords, BspLevel& target)
        : file(source),
          wide(wideRecords),
          level(target),
          faceSize(wide ? 28 : 20),
          edgeSize(wide ? 8 : 4) {}

    bool Run();

private:
    bool ReadFace(uint32_t index);
    bool Corner(uint32_t face, int64_t surfedge, DVec3& position);

    BspFile& file;
    bool wide;
    BspLevel& level;
    uint32_t faceSize, edgeSize;
    uint32_t planes = 0, vertices = 0, edges = 0, surfedges = 0;
    std::vector<std::string> textureOf;  // by texinfo
    std::vector<DVec3> polygon;
};

bool QuakeReader::Run() {
    uint32_t faces = 0;
    if (!file.Count(Planes, PlaneSize, planes) || !file.Count(Vertices, VertexSize, vertices) ||
        !file.Count(Edges, edgeSize, edges) || !file.Count(SurfEdges, SurfEdgeSize, surfedges) ||
        !file.Count(Faces, faceSize, faces) || !TexInfoNames(file, textureOf))
        return false;
    for (uint32_t f = 0; f < faces; ++f)
        if (!ReadFace(f)) return false;
    return true;
}

bool QuakeReader::Corner(uint32_t face, int64_t surfedge, DVec3& position) {
    int64_t signedEdge = LoadI32(file.Record(SurfEdges, SurfEdgeSize, uint32_t(surfedge)));
    int64_t edge = signedEdge < 0 ? -signedEdge : signedEdge;
    if (edge >= edges)
        return file.Fail("face " + std::to_string(face) + ": surfedge " + std::to_string(surfedge) +
                         " names edge " + std::to_string(edge) + "; the edges lump has " +
                         std::to_string(edges));
    const uint8_t* record = file.Record(Edges, edgeSize, uint32_t(edge));
    int end = signedEdge < 0 ? 1 : 0;
    uint32_t vertex = wide ? LoadU32(record + end * 4) : LoadU16(record + end * 2);
    if (vertex >= vertices)
        return file.Fail("edge " + std::to_string(edge) + " names vertex " +
                         std::to_string(vertex) + "; the vertices lump has " +
                         std::to_string(vertices));
    position = LoadVec3(file.Record(Vertices, VertexSize, vertex));
    if (!IsFinite(position))
        return file.Fail("vertex " + std::to_string(vertex) + " is not a finite point");
    return true;
}

bool QuakeReader::ReadFace(uint32_t index) {
    QuakeFace face = LoadFace(file.Record(Faces, faceSize, index), wide);
    std::string name = "face " + std::to_string(index);
    if (face.texinfo >= textureOf.size())
        return file.Fail(name + " names texinfo " + std::to_string(face.texinfo) +
                         "; the texinfo lump has " + std::to_string(textureOf.size()));
    const std::string& texture = textureOf[face.texinfo];
    BspSkip skip = QuakeTextureSkip(texture);
    if (skip != BspSkip::None) {
        level.Skip(skip);
        return true;
    }
    if (face.edges < 3 || face.edges > BspMaxFaceEdges)
        return file.Fail(name + " has " + std::to_string(face.edges) + " edges; a face has 3 to " +
                         std::to_string(BspMaxFaceEdges));
    if (face.firstEdge < 0 || face.firstEdge + face.edges > surfedges)
        return file.Fail(name + ": surfedges " + std::to_string(face.firstEdge) + " to " +
                         std::to_string(face.firstEdge + face.edges - 1) +
                         " lie outside the surfedges lump (" + std::to_string(surfedges) + ")");
    if (face.plane >= planes)
        return file.Fail(name + " names plane " + std::to_string(face.plane) +
                         "; the planes lump has " + std::to_string(planes));
    DVec3 front = LoadVec3(file.Record(Planes, PlaneSize, face.plane));
    if (!IsFinite(front))
        return file.Fail("plane " + std::to_string(face.plane) +
                         " has a normal that is not finite");
    if (face.back) front = {-front.x, -front.y, -front.z};
    if (LooksDown(front)) {
        level.Skip(BspSkip::Ceiling);
        return true;
    }

    polygon.resize(size_t(face.edges));
    for (int64_t k = 0; k < face.edges; ++k)
        if (!Corner(index, face.firstEdge + k, polygon[size_t(k)])) return false;
    DropStraightCorners(polygon);
    // The compilers wind clockwise seen from the front; the plane decides, whatever the order.
    DVec3 area = {0, 0, 0};
    for (size_t k = 1; k + 1 < polygon.size(); ++k)
        area = area + Cross(polygon[k] - polygon[0], polygon[k + 1] - polygon[0]);
    if (Dot(area, front) < 0.0) std::reverse(polygon.begin(), polygon.end());

    if (!level.Take(polygon.size() - 2)) return false;
    ImportMesh& mesh = level.MeshFor(texture);
    uint32_t first = uint32_t(mesh.positions.size());
    for (const DVec3& p : polygon) {
        mesh.positions.push_back(p);
        mesh.normals.push_back(front);
    }
    for (uint32_t k = 1; k + 1 < polygon.size(); ++k)
        mesh.triangles.insert(mesh.triangles.end(), {first, first + k, first + k + 1});
    return true;
}

}  // namespace

bool ReadQuakeLevel(BspFile& file, bool wide, BspLevel& level) {
    if (!file.ReadDirectory(4, QuakeLumpNames)) return false;
    QuakeReader reader(file, wide, level);
    return reader.Run();
}
