// CMesh: a frame that carries a triangle mesh in its source form. The vertex and face records are
// byte for byte those of a VBF file (the face's texture word aside), and every array can be lent
// to or borrowed from another mesh, as the ownership bits say.
#pragma once

#include <cstdint>

#include "engine/scene/entity.h"

class CTexture;
struct DrawGroup;
struct KeyAnimation;
struct MeshVertexFormat;
struct VertexAnimation;
struct VertexBufferInfo;

struct MeshVertex {
    Vector position;  // in the mesh's local space
    Vector normal;    // unit
};
static_assert(sizeof(MeshVertex) == 24);

// The texture word is a pointer in memory, so the in-memory record is wider than the 44-byte file
// record on a 64-bit build; readers and writers convert field by field.
struct MeshFace {
    uint32_t vertex[3];  // a, b, c
    CTexture* texture;   // or null
    uint32_t flags;      // 0x1000: flat; low bits from a text mesh's material
    float uv[6];         // u, v of a, b, c
};

enum MeshFlags : uint32_t {
    MeshFlagViewOnly = 0x4,
    MeshFlagConstructed = 0x8,
    MeshFlagVertexColours = 0x20,
    MeshFlagBorrowed = 0x40,
    MeshFlagKeepRenderTables = 0x100,
    MeshFlagModulateStage2 = 0x200,
    MeshFlagSpecular = 0x400,
    MeshFlagFlatTransparency = 0x800,
    MeshFlagSkipCollect = 0x1000,
    MeshFlagBoundsSubtree = 0x2000,
    MeshFlagAllTransparent = 0x4000,
    MeshFlagStopAnimation = 0x8000,
};

enum MeshDirty : uint32_t {
    MeshDirtyPositions = 0x1,
    MeshDirtyUV0 = 0x2,
    MeshDirtyNormals = 0x4,
    MeshDirtyUV1 = 0x8,
    MeshDirtyColours = 0x10,
    MeshDirtySpeculars = 0x20,
    MeshDirtyGroups = 0x40,
    MeshDirtyAnimationFrame = 0x80,
    MeshDirtyFaceOrder = 0x10000000,
};

enum MeshOwnership : uint32_t {
    MeshLentVertices = 0x1,
    MeshOwnsDeviceForm = 0x2,
    MeshSharedShade = 0x4,
    MeshLentColours = 0x8,
};

enum { MeshFeatureGeometry = 0x1, MeshFlatFace = 0x1000 };

class CMesh : public CFrame {
public:
    explicit CMesh(CEntity* parent);
    ~CMesh() override;

    void AllocVertices(int32_t count);
    void AllocFaces(uint32_t count, int layer);
    void AllocColours(int32_t count);
    void AllocSpeculars(int32_t count);
    void AllocSmoothingGroups();
    void FreeSmoothingGroups();

    uint8_t* vertexShade;         // one byte per vertex, or null; not freed here
    uint32_t meshFlags;           // MeshFlags
    uint32_t dirtyMask;           // MeshDirty
    int32_t vertexCount;
    MeshVertex* vertices;         // for an unpacked vertex animation, the frame in use
    uint32_t faceCount[2];        // layer 0 is the base; layer 1 a second texture stage
    MeshFace* faces[2];
    Vector worldCentre;           // bounding sphere centre in the world, refreshed by Collect
    Vector boundCentre;           // bounding sphere centre in local space
    float boundRadius;            // 0 until CalculateBounds: no sphere known
    VertexAnimation* vertexAnimation;
    KeyAnimation* keyAnimation;
    VertexBufferInfo* vertexBuffer;
    int32_t groupCount;
    int32_t renderVertexCount;
    uint16_t* indices;            // three per face
    DrawGroup* drawGroups;
    uint32_t* renderVertexSource;
    float** renderVertexUV[2];
    MeshVertexFormat* vertexFormat;
    uint32_t ownership;           // MeshOwnership
    uint8_t* colours;             // red, green, blue per vertex, or null
    uint32_t* speculars;          // packed colour per vertex, or null
    uint32_t* smoothingGroups;    // one word per face of layer 0, or null
    float specularPower;
};
