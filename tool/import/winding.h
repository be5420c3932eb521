// The winding check every import makes: the ray core finds the ground only on faces whose visible
// side, (c - b) x (a - b), looks up at it, so a face wound the wrong way is a hole from above.
//
// - Where the source has normals, a face whose winding disagrees with all three of its vertex
//   normals is turned (the normals say which side the author meant).
// - Without normals, faces are made to agree with their neighbours across every edge two faces
//   share, keeping the winding most of each part had. A closed part (every edge shared by two
//   faces, wound against each other) must enclose a positive volume, else it is turned right side
//   out; an open part is turned over only when nearly all of it faces down.
// - A closed part whose normals agree with an inside-out winding is reported, not changed: rooms
//   are modelled so.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "tool/import/import_scene.h"

// The share of an open part's area seen from above that must face down before the part is turned.
constexpr double OverwhelmingDownShare = 0.9;

struct WindingReport {
    size_t againstNormals = 0;     // faces turned to agree with their normals
    size_t againstNeighbours = 0;  // faces turned to agree with the rest of their part
    size_t insideOutParts = 0, insideOutFaces = 0;    // closed parts turned right side out
    size_t downFacingParts = 0, downFacingFaces = 0;  // open parts turned over
    double leastDownShare = 1.0;   // of the parts turned over
    size_t insideOutKept = 0;      // closed parts with normals, left inside out
    size_t undecidedParts = 0;     // open parts facing down more than up, but not clearly: kept
};

// weld: WeldPositions of the mesh's positions. Changes only the triangles' winding: parts are
// turned only where the source has no normals, which are made afterwards.
WindingReport FixWinding(ImportMesh& mesh, const std::vector<uint32_t>& weld);

// A line for the log on what was turned and why, empty when nothing was.
std::string DescribeWinding(const WindingReport& report);
// A note on parts that kept a doubtful winding, empty when none did.
std::string DescribeKeptParts(const WindingReport& report);
