#include "engine/render/renderer_config.h"

#include <bit>
#include <cstring>

uint32_t RendererDefaultRenderStates[RenderStateCount];
uint32_t RendererDefaultStageStates[StageCount * StageStateCount];

namespace {

uint8_t HeldRenderStates[RenderStateCount];

struct StateRange {
    uint16_t first, last;
};

// The render states a configuration holds; the rest are never set by the engine.
constexpr StateRange HeldRanges[] = {
    {2, 2},   {4, 4},   {7, 10},  {14, 16}, {19, 20}, {22, 29}, {33, 38},   {40, 41},
    {47, 48}, {52, 60}, {128, 148}, {151, 152},
};

void BuildHeldTable() {
    std::memset(HeldRenderStates, 0, sizeof HeldRenderStates);
    for (const StateRange& range : HeldRanges)
        for (int id = range.first; id <= range.last; ++id) HeldRenderStates[id] = 1;
}

struct StateValue {
    uint16_t id;
    uint32_t value;
};

constexpr uint32_t FloatBits(float value) {
    return std::bit_cast<uint32_t>(value);
}

// The device's default render state, in the order it is laid down.
constexpr StateValue DefaultRenderStates[] = {
    {2, 0},   {4, 1},   {7, 1},   {8, 3},   {9, 2},   {10, 0},  {14, 1},  {15, 0},
    {16, 1},  {19, 5},  {20, 6},  {22, 3},  {23, 4},  {24, 0},  {25, 8},  {26, 1},
    {27, 0},  {28, 0},  {29, 0},  {33, 0},  {34, 0},  {35, 0},  {36, FloatBits(0.0f)},
    {37, FloatBits(100.0f)},      {38, FloatBits(1.0f)},        {40, 0},  {41, 0},
    {47, 0},  {48, 0},  {52, 0},  {53, 1},  {54, 1},  {55, 1},  {56, 8},  {57, 0},
    {58, 0xFFFFFFFFu},  {59, 0xFFFFFFFFu},  {60, 0},  {128, 0}, {129, 0}, {130, 0},
    {131, 0}, {132, 0}, {133, 0}, {134, 0}, {135, 0}, {136, 1}, {137, 1}, {138, 0},
    {139, 0}, {140, 0}, {141, 1}, {142, 1}, {143, 0}, {144, 0}, {145, 1}, {146, 2},
    {147, 0}, {148, 0}, {151, 0}, {152, 0},
};

// What every stage starts with, in order.
constexpr StateValue DefaultStageStates[] = {
    {D3DTSS_COLOROP, 1},   {D3DTSS_COLORARG1, 2},      {D3DTSS_COLORARG2, 1},
    {D3DTSS_ALPHAOP, 1},   {D3DTSS_ALPHAARG1, 2},      {D3DTSS_ALPHAARG2, 1},
    {7, 0},                {8, 0},                     {9, 0},
    {10, 0},               {11, 0},                    {D3DTSS_ADDRESS, 1},
    {D3DTSS_ADDRESSU, 1},  {D3DTSS_ADDRESSV, 1},       {D3DTSS_BORDERCOLOR, 0},
    {D3DTSS_MAGFILTER, 1}, {D3DTSS_MINFILTER, 1},      {D3DTSS_MIPFILTER, 1},
    {D3DTSS_MIPMAPLODBIAS, 0}, {D3DTSS_MAXMIPLEVEL, 0}, {D3DTSS_MAXANISOTROPY, 1},
    {22, 0},               {23, 0},                    {24, 0},
};

struct StageValue {
    uint8_t stage;
    uint8_t id;
    uint32_t value;
};

// The first two stages' own defaults, laid over the common ones.
constexpr StageValue FirstStagesDefaults[] = {
    {0, D3DTSS_COLOROP, 4},       {0, D3DTSS_ALPHAARG1, 2}, {0, D3DTSS_ALPHAOP, 2},
    {0, D3DTSS_MAGFILTER, 2},     {0, D3DTSS_MINFILTER, 2}, {1, D3DTSS_TEXCOORDINDEX, 1},
    {1, D3DTSS_ALPHAARG2, 2},     {1, D3DTSS_ALPHAARG1, 1}, {1, D3DTSS_MAGFILTER, 2},
    {1, D3DTSS_MINFILTER, 2},
};

struct DefaultsInit {
    DefaultsInit() {
        std::memset(RendererDefaultRenderStates, 0xFF, sizeof RendererDefaultRenderStates);
        std::memset(RendererDefaultStageStates, 0xFF, sizeof RendererDefaultStageStates);
    }
};
DefaultsInit InitDefaults;

}  // namespace

bool RendererConfigHolds(uint32_t id) {
    return id < RenderStateCount && HeldRenderStates[id] != 0;
}

CRendererConfig::CRendererConfig(CRenderer* owner)
    : device(owner), renderCovered{}, stageCovered{}, textureCovered(0) {
    BuildHeldTable();
    std::memset(renderStates, 0xFF, sizeof renderStates);
    std::memset(stageStates, 0xFF, sizeof stageStates);
    for (CTexture*& texture : textures) texture = nullptr;
}

CRendererConfig::~CRendererConfig() = default;

void CRendererConfig::SetRenderState(uint32_t id, uint32_t value) {
    renderStates[id] = value;
    renderCovered[id >> 5] |= 1u << (id & 31);
    if (!device) return;
    RendererDefaultRenderStates[id] = value;
    // Requested as well as applied: the cache then reads back what the device holds.
    device->appliedRenderStates[id] = device->requestedRenderStates[id] = value;
    if (device->device) device->device->SetRenderState(D3DRENDERSTATETYPE(id), value);
}

void CRendererConfig::SetStageState(uint32_t stage, uint32_t id, uint32_t value) {
    uint32_t index = stage * StageStateCount + id;
    stageStates[index] = value;
    stageCovered[stage] |= 1u << id;
    if (!device) return;
    RendererDefaultStageStates[index] = value;
    device->appliedStageStates[index] = device->requestedStageStates[index] = value;
    if (device->device)
        device->device->SetTextureStageState(stage, D3DTEXTURESTAGESTATETYPE(id), value);
}

void CRendererConfig::SetStageTexture(uint32_t stage, CTexture* texture) {
    textures[stage] = texture;
    textureCovered |= 1u << stage;
}

void CRendererConfig::SetDefaults() {
    for (const StateValue& state : DefaultRenderStates) SetRenderState(state.id, state.value);
    for (uint32_t stage = 0; stage < StageCount; ++stage)
        for (const StateValue& state : DefaultStageStates)
            SetStageState(stage, state.id, state.value);
    for (const StageValue& state : FirstStagesDefaults)
        SetStageState(state.stage, state.id, state.value);
}

// Values still unknown (all ones) are not taken: applying them would only send noise.
void CRendererConfig::Capture(const CRenderer* renderer) {
    for (uint32_t id = 0; id < RenderStateCount; ++id) {
        uint32_t value = renderer->requestedRenderStates[id];
        if (!RendererConfigHolds(id) || value == 0xFFFFFFFFu) continue;
        renderStates[id] = value;
        renderCovered[id >> 5] |= 1u << (id & 31);
    }
    for (uint32_t stage = 0; stage < StageCount; ++stage) {
        for (uint32_t id = 1; id < StageStateCount; ++id) {
            uint32_t value = renderer->requestedStageStates[stage * StageStateCount + id];
            if (value == 0xFFFFFFFFu) continue;
            stageStates[stage * StageStateCount + id] = value;
            stageCovered[stage] |= 1u << id;
        }
        SetStageTexture(stage, renderer->requestedTextures[stage]);
    }
}

// The forced form brings the device to the configuration whatever the cache believes. The lazy
// form goes through the cache: it requests what the configuration covers (what was set on it or
// captured into it), so only real differences reach the device at the next ApplyState.
void CRenderer::Apply(CRendererConfig* config, bool force) {
    if (force) {
        for (uint32_t id = 0; id < RenderStateCount; ++id) {
            if (!RendererConfigHolds(id)) continue;
            uint32_t value = config->renderStates[id];
            if (device) device->SetRenderState(D3DRENDERSTATETYPE(id), value);
            appliedRenderStates[id] = requestedRenderStates[id] = value;
            renderDirty[id >> 5] &= ~(1u << (id & 31));
        }
        for (uint32_t stage = 0; stage < StageCount; ++stage) {
            for (uint32_t id = 1; id < StageStateCount; ++id) {
                uint32_t index = stage * StageStateCount + id;
                uint32_t value = config->stageStates[index];
                if (device)
                    device->SetTextureStageState(stage, D3DTEXTURESTAGESTATETYPE(id), value);
                appliedStageStates[index] = requestedStageStates[index] = value;
            }
            stageDirty[stage] = 0;
        }
        stageDirtyGroups = 0;
        for (uint32_t stage = 0; stage < StageCount; ++stage) {
            requestedTextures[stage] = config->textures[stage];
            ApplyStageTexture(config->textures[stage], stage);
        }
        textureDirty = 0;
        ApplyState();
        currentConfig = config;
        return;
    }
    if (currentConfig == config) {
        ApplyState();
        return;
    }
    for (uint32_t id = 0; id < RenderStateCount; ++id)
        if (RendererConfigHolds(id) && config->CoversRenderState(id))
            SetRenderState(id, config->renderStates[id]);
    for (uint32_t stage = 0; stage < StageCount; ++stage) {
        for (uint32_t id = 1; id < StageStateCount; ++id)
            if (config->CoversStageState(stage, id))
                SetStageState(stage, id, config->stageStates[stage * StageStateCount + id]);
        if (config->CoversTexture(stage)) RequestStageTexture(config->textures[stage], stage);
    }
    currentConfig = config;
}
