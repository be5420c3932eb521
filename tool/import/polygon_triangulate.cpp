#include "tool/import/polygon_triangulate.h"

#include <algorithm>
#include <cmath>
#include <numeric>

namespace {

struct Point2 {
    double x, y;
};

bool operator==(const Point2& a, const Point2& b) {
    return a.x == b.x && a.y == b.y;
}

// Twice the signed area of (a, b, c): positive when they turn counter-clockwise.
double Area2(const Point2& a, const Point2& b, const Point2& c) {
    return (b.x - a.x) * (c.y - a.y) - (b.y - a.y) * (c.x - a.x);
}

// On the edges counts as inside, so a diagonal that touches another corner is refused.
bool InTriangle(const Point2& a, const Point2& b, const Point2& c, const Point2& p) {
    double ab = Area2(a, b, p), bc = Area2(b, c, p), ca = Area2(c, a, p);
    return (ab >= 0.0 && bc >= 0.0 && ca >= 0.0) || (ab <= 0.0 && bc <= 0.0 && ca <= 0.0);
}

// Newell's normal: the sum of the ring's edge cross products, as long as twice its area, and
// sound for non-convex and slightly warped rings. Taken about the first point to keep sums small.
DVec3 RingNormal(const std::vector<DVec3>& points, uint32_t begin, uint32_t end) {
    DVec3 n = {0.0, 0.0, 0.0};
    const DVec3& origin = points[begin];
    for (uint32_t i = begin; i < end; ++i) {
        DVec3 a = points[i] - origin, b = points[i + 1 < end ? i + 1 : begin] - origin;
        n = n + Cross(a, b);
    }
    return n;
}

// Ear tests a polygon may take before the rest is cut without them: far more than any real
// polygon needs, and a bound on what a damaged one costs.
constexpr uint64_t EarTestBudget = uint64_t(1) << 24;

class EarClipper {
public:
    EarClipper(std::vector<Point2> flatPoints, double extent)
        : flat(std::move(flatPoints)), tiny(extent * extent * 1e-12) {}

    // A ring's points, deduplicated and turned to run counter-clockwise (outer) or clockwise
    // (hole); its first node, or -1 when it has no area.
    int64_t AddRing(const std::vector<uint32_t>& ids, bool outer);
    // Joins a hole (clockwise) into the outer ring through a bridge; false when it can't.
    bool Bridge(uint32_t outer, uint32_t hole);
    void Clip(uint32_t start, std::vector<uint32_t>& triangles);

    bool simple = true;

private:
    struct Node {
        uint32_t point, prev, next;
    };
    const Point2& At(uint32_t node) const { return flat[nodes[node].point]; }
    double Turn(uint32_t node) const {
        return Area2(At(nodes[node].prev), At(node), At(nodes[node].next));
    }
    // Whether the direction from node to p starts into the polygon's inside.
    bool LocallyInside(uint32_t node, const Point2& p) const;
    bool IsEar(uint32_t node);
    uint32_t Remove(uint32_t node) {
        Node& n = nodes[node];
        nodes[n.prev].next = n.next;
        nodes[n.next].prev = n.prev;
        return n.next;
    }

    std::vector<Point2> flat;
    std::vector<Node> nodes;
    double tiny;  // twice an area that counts as none
    uint64_t tests = 0;
};

int64_t EarClipper::AddRing(const std::vector<uint32_t>& ids, bool outer) {
    std::vector<uint32_t> ring;
    for (uint32_t id : ids)
        if (ring.empty() || !(flat[id] == flat[ring.back()])) ring.push_back(id);
    while (ring.size() > 1 && flat[ring.back()] == flat[ring.front()]) ring.pop_back();
    if (ring.size() < 3) return -1;
    double area = 0.0;
    for (size_t i = 0; i < ring.size(); ++i)
        area += Area2(flat[ring[0]], flat[ring[i]], flat[ring[(i + 1) % ring.size()]]);
    if (std::fabs(area) <= tiny) return -1;
    if ((area > 0.0) != outer) std::reverse(ring.begin(), ring.end());
    uint32_t first = uint32_t(nodes.size()), count = uint32_t(ring.size());
    for (uint32_t i = 0; i < count; ++i)
        nodes.push_back({ring[i], first + (i + count - 1) % count, first + (i + 1) % count});
    return first;
}

bool EarClipper::LocallyInside(uint32_t node, const Point2& p) const {
    const Point2 &a = At(nodes[node].prev), &b = At(node), &c = At(nodes[node].next);
    if (Area2(a, b, c) >= 0.0) return Area2(b, c, p) >= 0.0 && Area2(a, b, p) >= 0.0;
    return Area2(b, c, p) >= 0.0 || Area2(a, b, p) >= 0.0;
}

bool EarClipper::Bridge(uint32_t outer, uint32_t hole) {
    // The hole's rightmost point looks along +x to the nearest edge of the outer ring.
    uint32_t m = hole;
    for (uint32_t n = nodes[hole].next; n != hole; n = nodes[n].next)
        if (At(n).x > At(m).x) m = n;
    const Point2 mp = At(m);
    double hitX = HUGE_VAL;
    int64_t best = -1;
    uint32_t n = outer;
    do {
        const Point2 &a = At(n), &b = At(nodes[n].next);
        if (a.y != b.y && std::min(a.y, b.y) <= mp.y && mp.y <= std::max(a.y, b.y)) {
            double x = a.x + (mp.y - a.y) * (b.x - a.x) / (b.y - a.y);
            if (x >= mp.x && x < hitX) {
                hitX = x;
                best = a.x > b.x ? n : nodes[n].next;
                if (a.y == mp.y && a.x == x) best = n;
                if (b.y == mp.y && b.x == x) best = nodes[n].next;
            }
        }
        n = nodes[n].next;
    } while (n != outer);
    if (best < 0) return false;
    // A corner that juts in between hides the edge's end: take the one nearest the ray instead.
    uint32_t p = uint32_t(best);
    const Point2 hit = {hitX, mp.y}, end = At(p);
    double bestSlope = HUGE_VAL;
    n = outer;
    do {
        const Point2& r = At(n);
        if (n != uint32_t(best) && r.x >= mp.x && !(r == end) && Turn(n) < 0.0 &&
            InTriangle(mp, hit, end, r)) {
            double slope = std::fabs(r.y - mp.y) / std::max(r.x - mp.x, 1e-300);
            if (slope < bestSlope || (slope == bestSlope && r.x < At(p).x)) {
                bestSlope = slope;
                p = n;
            }
        }
        n = nodes[n].next;
    } while (n != outer);
    // Where earlier bridges repeat that corner, the copy that opens towards the hole.
    n = outer;
    do {
        if (At(n) == At(p) && LocallyInside(n, mp)) {
            p = n;
            break;
        }
        n = nodes[n].next;
    } while (n != outer);

    uint32_t m2 = uint32_t(nodes.size()), p2 = m2 + 1;
    uint32_t pNext = nodes[p].next, mPrev = nodes[m].prev;
    nodes.push_back({nodes[m].point, mPrev, p2});
    nodes.push_back({nodes[p].point, m2, pNext});
    nodes[p].next = m;
    nodes[m].prev = p;
    nodes[mPrev].next = m2;
    nodes[pNext].prev = p2;
    return true;
}

bool EarClipper::IsEar(uint32_t node) {
    uint32_t a = nodes[node].prev, c = nodes[node].next;
    const Point2 &pa = At(a), &pb = At(node), &pc = At(c);
    for (uint32_t n = nodes[c].next; n != a; n = nodes[n].next) {
        ++tests;
        const Point2& p = At(n);
        if (p == pa || p == pb || p == pc || Turn(n) > tiny) continue;
        if (InTriangle(pa, pb, pc, p)) return false;
    }
    return true;
}

void EarClipper::Clip(uint32_t start, std::vector<uint32_t>& triangles) {
    uint32_t count = 1;
    for (uint32_t n = nodes[start].next; n != start; n = nodes[n].next) ++count;
    // Corners without area first, spikes out and back among them: left in, their neighbours would
    // pass the ear test with triangles outside the polygon.
    uint32_t node = start, stop = start;
    while (count > 2) {
        if (std::fabs(Turn(node)) <= tiny) {
            uint32_t prev = nodes[node].prev;
            Remove(node);
            --count;
            node = stop = prev;
        } else if ((node = nodes[node].next) == stop) {
            break;
        }
    }
    bool forced = false;
    while (count > 2) {
        double turn = Turn(node);
        uint32_t prev = nodes[node].prev, next = nodes[node].next;
        if (std::fabs(turn) <= tiny) {
            // No area here: the corner goes without a triangle.
            node = stop = Remove(node);
            --count;
        } else if (turn > 0.0 && (forced || tests > EarTestBudget || IsEar(node))) {
            triangles.insert(triangles.end(),
                             {nodes[prev].point, nodes[node].point, nodes[next].point});
            node = stop = Remove(node);
            --count;
            forced = false;
        } else {
            node = next;
            if (node != stop) continue;
            // A whole round without an ear: crossing edges. Cut the next convex corner anyway.
            if (forced) break;
            forced = true;
            simple = false;
        }
    }
}

}  // namespace

PolygonResult TriangulatePolygon(const std::vector<DVec3>& points,
                                 const std::vector<uint32_t>& ringEnds,
                                 std::vector<uint32_t>& triangles) {
    PolygonResult result;
    result.flat = true;
    if (ringEnds.empty() || ringEnds[0] < 3) return result;
    for (size_t r = 0; r < ringEnds.size(); ++r)
        if (ringEnds[r] > points.size() || (r && ringEnds[r] < ringEnds[r - 1])) return result;
    DVec3 n = RingNormal(points, 0, ringEnds[0]);
    double length = std::sqrt(Dot(n, n));
    if (!(length > 0.0) || !std::isfinite(length)) return result;
    n = {n.x / length, n.y / length, n.z / length};
    result.normal = n;
    // Axes u, v on the plane with u x v = n, so the outer ring runs counter-clockwise in them.
    DVec3 axis = std::fabs(n.x) <= std::fabs(n.y) && std::fabs(n.x) <= std::fabs(n.z)
                     ? DVec3{1, 0, 0}
                     : (std::fabs(n.y) <= std::fabs(n.z) ? DVec3{0, 1, 0} : DVec3{0, 0, 1});
    DVec3 u = Cross(axis, n);
    double uLength = std::sqrt(Dot(u, u));
    u = {u.x / uLength, u.y / uLength, u.z / uLength};
    DVec3 v = Cross(n, u);
    std::vector<Point2> flat;
    flat.reserve(ringEnds.back());
    double lo[2] = {HUGE_VAL, HUGE_VAL}, hi[2] = {-HUGE_VAL, -HUGE_VAL};
    for (uint32_t i = 0; i < ringEnds.back(); ++i) {
        DVec3 d = points[i] - points[0];
        flat.push_back({Dot(d, u), Dot(d, v)});
        lo[0] = std::min(lo[0], flat.back().x), hi[0] = std::max(hi[0], flat.back().x);
        lo[1] = std::min(lo[1], flat.back().y), hi[1] = std::max(hi[1], flat.back().y);
    }
    double extent = std::max(hi[0] - lo[0], hi[1] - lo[1]);
    if (!std::isfinite(extent)) return result;
    EarClipper clipper(std::move(flat), extent);

    std::vector<uint32_t> ids;
    auto ring = [&](size_t r) {
        ids.resize(ringEnds[r] - (r ? ringEnds[r - 1] : 0));
        std::iota(ids.begin(), ids.end(), r ? ringEnds[r - 1] : 0);
        return ids;
    };
    int64_t outer = clipper.AddRing(ring(0), true);
    if (outer < 0) return result;
    result.flat = false;
    std::vector<std::pair<double, uint32_t>> holes;  // rightmost x, first node
    for (size_t r = 1; r < ringEnds.size(); ++r) {
        std::vector<uint32_t> hole = ring(r);
        int64_t first = clipper.AddRing(hole, false);
        if (first < 0) continue;  // a hole without area takes nothing away
        double right = -HUGE_VAL;
        for (uint32_t id : hole) right = std::max(right, Dot(points[id] - points[0], u));
        holes.push_back({right, uint32_t(first)});
    }
    // Rightmost first, so each bridge runs to the outer ring or a hole already joined to it.
    std::sort(holes.begin(), holes.end(), [](const auto& a, const auto& b) { return a > b; });
    for (const auto& hole : holes)
        if (!clipper.Bridge(uint32_t(outer), hole.second)) clipper.simple = false;
    clipper.Clip(uint32_t(outer), triangles);
    result.simple = clipper.simple;
    return result;
}
