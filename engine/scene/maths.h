// Vector, matrix and quaternion maths over 32-bit floats.
//
// Numerical convention of the whole engine: arithmetic is carried out in double and a result is
// rounded to float only where it is stored in a float field or variable. Built with
// -ffp-contract=off, so every caller gets the same bits on every path.
#pragma once

#include <cstdint>

struct Vector {
    float x, y, z;
};

// Row-vector convention: p' = p * M; translation in elements 12 to 14.
struct Matrix {
    float m[16];
    float& operator[](int i) { return m[i]; }
    const float& operator[](int i) const { return m[i]; }
};

// What MatrixInverse hands back: the true inverse of the 3x3 part, but row 3 holds the input's
// translation only negated. Only MatrixApplyInverse understands it, hence its own type.
struct InverseMatrix {
    float m[16];
    float& operator[](int i) { return m[i]; }
    const float& operator[](int i) const { return m[i]; }
};

// Scalar first.
struct Quaternion {
    float s, x, y, z;
};

// Vectors. out must not alias a or b for the cross product.
void VectorCross(Vector& out, const Vector& a, const Vector& b);
float VectorDot(const Vector& a, const Vector& b);  // summed z, y, x
float VectorNormalize(Vector& v);  // returns the old length; exactly zero stays zero
void VectorAdd(const Vector& a, const Vector& b, Vector& out);
void VectorSubtract(const Vector& a, const Vector& b, Vector& out);
float VectorLength(const Vector& v);
void VectorScale(Vector& v, float s);
void VectorRotate(Vector& out, const Vector& v, const Vector& axis, float angle);

// Matrices. Everything but MatrixMultiply and MatrixApplyProjective treats a matrix as affine.
void MatrixIdentity(Matrix& m);
void MatrixCopy(const Matrix& src, Matrix& dst);
void MatrixPreMultiply(Matrix& m, const Matrix& b);   // m := b * m; b may be m
void MatrixPostMultiply(Matrix& m, const Matrix& b);  // m := m * b; b may be m
void MatrixMultiplyAffine(Matrix& out, const Matrix& a, const Matrix& b);
void MatrixMultiply(Matrix& out, const Matrix& a, const Matrix& b);
bool MatrixInverse(const Matrix& m, InverseMatrix& out);
void MatrixApply(const Matrix& m, const Vector& v, Vector& out);
void MatrixApplyRotation(const Matrix& m, const Vector& v, Vector& out);
void MatrixApplyProjective(const Matrix& m, const Vector& v, Vector& out);
void MatrixApplyInverse(const InverseMatrix& inv, Vector& v, Vector& out);  // changes v

// The two quaternion functions of the retained-mode maths library, under their published names.
void D3DRMQuaternionSlerp(Quaternion* out, const Quaternion* a, const Quaternion* b, float alpha);
void D3DRMMatrixFromQuaternion(Matrix* matrix, const Quaternion* q);
