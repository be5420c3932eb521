#include "engine/scene/maths.h"

#include <cmath>
#include <cstring>

void VectorCross(Vector& out, const Vector& a, const Vector& b) {
    double ax = a.x, ay = a.y, az = a.z;
    out.x = float(ay * b.z - az * b.y);
    out.y = float(az * b.x - ax * b.z);
    out.z = float(ax * b.y - ay * b.x);
}

float VectorDot(const Vector& a, const Vector& b) {
    return float(double(a.z) * b.z + double(a.y) * b.y + double(a.x) * b.x);
}

float VectorNormalize(Vector& v) {
    float squared = float(double(v.x) * v.x + double(v.y) * v.y + double(v.z) * v.z);
    if (squared == 0.0f) return 0.0f;
    double length = std::sqrt(double(squared));
    float inverse = float(1.0 / length);
    v.x = float(double(v.x) * inverse);
    v.y = float(double(v.y) * inverse);
    v.z = float(double(v.z) * inverse);
    return float(length);
}

void VectorAdd(const Vector& a, const Vector& b, Vector& out) {
    out.x = float(double(a.x) + b.x);
    out.y = float(double(a.y) + b.y);
    out.z = float(double(a.z) + b.z);
}

void VectorSubtract(const Vector& a, const Vector& b, Vector& out) {
    out.x = float(double(a.x) - b.x);
    out.y = float(double(a.y) - b.y);
    out.z = float(double(a.z) - b.z);
}

float VectorLength(const Vector& v) {
    return float(std::sqrt(double(v.x) * v.x + double(v.y) * v.y + double(v.z) * v.z));
}

void VectorScale(Vector& v, float s) {
    v.x = float(double(v.x) * s);
    v.y = float(double(v.y) * s);
    v.z = float(double(v.z) * s);
}

void VectorRotate(Vector& out, const Vector& v, const Vector& axis, float angle) {
    Vector p = v;  // copies first: out may alias v or axis
    Vector n = axis;
    VectorNormalize(p);
    VectorNormalize(n);
    double c = std::cos(double(angle));
    double s = std::sin(double(angle));
    double t = 1.0 - c;
    double ax = n.x, ay = n.y, az = n.z;
    double x = p.x, y = p.y, z = p.z;
    out.x = float(x * (ax * ax + (1.0 - ax * ax) * c) + y * (t * ax * ay - az * s) +
                  z * (t * ax * az + ay * s));
    out.y = float(x * (t * ax * ay + az * s) + y * (ay * ay + (1.0 - ay * ay) * c) +
                  z * (t * ay * az - ax * s));
    out.z = float(x * (t * ax * az - ay * s) + y * (t * ay * az + ax * s) +
                  z * (az * az + (1.0 - az * az) * c));
}

void MatrixIdentity(Matrix& m) {
    std::memset(m.m, 0, sizeof m.m);
    m[0] = m[5] = m[10] = m[15] = 1.0f;
}

void MatrixCopy(const Matrix& src, Matrix& dst) {
    std::memcpy(dst.m, src.m, sizeof dst.m);
}

// Affine product into out: rows 0-2 and row 3 of a through the 3x3 part of b, plus b's row 3.
static void AffineProduct(float* out, const float* a, const float* b) {
    for (int row = 0; row < 4; ++row) {
        const float* r = a + row * 4;
        for (int col = 0; col < 3; ++col) {
            double sum =
                double(r[0]) * b[col] + double(r[1]) * b[4 + col] + double(r[2]) * b[8 + col];
            if (row == 3) sum += b[12 + col];
            out[row * 4 + col] = float(sum);
        }
    }
}

static void AffineProductFull(Matrix& m, const Matrix& a, const Matrix& b) {
    Matrix product;
    AffineProduct(product.m, a.m, b.m);
    product[3] = product[7] = product[11] = 0.0f;
    product[15] = 1.0f;
    m = product;
}

void MatrixPreMultiply(Matrix& m, const Matrix& b) {
    AffineProductFull(m, b, m);
}

void MatrixPostMultiply(Matrix& m, const Matrix& b) {
    AffineProductFull(m, m, b);
}

void MatrixMultiplyAffine(Matrix& out, const Matrix& a, const Matrix& b) {
    float product[16];
    AffineProduct(product, a.m, b.m);
    for (int row = 0; row < 4; ++row)
        for (int col = 0; col < 3; ++col) out[row * 4 + col] = product[row * 4 + col];
}

void MatrixMultiply(Matrix& out, const Matrix& a, const Matrix& b) {
    for (int row = 0; row < 4; ++row)
        for (int col = 0; col < 4; ++col)
            out[row * 4 + col] =
                float(double(a[row * 4]) * b[col] + double(a[row * 4 + 1]) * b[4 + col] +
                      double(a[row * 4 + 2]) * b[8 + col] + double(a[row * 4 + 3]) * b[12 + col]);
}

bool MatrixInverse(const Matrix& m, InverseMatrix& out) {
    double a = m[0], b = m[1], c = m[2];
    double d = m[4], e = m[5], f = m[6];
    double g = m[8], h = m[9], i = m[10];
    double det = a * (e * i - f * h) - b * (d * i - f * g) + c * (d * h - e * g);
    std::memset(out.m, 0, sizeof out.m);
    if (det == 0.0) {
        out[0] = out[5] = out[10] = out[15] = 1.0f;
        return false;
    }
    out[0] = float((e * i - f * h) / det);
    out[1] = float((c * h - b * i) / det);
    out[2] = float((b * f - c * e) / det);
    out[4] = float((f * g - d * i) / det);
    out[5] = float((a * i - c * g) / det);
    out[6] = float((c * d - a * f) / det);
    out[8] = float((d * h - e * g) / det);
    out[9] = float((b * g - a * h) / det);
    out[10] = float((a * e - b * d) / det);
    out[12] = -m[12];
    out[13] = -m[13];
    out[14] = -m[14];
    out[15] = 1.0f;
    return true;
}

static void RowTimes3x3(const float* m, double x, double y, double z, Vector& out) {
    out.x = float(x * m[0] + y * m[4] + z * m[8]);
    out.y = float(x * m[1] + y * m[5] + z * m[9]);
    out.z = float(x * m[2] + y * m[6] + z * m[10]);
}

void MatrixApply(const Matrix& m, const Vector& v, Vector& out) {
    double x = v.x, y = v.y, z = v.z;
    out.x = float(x * m[0] + y * m[4] + z * m[8] + m[12]);
    out.y = float(x * m[1] + y * m[5] + z * m[9] + m[13]);
    out.z = float(x * m[2] + y * m[6] + z * m[10] + m[14]);
}

void MatrixApplyRotation(const Matrix& m, const Vector& v, Vector& out) {
    RowTimes3x3(m.m, v.x, v.y, v.z, out);
}

void MatrixApplyProjective(const Matrix& m, const Vector& v, Vector& out) {
    double x = v.x, y = v.y, z = v.z;
    double w = x * m[3] + y * m[7] + z * m[11] + m[15];
    double px = x * m[0] + y * m[4] + z * m[8] + m[12];
    double py = x * m[1] + y * m[5] + z * m[9] + m[13];
    double pz = x * m[2] + y * m[6] + z * m[10] + m[14];
    out.x = float(px / w);
    out.y = float(py / w);
    out.z = float(pz / w);
}

void MatrixApplyInverse(const InverseMatrix& inv, Vector& v, Vector& out) {
    v.x = float(double(v.x) + inv[12]);
    v.y = float(double(v.y) + inv[13]);
    v.z = float(double(v.z) + inv[14]);
    RowTimes3x3(inv.m, v.x, v.y, v.z, out);
}

void D3DRMQuaternionSlerp(Quaternion* out, const Quaternion* a, const Quaternion* b, float alpha) {
    double as = a->s, ax = a->x, ay = a->y, az = a->z;
    double bs = b->s, bx = b->x, by = b->y, bz = b->z;
    double cosine = as * bs + ax * bx + ay * by + az * bz;
    if (cosine < 0.0) {  // the shorter arc goes through -b
        cosine = -cosine;
        bs = -bs, bx = -bx, by = -by, bz = -bz;
    }
    double wa, wb;
    if (1.0 - cosine > 1e-6) {
        double theta = std::acos(cosine);
        double sine = std::sin(theta);
        wa = std::sin((1.0 - alpha) * theta) / sine;
        wb = std::sin(double(alpha) * theta) / sine;
    } else {  // nearly equal: a plain blend avoids dividing by a vanishing sine
        wa = 1.0 - alpha;
        wb = alpha;
    }
    out->s = float(wa * as + wb * bs);
    out->x = float(wa * ax + wb * bx);
    out->y = float(wa * ay + wb * by);
    out->z = float(wa * az + wb * bz);
}

void D3DRMMatrixFromQuaternion(Matrix* matrix, const Quaternion* q) {
    double w = q->s, x = q->x, y = q->y, z = q->z;
    Matrix& m = *matrix;
    m[0] = float(1.0 - 2.0 * (y * y + z * z));
    m[1] = float(2.0 * (x * y - z * w));
    m[2] = float(2.0 * (x * z + y * w));
    m[3] = 0.0f;
    m[4] = float(2.0 * (x * y + z * w));
    m[5] = float(1.0 - 2.0 * (x * x + z * z));
    m[6] = float(2.0 * (y * z - x * w));
    m[7] = 0.0f;
    m[8] = float(2.0 * (x * z - y * w));
    m[9] = float(2.0 * (y * z + x * w));
    m[10] = float(1.0 - 2.0 * (x * x + y * y));
    m[11] = 0.0f;
    m[12] = m[13] = m[14] = 0.0f;
    m[15] = 1.0f;
}
