// Polygons in space as triangles: an outer ring and any holes, convex or not, laid on the plane
// that fits them best and cut by ear clipping, each hole first joined to the outer ring by a
// bridge. The work is bounded whatever the input: damaged rings (crossing edges, repeated points,
// no area) give what triangles can be had, never a hang.
#pragma once

#include <cstdint>
#include <vector>

#include "tool/import/import_scene.h"

struct PolygonResult {
    DVec3 normal = {0.0, 0.0, 0.0};  // unit, on the side the outer ring runs counter-clockwise
    bool flat = false;               // no area: no triangles
    bool simple = true;  // false: crossing edges or a hole outside, cut as well as can be
};

// points: every ring's points in order, the outer ring first, none repeated at its end; ringEnds:
// where each ring ends in points. Appends triangles as indices into points, each wound as the
// outer ring runs (counter-clockwise seen from the normal's side).
PolygonResult TriangulatePolygon(const std::vector<DVec3>& points,
                                 const std::vector<uint32_t>& ringEnds,
                                 std::vector<uint32_t>& triangles);
