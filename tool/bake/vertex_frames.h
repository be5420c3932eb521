// The shape of each vertex animation's current frame, brought into `vertices` the way render
// preparation would, for a bake that never renders.
#pragma once

class CMesh;

// For the mesh and each mesh child below it, the ray table's walk: an unpacked frame is pointed
// at (its records are the mesh's own, so nothing is copied or freed); a packed frame's positions
// are decoded into the mesh's own array. The mesh keeps owning whatever `vertices` points at, so
// deleting it afterwards is safe.
void ApplyVertexFrames(CMesh* root);
