// CRendererConfig: a snapshot of render state, stage state and stage textures that a renderer can
// be brought to at once (CRenderer::Apply). Tied to a device, a configuration writes through: a
// value set on it reaches the device's applied state and the device at once, which is how the
// device's default state is laid down at open and after a reset.
#pragma once

#include <cstdint>

#include "engine/render/renderer.h"

class CRendererConfig {
public:
    explicit CRendererConfig(CRenderer* device);  // null: a snapshot only
    virtual ~CRendererConfig();
    CRendererConfig(const CRendererConfig&) = delete;
    CRendererConfig& operator=(const CRendererConfig&) = delete;

    void SetDefaults();  // the device's default state, in its fixed order
    void SetRenderState(uint32_t id, uint32_t value);
    void SetStageState(uint32_t stage, uint32_t id, uint32_t value);
    void SetStageTexture(uint32_t stage, CTexture* texture);
    void Capture(const CRenderer* renderer);  // the renderer's requested state

    bool CoversRenderState(uint32_t id) const {
        return (renderCovered[id >> 5] >> (id & 31) & 1) != 0;
    }
    bool CoversStageState(uint32_t stage, uint32_t id) const {
        return (stageCovered[stage] >> id & 1) != 0;
    }
    bool CoversTexture(uint32_t stage) const { return (textureCovered >> stage & 1) != 0; }

    CRenderer* device;
    uint32_t renderStates[RenderStateCount];
    uint32_t stageStates[StageCount * StageStateCount];
    CTexture* textures[StageCount];

    // What a lazy Apply requests: the values set on this configuration or captured into it.
    uint32_t renderCovered[5];
    uint32_t stageCovered[StageCount];
    uint32_t textureCovered;
};

// Whether a configuration holds this render state at all (the table shared by all of them).
bool RendererConfigHolds(uint32_t id);

// The last value any device-tied configuration set, per state; 0xFFFFFFFF where none did.
extern uint32_t RendererDefaultRenderStates[RenderStateCount];
extern uint32_t RendererDefaultStageStates[StageCount * StageStateCount];
