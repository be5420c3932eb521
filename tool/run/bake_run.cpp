#include "tool/run/bake_run.h"

#include <cstdio>
#include <cstring>

#include "base/diagnostics.h"
#include "base/memory.h"
#include "base/resmanager.h"
#include "engine/mesh/mesh.h"
#include "engine/scene/scene.h"
#include "engine/texture/texture.h"
#include "platform/crt/paths.h"
#include "platform/debug/debug_output.h"
#include "tool/run/app_state.h"
#include "tool/bake/bake_pass.h"
#include "tool/run/batch_file.h"
#include "tool/maps/map_chunks.h"
#include "tool/bake/message_log.h"
#include "tool/bake/progress.h"
#include "tool/bake/shadow_settings.h"

static MapBakedCallback MapBaked = nullptr;
static void (*RunFinished)() = nullptr;
static char OutputName[_MAX_PATH] = "texture.dat";

void SetBakeOutputName(const char* name) {
    std::snprintf(OutputName, sizeof OutputName, "%s", name ? name : "texture.dat");
}

void SetMapBakedCallback(MapBakedCallback callback) { MapBaked = callback; }

void SetRunFinishedCallback(void (*callback)()) { RunFinished = callback; }

char MapTypeLetter(const char* path) {
    const char* dot = std::strchr(path, '.');
    if (!dot || !dot[1]) return 0;
    return dot[2];
}

// A map that can't be baked is reported in the message log with its file and the reason, and
// the run goes on with the next job.
static void RefuseMap(const char* path, const char* reason) {
    char line[600];
    std::snprintf(line, sizeof line, "***** MAP REFUSED %s: %s *****", path, reason);
    LogMessage(line);
}

static void ReportUnwritten(const char* mapPath, const char* outputName) {
    char reason[_MAX_PATH + 64];
    std::snprintf(reason, sizeof reason, "%s could not be written in the map's folder",
                  outputName);
    RefuseMap(mapPath, reason);
}

// Loads the map under MapMesh and sets the map size from a binary map's chunks.
static bool LoadMap(const char* path) {
    switch (MapTypeLetter(path)) {
        case 'a':
        case 'A':  // a text map has no size chunk: the size stays as it was
            if (!MapMesh->LoadVAF(path, 0)) {
                RefuseMap(path, "the map could not be read (see velmora.log)");
                return false;
            }
            return true;
        case 'b':
        case 'B': {
            VBFUserData* data = MapMesh->LoadVBFWithData(path);
            if (!data) {
                RefuseMap(path, MapMesh->firstChild
                                    ? "the map has no user data, so no map size"
                                    : "the map could not be read (see velmora.log)");
                return false;
            }
            MapSize size = {ShadowSettings.MapCellsX, ShadowSettings.MapCellsY};
            const char* error = nullptr;
            bool good = ReadMapChunks(data->bytes, data->size, size, error);
            FreeVBFUserData(data);
            if (!good) {
                RefuseMap(path, error);
                return false;
            }
            ShadowSettings.MapCellsX = size.cellsX;
            ShadowSettings.MapCellsY = size.cellsY;
            CorvaneDebug("Map size is (%d, %d)", size.cellsX, size.cellsY);
            return true;
        }
        default:
            CorvaneError("Load File - Invalid file extension on %s\n", path);
            return false;  // reached only where the error handler returns
    }
}

static void EnterMapDirectory(const char* path) {
    char drive[_MAX_DRIVE], dir[_MAX_DIR], folder[_MAX_DRIVE + _MAX_DIR];
    _splitpath(path, drive, dir, nullptr, nullptr);
    std::snprintf(folder, sizeof folder, "%s%s", drive, dir);
    if (folder[0]) _chdir(folder);
}

// The pass makes the height file's name in the buffer it is given; the run keeps the shadow
// map's name for its reports and the callback.
static void BakeInto(const char* outputName, BakeStatistics& stats) {
    char name[_MAX_PATH];
    std::snprintf(name, sizeof name, "%s", outputName);
    BakeShadowMap(MapMesh, name, &stats);
}

// The frames of an animated bake go to numbered files: "texture.dat" gives texture0.dat, ...
static bool BakeFrames(char* outputName, const char* mapPath) {
    size_t length = std::strlen(outputName);
    outputName[length >= 4 ? length - 4 : 0] = '\0';  // never cut in front of the name
    bool all = true;
    for (int32_t f = 0; f < ShadowSettings.FrameCount; ++f) {
        char text[32];
        std::snprintf(text, sizeof text, "FRAME: %d\n", f);
        OutputDebugStringA(text);
        char name[_MAX_PATH];
        std::snprintf(name, sizeof name, "%s%d.dat", outputName, f);
        MapMesh->SetAnimationFrame(float(f), 1);
        BakeStatistics stats;
        BakeInto(name, stats);
        if (stats.cancelled || !stats.filesWritten) {
            if (!stats.cancelled) ReportUnwritten(mapPath, name);
            all = false;
            break;
        }
        if (MapBaked) MapBaked(mapPath, name, stats);
    }
    return all;
}

BakeRunResult RunBakeMaps(char* mapPath) {
    BakeRunResult result = {0, 0};
    for (;;) {
        char outputName[_MAX_PATH];
        std::snprintf(outputName, sizeof outputName, "%s", OutputName);
        bool last = true;
        if (BatchMode) {
            if (!JobList) return result;  // an empty or unreadable batch ends at once
            last = TakeNextJob(mapPath, _MAX_PATH, outputName, sizeof outputName);
        }
        MapMesh = NEW CMesh(SceneRoot);
        bool good = LoadMap(mapPath);
        if (good) {
            EnterMapDirectory(mapPath);
            if (ShadowSettings.FrameCount == 0) {
                BakeStatistics stats;
                BakeInto(outputName, stats);
                good = stats.filesWritten && !stats.cancelled;
                if (!good && !stats.cancelled) ReportUnwritten(mapPath, outputName);
                if (good && MapBaked) MapBaked(mapPath, outputName, stats);
            } else if (ShadowSettings.FrameCount > 0) {
                good = BakeFrames(outputName, mapPath);
            } else {
                RefuseMap(mapPath, "ANIMATED below 0 asks for no frame at all");
                good = false;
            }
        }
        good ? ++result.baked : ++result.failed;
        // Without a display there is no viewer to hand the map to: it goes in every case.
        DELETE(MapMesh);
        MapMesh = nullptr;
        if (last || CancelRequested()) return result;
    }
}

static void CopyLightDescription(const char* mapPath) {
    const char* lit = Resources ? Resources->GetResourcePath("LIT") : nullptr;
    if (!lit) return;  // never a path made from nothing
    char source[3 * _MAX_PATH], target[_MAX_PATH + 16];
    std::snprintf(source, sizeof source, "%s/%s/%s", StartDirectory, lit, ShadowSettings.LitFile);
    char drive[_MAX_DRIVE], dir[_MAX_DIR];
    _splitpath(mapPath, drive, dir, nullptr, nullptr);
    std::snprintf(target, sizeof target, "%s%s%s", drive, dir, "test.lit");
    char absolute[sizeof StartDirectory + sizeof target + 2];  // maps are relative to the start
    if (target[0] != '/') {
        std::snprintf(absolute, sizeof absolute, "%s/%s", StartDirectory, target);
    } else {
        std::snprintf(absolute, sizeof absolute, "%s", target);
    }
    DeleteFileA(absolute);
    CopyFileA(source, absolute, false);
}

BakeRunResult BakeMap(char* mapPath, uint8_t showViewer) {
    Scene = NEW CScene;
    SceneRoot = Scene->layerRoot[0];
    BakeRunResult result = RunBakeMaps(mapPath);
    CopyLightDescription(mapPath);
    (void)showViewer;  // no display in this build: the run always ends as after a batch
    _chdir(StartDirectory);
    if (RunFinished) RunFinished();
    if (ViewerMesh) DELETE(ViewerMesh);
    ViewerMesh = nullptr;
    if (ShadowTexture) FreeTexture(ShadowTexture);
    ShadowTexture = nullptr;
    DELETE(Scene);
    Scene = nullptr;
    SceneRoot = nullptr;
    return result;
}
