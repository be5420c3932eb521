// Frame counters of the engine and their report, and the short labels of profile slots.
#pragma once

#include <cstdint>

struct EngineMetrics {
    double renderTime;       // words 0, 1
    int32_t facesProcessed;  // 2
    int32_t verticesProcessed;
    int32_t polygonsRendered;
    int32_t decalsRendered;
    int32_t spheresClipped;
    int32_t objectsProcessed;
    int32_t objectsWasted;
    int32_t decalsProcessed;
    int32_t textureChanges;  // 10
    int32_t reserved[41];    // words 11 to 51
    double processTime;      // words 52, 53
};
static_assert(sizeof(EngineMetrics) == 54 * 4, "EngineMetrics is 54 words");

// The running record; drawing code adds to it.
extern EngineMetrics Metrics;

void TakeMetrics(EngineMetrics* out);
void ReportMetrics();
const char* GetProfileLabel(uint32_t id);
