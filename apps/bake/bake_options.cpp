#include "apps/bake/bake_options.h"

namespace {

const char* Summary =
    "Bakes the sun shadows of a map into a shadow map file beside it. "
    "MAP is a map directory holding test.vbf, or a .vbf or .vaf file. The map's type is read "
    "from the letter behind the first dot of its path. A batch bakes its jobs last first.";

const char* Footer =
    "Exit status: 0 when every map was baked, 1 when a map or script failed, 2 for a usage "
    "error, 130 when interrupted (no partial file is left in place).";

std::string CheckCombination(const BakeOptions& options) {
    if (options.map.empty() && options.batch.empty()) return "no map given";
    if (!options.map.empty() && !options.batch.empty()) return "a map or --batch, not both";
    if (!options.batch.empty() && options.out != "texture.dat")
        return "--out takes one map; a batch names each job's output";
    if (options.pngScale > 0 && options.png.empty() && !options.pngBeside)
        return "--png-scale sizes a preview; give --png or --png-beside";
    if (!options.batch.empty() && !options.png.empty())
        return "--png takes one map; use --png-beside with --batch";
    if (!options.batch.empty() && !options.viewPng.empty())
        return "--view-png draws one map; it takes no --batch";
    if (options.verifyRows > 0 && (options.reference || options.closedCrossing))
        return "--verify checks the fast core; it takes neither --reference nor --crossing "
               "closed";
    return "";
}

}  // namespace

CommandLineOutcome ParseBakeOptions(int argc, const char* const* argv, BakeOptions& options) {
    CommandLine line("tenebrix-bake", Summary, Footer);
    CLI::App& app = line.app;
    app.add_option("MAP", options.map, "the map to bake")->type_name("");
    line.Path("--script", options.script, "FILE",
              "shadow script: a path, or the name of a script in the LIT folder of "
              "resource.cfg (\".ssf\" may be left out)");
    line.Path("--out", options.out, "NAME", "shadow map file name, relative to the map's folder")
        ->capture_default_str();
    line.Path("--batch", options.batch, "FILE",
              "bake every job of a .BAT list (map, output name, script)");
    line.Path("--config", options.config, "FILE",
              "resource.cfg to use; the run then starts in its folder, so its folders are "
              "relative to it (default: ./resource.cfg)");
    line.Whole("--texture-size", options.textureSize, 64, 8192,
               "side of the shadow map in texels, a power of two; default 2048")
        ->check(CLI::Validator(
            [](std::string& text) -> std::string {
                int n = std::atoi(text.c_str());
                return n & (n - 1) ? text + " is no power of two" : "";
            },
            ""));
    line.Whole("--threads", options.threads, 1, 1024,
               "worker threads; the result is the same for any number; default: every core");
    app.add_flag("--reference", options.reference,
                 "bake through the literal walk of the ray table instead of the fast core; the "
                 "same bytes, far slower");
    std::string crossing = "half-open";
    line.Word("--crossing", crossing, {"half-open", "closed"},
              "the ray tests' edge rule; closed counts both ends of every edge of the light "
              "test and decides the ground test in each face's own plane alone, as the tests "
              "were first written, and bakes through the literal walk")
        ->capture_default_str();
    line.Whole("--verify", options.verifyRows, 1, 100000,
               "after each bake, bake this many sample rows spread over the map again through "
               "the literal walk and compare every sample; a difference fails the run");
    line.Path("--png", options.png, "FILE",
              "greyscale preview of the map's part of the shadow map, light white; for an "
              "animated bake, a contact sheet of every frame's, each under its frame number");
    line.Path("--view-png", options.viewPng, "FILE",
              "after the bake, draw the map with its new shadow map as the viewer first shows it "
              "into a PNG; not for a batch or an animated bake");
    app.add_flag("--png-beside", options.pngBeside,
                 "a preview beside each shadow map, named NAME.png");
    line.Whole("--png-scale", options.pngScale, 1, 64,
               "draw each texel of a preview as N by N pixels; default: the least N that makes "
               "the long side 512 pixels or more");
    app.add_flag("--stats", options.stats, "samples, rays, rays per second and time per phase");
    app.add_flag("-q,--quiet", options.quiet, "print only failures");
    return line.Parse(argc, argv, [&] {
        options.closedCrossing = crossing == "closed";
        return CheckCombination(options);
    });
}
