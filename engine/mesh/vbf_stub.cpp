#include "base/velmora_log.h"
#include "engine/mesh/mesh.h"

// The binary mesh reader replaces this body; until it lands every load fails and says so.
bool CMesh::LoadVBF(const char* path) {
    VelmoraLog("CMesh::LoadVBF", "VBF reader not built yet, cannot load %s\n", path ? path : "");
    return false;
}
