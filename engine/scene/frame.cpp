#include <cstring>

#include "base/memory.h"
#include "engine/scene/entity.h"

static void Negate(Vector& v) {
    v.x = -v.x;
    v.y = -v.y;
    v.z = -v.z;
}

// Rows 0, 1, 2 of the rotation: the frame's x axis, its up axis and its z axis.
static void SetRows(float* rotation, const Vector& x, const Vector& y, const Vector& z) {
    const Vector* rows[3] = {&x, &y, &z};
    for (int row = 0; row < 3; ++row) {
        rotation[row * 3] = rows[row]->x;
        rotation[row * 3 + 1] = rows[row]->y;
        rotation[row * 3 + 2] = rows[row]->z;
    }
}

static Vector Row(const float* rotation, int row) {
    return Vector{rotation[row * 3], rotation[row * 3 + 1], rotation[row * 3 + 2]};
}

CFrame::CFrame(CEntity* parentNode) : CEntity(parentNode) {
    kind = EntityKindFrame;
    for (int i = 0; i < 9; ++i) rotation[i] = (i % 4 == 0) ? 1.0f : 0.0f;
}

CFrame::~CFrame() = default;

CFrame* CFrame::Clone(CEntity* newParent, uint32_t /*flags*/) {
    CEntity* first = firstChild;
    CFrame* copy = NEW CFrame(newParent);
    CopyPlacementTo(copy);
    CopyRotationTo(copy);
    CloneChildren(first, copy, 0);
    copy->Invalidate();
    return copy;
}

void CFrame::GetLocalMatrix(Matrix& out) const {
    for (int row = 0; row < 3; ++row) {
        for (int col = 0; col < 3; ++col) out[row * 4 + col] = rotation[row * 3 + col];
        out[row * 4 + 3] = 0.0f;
    }
    out[12] = position.x;
    out[13] = position.y;
    out[14] = position.z;
    out[15] = 1.0f;
}

void CFrame::ApplyLocalAfter(Matrix& m) const {
    Matrix local;
    GetLocalMatrix(local);
    MatrixPostMultiply(m, local);
}

void CFrame::ApplyLocalBefore(Matrix& m) const {
    Matrix local;
    GetLocalMatrix(local);
    MatrixPreMultiply(m, local);
}

void CFrame::SetMatrix(const Matrix& m) {
    for (int row = 0; row < 3; ++row)
        for (int col = 0; col < 3; ++col) rotation[row * 3 + col] = m[row * 4 + col];
    position = Vector{m[12], m[13], m[14]};
    Invalidate();
}

void CFrame::SetOrientation(const Vector& dir, const Vector& up) {
    Invalidate();
    Vector z = dir;
    VectorNormalize(z);
    Negate(z);
    Vector x;
    VectorCross(x, up, z);
    VectorNormalize(x);
    Vector y;
    VectorCross(y, z, x);
    VectorNormalize(y);
    SetRows(rotation, x, y, z);
}

void CFrame::SetDirection(const Vector& dir) {
    SetOrientation(dir, Vector{0.0f, 1.0f, 0.0f});
}

void CFrame::SetOrientationIn(const CEntity* ref, const Vector& dir, const Vector& up) {
    Invalidate();
    Matrix chain;
    BuildChain(ref, chain);
    InverseMatrix inverse;
    if (!MatrixInverse(chain, inverse)) return;
    inverse[12] = inverse[13] = inverse[14] = 0.0f;  // directions only
    Vector d = dir;                                  // MatrixApplyInverse writes its input back
    Vector z;
    MatrixApplyInverse(inverse, d, z);
    VectorNormalize(z);
    Negate(z);
    Vector u = up;
    Vector y;
    MatrixApplyInverse(inverse, u, y);
    VectorNormalize(y);
    Vector x;
    VectorCross(x, y, z);
    VectorNormalize(x);
    SetRows(rotation, x, y, z);
}

void CFrame::SetDirectionIn(const CEntity* ref, const Vector& dir) {
    SetOrientationIn(ref, dir, Vector{0.0f, 1.0f, 0.0f});
}

// Directions only: the chain's translation plays no part.
void CFrame::GetOrientationIn(const CEntity* ref, Vector* outDir, Vector* outUp) const {
    Matrix chain;
    BuildChain(ref, chain);
    if (outDir) {
        Vector back = Row(rotation, 2);
        Negate(back);
        MatrixApplyRotation(chain, back, *outDir);
    }
    if (outUp) MatrixApplyRotation(chain, Row(rotation, 1), *outUp);
}

void CFrame::GetDirectionIn(const CEntity* ref, Vector& outDir) const {
    GetOrientationIn(ref, &outDir, nullptr);
}

void CFrame::GetOrientation(Vector* outDir, Vector* outUp) const {
    GetOrientationIn(parent, outDir, outUp);
}

void CFrame::GetDirection(Vector& outDir) const {
    GetOrientation(&outDir, nullptr);
}

void CFrame::GetPlacementIn(const CEntity* ref, Vector& outPos, Vector& outDir) const {
    Matrix chain;
    BuildChain(ref, chain);
    MatrixApply(chain, position, outPos);
    Vector back = Row(rotation, 2);
    Negate(back);
    MatrixApplyRotation(chain, back, outDir);
}

void CFrame::GetPlacementIn(const CEntity* ref, Vector& outPos, Vector& outDir,
                            Vector& outUp) const {
    Matrix chain;
    BuildChain(ref, chain);
    MatrixApply(chain, position, outPos);
    Vector back = Row(rotation, 2);
    Negate(back);
    MatrixApplyRotation(chain, back, outDir);
    MatrixApplyRotation(chain, Row(rotation, 1), outUp);
}

void CFrame::CopyRotationTo(CFrame* other) const {
    std::memcpy(other->rotation, rotation, sizeof rotation);
}
