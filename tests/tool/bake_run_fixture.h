// Set-up of the tests that drive whole bake runs: a start directory of their own, map files
// written as VBF with chosen user data, settings that bake in a moment, and every global the run
// touches put back afterwards. Header only: the test program takes only *_test.cpp files.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "base/diagnostics.h"
#include "base/resmanager.h"
#include "engine/mesh/mesh.h"
#include "engine/texture/texture.h"
#include "platform/crt/paths.h"
#include "tests/support/bake_fixture.h"
#include "tests/support/temp_dir.h"
#include "tool/bake/message_log.h"
#include "tool/bake/progress.h"
#include "tool/bake/shadow_settings.h"
#include "tool/maps/map_chunks.h"
#include "tool/run/app_state.h"
#include "tool/run/bake_run.h"
#include "tool/run/batch_file.h"

// Errors are recorded and the handler returns, so a run that raises one goes on as the tool's
// own handlers let it. Shadow maps the run hands to its callback are recorded by name.
inline std::vector<std::string> RecordedErrors, BakedNames;

class BakeRunFixture : public ::testing::Test {
protected:
    void SetUp() override {
        ShadowSettings = DefaultShadowSettings();
        ShadowSettings.TextureSize = 256;  // one texel per 32-unit cell
        ShadowSettings.Light = {0.0f, 1.0f, 0.0f};
        QuitRequested = 0;
        MessageLogClear();
        RecordedErrors.clear();
        BakedNames.clear();
        previousHandler = CorvaneSetErrorHandler([](uint32_t code, const char* text) {
            EXPECT_EQ(code, uint32_t(CorvaneCodeError));
            RecordedErrors.push_back(text ? text : "");
        });
        SetMapBakedCallback([](const char*, const char* path, const BakeResult&) {
            EXPECT_TRUE(std::filesystem::path(path).is_absolute()) << path;
            BakedNames.push_back(std::filesystem::path(path).filename().string());
        });
        std::snprintf(StartDirectory, sizeof StartDirectory, "%s", dir.Path().c_str());
    }
    void TearDown() override {
        CorvaneSetErrorHandler(previousHandler);
        SetProgressHooks(nullptr);
        ClearCancel();
        FreeJobList();
        BatchMode = 0;
        delete Resources;
        Resources = nullptr;
        SetBakeOutputName(nullptr);
        SetMapBakedCallback(nullptr);
        MessageLogClear();
        ShadowSettings = DefaultShadowSettings();
        StartDirectory[0] = '\0';
        _chdir(dir.Path().c_str());  // the temporary directory then takes the test back
    }

    // A map file at path (relative to the start directory) holding what geometry adds under the
    // root (flat ground over 8 cells by default) and the given user data, none if empty.
    void WriteMap(const std::string& path, const std::vector<uint8_t>& userData,
                  const std::function<void(CMesh*)>& geometry = nullptr) {
        std::filesystem::create_directories(std::filesystem::path(dir.File(path)).parent_path());
        CMesh root(nullptr);
        geometry ? geometry(&root) : void(FlatGround(&root, 256.0f));
        ASSERT_TRUE(root.SaveVBF(dir.File(path).c_str(),
                                 userData.empty() ? nullptr : userData.data(),
                                 uint32_t(userData.size())));
    }

    // BakeMap on a copy of path in a 260-byte buffer. Whatever became of the map, the run ends
    // in the start directory with its scene and maps gone.
    BakeRunResult Run(const std::string& path) {
        char buffer[_MAX_PATH];
        std::snprintf(buffer, sizeof buffer, "%s", path.c_str());
        BakeRunResult result = BakeMap(buffer, 0);
        ranMapPath = buffer;
        EXPECT_TRUE(std::filesystem::equivalent(std::filesystem::current_path(), StartDirectory));
        EXPECT_TRUE(!Scene && !SceneRoot && !MapMesh && !ViewerMesh && !ShadowTexture);
        return result;
    }

    std::string Read(const std::string& path) const { return ReadWholeFile(dir.File(path)); }
    bool Exists(const std::string& path) const { return std::filesystem::exists(dir.File(path)); }
    std::vector<std::string> Listing(const std::string& folder) const {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(dir.File(folder)))
            names.push_back(entry.path().filename().string());
        std::sort(names.begin(), names.end());
        return names;
    }
    // A byte of a single bake's file at TextureSize 256, or -1 past its end.
    static int Byte(const std::string& file, int row, int column) {
        size_t at = size_t(row) * 256 + size_t(column);
        return at < file.size() ? uint8_t(file[at]) : -1;
    }
    // Whether a line of the message log starts with start and ends with end.
    static bool Logged(const std::string& start, const std::string& end = "") {
        for (int i = 0; i < MessageLogCount(); ++i) {
            std::string line = MessageLogLine(i);
            if (line.size() >= start.size() + end.size() && line.rfind(start, 0) == 0 &&
                line.compare(line.size() - end.size(), end.size(), end) == 0)
                return true;
        }
        return false;
    }
    static bool Refused(const std::string& map) {
        return Logged("***** MAP REFUSED " + map + ": ", " *****");
    }

    std::string ranMapPath;  // the map path buffer as BakeMap left it
    TempDir dir;

private:
    CorvaneErrorHandler previousHandler = nullptr;
};
