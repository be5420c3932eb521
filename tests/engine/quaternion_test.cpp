#include <gtest/gtest.h>

#include <cmath>

#include "engine/scene/maths.h"

namespace {

// The unit quaternion (cos(angle/2), sin(angle/2) * axis) for a unit axis.
Quaternion AxisAngle(Vector axis, double angle) {
    VectorNormalize(axis);
    double c = std::cos(angle / 2), s = std::sin(angle / 2);
    return {float(c), float(s * axis.x), float(s * axis.y), float(s * axis.z)};
}

Quaternion Negated(const Quaternion& q) {
    return {-q.s, -q.x, -q.y, -q.z};
}

Quaternion Slerp(const Quaternion& a, const Quaternion& b, float alpha) {
    Quaternion out;
    D3DRMQuaternionSlerp(&out, &a, &b, alpha);
    return out;
}

void ExpectQuaternionNear(const Quaternion& q, const Quaternion& expected, float tolerance) {
    EXPECT_NEAR(q.s, expected.s, tolerance);
    EXPECT_NEAR(q.x, expected.x, tolerance);
    EXPECT_NEAR(q.y, expected.y, tolerance);
    EXPECT_NEAR(q.z, expected.z, tolerance);
}

const double kPi = 3.14159265358979323846;

}  // namespace

TEST(QuaternionSlerp, HitsTheEndpointsAndFollowsTheArc) {
    const Quaternion identity = {1, 0, 0, 0};
    const Quaternion quarterTurn = AxisAngle({0, 1, 0}, kPi / 2);
    ExpectQuaternionNear(Slerp(identity, quarterTurn, 0), identity, 0);
    ExpectQuaternionNear(Slerp(identity, quarterTurn, 1), quarterTurn, 1e-7f);
    // Halfway between no turn and a quarter turn is an eighth turn, not a normalised blend.
    ExpectQuaternionNear(Slerp(identity, quarterTurn, 0.5f), AxisAngle({0, 1, 0}, kPi / 4), 1e-6f);
    ExpectQuaternionNear(Slerp(identity, quarterTurn, 0.25f), AxisAngle({0, 1, 0}, kPi / 8), 1e-6f);

    // Two quaternions 90 degrees apart on the sphere: the weights follow the angle.
    const Quaternion x = {0, 1, 0, 0};
    ExpectQuaternionNear(Slerp(identity, x, 0.5f), {0.70710678f, 0.70710678f, 0, 0}, 1e-6f);
    ExpectQuaternionNear(Slerp(identity, x, 1.0f / 3), {0.8660254f, 0.5f, 0, 0}, 1e-6f);
}

TEST(QuaternionSlerp, TakesTheShorterArc) {
    // q and -q are the same rotation; the blend towards -q must not swing the long way round.
    const Quaternion from = AxisAngle({1, 0, 0}, 0.2);
    const Quaternion to = AxisAngle({1, 0, 0}, 1.4);
    const Quaternion expected = AxisAngle({1, 0, 0}, 0.8);
    ExpectQuaternionNear(Slerp(from, Negated(to), 0.5f), expected, 1e-6f);
    ExpectQuaternionNear(Slerp(from, to, 0.5f), expected, 1e-6f);
    ExpectQuaternionNear(Slerp(from, Negated(to), 1.0f), to, 1e-6f);
}

TEST(QuaternionSlerp, EqualOrNearlyEqualInputsBlendLinearly) {
    // Equal inputs give an angle of exactly zero; a slerp that divides by its sine makes NaN.
    const Quaternion identity = {1, 0, 0, 0};
    ExpectQuaternionNear(Slerp(identity, identity, 0.3f), identity, 0);
    const Quaternion q = AxisAngle({1, 2, 3}, 0.9);
    ExpectQuaternionNear(Slerp(q, q, 0.3f), q, 1e-7f);
    ExpectQuaternionNear(Slerp(q, Negated(q), 0.7f), q, 1e-7f);

    Quaternion near = q;
    near.s += 1e-5f;
    const float alpha = 0.25f;
    const Quaternion out = Slerp(q, near, alpha);
    ExpectQuaternionNear(out, {q.s + alpha * (near.s - q.s), q.x, q.y, q.z}, 1e-7f);
}

// The element formulas are those of the column-vector rotation matrix, stored as they are in our
// row-vector Matrix. Applied as p' = p . M, the matrix of the quaternion for (axis, angle) thus
// turns a point by -angle about the axis, the opposite sense to VectorRotate with (axis, angle):
// for +90 degrees about +y, the matrix takes +x to +z and VectorRotate takes +x to -z.
TEST(QuaternionMatrix, QuarterTurnAboutYTakesXToZ) {
    Matrix m;
    for (float& e : m.m) e = 7.0f;
    const Quaternion q = AxisAngle({0, 1, 0}, kPi / 2);
    D3DRMMatrixFromQuaternion(&m, &q);
    const float expected[16] = {0, 0, 1, 0, 0, 1, 0, 0, -1, 0, 0, 0, 0, 0, 0, 1};
    for (int i = 0; i < 16; ++i) EXPECT_NEAR(m[i], expected[i], 1e-7f) << i;
    const Quaternion identity = {1, 0, 0, 0};
    D3DRMMatrixFromQuaternion(&m, &identity);
    for (int i = 0; i < 16; ++i) EXPECT_EQ(m[i], i % 5 == 0 ? 1.0f : 0.0f) << i;
}

TEST(QuaternionMatrix, EveryElementMatchesTheRotationOfTheOppositeAngle) {
    const Vector axes[] = {{1, 2, 3}, {-0.5f, 0.1f, 2}, {0, 0, 1}, {1, -1, 0}};
    const double angles[] = {0.3, -1.2, 2.5, kPi};
    const Vector points[] = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}, {0.3f, -0.7f, 0.2f}};
    for (const Vector& axis : axes)
        for (double angle : angles) {
            const Quaternion q = AxisAngle(axis, angle);
            Matrix m;
            D3DRMMatrixFromQuaternion(&m, &q);
            for (const Vector& p : points) {
                Vector viaMatrix, viaRotate;
                MatrixApply(m, p, viaMatrix);
                VectorRotate(viaRotate, p, axis, float(-angle));
                VectorScale(viaRotate, VectorLength(p));
                EXPECT_NEAR(viaMatrix.x, viaRotate.x, 1e-6f) << angle;
                EXPECT_NEAR(viaMatrix.y, viaRotate.y, 1e-6f) << angle;
                EXPECT_NEAR(viaMatrix.z, viaRotate.z, 1e-6f) << angle;
            }
        }
}
