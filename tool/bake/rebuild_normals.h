#pragma once

class CMesh;

// Recomputes every vertex normal of the tree as the plain mean of its faces' unit normals
// (not weighted by area or angle). A vertex that no face uses ends at (0, 0, 0).
void RebuildNormals(CMesh* mesh);
