#include "engine/mesh/mesh_animation.h"

// Placing a frame from its keys or stored records comes with the animation sampler; until it
// lands a key frame change records the frame number and moves nothing.
void PlaceKeyFrame(CMesh* /*mesh*/, uint32_t /*frame*/, uint32_t /*oldFrame*/) {}
