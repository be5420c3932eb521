// The exact record-level and triangle-level tests of both ray queries. The literal walk and the
// accelerated core call these same functions, so a faster search can only skip work whose
// answer is known; it never tests differently.
#pragma once

#include <cmath>
#include <cstring>

#include "engine/mesh/mesh.h"
#include "tool/raycast/ray_table.h"

// Which edges take part in the light query's crossing count.
//
// HalfOpen: an edge counts only when it straddles the crossing's b half-open, (b >= p.b) unlike
// (b >= q.b), as in the ground query. A vertex level with the crossing then counts on exactly one
// of its two edges, and an edge with both ends at one b never counts.
// Closed: every edge whose fraction u lies in [0, 1] counts, both ends included; and the ground
// query decides in each triangle's own plane, as both tests were first written. A crossing level
// with a vertex (within a few ulps, which a long ray meets often) counts that vertex on both of
// its edges: a point far outside the triangle can read as blocked (isolated dark texels, more of
// them the more triangles a ray tests, which no index near a triangle can find) and a point
// inside as free. It is kept to reproduce the bytes of that rule through the literal walk.
enum class CrossingRule : uint8_t { HalfOpen, Closed };

namespace raypredicates {

inline bool IsPositiveZero(float value) {
    uint32_t bits;
    std::memcpy(&bits, &value, sizeof bits);
    return bits == 0;
}

// The ground query's record test: the box of the grown corners, inclusive on both sides.
inline bool InsideBox(const RayMesh& record, float x, float z) {
    return record.MinX <= x && x <= record.MaxX && record.MinZ <= z && z <= record.MaxZ;
}

// Crossing count of the ground query, cross-multiplied so that no division is needed.
inline bool InsideDown(const float (&corners)[3][2], double a, double b) {
    bool inside = false;
    for (int k = 0; k < 3; ++k) {
        const float* p = corners[k];
        const float* q = corners[(k + 1) % 3];
        bool bp = b >= p[1];
        bool bq = b >= q[1];
        if (bp == bq) continue;
        double crossP = (double(q[0]) - p[0]) * (double(p[1]) - b);
        double crossQ = (double(p[0]) - a) * (double(q[1]) - p[1]);
        if ((crossQ <= crossP) == bp) inside = !inside;
    }
    return inside;
}

// Whether (x, z) lies inside the corners or on an edge, seen from above: the point is on no
// edge's outer side. Each edge's two products are compared, not subtracted, so a point on an edge
// reads as on it. A face with no area seen from above covers nothing.
inline bool CoversFromAbove(const float (&corners)[3][2], double x, double z) {
    int sides = 0;  // bit 0: left of some edge, bit 1: right of some edge
    for (int k = 0; k < 3; ++k) {
        const float* p = corners[k];
        const float* q = corners[(k + 1) % 3];
        double left = (double(q[0]) - p[0]) * (z - p[1]);
        double right = (double(q[1]) - p[1]) * (x - p[0]);
        sides |= (left > right ? 1 : 0) | (left < right ? 2 : 0);
    }
    return sides == 1 || sides == 2;
}

struct DownHit {
    double t, a, b;
};

// The ground query's triangle test against the nearest hit so far. Only a triangle whose stored
// normal points down (visible from above) can pass, bar an origin lying exactly on a plane. A hit
// lies inside the grown corners in the triangle's own plane, or on the corners as given seen
// from above, edges included, so that neither a shared edge nor the edge of the data lets a ray
// through; under the rule as first written only the former counts.
inline bool HitsDown(const RayTriangle& triangle, float ox, float oy, float oz,
                     const Vector& direction, double best, DownHit& hit,
                     CrossingRule rule = CrossingRule::HalfOpen) {
    float den = -triangle.Normal.y;
    if (IsPositiveZero(den)) return false;
    float num = float(-(double(oz) * triangle.Normal.z + double(oy) * triangle.Normal.y +
                        double(ox) * triangle.Normal.x + triangle.D));
    if (std::signbit(num)) return false;
    double t = double(num) / den;
    if (t < 0.0 || !(t < best)) return false;
    double a, b;
    switch (triangle.Axes) {
        case RayAxesZY:
            a = oz + t * direction.z;
            b = float(oy + t * direction.y);
            break;
        case RayAxesXZ:
            a = ox + t * direction.x;
            b = float(oz + t * direction.z);
            break;
        default:
            a = ox + t * direction.x;
            b = float(oy + t * direction.y);
            break;
    }
    bool inside = InsideDown(triangle.Corner, a, b) ||
                  (rule == CrossingRule::HalfOpen &&
                   CoversFromAbove(triangle.GroundCorner, ox + t * direction.x,
                                   float(oz + t * direction.z)));
    if (!inside) return false;
    hit = {t, a, b};
    return true;
}

// The light query's triangle test: any triangle ahead of the origin counts, from either side;
// the ray has no far end.
template <CrossingRule Rule = CrossingRule::HalfOpen>
inline bool HitsTowardsLight(const RayTriangle& triangle, const float o[3], const float d[3]) {
    float den = float(double(d[2]) * triangle.Normal.z + double(d[0]) * triangle.Normal.x +
                      double(d[1]) * triangle.Normal.y);
    if (IsPositiveZero(den)) return false;
    float t = float(-(double(o[2]) * triangle.Normal.z + double(o[0]) * triangle.Normal.x +
                      double(o[1]) * triangle.Normal.y + triangle.D) /
                    den);
    if (std::signbit(t) || std::isnan(t)) return false;  // x86 makes 0/0 a negative NaN anyway
    int i = triangle.Axes & 3, j = triangle.Axes >> 2;
    double a = o[i] + double(t) * d[i];
    double b = o[j] + double(t) * d[j];

    int count = 0;
    for (int k = 0; k < 3; ++k) {
        const float* p = triangle.Corner[k];
        const float* q = triangle.Corner[(k + 1) % 3];
        if (Rule == CrossingRule::HalfOpen && (b >= p[1]) == (b >= q[1])) continue;
        float u = float((b - p[1]) / (double(q[1]) - p[1]));
        // Tested without the sign of a NaN, which differs between processors: a flat edge's 0/0
        // is no crossing under either rule.
        if (std::signbit(u) || !(u <= 1.0f)) continue;
        float e = float((double(q[0]) - p[0]) * u + p[0] - a);
        if (!std::signbit(e)) ++count;
    }
    return (count & 1) != 0;
}

inline bool HitsTowardsLight(const RayTriangle& triangle, const float o[3], const float d[3],
                             CrossingRule rule) {
    return rule == CrossingRule::HalfOpen ? HitsTowardsLight<CrossingRule::HalfOpen>(triangle, o, d)
                                          : HitsTowardsLight<CrossingRule::Closed>(triangle, o, d);
}

// The light query's record test: passes a record over when the ray's xz projection misses its
// circle, or when the ray stands above the record's top at both crossings. The crossings are
// taken on the whole line through the origin, which can only test a record needlessly.
inline bool CylinderMayBlock(const RayMesh& record, const float o[3], const float d[3]) {
    double A = o[0] - record.CentreX;
    double B = o[2] - record.CentreZ;
    float qa = float(double(d[0]) * d[0] + double(d[2]) * d[2]);
    double distanceSquared = A * A + B * B;
    if (qa == 0.0f) return distanceSquared <= record.RadiusSquared;
    double g = A * d[0] + B * d[2];
    if (distanceSquared - g * g / qa > record.RadiusSquared) return false;
    float qb = float(2.0 * A * d[0] + 2.0 * B * d[2]);
    double qc = distanceSquared - record.RadiusSquared;
    double root = double(qb) * qb - 4.0 * qa * qc;
    double sq = root < 0.0 ? 0.0 : std::sqrt(root);
    double y1 = o[1] + d[1] * (-qb + sq) / (2.0 * qa);
    if (y1 <= record.Top) return true;
    double y2 = o[1] + d[1] * (-qb - sq) / (2.0 * qa);
    return y2 <= record.Top;
}

inline double ClampUnit(double value) {
    if (!(value >= 0.0)) return 0.0;  // NaN too
    return value > 1.0 ? 1.0 : value;
}

// The unnormalised smooth normal at (a, b) of the triangle. The line from corner 0 through the
// point meets the opposite edge at a fraction s, where the normal is blended from corners 1 and
// 2; the point lies at 1 / r of the way from corner 0 to there.
inline void InterpolatedNormal(const MeshVertex* vertices, const RayTriangle& triangle, double a,
                               double b, Vector& out) {
    const float* c0 = triangle.Corner[0];
    const float* c1 = triangle.Corner[1];
    const float* c2 = triangle.Corner[2];
    double dA = double(c2[0]) - c1[0];
    double dB = double(c2[1]) - c1[1];
    double r, s;
    if (dA != 0.0) {
        double m = dB / dA;
        float ea = float(a - c0[0]);
        r = ((double(c0[0]) - c1[0]) * m + (double(c1[1]) - c0[1])) / ((b - c0[1]) - ea * m);
        s = (ea * r + c0[0] - c1[0]) / dA;
    } else {
        double w = dA / dB;
        float eb = float(b - c0[1]);
        r = ((double(c0[1]) - c1[1]) * w + (double(c1[0]) - c0[0])) / ((a - c0[0]) - eb * w);
        s = (eb * r + c0[1] - c1[1]) / dB;
    }
    s = ClampUnit(s);

    const Vector& n0 = vertices[triangle.Vertex[0]].normal;
    const Vector& n1 = vertices[triangle.Vertex[1]].normal;
    const Vector& n2 = vertices[triangle.Vertex[2]].normal;
    Vector edge;
    edge.x = float(n1.x * (1.0 - s) + n2.x * s);
    edge.y = float(n1.y * (1.0 - s) + n2.y * s);
    edge.z = float(n1.z * (1.0 - s) + n2.z * s);

    double q = ClampUnit(1.0 / r);
    out.x = float(n0.x * (1.0 - q) + edge.x * q);
    out.y = float(n0.y * (1.0 - q) + edge.y * q);
    out.z = float(n0.z * (1.0 - q) + edge.z * q);
}

}  // namespace raypredicates
