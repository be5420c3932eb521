#include "apps/import/import_options.h"

#include <cstdlib>

namespace {

const char* Summary =
    "Makes a map folder from meshes and height maps: MAPDIR/test.vbf with the map's size, and "
    "the textures its faces use as TGA files beside it. "
    "INPUT is a mesh file that Assimp reads (OBJ, glTF and GLB, FBX, PLY, Collada, 3DS and "
    "more; NAME.gz is inflated first), a CityJSON city model (.json, .city.json; Z up, set on a "
    "ground plane), a game level (.bsp: version 29, BSP2 or IBSP 46; Z up; sky, trigger, tool "
    "and roof faces left out), a greyscale PNG or PGM height map of 8 or 16 bits, or a raw "
    "grid (.raw, .r16, .r32, .f32) of little-endian 16-bit integers or 32-bit floats. Several "
    "inputs share one coordinate system and make one map.\n\n"
    "The map's world: x from 0 up, z from 0 down, y up, 32 units a cell, at most 256 x 256 "
    "cells. Meshes are taken as right-handed (as those formats are) and mirrored into the "
    "map's left-handed world, so they look as in their editor. A height map's top row lies "
    "along z = 0, its columns along x, one unit apart before scaling. Given what a sample "
    "spacing and a height step are in metres (--pixel-size, --height-unit), a height map keeps "
    "its true proportions through --fit and --scale.\n\n"
    "A mesh file with an animation (node motion or morph targets) gives a map that moves: the "
    "first animation, or the one --animation names, is sampled --fps times a second from its "
    "start to its end, the end left out as it is where the loop starts again, and each mesh it "
    "moves keeps one shape per frame, placed in the map as the static meshes are. Such a mesh "
    "stays whole rather than being cut into chunks. --fit and the map's size take in every "
    "frame. Skins are not followed. The summary names the frame count for the shadow script's "
    "ANIMATED key.";

const char* Footer =
    "Exit status: 0 when the map was written without an error, 1 when an input or an output "
    "failed (a map whose colour map could not be read is written without it, and the status "
    "is 1), 2 for a usage error.";

// "160" or "74.5x92.6": metres between samples along a row, and down a column when it differs.
bool ParsePixelSize(const std::string& text, double& width, double& depth) {
    auto metres = [](const std::string& number, double& value) {
        char* end = nullptr;
        value = std::strtod(number.c_str(), &end);
        return !number.empty() && end == number.c_str() + number.size() && value > 0.0 &&
               value <= 1e9;
    };
    size_t x = text.find_first_of("xX");
    if (x == std::string::npos) return metres(text, width) && metres(text, depth);
    return metres(text.substr(0, x), width) && metres(text.substr(x + 1), depth);
}

// "403x344": a raw grid's size in samples.
bool ParseGridSize(const std::string& text, uint32_t& width, uint32_t& height) {
    auto side = [](const std::string& digits, uint32_t& value) {
        if (digits.empty() || digits.find_first_not_of("0123456789") != std::string::npos)
            return false;
        long n = std::strtol(digits.c_str(), nullptr, 10);  // saturates: far out stays out
        value = uint32_t(n);
        return n >= 1 && n <= (1 << 20);
    };
    size_t x = text.find_first_of("xX");
    return x != std::string::npos && side(text.substr(0, x), width) &&
           side(text.substr(x + 1), height);
}

// A check of an option given as two values, such as 403x344, with the message for a bad one.
template <typename T>
CLI::Validator PairOf(bool (*parse)(const std::string&, T&, T&), const std::string& message) {
    return CLI::Validator(
        [parse, message](std::string& text) -> std::string {
            T first, second;
            return parse(text, first, second) ? "" : message;
        },
        "");
}

}  // namespace

CommandLineOutcome ParseImportOptions(int argc, const char* const* argv, ImportOptions& options) {
    CommandLine line("tenebrix-import", Summary, Footer);
    CLI::App& app = line.app;
    ImportRequest& request = options.request;
    app.add_option("INPUT", request.inputs, "the sources of the map")->type_name("");
    line.Path("-o,--output", request.mapFolder, "MAPDIR", "the map folder, made if missing");
    std::string up = "y";
    line.Word("--up", up, {"y", "z"}, "the sources' up axis")->capture_default_str();
    line.Real("--scale", request.placement.scale, 0.0, false, 1e30,
              "world units for one source unit (default 1)");
    line.Whole("--fit", request.placement.fitCells, 1, MapMaxCells,
               "scale so the model's larger side fills this many cells");
    line.Whole("--margin", request.placement.marginCells, 0, MapMaxCells - 1,
               "empty cells on every side of the model")
        ->capture_default_str();
    app.add_flag("--ground", request.placement.ground,
                 "a ground plane under the whole map at the model's lowest point");
    line.Real("--chunk", request.chunkSize, 1.0, true, 8192.0,
              "side of the chunk meshes in world units")
        ->capture_default_str();
    line.Real("--height-scale", request.heightMap.heightScale, 0.0, false, 1e30,
              "height maps: the height of one sample value, in sample spacings")
        ->capture_default_str();
    std::string pixelSize;
    app.add_option("--pixel-size", pixelSize,
                   "height maps: metres between samples, or along a row x down a column "
                   "(74.5x92.6); gives true proportions with --height-unit")
        ->type_name("METRES")
        ->check(PairOf<double>(ParsePixelSize,
                               "give metres above 0, or WIDTHxDEPTH in metres, such as 74.5x92.6"));
    line.Real("--height-unit", request.heightMap.heightUnit, 0.0, false, 1e9,
              "height maps with --pixel-size: metres in one unit of sample value")
        ->type_name("METRES")
        ->capture_default_str();
    line.Real("--exaggerate", request.heightMap.exaggerate, 0.0, false, 1e6,
              "height maps: multiply the heights by this")
        ->type_name("K")
        ->capture_default_str();
    std::string rawSize;
    app.add_option("--raw-size", rawSize, "raw grids: their size in samples, such as 403x344")
        ->type_name("WxH")
        ->check(PairOf<uint32_t>(
            ParseGridSize, "give WIDTHxHEIGHT in samples from 1 to 1048576, such as 403x344"));
    std::string rawFormat;
    line.Word("--raw-format", rawFormat, {"int16", "uint16", "float32"},
              "raw grids: the sample type (default: by the file's size, 2 bytes a sample as "
              "uint16)");
    line.Real("--fps", request.animation.fps, 1.0, true, MaxAnimationFps,
              "animated meshes: frames sampled per second of the animation")
        ->capture_default_str();
    int frames = 0;
    line.Whole("--frames", frames, 1, int(MaxAnimationFrames),
               "animated meshes: sample at most this many frames");
    app.add_option("--animation", request.animation.pick,
                   "the animation to sample, by name or by number from 0 (default: the first)")
        ->type_name("NAME|INDEX");
    bool noTextures = false;
    app.add_flag("--no-textures", noTextures, "read no textures; faces get none");
    app.add_flag("-q,--quiet", options.quiet, "print only errors");
    return line.Parse(argc, argv, [&]() -> std::string {
        request.textures = !noTextures;
        request.animation.maxFrames = uint32_t(frames);
        request.animation.given =
            app.count("--fps") || app.count("--frames") || app.count("--animation");
        request.placement.up = up == "z" ? UpAxis::Z : UpAxis::Y;
        if (!rawSize.empty())
            ParseGridSize(rawSize, request.heightMap.rawWidth, request.heightMap.rawHeight);
        if (rawFormat == "int16") request.heightMap.rawFormat = RawSampleFormat::Int16;
        if (rawFormat == "uint16") request.heightMap.rawFormat = RawSampleFormat::UInt16;
        if (rawFormat == "float32") request.heightMap.rawFormat = RawSampleFormat::Float32;
        if (app.count("--scale") && app.count("--fit")) return "--scale or --fit, not both";
        if (!pixelSize.empty()) {
            ParsePixelSize(pixelSize, request.heightMap.pixelWidth, request.heightMap.pixelDepth);
            if (app.count("--height-scale")) return "--height-scale or --pixel-size, not both";
        } else if (app.count("--height-unit")) {
            return "--height-unit needs --pixel-size: the height step is measured against it";
        }
        if (request.inputs.empty()) return "no input given";
        if (request.mapFolder.empty()) return "no map folder given: -o MAPDIR";
        if (request.placement.fitCells + 2 * request.placement.marginCells > MapMaxCells)
            return "--fit and twice --margin come to more than 256 cells";
        return "";
    });
}
