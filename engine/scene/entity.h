// CEntity and CFrame: the nodes of every tree in a scene. Links are intrusive; a new child goes
// to the front of its parent's list, so children stand newest first. A node owns its name and its
// children: deleting a node deletes its subtree.
#pragma once

#include <cstdint>

#include "engine/scene/maths.h"

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

    void Invalidate() { matrixValid = 0; }

    void SetName(const char* text);
    void AddChild(CEntity* child);
    void RemoveChild(CEntity* child);

    Matrix worldMatrix;    // cached transform to the world
    uint32_t kind;         // EntityKind, read to tell meshes from other nodes
    uint8_t matrixValid;   // worldMatrix is up to date with this node's own placement
    uint8_t culled;        // set by the visibility test of the walk
    uint8_t features;      // 1: holds geometry; 2: vertex animation; 4: key animation
    uint8_t hidden;        // left out when drawing
    char* name;            // owned copy, or null
    CEntity* firstChild;
    CEntity* nextSibling;
    CEntity* parent;
    Vector position;       // in the parent's space
};

class CFrame : public CEntity {
public:
    explicit CFrame(CEntity* parent);

    float rotation[9];  // rows: x axis, up axis, z axis (the negated direction)
};
