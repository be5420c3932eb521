// Writing the VBF binary mesh format, so that tools can make maps and tests can make files. What
// is written loads back into the same records: names, matrices, vertices, layer 0 faces with
// their textures by name, colours, smoothing groups, vertex animation and key animation.
#pragma once

#include <cstdint>
#include <vector>

class CMesh;

// The file image of the tree below root, as CMesh::SaveVBF writes it. False, with a line in the
// engine log, for a tree the format or its reader can't hold: deeper than the reader accepts, a
// texture without a name, a key time that is not a frame number, an animation with more frames
// than the reader takes.
//
// Child lists are written last child first: the reader puts each object at the front of its
// parent's list, so the loaded lists stand in the order they had. A fixed-point key form (3) is
// written as the float table form (2) with the same values; an unpacked animation's colours
// past the first frame's vertices carry no meaning and are written as zero.
bool BuildVBFImage(const CMesh* root, const void* userData, uint32_t userDataSize,
                   std::vector<uint8_t>& image);
