// Node transforms in double, as Assimp lays out its aiMatrix4x4: row-major, column vectors (a
// point is M * p), translation in the last column.
#pragma once

#include <assimp/matrix4x4.h>
#include <assimp/quaternion.h>
#include <assimp/vector3.h>

#include "tool/import/import_scene.h"

struct DMatrix {
    double m[4][4];
};

struct DQuaternion {
    double w, x, y, z;
};

DMatrix IdentityMatrix();
DMatrix FromAssimp(const aiMatrix4x4& a);
DMatrix Multiply(const DMatrix& a, const DMatrix& b);
bool FiniteMatrix(const DMatrix& t);

inline DVec3 ToDouble(const aiVector3D& v) {
    return {double(v.x), double(v.y), double(v.z)};
}
inline DQuaternion ToDouble(const aiQuaternion& q) {
    return {double(q.w), double(q.x), double(q.y), double(q.z)};
}

DVec3 ApplyPoint(const DMatrix& t, const DVec3& v);
double Determinant3(const DMatrix& t);
// Through the inverse transpose of the 3x3 part, unit length (zero stays zero).
DVec3 ApplyNormal(const DMatrix& t, double det, const DVec3& n);

// Translation, then rotation, then scale applied to a point first: T * R * S. The rotation
// need not be of unit length.
DMatrix ComposeTransform(const DVec3& translation, const DQuaternion& rotation, const DVec3& scale);
// Along the shorter arc; a and b need not be of unit length, the result is.
DQuaternion Slerp(DQuaternion a, DQuaternion b, double alpha);
