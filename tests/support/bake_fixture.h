// Shared set-up of the tests that run bake passes: default settings, a fresh temporary directory,
// no shadow texture left from an earlier test, and small maps built in code.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>

#include "engine/mesh/mesh.h"
#include "tests/support/temp_dir.h"
#include "tool/bake/bake_pass.h"

class BakeFixture : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    // Bakes root with ShadowSettings and core into "texture.dat" (or name) in the temporary
    // directory and returns the file's bytes; ShadowTexture takes the result.
    std::string Bake(CMesh* root, const char* name = "texture.dat");
    uint8_t FileByte(const std::string& file, int row, int column) const;

    std::unique_ptr<TempDir> dir;
    BakeStatistics stats = {};
    RayCoreOptions core;
};

// A flat square of ground at height y from x = 0 to size and z = 0 to -size, visible from above.
CMesh* FlatGround(CEntity* parent, float size, float y = 0.0f);
