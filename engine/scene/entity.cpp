#include "engine/scene/entity.h"

#include <cstring>

#include "base/memory.h"
#include "base/services.h"
#include "engine/scene/render_list.h"

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
    if (name) FREE(name);
    name = nullptr;
    if (parent) parent->RemoveChild(this);
    // Each child unlinks itself on deletion, so the head of the list moves on.
    while (firstChild) {
        CEntity* child = firstChild;
        delete child;
    }
}

void CEntity::CloneChildren(CEntity* first, CEntity* copy, uint32_t childFlags) {
    for (CEntity* child = first; child; child = child->nextSibling)
        copy->AddChild(child->Clone(copy, childFlags));
}

CEntity* CEntity::Clone(CEntity* newParent, uint32_t /*flags*/) {
    CEntity* first = firstChild;
    CEntity* copy = NEW CEntity(newParent);
    CopyPlacementTo(copy);
    CloneChildren(first, copy, 0);
    copy->Invalidate();
    return copy;
}

void CEntity::RecursiveHook(uint32_t recursive) {
    if (!(recursive & 0xFF)) return;
    for (CEntity* child = firstChild; child; child = child->nextSibling)
        child->RecursiveHook(recursive);
}

void CEntity::SortFaces(uint32_t recursive) {
    if (!(recursive & 0xFF)) return;
    for (CEntity* child = firstChild; child; child = child->nextSibling)
        child->SortFaces(recursive);
}

void CEntity::SetPositionIn(const CEntity* ref, float x, float y, float z) {
    Vector vector{x, y, z};
    SetPositionIn(ref, vector);
}

void CEntity::SetPosition(float x, float y, float z) {
    position = Vector{x, y, z};
    Invalidate();
}

void CEntity::SetPositionIn(const CEntity* ref, Vector& vector) {
    Invalidate();
    Matrix chain;
    BuildChain(ref, chain);
    InverseMatrix inverse;
    if (!MatrixInverse(chain, inverse)) return;
    MatrixApplyInverse(inverse, vector, position);
}

void CEntity::SetPosition(const Vector& vector) {
    position = vector;
    Invalidate();
}

void CEntity::GetPositionIn(const CEntity* ref, Vector& out) const {
    Matrix chain;
    BuildChain(ref, chain);
    MatrixApply(chain, position, out);
}

void CEntity::GetPosition(Vector& out) const {
    out = position;
}

void CEntity::GetTransform(Matrix& out, const CEntity* ref) const {
    GetLocalMatrix(out);
    if (ref == this || ref == parent) return;
    if (!ref && IsValidUpTo(nullptr)) {
        // The parent's cached matrix already holds the rest of the way to the world.
        Matrix world;
        parent->GetWorldMatrix(world);
        MatrixPostMultiply(out, world);
        return;
    }
    for (const CEntity* f = parent; f && f != ref; f = f->parent) f->ApplyLocalAfter(out);
}

void CEntity::GetLocalMatrix(Matrix& out) const {
    MatrixIdentity(out);
    out[12] = position.x;
    out[13] = position.y;
    out[14] = position.z;
}

void CEntity::GetWorldMatrix(Matrix& out) const {
    MatrixCopy(worldMatrix, out);
}

// The local matrix is a pure translation: the rows of m stay and only row 3 moves.
void CEntity::ApplyLocalAfter(Matrix& m) const {
    m[12] = float(double(m[12]) + position.x);
    m[13] = float(double(m[13]) + position.y);
    m[14] = float(double(m[14]) + position.z);
    m[3] = m[7] = m[11] = 0.0f;
    m[15] = 1.0f;
}

void CEntity::ApplyLocalBefore(Matrix& m) const {
    double x = position.x, y = position.y, z = position.z;
    float tx = float(x * m[0] + y * m[4] + z * m[8] + m[12]);
    float ty = float(x * m[1] + y * m[5] + z * m[9] + m[13]);
    float tz = float(x * m[2] + y * m[6] + z * m[10] + m[14]);
    m[12] = tx;
    m[13] = ty;
    m[14] = tz;
    m[3] = m[7] = m[11] = 0.0f;
    m[15] = 1.0f;
}

void CEntity::Invalidate() {
    matrixValid = 0;
}

bool CEntity::IsValidUpTo(const CEntity* ref) const {
    for (const CEntity* f = this; f; f = f->parent) {
        if (!f->matrixValid) return false;
        if (f == ref) return true;
    }
    return true;
}

uint8_t CEntity::IsValid() const {
    return matrixValid;
}

void CEntity::CountContents(uint32_t* frames, uint32_t* faces, uint32_t* vertices, uint32_t* groups,
                            uint32_t* textures) const {
    if (frames) ++*frames;
    for (const CEntity* child = firstChild; child; child = child->nextSibling)
        child->CountContents(frames, faces, vertices, groups, textures);
}

void CEntity::Render(CRenderContext* /*context*/) {}

void CEntity::Collect(RenderList* list, uint8_t parentValid) {
    uint8_t valid = parentValid & matrixValid;
    if (!valid) {
        if (parent) {
            parent->GetWorldMatrix(worldMatrix);
            ApplyLocalBefore(worldMatrix);
        } else {
            GetLocalMatrix(worldMatrix);
        }
        worldMatrix[3] = worldMatrix[7] = worldMatrix[11] = 0.0f;
        worldMatrix[15] = 1.0f;
        matrixValid = 1;
    }
    if (!culled) list->Append(this);
    // valid, not the repaired flag: a moved node's children must rebuild too.
    for (CEntity* child = firstChild; child; child = child->nextSibling)
        child->Collect(list, valid);
}

void CEntity::SetAnimationFrame(float frame, uint32_t flags) {
    if (!(flags & 1)) return;
    for (CEntity* child = firstChild; child; child = child->nextSibling)
        child->SetAnimationFrame(frame, flags);
}

void CEntity::CacheAnimation() {
    for (CEntity* child = firstChild; child; child = child->nextSibling) child->CacheAnimation();
}

void CEntity::SetName(const char* text) {
    char* copy = CopyString(text);  // before the free: text may be this very name
    if (name) FREE(name);
    name = copy;
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

static bool NameIs(const CEntity* node, const char* text) {
    return node->name && std::strcmp(node->name, text) == 0;
}

// A node, then the whole walk of its later siblings, then its own children: every sibling of a
// list is tried before any of their children.
static CEntity* FindInList(CEntity* node, const char* text) {
    if (!node) return nullptr;
    if (NameIs(node, text)) return node;
    if (CEntity* found = FindInList(node->nextSibling, text)) return found;
    return FindInList(node->firstChild, text);
}

CEntity* CEntity::FindByName(const char* text) {
    if (!text) return nullptr;
    if (NameIs(this, text)) return this;
    return FindInList(firstChild, text);
}

void CEntity::CopyPlacementTo(CEntity* other) const {
    other->SetName(name);
    other->SetPosition(position);
    other->features = features;
    other->hidden = hidden;
}

void CEntity::BuildChain(const CEntity* ref, Matrix& m) const {
    MatrixIdentity(m);
    // A ref that isn't an ancestor ends the walk at the top, as the world would.
    for (const CEntity* f = parent; f && f != ref; f = f->parent) f->ApplyLocalAfter(m);
}
