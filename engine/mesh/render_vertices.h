// Render vertices: the device form of a mesh's source arrays. The source indexes vertices by
// position and keeps texture coordinates per face corner; the device wants one vertex per
// distinct position, normal and texture coordinates, and indices in runs of one texture. This
// half needs no device: the weld, the vertex layouts, the writing of vertices into a mapped
// buffer and the grouping rule. The buffer itself is the renderer's (engine/render/mesh_prepare).
#pragma once

#include <cstdint>

#include "engine/scene/maths.h"

class CMesh;
struct MeshFace;
struct MeshVertex;

// The working record of the weld.
struct RenderVertex {
    float* uvSource[2];  // this corner's u, v in the layer 0 and layer 1 faces; [1] may be null
    Vector normal;       // the source vertex's, or the face normal of a flat face
    float uv[2][2];      // layer 0 u, v; layer 1 u, v
    uint32_t source;     // source vertex
};

// What BuildRenderVertices hands back; the caller frees vertices with FreeRenderVertices.
struct RenderVertexList {
    RenderVertex* vertices;
    uint32_t count;
};

// Places of a device vertex's elements in 32-bit words from its start; -1 where the layout has
// none.
struct MeshVertexFormat {
    int32_t xyz[3];
    int32_t nxyz[3];
    int32_t diffuse;
    int32_t specular;
    int32_t uv0[2];
    int32_t uv1[2];
    int32_t stride;  // words per vertex
    int32_t fvf;
};

// Faces name their vertices by index; an index past vertexCount reads as the origin with a zero
// normal rather than past the array.
// faces[1] (with faceCount[1] records) may be null. indices, if given, takes three u16 per layer 0
// face. A zero count of vertices or faces gives an empty list.
RenderVertexList BuildRenderVertices(int32_t vertexCount, const MeshVertex* vertices,
                                     const uint32_t faceCount[2], MeshFace* const faces[2],
                                     uint16_t* indices);
void FreeRenderVertices(RenderVertexList& list);

// Two layers: faceCount[1] equals faceCount[0] (and layer 1 exists).
bool HasTwoLayers(const CMesh* mesh);
const MeshVertexFormat* SelectVertexFormat(bool twoLayers, bool colours, bool speculars);
const MeshVertexFormat* SelectVertexFormat(const CMesh* mesh);

// out := (C - B) x (A - B), normalised; A, B, C the positions of vertices a, b, c.
void FaceNormal(const MeshVertex* vertices, uint32_t a, uint32_t b, uint32_t c, Vector& out);

// Red in bits 16 to 23, green 8 to 15, blue 0 to 7; the top byte 0.
uint32_t PackMeshColour(const uint8_t* rgb);

// One render vertex in format at vertex: position, normal (without colours), the colour and
// specular words of its source vertex where the mesh has them, and its u, v.
void PutRenderVertex(const CMesh* mesh, const MeshVertexFormat* format, const RenderVertex& rv,
                     const Vector& position, const Vector& normal, float* vertex);

// Writes every render vertex of list in the mesh's vertexFormat to out (count * stride words).
// With tables given (renderVertexCount entries each; uv1 only for two layers) they get each
// vertex's source and u, v places.
void WriteRenderVertices(const CMesh* mesh, const RenderVertexList& list, float* out,
                         uint32_t* sourceTable, float** uv0Table, float** uv1Table);

// Attribute bits of a refresh, as the low six bits of dirtyMask.
enum RefreshAttributes : uint32_t {
    RefreshPosition = 0x1,
    RefreshUV0 = 0x2,
    RefreshNormal = 0x4,
    RefreshUV1 = 0x8,
    RefreshColour = 0x10,
    RefreshSpecular = 0x20,
    RefreshAll = 0x3F,
};

// Rewrites in out (the mapped buffer of renderVertexCount vertices) the attributes that mask
// names, through the mesh's tables; a mask outside the common ones writes everything the layout
// has. Normals are the source vertices', whatever the face flags.
void RefreshRenderVertices(const CMesh* mesh, uint32_t mask, float* out);

// A new frame of a vertex animation (dirty bit 0x80): an unpacked frame becomes the mesh's
// vertices and sets dirty bits for the refresh; a packed one is decoded straight into out.
void WriteAnimationFrame(CMesh* mesh, float* out);

// Rebuilds drawGroups from layer 0 and indices; vertexStart is the first vertex of the mesh's
// run in its pool's buffer. Existing groups are first undone to vertex-relative indices.
void MakeDrawGroups(CMesh* mesh, uint32_t vertexStart);

// What a mesh needs of the renderer, which links this library and not the other way round: the
// renderer installs both. Null: no device form to give back, nothing to draw with.
struct VertexBufferInfo;
class CRenderContext;
using MeshFreeVerticesFunction = void (*)(VertexBufferInfo* info);
using MeshRenderFunction = void (*)(CMesh* mesh, CRenderContext* context);
extern MeshFreeVerticesFunction MeshFreeVertices;
extern MeshRenderFunction MeshRender;
