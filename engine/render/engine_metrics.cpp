#include "engine/render/engine_metrics.h"

#include <cstring>

#include "base/diagnostics.h"

EngineMetrics Metrics{};

namespace {

int32_t metricsExtra = 0;  // the word kept beside the record, cleared with it

struct ProfileLabel {
    uint32_t id;
    const char* label;
};

constexpr ProfileLabel ProfileLabels[] = {
    {0x80000001u, "VVisRHW"},    {0x80000002u, "VVisFlush"}, {0x80010001u, "AlphaVB"},
    {0x80010002u, "TransCache"}, {0x80010003u, "Decal"},     {0x80010004u, "MultiRend"},
    {0x80020001u, "VPMain"},     {0x80020002u, "VPRend"},    {0x80030001u, "MeshRend"},
};

}  // namespace

void TakeMetrics(EngineMetrics* out) {
    if (out) std::memcpy(out, &Metrics, sizeof Metrics);
    std::memset(&Metrics, 0, sizeof Metrics);
    metricsExtra = 0;
}

void ReportMetrics() {
    EngineMetrics m;
    TakeMetrics(&m);
    CorvaneDebug(
        "VELMORA METRICS : Processed:\nVert %ld(Time: %f)\nFaces %ld\nObjs %ld (%ld "
        "Wasted)\nDecl %ld\n",
        long(m.verticesProcessed), m.processTime, long(m.facesProcessed), long(m.objectsProcessed),
        long(m.objectsWasted), long(m.decalsProcessed));
    CorvaneDebug("VELMORA METRICS : Rendered\nPoly %d (Time: %f)\nTXCH %d\nDecl %d\n",
                 m.polygonsRendered, m.renderTime, m.textureChanges, m.decalsRendered);
    CorvaneDebug("VELMORA METRICS : Clipped\nSPHR %d\n", m.spheresClipped);
}

const char* GetProfileLabel(uint32_t id) {
    for (const ProfileLabel& entry : ProfileLabels)
        if (entry.id == id) return entry.label;
    return nullptr;
}
