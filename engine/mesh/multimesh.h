// CMultiMesh: a frame holding a mesh in device form only, with up to eight texture stages over
// one vertex list. Its vertices are world coordinates: the multi-mesh queue draws every one with
// the identity as world transform, so the frame's placement does not move what is drawn. The
// vertices live in a pooled device buffer with a copy in system memory, from which a lost buffer
// is rewritten.
//
// The parts that need a device (allocation, locks, the build from a CMesh, drawing) are in
// engine/render/multimesh_device.cpp; constructing one needs velmora_render.
#pragma once

#include <cstdint>

#include "engine/scene/entity.h"

class CMesh;
class CRenderer;
class CTexture;
struct VertexBufferInfo;

constexpr int MultiMeshStages = 8;
constexpr int MultiStageWords = 7;  // COLORARG1, COLORARG2, COLOROP, ALPHAARG1, ALPHAARG2, ALPHAOP

enum MultiMeshLayout : uint32_t {
    MultiLayoutDiffuse = 0x20,  // a diffuse word instead of a normal; drawn unlit
};

struct MultiDrawGroup {
    Matrix* world;         // the mesh's worldMatrix
    uint32_t firstVertex;  // absolute in the pool's buffer once built
    uint32_t vertexSpan;
    uint32_t indexCount;
    uint32_t material;       // the group's first face, which picks its textures in stageTextures
    uint16_t* groupIndices;  // relative to firstVertex
};

// Process-wide: reserve a pool of this many vertices (at most 65535) before the next Allocate's
// request; -1 for none. Goes back to -1 once used.
extern int32_t MultiMeshPoolReserve;
// Indices before and after BuildStrips, summed over all meshes.
extern uint32_t StripIndicesIn;
extern uint32_t StripIndicesOut;

class CMultiMesh : public CFrame {
public:
    CMultiMesh(CRenderer* owner, CEntity* parent);
    ~CMultiMesh() override;

    // A mesh of the same device and sizes under parent, with faces and stage tables copied; the
    // vertices are left for the caller to fill.
    CMultiMesh* Clone(CEntity* parent, uint32_t flags) override;
    void Render(CRenderContext* context) override;  // into the multi-mesh queue
    // The frustum test of the queue; appends the mesh unless culled. No children, no matrices.
    void Collect(RenderList* list, uint8_t parentValid) override;
    void CacheAnimation() override {}

    // coordinateSets -1: one per stage.
    void Allocate(uint32_t vertices, uint32_t faces, int32_t stages, int32_t coordinateSets);
    void BuildFromMesh(CMesh* mesh, int32_t stages, int32_t coordinateSets);
    void BuildPositionArrays();

    // The setters write both the locked buffer and vertexCopy: only between Lock and Unlock.
    bool Lock();
    void Unlock();
    void SetVertexPosition(uint32_t index, float x, float y, float z);
    void SetVertexNormal(uint32_t index, float x, float y, float z);
    void SetVertexUV(uint32_t index, int32_t coordinateSet, float u, float v);
    void GetVertexPosition(uint32_t index, float* x, float* y, float* z) const;
    void GetVertexUV(uint32_t index, int32_t coordinateSet, float* u, float* v) const;

    void SetStagePass(int32_t stage, uint8_t stages, uint8_t whole);
    void SetStageSettings(int32_t stage, const uint32_t* block);  // not owned
    void GetStageSettings(int32_t stage, uint32_t* out) const;    // seven words
    void SetStageCoordinates(int32_t stage, uint8_t set);
    void SetFirstStage(int32_t value);                   // fatal below 0 or at stageCount and above
    void SetPassStages(int32_t value);                   // fatal above stageCount
    const uint32_t* StageSettings(int32_t stage) const;  // the block, or the default one

    void RestoreVertices();  // the lost buffer from vertexCopy
    void CalculateBounds();
    void CalculateBox();
    void Finalise();
    void BuildStrips();
    // The queue's frustum test; sets culled. planes: outward left, right, bottom, top, near,
    // with n . p + offset > 0 outside; null planes cull nothing.
    void TestFrustum(const Vector* planes, const float* planeOffsets);

    float* positionX;
    float* positionY;
    float* positionZ;
    uint32_t layoutFlags;
    Vector worldCentre;
    Vector boundCentre;
    float boundRadius;
    int32_t stageCount;
    int32_t passStages;
    int32_t firstStage;
    int32_t uvSets;
    uint8_t stageCoordinates[MultiMeshStages];
    uint16_t* faceIndices;
    CTexture** stageTextures[MultiMeshStages];
    const uint32_t* stageSettings[MultiMeshStages];
    uint8_t stagePass[MultiMeshStages][4];  // stages of the pass starting here; whole-mesh draw
    VertexBufferInfo* vertexBuffer;
    float* lockedVertices;
    uint32_t vertexTotal;
    uint32_t faceTotal;
    CRenderer* device;
    uint32_t strideWords;
    MultiDrawGroup* multiGroups;
    int32_t multiGroupCount;
    MultiDrawGroup wholeGroup;
    Vector boxMin;
    Vector boxMax;
    uint8_t locked;
    uint8_t notQueued;
    uint8_t stripped;
    float* vertexCopy;

    uint32_t VertexFormat() const;  // flexible vertex format code of the layout

private:
    void FreeAll();
    void FreeGroups();
    void BuildGroups();
    float* VertexWords(uint32_t index) const;  // in vertexCopy; null out of range
    void WriteWord(uint32_t index, uint32_t word, float value);
    void WriteDiffuse(uint32_t index);
};

extern const uint32_t MultiStageDefault[MultiStageWords];
