// CEntity and CFrame: the nodes of every tree in a scene. Links are intrusive; a new child goes
// to the front of its parent's list, so children stand newest first. A node owns its name and its
// children: deleting a node deletes its subtree.
//
// A node keeps its local placement and a cached world matrix. Invalidate clears only the node's
// own flag; a moved parent reaches its children through the flag that Collect hands down.
// Relative operations take an ancestor as the reference frame; a null reference is the world.
// A frame looks along its negated row 2, so the identity rotation looks along -z.
#pragma once

#include <cstdint>

#include "engine/scene/maths.h"

class CRenderContext;
struct RenderList;

enum EntityKind : uint32_t {
    EntityKindEntity = 0,
    EntityKindFrame = 1,  // also CCamera
    EntityKindMesh = 2,
    EntityKindMultiMesh = 3,
    EntityKindDynamicMesh = 4,
};

class CEntity {
public:
    explicit CEntity(CEntity* parent);
    virtual ~CEntity();
    CEntity(const CEntity&) = delete;
    CEntity& operator=(const CEntity&) = delete;

    // Deep copy under parent, of the class that implements it; the copy's children stand in
    // the reverse order of this node's.
    virtual CEntity* Clone(CEntity* parent, uint32_t flags);
    // Both pass on to the children when the low byte of recursive is non-zero.
    virtual void RecursiveHook(uint32_t recursive);
    virtual void SortFaces(uint32_t recursive);
    virtual void SetPositionIn(const CEntity* ref, float x, float y, float z);
    virtual void SetPosition(float x, float y, float z);
    // vector is carried into the parent's space in place (it is changed); a singular chain leaves
    // position as it was.
    virtual void SetPositionIn(const CEntity* ref, Vector& vector);
    virtual void SetPosition(const Vector& vector);
    virtual void GetPositionIn(const CEntity* ref, Vector& out) const;
    virtual void GetPosition(Vector& out) const;
    virtual void GetTransform(Matrix& out, const CEntity* ref) const;
    virtual void GetLocalMatrix(Matrix& out) const;
    virtual void GetWorldMatrix(Matrix& out) const;  // as cached, valid or not
    virtual void ApplyLocalAfter(Matrix& m) const;   // m := m * local
    virtual void ApplyLocalBefore(Matrix& m) const;  // m := local * m
    virtual void Invalidate();
    virtual bool IsValidUpTo(const CEntity* ref) const;  // this node and ancestors up to ref
    virtual uint8_t IsValid() const;
    // Adds to each count whose pointer is given, then the children's.
    virtual void CountContents(uint32_t* frames, uint32_t* faces, uint32_t* vertices,
                               uint32_t* groups, uint32_t* textures) const;
    virtual void Render(CRenderContext* context);
    // The per-frame walk: repairs world matrices and appends what isn't culled to list (never
    // null: the layer's list). Started on a root with parentValid 1.
    virtual void Collect(RenderList* list, uint8_t parentValid);
    virtual void SetAnimationFrame(float frame, uint32_t flags);  // flags bit 0: recursive
    virtual void CacheAnimation();

    void SetName(const char* text);
    void AddChild(CEntity* child);
    void RemoveChild(CEntity* child);
    // Exact, case-sensitive; this node, then its subtree with siblings before children.
    CEntity* FindByName(const char* text);
    void CopyPlacementTo(CEntity* other) const;  // name, position, features, hidden

    Matrix worldMatrix;   // cached transform to the world
    uint32_t kind;        // EntityKind, read to tell meshes from other nodes
    uint8_t matrixValid;  // worldMatrix is up to date with this node's own placement
    uint8_t culled;       // set by the visibility test of the walk
    uint8_t features;     // 1: holds geometry; 2: vertex animation; 4: key animation
    uint8_t hidden;       // left out when drawing
    char* name;           // owned copy, or null
    CEntity* firstChild;
    CEntity* nextSibling;
    CEntity* parent;
    Vector position;  // in the parent's space

protected:
    // The transform from the parent's space to ref's, from the live local placements: right even
    // while world matrices are stale. ref must be an ancestor or null.
    void BuildChain(const CEntity* ref, Matrix& m) const;
    // Clones the list that starts at first under copy, passing childFlags on; first is taken
    // before copy is made, so a copy made inside this subtree is not cloned into itself.
    static void CloneChildren(CEntity* first, CEntity* copy, uint32_t childFlags);
};

class CFrame : public CEntity {
public:
    explicit CFrame(CEntity* parent);
    ~CFrame() override;

    CFrame* Clone(CEntity* parent, uint32_t flags) override;
    void GetLocalMatrix(Matrix& out) const override;
    void ApplyLocalAfter(Matrix& m) const override;
    void ApplyLocalBefore(Matrix& m) const override;

    virtual void SetMatrix(const Matrix& m);  // elements 3, 7, 11, 15 are ignored
    // dir is kept exactly; up is made perpendicular to it.
    virtual void SetOrientation(const Vector& dir, const Vector& up);
    virtual void SetDirection(const Vector& dir);
    // dir and up are given in ref's space; up is kept as given, not made perpendicular. A
    // singular chain leaves the rotation as it was.
    virtual void SetOrientationIn(const CEntity* ref, const Vector& dir, const Vector& up);
    virtual void SetDirectionIn(const CEntity* ref, const Vector& dir);
    // Not normalised. Either out may be null.
    virtual void GetOrientationIn(const CEntity* ref, Vector* outDir, Vector* outUp) const;
    virtual void GetDirectionIn(const CEntity* ref, Vector& outDir) const;
    virtual void GetOrientation(Vector* outDir, Vector* outUp) const;  // local
    virtual void GetDirection(Vector& outDir) const;
    virtual void GetPlacementIn(const CEntity* ref, Vector& outPos, Vector& outDir) const;
    virtual void GetPlacementIn(const CEntity* ref, Vector& outPos, Vector& outDir,
                                Vector& outUp) const;

    void CopyRotationTo(CFrame* other) const;

    float rotation[9];  // rows: x axis, up axis, z axis (the negated direction)
};
