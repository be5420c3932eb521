#include "tool/run/bake_run.h"

#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>

#include "base/diagnostics.h"
#include "base/fatal_trap.h"
#include "base/memory.h"
#include "base/resmanager.h"
#include "engine/mesh/mesh.h"
#include "engine/mesh/mesh_read_fault.h"
#include "engine/scene/scene.h"
#include "engine/texture/texture.h"
#include "platform/crt/paths.h"
#include "platform/debug/debug_output.h"
#include "tool/bake/bake_pass.h"
#include "tool/bake/message_log.h"
#include "tool/bake/progress.h"
#include "tool/bake/shadow_script.h"
#include "tool/bake/shadow_settings.h"
#include "tool/bake/vertex_frames.h"
#include "tool/maps/map_chunks.h"
#include "tool/run/app_state.h"
#include "tool/run/batch_file.h"

namespace fs = std::filesystem;

static MapBakedCallback MapBaked = nullptr;
static RayCoreOptions CoreOptions;
static void (*RunFinished)() = nullptr;
static const ViewerSteps* Steps = nullptr;
static char OutputName[_MAX_PATH] = "texture.dat";

bool SetBakeOutputName(const char* name) {
    if (!name) name = "texture.dat";
    if (std::strlen(name) >= sizeof OutputName) return false;  // never cut into another name
    std::memcpy(OutputName, name, std::strlen(name) + 1);
    return true;
}

void SetMapBakedCallback(MapBakedCallback callback) {
    MapBaked = callback;
}

void SetRayCoreOptions(const RayCoreOptions& options) {
    CoreOptions = options;
}

void SetViewerSteps(const ViewerSteps* steps) {
    Steps = steps;
}

void SetRunFinishedCallback(void (*callback)()) {
    RunFinished = callback;
}

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

// A batch list's map is typed by the letter behind the first dot of its path, as the lists were
// written for; a single map by its file's extension, so a dot in a folder's name is harmless.
static char MapType(const char* path) {
    if (BatchMode) return MapTypeLetter(path);
    std::string extension = fs::path(path).extension().string();
    return extension.size() >= 3 ? extension[2] : 0;
}

// Why the map's reader gave up, in the reader's words where it left some.
static const char* ReadFault() {
    return *MeshReadFault() ? MeshReadFault() : "the map could not be read (see velmora.log)";
}

// Loads the map under MapMesh and sets the map size from a binary map's chunks. Null when the
// map loaded; else why not, "" where an error report has already said so.
static const char* LoadMap(const char* path) {
    switch (MapType(path)) {
        case 'a':
        case 'A':  // a text map has no size chunk: the size stays as it was
            return MapMesh->LoadVAF(path, 0) ? nullptr : ReadFault();
        case 'b':
        case 'B': {
            VBFUserData* data = MapMesh->LoadVBFWithData(path);
            if (!data)
                return MapMesh->firstChild ? "the map has no user data, so no map size"
                                           : ReadFault();
            MapSize size = {ShadowSettings.MapCellsX, ShadowSettings.MapCellsY};
            const char* error = nullptr;
            bool good = ReadMapChunks(data->bytes, data->size, size, error);
            FreeVBFUserData(data);
            if (!good) return error;
            ShadowSettings.MapCellsX = size.cellsX;
            ShadowSettings.MapCellsY = size.cellsY;
            CorvaneDebug("Map size is (%d, %d)", size.cellsX, size.cellsY);
            return nullptr;
        }
        default:
            CorvaneError("Load File - Invalid file extension on %s\n", path);
            return "";  // reached only where the error handler returns
    }
}

// The shadow map's path: its name resolved against the map's folder.
static std::string OutputPathBeside(const char* mapPath, const char* outputName) {
    fs::path map = fs::absolute(mapPath);
    return (map.parent_path() / outputName).lexically_normal().string();
}

// One pass over MapMesh into outputPath; ShadowTexture takes the result.
static BakeResult BakeInto(const std::string& outputPath, double loadSeconds) {
    BakeJob job;
    job.settings = ShadowSettings;
    job.mesh = MapMesh;
    job.shadowMapPath = outputPath;
    job.core = CoreOptions;
    job.texture = ShadowTexture;
    BakeResult result = BakeShadowMap(job);
    ShadowTexture = result.texture;
    result.statistics.loadSeconds = loadSeconds;
    return result;
}

// Reports a pass that wrote nothing, by the output's name as given; true when it wrote its files.
static bool Finished(const BakeResult& result, const char* mapPath, const std::string& output,
                     const char* outputName) {
    const BakeStatistics& stats = result.statistics;
    if (stats.cancelled) return false;
    if (!stats.filesWritten) {
        char reason[_MAX_PATH + 64];
        std::snprintf(reason, sizeof reason, "%s could not be written in the map's folder",
                      outputName);
        RefuseMap(mapPath, reason);
        return false;
    }
    if (MapBaked) MapBaked(mapPath, output.c_str(), result);
    return true;
}

// The frames of an animated bake go to numbered files: "texture.dat" gives texture0.dat, ...
// Each frame is baked from its own shape: a vertex animation's frame is brought into the
// vertices here, since no render preparation runs in a bake.
static bool BakeFrames(const char* outputName, const char* mapPath, double loadSeconds) {
    std::string stem = outputName;
    if (stem.size() >= 4) stem.resize(stem.size() - 4);  // a shorter name is the whole base
    for (int32_t f = 0; f < ShadowSettings.FrameCount; ++f) {
        char text[32];
        std::snprintf(text, sizeof text, "FRAME: %d\n", f);
        OutputDebugStringA(text);
        std::string name = stem + std::to_string(f) + ".dat";
        MapMesh->SetAnimationFrame(float(f), 1);
        ApplyVertexFrames(MapMesh);
        std::string output = OutputPathBeside(mapPath, name.c_str());
        if (!Finished(BakeInto(output, f == 0 ? loadSeconds : 0.0), mapPath, output, name.c_str()))
            return false;
    }
    return true;
}

// Loads and bakes one map under a fatal-report trap, so that bad data ends this job only.
static bool BakeOneMap(char* mapPath, const char* outputName) {
    using Clock = std::chrono::steady_clock;
    FatalReportTrap trap;
    Clock::time_point start = Clock::now();
    MapMesh = NEW CMesh(SceneRoot);
    ClearMeshReadFault();
    const char* fault = LoadMap(mapPath);
    if (trap.Sprung()) fault = *MeshReadFault() ? MeshReadFault() : trap.Reason();
    if (fault && *fault) RefuseMap(mapPath, fault);
    bool good = !fault;
    double loadSeconds = std::chrono::duration<double>(Clock::now() - start).count();
    if (good) {
        if (ShadowSettings.FrameCount == 0) {
            std::string output = OutputPathBeside(mapPath, outputName);
            good = Finished(BakeInto(output, loadSeconds), mapPath, output, outputName);
        } else if (ShadowSettings.FrameCount > 0) {
            good = BakeFrames(outputName, mapPath, loadSeconds);
        } else {
            char reason[_MAX_PATH + 80];
            std::snprintf(reason, sizeof reason, "the script %s asks for ANIMATED %d: no frame",
                          LastShadowScriptPath(), ShadowSettings.FrameCount);
            RefuseMap(mapPath, reason);
            good = false;
        }
    }
    if (good && trap.Sprung()) {  // a report from the pass itself
        RefuseMap(mapPath, trap.Reason());
        good = false;
    }
    CMesh* displayCopy = nullptr;
    if (good && !BatchMode && Steps) {
        Steps->takeMap();
        displayCopy = ViewerMesh;
    }
    DELETE(MapMesh);
    MapMesh = displayCopy;
    return good;
}

BakeRunResult RunBakeMaps(char* mapPath) {
    BakeRunResult result = {0, 0};
    if (Scene) Scene->ambient = 0xFFFFFF;
    for (;;) {
        char outputName[_MAX_PATH];
        std::snprintf(outputName, sizeof outputName, "%s", OutputName);
        TakenJob job = {true, ""};
        if (BatchMode) {
            if (!JobList) return result;  // an empty or unreadable batch ends at once
            job = TakeNextJob(mapPath, _MAX_PATH, outputName, sizeof outputName);
        }
        bool good = job.refusal.empty();
        if (!good) RefuseMap(mapPath[0] ? mapPath : "(a name too long)", job.refusal.c_str());
        if (good) good = BakeOneMap(mapPath, outputName);
        good ? ++result.baked : ++result.failed;
        if (good && job.scriptFailed) ++result.failed;
        if (job.last || CancelRequested()) return result;
    }
}

static std::string FromStart(const std::string& path) {
    return path[0] == '/' ? path : std::string(StartDirectory) + "/" + path;
}

// The light description named by the script: in the LIT folder, or else beside the script, for
// a script given by its path from some other folder.
static void CopyLightDescription(const char* mapPath) {
    const char* lit = Resources ? Resources->GetResourcePath("LIT") : nullptr;
    std::string script = LastShadowScriptPath();
    if (!lit && script.empty()) return;  // never a path made from nothing
    const char* name = ShadowSettings.LitFile;
    char drive[_MAX_DRIVE], dir[_MAX_DIR];
    _splitpath(mapPath, drive, dir, nullptr, nullptr);
    // Maps are named relative to the start directory.
    std::string target = FromStart(std::string(drive) + dir + "test.lit");
    DeleteFileA(target.c_str());
    // Only a plain name: no name, or one that could lead out of the folder, copies nothing.
    if (!*name || std::strpbrk(name, "/\\") || std::strcmp(name, "..") == 0) return;
    std::string source = lit ? FromStart(std::string(lit) + "/" + name) : "";
    if ((source.empty() || !fs::is_regular_file(source)) && !script.empty())
        source = (fs::path(FromStart(script)).parent_path() / name).string();
    CopyFileA(source.c_str(), target.c_str(), false);
}

BakeRunResult BakeMap(char* mapPath, uint8_t showViewer) {
    Scene = NEW CScene;
    SceneRoot = Scene->layerRoot[0];
    if (Steps) Steps->setUp();
    BakeRunResult result = RunBakeMaps(mapPath);
    CopyLightDescription(mapPath);
    // A viewer of nothing would only hide the dialog's word on why the bake failed.
    if (showViewer && Steps && ViewerMesh && Steps->show()) return result;
    if (RunFinished) RunFinished();
    MapMesh = nullptr;  // the display copy, if any, goes with the rest
    if (Steps) {
        Steps->release();
        return result;
    }
    if (ViewerMesh) DELETE(ViewerMesh);
    ViewerMesh = nullptr;
    if (ShadowTexture) FreeTexture(ShadowTexture);
    ShadowTexture = nullptr;
    DELETE(Scene);
    Scene = nullptr;
    SceneRoot = nullptr;
    return result;
}
