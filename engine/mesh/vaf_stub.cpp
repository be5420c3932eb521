#include "base/velmora_log.h"
#include "engine/mesh/mesh.h"
#include "engine/mesh/mesh_read_fault.h"

// The text mesh reader replaces this body; until it lands every load fails and says so.
bool CMesh::LoadVAF(const char* path, uint32_t /*keepSmoothing*/) {
    VelmoraLog("CMesh::LoadVAF", "VAF reader not built yet, cannot load %s\n", path ? path : "");
    SetMeshReadFault("this build reads no text maps (.vaf) yet");
    return false;
}
