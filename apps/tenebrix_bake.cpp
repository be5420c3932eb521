// tenebrix-bake: the command line of the shadow baker, for people at a terminal and for build
// pipelines baking hundreds of maps.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "apps/bake/bake_options.h"
#include "apps/bake/progress_display.h"
#include "apps/common/tool_session.h"
#include "base/diagnostics.h"
#include "base/memory.h"
#include "base/quoted_text.h"
#include "base/resmanager.h"
#include "engine/texture/texture.h"
#include "engine/texture/texture_lookup.h"
#include "platform/crt/paths.h"
#include "platform/crt/terminal.h"
#include "platform/debug/debug_output.h"
#include "platform/dx7/call_recorder.h"
#include "tool/bake/bake_pass.h"
#include "tool/bake/bake_verify.h"
#include "tool/bake/contact_sheet.h"
#include "tool/bake/message_log.h"
#include "tool/bake/png_preview.h"
#include "tool/bake/progress.h"
#include "tool/bake/shadow_script.h"
#include "tool/bake/shadow_settings.h"
#include "tool/maps/tool_load_texture.h"
#include "tool/run/app_state.h"
#include "tool/run/bake_run.h"
#include "tool/run/batch_file.h"
#include "tool/view/view_picture.h"

namespace fs = std::filesystem;

namespace {

constexpr const char* Program = "tenebrix-bake";

BakeOptions Options;
std::string PngPath;                 // absolute: the run moves between folders
std::string ViewMap, ViewShadowMap;  // the single map baked, and its shadow map
double TotalSeconds = 0.0;
uint64_t TotalRays = 0;
int PreviewFailures = 0;  // a preview asked for and not written fails the run
int VerifyFailures = 0;   // a map whose fast bake differs from the literal walk fails the run

// One line of information, which a quiet run leaves out.
void Say(const char* what, const std::string& text) {
    if (!Options.quiet) std::fprintf(stderr, "%s: %s%s\n", Program, what, text.c_str());
}

std::string CurrentMap;  // the map being baked, for messages that don't name it

// A box that a fatal report shows ends the program right after; say which map it met.
int PrintBox(void*, const char* text, const char* caption, unsigned) {
    std::string message = text;
    while (!message.empty() && message.back() == '\n') message.pop_back();
    if (!CurrentMap.empty()) message += " (map " + CurrentMap + ")";
    std::fprintf(stderr, "%s: %s: %s\n", Program, caption, EscapedText(message).c_str());
    return IDOK;
}

void PrintLogLine(const char* text) {
    if (std::strncmp(text, "MAP: ", 5) == 0) CurrentMap = text + 5;
    // Failure lines stand out with asterisks; a quiet run keeps only those.
    if (Options.quiet && std::strncmp(text, "***** ", 6) != 0) return;
    ProgressDisplayEndPass();
    // Log lines echo a batch list's words, which may hold any bytes.
    std::fprintf(stderr, "%s: %s\n", Program, EscapedText(text).c_str());
}

// The map's part of a baked shadow map, as its file's bytes, and the scale a preview draws it at.
struct MapPicture {
    std::vector<uint8_t> bytes;  // rows of the whole texture's width
    int32_t width, height, stride, scale;
};

MapPicture PictureOf(const BakeResult& result) {
    const int32_t size = result.layout.textureSize;
    // A texel the map covers only in part still shows, so a small map at a small size keeps
    // at least one pixel.
    auto side = [&](int32_t cells) { return (std::clamp(cells, 1, 256) * size + 255) / 256; };
    MapPicture picture = {std::vector<uint8_t>(size_t(size) * size_t(size)),
                          side(result.layout.cellsX), side(result.layout.cellsY), size, 1};
    for (size_t i = 0; i < picture.bytes.size(); ++i)
        picture.bytes[i] = result.texture->pixels[i * 4 + 3];
    picture.scale = PreviewScale(picture.width, picture.height, Options.pngScale);
    if (Options.pngScale > picture.scale && !Options.quiet)
        std::fprintf(stderr,
                     "%s: warning: --png-scale %d would make the preview more than %d "
                     "pixels a side; it is drawn at %d\n",
                     Program, Options.pngScale, MaxPreviewSide, picture.scale);
    return picture;
}

void MakeFolderOf(const std::string& path) {
    std::error_code ignored;  // a missing folder is made; a failure shows in the write
    fs::create_directories(fs::path(path).parent_path(), ignored);
}

void WritePreview(const std::string& path, const char* mapPath, const MapPicture& picture) {
    MakeFolderOf(path);
    if (WriteShadowPreviewPng(path.c_str(), picture.bytes.data(), picture.width, picture.height,
                              picture.stride, picture.scale)) {
        Say("preview ", path);
    } else {
        ++PreviewFailures;
        std::fprintf(stderr, "%s: error: the preview %s of %s could not be written\n", Program,
                     path.c_str(), mapPath);
    }
}

// --png of an animated bake: every frame's preview on one contact sheet, written once the last
// frame is in. --png takes one map, so frames arrive in order.
std::unique_ptr<ContactSheet> Sheet;
int32_t SheetFrames = 0;  // frames placed

void PlaceOnSheet(const MapPicture& picture) {
    if (!Sheet)
        Sheet = std::make_unique<ContactSheet>(LayOutContactSheet(ShadowSettings.FrameCount,
                                                                  picture.width * picture.scale,
                                                                  picture.height * picture.scale));
    Sheet->Place(SheetFrames++, picture.bytes.data(), picture.width, picture.height,
                 picture.stride);
}

// A run whose frames didn't all bake has failed already, and gets no sheet.
void WriteSheet(const char* mapPath) {
    if (!Sheet || SheetFrames != Sheet->Layout().frames) return;
    MakeFolderOf(PngPath);
    if (Sheet->Layout().width == 0) {
        ++PreviewFailures;
        std::fprintf(stderr,
                     "%s: error: %d frames of %s don't fit on a contact sheet of %d pixels a "
                     "side; --png-beside draws each frame\n",
                     Program, Sheet->Layout().frames, mapPath, int(MaxPreviewSide));
    } else if (Sheet->Write(PngPath.c_str())) {
        Say("contact sheet ", PngPath);
    } else {
        ++PreviewFailures;
        std::fprintf(stderr, "%s: error: the contact sheet %s of %s could not be written\n",
                     Program, PngPath.c_str(), mapPath);
    }
}

void PrintStatistics(const char* mapPath, const BakeStatistics& stats) {
    uint64_t rays = stats.groundRays + stats.lightRays;
    auto per = [](double count, double over) { return over > 0 ? count / over : 0.0; };
    std::fprintf(stderr,
                 "%s: %s: %llu samples, %llu rays (%llu down, %llu to the light), %.0f rays/s, "
                 "%.0f samples/s (%s)\n",
                 Program, mapPath, (unsigned long long)stats.samples, (unsigned long long)rays,
                 (unsigned long long)stats.groundRays, (unsigned long long)stats.lightRays,
                 per(double(rays), stats.sampleSeconds),
                 per(double(stats.samples), stats.sampleSeconds),
                 stats.literalWalk ? "literal walk" : "fast core");
    std::fprintf(stderr,
                 "%s:   %llu triangles, index %.1f MiB (%.0f bytes a triangle), %.2f triangle "
                 "tests a light ray, %.2f a ground ray\n",
                 Program, (unsigned long long)stats.triangles, stats.indexBytes / 1048576.0,
                 stats.triangles ? double(stats.indexBytes) / double(stats.triangles) : 0.0,
                 per(double(stats.rays.lightTriangleTests), double(stats.rays.lightRays)),
                 per(double(stats.rays.groundTriangleTests), double(stats.rays.groundRays)));
    std::fprintf(stderr,
                 "%s:   load %.3f s, table %.3f s, index %.3f s, samples %.3f s, quantise %.3f s, "
                 "files %.3f s, total %.3f s\n",
                 Program, stats.loadSeconds, stats.tableSeconds, stats.indexSeconds,
                 stats.sampleSeconds, stats.quantiseSeconds, stats.writeSeconds,
                 stats.TotalSeconds());
}

// The map stands as its pass baked it, a frame of an animated bake in that frame's shape.
void Verify(const char* mapPath, const std::string& shadowMap) {
    VerifyOutcome outcome =
        VerifyBakeRows(ShadowSettings, MapMesh, Options.verifyRows, Options.threads);
    const std::string what = ShadowSettings.FrameCount > 0
                                 ? " of " + fs::path(shadowMap).filename().string()
                                 : std::string();
    if (outcome.identical) {
        Say("", "verified " + std::to_string(outcome.rowsChecked) + " rows" + what + ": identical");
        return;
    }
    ++VerifyFailures;
    std::fprintf(stderr,
                 "%s: error: %s: verify%s: sample row %d column %d (x %.3f, z %.3f) adds %u "
                 "through the fast core and %u through the literal walk\n",
                 Program, mapPath, what.c_str(), outcome.row, outcome.column, outcome.x, outcome.z,
                 outcome.fastAdds, outcome.literalAdds);
}

void OnMapBaked(const char* mapPath, const char* shadowMapPath, const BakeResult& result) {
    const BakeStatistics& stats = result.statistics;
    ProgressDisplayEndPass();
    std::string where = shadowMapPath;
    Say("shadow map ", where);
    ViewMap = mapPath, ViewShadowMap = where;
    if (!PngPath.empty() || Options.pngBeside) {
        const MapPicture picture = PictureOf(result);
        if (!PngPath.empty() && ShadowSettings.FrameCount > 0)
            PlaceOnSheet(picture);
        else if (!PngPath.empty())
            WritePreview(PngPath, mapPath, picture);
        if (Options.pngBeside) WritePreview(where + ".png", mapPath, picture);
    }
    TotalSeconds += stats.TotalSeconds();
    TotalRays += stats.groundRays + stats.lightRays;
    if (Options.stats) PrintStatistics(mapPath, stats);
    if (Options.verifyRows > 0) Verify(mapPath, where);
}

bool Fail(const std::string& text) {
    std::fprintf(stderr, "%s: error: %s\n", Program, text.c_str());
    return false;
}

// The map argument as a map file that exists with a map's extension.
bool ResolveMap(const std::string& argument, fs::path& file) {
    std::error_code error;
    fs::path path = fs::absolute(argument, error);
    if (error || !fs::exists(path)) return Fail(argument + ": no such file or directory");
    if (fs::is_directory(path)) {
        file = path / "test.vbf";
        if (!fs::is_regular_file(file)) return Fail(argument + ": the directory holds no test.vbf");
        return true;
    }
    std::string ext = path.extension().string();
    for (char& c : ext) c = char(std::tolower((unsigned char)c));
    if (ext != ".vbf" && ext != ".vaf")
        return Fail(argument + ": not a map (a map file ends in .vbf or .vaf)");
    file = path;
    return true;
}

// A script is a path, or the name of a script in the LIT folder.
bool ResolveScript(const std::string& argument, fs::path& file) {
    std::vector<fs::path> tried = {fs::absolute(argument)};
    const char* lit = Resources ? Resources->GetResourcePath("LIT") : nullptr;
    if (lit) {
        fs::path folder = fs::path(StartDirectory) / lit;
        tried.push_back(folder / argument);
        tried.push_back(folder / (argument + ".ssf"));
    }
    for (const fs::path& candidate : tried)
        if (fs::is_regular_file(candidate)) {
            file = candidate;
            return true;
        }
    std::string where;
    for (const fs::path& candidate : tried) where += "\n  " + candidate.string();
    if (!lit)
        where +=
            "\n(a name without a path is looked for in the LIT folder of resource.cfg, and "
            "there is no resource.cfg in " +
            std::string(StartDirectory) + ")";
    return Fail("script " + argument + " not found; looked for:" + where);
}

bool ReadScript(const fs::path& file) {
    ShadowScriptReport report = {0, 0};
    if (!ParseShadowScript(file.c_str(), &report)) return Fail(file.string() + ": cannot be read");
    if (report.keys == 0)
        return Fail(file.string() + ": no key of a shadow script in it (" +
                    std::to_string(report.otherWords) + " other words)");
    if (report.otherWords > 0 && !Options.quiet)
        std::fprintf(stderr, "%s: warning: %s: %d words are no keys and were skipped\n", Program,
                     file.c_str(), report.otherWords);
    return true;
}

// A resource list is a few lines of words; a file with bytes no text holds is something else,
// and reading its bytes as keys would only echo them back.
std::string BinaryFault(const fs::path& file) {
    std::FILE* stream = std::fopen(file.c_str(), "rb");
    if (!stream) return "";  // the reader says it can't be opened
    unsigned char block[4096];
    size_t got = std::fread(block, 1, sizeof block, stream);
    std::fclose(stream);
    for (size_t i = 0; i < got; ++i) {
        unsigned char c = block[i];
        if (c < 0x20 && c != '\n' && c != '\r' && c != '\t' && c != '\f' && c != '\v') {
            char text[80];
            std::snprintf(text, sizeof text,
                          "it holds the byte 0x%02X at offset %zu, which no text "
                          "holds",
                          c, i);
            return text;
        }
    }
    return "";
}

// The start directory: the current one, or the folder of the config file given.
bool EnterStartDirectory() {
    fs::path config =
        Options.config.empty() ? fs::path("resource.cfg") : fs::absolute(Options.config);
    if (!Options.config.empty()) {
        if (!fs::is_regular_file(config)) return Fail(Options.config + ": no such config file");
        _chdir(config.parent_path().c_str());
    }
    if (!_getcwd(StartDirectory, sizeof StartDirectory))
        return Fail(fs::current_path().string() + ": the start directory's path is longer than " +
                    std::to_string(sizeof StartDirectory - 1) + " characters");
    if (fs::exists(config.filename())) {
        if (std::string fault = BinaryFault(config.filename()); !fault.empty())
            return Fail(config.string() + ": not a resource list: " + fault);
        Resources = NEW ResourceManager(config.filename().c_str());
    } else {
        Resources = nullptr;  // scripts must then be paths; said where a name is not found
    }
    SetToolResourceManager(Resources);
    SetTextureLoadFunction(ToolLoadTexture);
    return true;
}

// The map just baked, with its new shadow map, as the viewer first shows it.
bool DrawView(const std::string& path) {
    std::error_code ignored;  // a missing folder is made; a failure shows in the write
    fs::create_directories(fs::path(path).parent_path(), ignored);
    DxSetRendering(DxRendering::GlWhenAvailable);
    ViewPicture picture;
    picture.map = ViewMap, picture.shadow = ViewShadowMap, picture.png = path;
    const std::string error = DrawViewPicture(picture);
    if (!error.empty()) return Fail("--view-png: " + error);
    Say("view ", path);
    return true;
}

int Run() {
    // Paths the user gave are relative to where they stand, not to the start directory.
    fs::path userDirectory = fs::current_path();
    auto fromUser = [&](const std::string& p) {
        return p.empty() ? p : (userDirectory / p).string();
    };
    std::string map = fromUser(Options.map), batch = fromUser(Options.batch);
    std::string script = Options.script.empty() || fs::path(Options.script).is_absolute() ||
                                 !fs::exists(userDirectory / Options.script)
                             ? Options.script
                             : fromUser(Options.script);
    PngPath = Options.png.empty() ? "" : fromUser(Options.png);

    if (!EnterStartDirectory()) return ExitFailed;
    if (Options.textureSize) ShadowSettings.TextureSize = Options.textureSize;
    RayCoreOptions core;
    core.threads = Options.threads;
    core.literalWalk = Options.reference;
    core.crossing = Options.closedCrossing ? CrossingRule::Closed : CrossingRule::HalfOpen;
    SetRayCoreOptions(core);
    if (!script.empty()) {
        fs::path file;
        if (!ResolveScript(script, file) || !ReadScript(file)) return ExitFailed;
    }
    if (!Options.viewPng.empty() && ShadowSettings.FrameCount != 0) {
        std::fprintf(stderr,
                     "%s: --view-png draws one shadow map; the script asks for an animated bake "
                     "(ANIMATED %d)\nTry '%s --help'.\n",
                     Program, ShadowSettings.FrameCount, Program);
        return ExitUsage;
    }
    if (!SetBakeOutputName(Options.out.c_str()))
        return Fail("--out " + Options.out + ": the name is longer than " +
                    std::to_string(_MAX_PATH - 1) + " characters"),
               ExitFailed;
    SetMapBakedCallback(OnMapBaked);
    if (!Options.quiet) StartProgressDisplay(StderrIsTerminal());

    char mapPath[_MAX_PATH] = "";
    if (!batch.empty()) {
        if (OpenBatchFile(batch.c_str()) == 0)
            return Fail(batch + ": no job in the batch"), ExitFailed;
    } else {
        fs::path file;
        if (!ResolveMap(map, file)) return ExitFailed;
        std::string path = file.string();
        if (path.size() >= sizeof mapPath) return Fail(path + ": path too long"), ExitFailed;
        std::snprintf(mapPath, sizeof mapPath, "%s", path.c_str());
    }

    if (batch.empty()) CurrentMap = mapPath;
    BakeRunResult result = BakeMap(mapPath, 0);
    ProgressDisplayEndPass();
    if (!CancelRequested()) WriteSheet(mapPath);
    if (CancelRequested()) {
        std::fprintf(stderr, "%s: interrupted; no partial file was left\n", Program);
        return ExitInterrupted;
    }
    if (!Options.quiet && result.baked > 0)
        std::fprintf(stderr, "%s: %d map%s baked in %.2f s, %.0f rays/s%s\n", Program, result.baked,
                     result.baked == 1 ? "" : "s", TotalSeconds,
                     TotalSeconds > 0 ? TotalRays / TotalSeconds : 0.0,
                     result.failed > 0 ? "; some jobs failed (the lines marked *****)" : "");
    bool failed = result.failed > 0 || result.baked == 0 || PreviewFailures > 0 ||
                  ToolSession::Errors() > 0 || VerifyFailures > 0;
    if (!failed && !Options.viewPng.empty() && !DrawView(fromUser(Options.viewPng))) failed = true;
    return failed ? ExitFailed : 0;
}

}  // namespace

int main(int argc, char** argv) {
    CommandLineOutcome parsed = ParseBakeOptions(argc, argv, Options);
    if (!parsed.run) return PrintOutcome(parsed);
    ToolSessionOptions session;
    session.program = Program;
    session.quiet = Options.quiet;
    session.cancelOnInterrupt = true;
    session.beforeMessage = ProgressDisplayEndPass;
    ToolSession running(session);
    SetMessageBoxPresenter(PrintBox);
    SetMessageLogListener(PrintLogLine);
    return Run();
}
