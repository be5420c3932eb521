// Set-up of the tests that run the desktop application: a start directory with resource.cfg, a
// LIT folder of scripts and a map that bakes in a moment with a few progress steps, and every
// global the application touches put back afterwards. The window system is the test's own, and
// the display device only records: the viewer's pixels are tested off screen elsewhere.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "base/resmanager.h"
#include "engine/mesh/mesh.h"
#include "engine/texture/texture.h"
#include "platform/dx7/call_recorder.h"
#include "platform/crt/paths.h"
#include "platform/ui/window_api.h"
#include "tests/support/bake_fixture.h"
#include "tests/support/temp_dir.h"
#include "tool/app/app_main.h"
#include "tool/app/setup_dialog.h"
#include "tool/bake/bake_pass.h"
#include "tool/bake/message_log.h"
#include "tool/bake/progress.h"
#include "tool/bake/shadow_settings.h"
#include "tool/maps/map_chunks.h"
#include "tool/run/app_state.h"
#include "tool/run/bake_run.h"

// What the dialog's user sees of it.
inline std::string ItemText(HWND dialog, int id) {
    char text[1024];
    GetDlgItemTextA(dialog, id, text, sizeof text);
    return text;
}

inline int Progress(HWND dialog) {
    return int(SendMessageA(GetDlgItem(dialog, IdProgress), PBM_GETPOS, 0, 0));
}

inline bool Enabled(HWND dialog, int id) {
    return IsWindowEnabled(GetDlgItem(dialog, id));
}

// The controls a running bake disables, as the dialog's user would see them.
inline std::vector<bool> BakeControlsEnabled(HWND dialog) {
    std::vector<bool> state;
    for (int id : {IdMapDirectory, IdBrowse, IdScript, IdDisplayMap, IdCreateShadows, IdExit})
        state.push_back(Enabled(dialog, id));
    return state;
}

constexpr size_t ShadowMapBytes = 2048u * 2048u;

inline constexpr const char* ErrorText = "You must specify a valid map directory and script.";

class AppFixture : public ::testing::Test {
protected:
    void SetUp() override {
        ShadowSettings = DefaultShadowSettings();
        QuitRequested = 0;
        MessageLogClear();
        DxSetRendering(DxRendering::RecordOnly);
        RayCoreOptions serial;
        serial.threads = 1;
        SetRayCoreOptions(serial);
        WriteWholeFile(dir.File("resource.cfg"), "LIT lit\nTEXTURE_DATA textures\n");
        std::filesystem::create_directories(dir.File("lit"));
        std::filesystem::create_directories(dir.File("textures"));
        // The map is 16 cells of the 2048-texel shadow map: 128 rows, reported at 0, 25, 50, 75 %.
        WriteScript("quick.ssf", "LIGHT 1 2 1\nSCRIPT quick.lit\n");
        WriteWholeFile(dir.File("lit/quick.lit"), "light description\n");
        WriteMap("maps/good");
    }

    void TearDown() override {
        SetProgressHooks(nullptr);
        DxSetRendering(DxRendering::GlWhenAvailable);
        SetRayCoreOptions(RayCoreOptions{});
        if (ShadowTexture) FreeTexture(ShadowTexture);
        ShadowTexture = nullptr;
        MessageLogClear();
        ShadowSettings = DefaultShadowSettings();
        QuitRequested = 0;
        _chdir(dir.Path().c_str());
    }

    void WriteScript(const std::string& name, const std::string& text) {
        WriteWholeFile(dir.File("lit/" + name), text);
    }

    // A folder (relative to the start directory) holding test.vbf: flat ground over 16 cells.
    void WriteMap(const std::string& folder) {
        std::filesystem::create_directories(dir.File(folder));
        CMesh root(nullptr);
        FlatGround(&root, 16 * 32.0f);
        std::vector<uint8_t> chunks = MakeMapChunks(16, 16);
        ASSERT_TRUE(root.SaveVBF(dir.File(folder + "/test.vbf").c_str(), chunks.data(),
                                 uint32_t(chunks.size())));
    }

    bool Exists(const std::string& path) const { return std::filesystem::exists(dir.File(path)); }

    TempDir dir;
};
