#include "tests/support/bake_fixture.h"

#include "engine/texture/texture.h"
#include "tool/bake/progress.h"
#include "tool/bake/shadow_settings.h"
#include "tool/maps/mesh_builder.h"
#include "tool/run/app_state.h"

void BakeFixture::SetUp() {
    dir = std::make_unique<TempDir>();
    ShadowSettings = DefaultShadowSettings();
    QuitRequested = 0;
    SetProgressHooks(nullptr);
}

void BakeFixture::TearDown() {
    if (ShadowTexture) FreeTexture(ShadowTexture);
    ShadowTexture = nullptr;
    SetProgressHooks(nullptr);
    QuitRequested = 0;
    ShadowSettings = DefaultShadowSettings();
    dir.reset();
}

std::string BakeFixture::Bake(CMesh* root, const char* name) {
    BakeJob job;
    job.settings = ShadowSettings;
    job.mesh = root;
    job.shadowMapPath = dir->File(name);
    job.core = core;
    job.texture = ShadowTexture;
    BakeResult result = BakeShadowMap(job);
    ShadowTexture = result.texture;
    stats = result.statistics;
    return ReadWholeFile(dir->File(name));
}

uint8_t BakeFixture::FileByte(const std::string& file, int row, int column) const {
    int width = ShadowSettings.TextureSize;
    return uint8_t(file.at(size_t(row) * size_t(width) + size_t(column)));
}

CMesh* FlatGround(CEntity* parent, float size, float y) {
    MeshBuilder builder;
    builder.AddQuad({0, y, 0}, {size, y, 0}, {size, y, -size}, {0, y, -size}, {0, 1, 0});
    return builder.Build(parent, "ground");
}
