// CMesh: a frame that carries a triangle mesh in its source form. The vertex and face records are
// byte for byte those of a VBF file (the face's texture word aside), and every array can be lent
// to or borrowed from another mesh, as the ownership bits say.
//
// Arrays and animation records are MALLOC blocks. A lent array (ownership bits 0x1, 0x8) or
// borrowed geometry (meshFlags 0x40) must outlive this mesh: a clone lives no longer than its
// source.
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

// Bits of CEntity::features that a mesh sets, and the flat bit of MeshFace::flags.
enum {
    MeshFeatureGeometry = 0x1,
    MeshFeatureVertexAnimation = 0x2,
    MeshFeatureKeyAnimation = 0x4,
    MeshFlatFace = 0x1000,
};

// Flags of Clone.
enum MeshCloneFlags : uint32_t {
    MeshCloneShareVertices = 0x1,
    MeshCloneShareShade = 0x4,
};

// Flags of SetAnimationFrame beyond bit 0 (recursive).
enum AnimationWalkFlags : uint32_t {
    AnimationRecursive = 0x1,
    AnimationWalk = 0x2,          // with bit 0: one rounding, the mesh walk below
    AnimationStopAtMarked = 0x4,  // in that walk, stop below meshes with MeshFlagStopAnimation
};

// The user data block of a VBF file. The record and its bytes are MALLOC blocks that the caller
// of LoadVBFWithData owns; FreeVBFUserData releases both.
struct VBFUserData {
    uint32_t size;  // never 0
    uint8_t* bytes;
};
void FreeVBFUserData(VBFUserData* userData);

class CMesh : public CFrame {
public:
    explicit CMesh(CEntity* parent);
    ~CMesh() override;

    // Flags: MeshCloneFlags, handed on to the children. Colours are always lent, and the clone
    // draws from this mesh's device form: it must not outlive this mesh.
    CMesh* Clone(CEntity* parent, uint32_t flags) override;
    // Orders layer 0 for drawing (opaque textures first, equal textures together); the other
    // layer and the smoothing groups move along.
    void SortFaces(uint32_t recursive) override;
    void CountContents(uint32_t* frames, uint32_t* faces, uint32_t* vertices, uint32_t* groups,
                       uint32_t* textures) const override;
    void Render(CRenderContext* context) override;
    void Collect(RenderList* list, uint8_t parentValid) override;
    void SetAnimationFrame(float frame, uint32_t flags) override;
    void CacheAnimation() override;
    // Load a mesh file under this mesh; this mesh itself gets no geometry.
    virtual bool LoadVAF(const char* path, uint32_t keepSmoothing);
    virtual bool LoadVBF(const char* path);
    // LoadVBF that hands the file's user data to the caller; null where the file has none or
    // wasn't loaded.
    VBFUserData* LoadVBFWithData(const char* path);
    // Writes the tree below this mesh as a VBF file that loads back into the same records; this
    // mesh's own geometry and every face layer 1 have no place in the format. userData null:
    // none.
    bool SaveVBF(const char* path, const void* userData, uint32_t userDataSize) const;

    // Each Alloc frees the old array (unless lent) and leaves the new one uninitialised; a count
    // of 0 leaves null.
    void AllocVertices(int32_t count);
    void AllocFaces(uint32_t count, int layer);  // also drops smoothingGroups
    void AllocColours(int32_t count);
    void AllocSpeculars(int32_t count);
    void AllocSmoothingGroups();  // faceCount[0] words
    void FreeSmoothingGroups();

    // Points the mesh at arrays that stay someone else's (meshFlags 0x40, which covers both face
    // layers). Own arrays that these replace are freed first; smoothingGroups is dropped.
    void BorrowGeometry(MeshFace* faceArray, uint32_t count, MeshVertex* vertexArray,
                        int32_t countOfVertices, int layer);
    void ReleaseBorrowedGeometry(int layer);
    // Frees and clears the device form and every stored array that the mesh owns.
    void ClearGeometry();
    // Gives up the device form: draw groups, and with ownership 0x2 the buffer, indices and
    // tables. The source arrays stay.
    void ReleaseDeviceForm();

    VertexAnimation* GetVertexAnimation() const { return vertexAnimation; }
    KeyAnimation* GetKeyAnimation() const { return keyAnimation; }
    // Releases the old record (an unpacked one hands its base array back to vertices) and takes
    // the new one, which the mesh then owns.
    void SetVertexAnimation(VertexAnimation* animation);
    void ClearVertexAnimation();
    // The old record is not freed.
    void SetKeyAnimation(KeyAnimation* animation);
    void ClearKeyAnimation();
    // Trades the matrix cache of every form 0 key animation in the tree (CacheAnimation fills
    // it) for per-frame records, shared where frames are equal; each frame keeps its placement.
    // Clones share the arrays that this replaces: reduce before cloning.
    void ReduceKeyAnimation();

    // Positions (normals) of count 24-byte records carried through the chain from the parent up
    // to ref (null: the world); the mesh's own placement is not part of that chain. Normals get
    // the rotation only and are not renormalised.
    void TransformVertices(const CEntity* ref, const MeshVertex* source, Vector* out,
                           int32_t count) const;
    void TransformNormals(const CEntity* ref, const MeshVertex* source, Vector* out,
                          int32_t count) const;
    // Bounding spheres of this mesh and every kind 2 mesh below it, in local space.
    void CalculateBounds();
    // hidden := !(visible & 0xFF) on this mesh and, if recursive, on every mesh below; other
    // nodes are left as they are.
    void SetVisible(uint32_t visible, uint32_t recursive);
    // Merges layer 0 of a tree into one mesh and deletes every node below this one. With null
    // this mesh is the root and keeps its own geometry first; with a target (an ancestor), this
    // mesh and its subtree go into the target.
    void Flatten(CMesh* target);

    uint8_t* vertexShade;  // one byte per vertex, or null; not freed here
    uint32_t meshFlags;    // MeshFlags
    uint32_t dirtyMask;    // MeshDirty
    int32_t vertexCount;
    MeshVertex* vertices;   // for an unpacked vertex animation, the frame in use
    uint32_t faceCount[2];  // layer 0 is the base; layer 1 a second texture stage
    MeshFace* faces[2];
    Vector worldCentre;  // bounding sphere centre in the world, refreshed by Collect
    Vector boundCentre;  // bounding sphere centre in local space
    float boundRadius;   // 0 until CalculateBounds: no sphere known
    VertexAnimation* vertexAnimation;
    KeyAnimation* keyAnimation;
    VertexBufferInfo* vertexBuffer;
    int32_t groupCount;
    int32_t renderVertexCount;
    uint16_t* indices;  // three per face
    DrawGroup* drawGroups;
    uint32_t* renderVertexSource;
    float** renderVertexUV[2];
    const MeshVertexFormat* vertexFormat;
    uint32_t ownership;         // MeshOwnership
    uint8_t* colours;           // red, green, blue per vertex, or null
    uint32_t* speculars;        // packed colour per vertex, or null
    uint32_t* smoothingGroups;  // one word per face of layer 0, or null
    float specularPower;

private:
    // Frees the vertex animation record (its arrays if it owns them) and clears the field and
    // features bit 1; an unpacked one first hands its base array back to vertices.
    void ReleaseVertexAnimation();
    // One mesh's part of SetAnimationFrame: the vertex frame, then the key placement. The key
    // frame wraps the vertex frame's result, or in the walk the rounded frame itself.
    void SelectAnimationFrame(int32_t frame, bool keyFromRounded);
    // The walk of SetAnimationFrame with flags 0x3: children first, through any node class.
    static void WalkAnimation(CEntity* node, int32_t frame, uint32_t flags);
};
