#include "tool/import/node_transform.h"

#include <cmath>

DMatrix IdentityMatrix() {
    DMatrix r = {};
    for (int i = 0; i < 4; ++i) r.m[i][i] = 1.0;
    return r;
}

DMatrix FromAssimp(const aiMatrix4x4& a) {
    const float* f = &a.a1;
    DMatrix r;
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j) r.m[i][j] = double(f[i * 4 + j]);
    return r;
}

DMatrix Multiply(const DMatrix& a, const DMatrix& b) {
    DMatrix r = {};
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j)
            for (int k = 0; k < 4; ++k) r.m[i][j] += a.m[i][k] * b.m[k][j];
    return r;
}

bool FiniteMatrix(const DMatrix& t) {
    for (const auto& row : t.m)
        for (double value : row)
            if (!std::isfinite(value)) return false;
    return true;
}

DVec3 ApplyPoint(const DMatrix& t, const DVec3& v) {
    return {t.m[0][0] * v.x + t.m[0][1] * v.y + t.m[0][2] * v.z + t.m[0][3],
            t.m[1][0] * v.x + t.m[1][1] * v.y + t.m[1][2] * v.z + t.m[1][3],
            t.m[2][0] * v.x + t.m[2][1] * v.y + t.m[2][2] * v.z + t.m[2][3]};
}

double Determinant3(const DMatrix& t) {
    const auto& m = t.m;
    return m[0][0] * (m[1][1] * m[2][2] - m[1][2] * m[2][1]) -
           m[0][1] * (m[1][0] * m[2][2] - m[1][2] * m[2][0]) +
           m[0][2] * (m[1][0] * m[2][1] - m[1][1] * m[2][0]);
}

// The cofactor matrix is the inverse transpose up to a factor of either sign; normals are made
// unit afterwards, so only the sign matters, and det fixes it.
DVec3 ApplyNormal(const DMatrix& t, double det, const DVec3& n) {
    const auto& m = t.m;
    double c[3][3] = {{m[1][1] * m[2][2] - m[1][2] * m[2][1], m[1][2] * m[2][0] - m[1][0] * m[2][2],
                       m[1][0] * m[2][1] - m[1][1] * m[2][0]},
                      {m[0][2] * m[2][1] - m[0][1] * m[2][2], m[0][0] * m[2][2] - m[0][2] * m[2][0],
                       m[0][1] * m[2][0] - m[0][0] * m[2][1]},
                      {m[0][1] * m[1][2] - m[0][2] * m[1][1], m[0][2] * m[1][0] - m[0][0] * m[1][2],
                       m[0][0] * m[1][1] - m[0][1] * m[1][0]}};
    double s = det < 0.0 ? -1.0 : 1.0;
    DVec3 r = {s * (c[0][0] * n.x + c[0][1] * n.y + c[0][2] * n.z),
               s * (c[1][0] * n.x + c[1][1] * n.y + c[1][2] * n.z),
               s * (c[2][0] * n.x + c[2][1] * n.y + c[2][2] * n.z)};
    double length = std::sqrt(Dot(r, r));
    if (length > 0.0) r = {r.x / length, r.y / length, r.z / length};
    return r;
}

DMatrix ComposeTransform(const DVec3& translation, const DQuaternion& rotation,
                         const DVec3& scale) {
    DQuaternion q = rotation;
    double length = std::sqrt(q.w * q.w + q.x * q.x + q.y * q.y + q.z * q.z);
    if (length > 0.0) q = {q.w / length, q.x / length, q.y / length, q.z / length};
    const double w = q.w, x = q.x, y = q.y, z = q.z;
    const double r[3][3] = {{1 - 2 * (y * y + z * z), 2 * (x * y - w * z), 2 * (x * z + w * y)},
                            {2 * (x * y + w * z), 1 - 2 * (x * x + z * z), 2 * (y * z - w * x)},
                            {2 * (x * z - w * y), 2 * (y * z + w * x), 1 - 2 * (x * x + y * y)}};
    const double s[3] = {scale.x, scale.y, scale.z},
                 t[3] = {translation.x, translation.y, translation.z};
    DMatrix out = IdentityMatrix();
    for (int i = 0; i < 3; ++i) {
        for (int j = 0; j < 3; ++j) out.m[i][j] = r[i][j] * s[j];
        out.m[i][3] = t[i];
    }
    return out;
}

DQuaternion Slerp(DQuaternion a, DQuaternion b, double alpha) {
    auto unit = [](DQuaternion q) {
        double length = std::sqrt(q.w * q.w + q.x * q.x + q.y * q.y + q.z * q.z);
        return length > 0.0 ? DQuaternion{q.w / length, q.x / length, q.y / length, q.z / length}
                            : DQuaternion{1.0, 0.0, 0.0, 0.0};
    };
    a = unit(a);
    b = unit(b);
    double cosine = a.w * b.w + a.x * b.x + a.y * b.y + a.z * b.z;
    if (cosine < 0.0) {  // q and -q are the same rotation; take the nearer one
        b = {-b.w, -b.x, -b.y, -b.z};
        cosine = -cosine;
    }
    double wa = 1.0 - alpha, wb = alpha;
    // Nearly equal: the sine below vanishes, and a straight blend is as good.
    if (cosine < 0.9995) {
        double angle = std::acos(cosine), sine = std::sin(angle);
        wa = std::sin((1.0 - alpha) * angle) / sine;
        wb = std::sin(alpha * angle) / sine;
    }
    return unit(
        {wa * a.w + wb * b.w, wa * a.x + wb * b.x, wa * a.y + wb * b.y, wa * a.z + wb * b.z});
}
