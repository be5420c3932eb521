#include "base/velmora_log.h"
#include "engine/mesh/mesh.h"

// The text mesh reader replaces this body; until it lands every load fails and says so.
bool CMesh::LoadVAF(const char* path, uint32_t /*keepSmoothing*/) {
    VelmoraLog("CMesh::LoadVAF", "VAF reader not built yet, cannot load %s\n", path ? path : "");
    return false;
}
