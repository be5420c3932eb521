#include "engine/scene/entity.h"

#include "base/memory.h"
#include "base/services.h"

CEntity::CEntity(CEntity* parentNode)
    : kind(EntityKindEntity),
      matrixValid(0),
      culled(0),
      features(0),
      hidden(0),
      name(nullptr),
      firstChild(nullptr),
      nextSibling(nullptr),
      parent(nullptr),
      position{0.0f, 0.0f, 0.0f} {
    MatrixIdentity(worldMatrix);
    if (parentNode) parentNode->AddChild(this);
}

CEntity::~CEntity() {
    FREE(name);
    name = nullptr;
    if (parent) parent->RemoveChild(this);
    // Each child unlinks itself, so take the next one before each delete.
    while (firstChild) {
        CEntity* child = firstChild;
        delete child;
    }
}

void CEntity::SetName(const char* text) {
    FREE(name);
    name = CopyString(text);
}

void CEntity::AddChild(CEntity* child) {
    if (child->parent) child->parent->RemoveChild(child);
    child->nextSibling = firstChild;
    firstChild = child;
    child->parent = this;
    child->Invalidate();
}

void CEntity::RemoveChild(CEntity* child) {
    CEntity* owner = child->parent;
    if (owner) {
        CEntity** link = &owner->firstChild;
        while (*link && *link != child) link = &(*link)->nextSibling;
        if (*link) *link = child->nextSibling;
    }
    child->nextSibling = nullptr;
    child->parent = nullptr;
    child->Invalidate();
}

CFrame::CFrame(CEntity* parentNode) : CEntity(parentNode) {
    kind = EntityKindFrame;
    for (int i = 0; i < 9; ++i) rotation[i] = (i % 4 == 0) ? 1.0f : 0.0f;
}
