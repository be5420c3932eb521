#include "apps/import/import_options.h"

#include <cmath>
#include <cstdlib>

#include "apps/common/argument_reader.h"

const char* ImportUsage() {
    return "Usage: tenebrix-import INPUT... -o MAPDIR [options]\n"
           "\n"
           "Makes a map folder from meshes and height maps: MAPDIR/test.vbf with the map's size,\n"
           "and the textures its faces use as TGA files beside it.\n"
           "INPUT is a mesh file that Assimp reads (OBJ, glTF and GLB, FBX, PLY, Collada, 3DS\n"
           "and more; NAME.gz is inflated first), a greyscale PNG height map of 8 or 16 bits, or\n"
           "a raw grid (.raw, .r16, .r32, .f32) of little-endian 16-bit integers or 32-bit\n"
           "floats. Several inputs share one coordinate system and make one map.\n"
           "\n"
           "The map's world: x from 0 up, z from 0 down, y up, 32 units a cell, at most 256 x\n"
           "256 cells. Meshes are taken as right-handed (as those formats are) and mirrored into\n"
           "the map's left-handed world, so they look as in their editor. A height map's top row\n"
           "lies along z = 0, its columns along x, one unit apart before scaling.\n"
           "\n"
           "Options:\n"
           "  -o, --output MAPDIR   the map folder, made if missing\n"
           "  --up y|z              the sources' up axis (default y)\n"
           "  --scale S             world units for one source unit (default 1)\n"
           "  --fit CELLS           scale so the model's larger side fills CELLS cells (1-256)\n"
           "  --margin CELLS        empty cells on every side of the model (default 0)\n"
           "  --ground              a ground plane under the whole map at the model's lowest "
           "point\n"
           "  --chunk SIZE          side of the chunk meshes in world units (default 256)\n"
           "  --height-scale H      height maps: the height of one sample value, in sample\n"
           "                        spacings (default 1)\n"
           "  --raw-size WxH        raw grids: their size in samples, such as 403x344\n"
           "  --raw-format F        raw grids: int16, uint16 or float32 (default: by the file's\n"
           "                        size, 2 bytes a sample as uint16)\n"
           "  --no-textures         read no textures; faces get none\n"
           "  --quiet               print only errors\n"
           "  --help                this text\n"
           "  --version             the program's version\n"
           "\n"
           "Exit status: 0 when the map was written without an error, 1 when an input or an\n"
           "output failed (a map whose colour map could not be read is written without it, and\n"
           "the status is 1), 2 for a usage error.\n";
}

namespace {

bool ParseReal(const std::string& text, double& value) {
    char* end = nullptr;
    value = std::strtod(text.c_str(), &end);
    return !text.empty() && *end == 0 && std::isfinite(value);
}

bool ParseCount(const std::string& text, long lo, long hi, int32_t& value) {
    if (text.empty() || text.size() > 9) return false;
    for (char c : text)
        if (c < '0' || c > '9') return false;
    long n = std::atol(text.c_str());
    if (n < lo || n > hi) return false;
    value = int32_t(n);
    return true;
}

bool ParseGridSize(const std::string& text, uint32_t& width, uint32_t& height) {
    size_t x = text.find_first_of("xX");
    int32_t w = 0, h = 0;
    if (x == std::string::npos || !ParseCount(text.substr(0, x), 1, 1 << 20, w) ||
        !ParseCount(text.substr(x + 1), 1, 1 << 20, h))
        return false;
    width = uint32_t(w);
    height = uint32_t(h);
    return true;
}

}  // namespace

ImportCommand ParseImportOptions(int argc, const char* const* argv, ImportOptions& options,
                                 std::string& error) {
    auto fail = [&](const std::string& reason) {
        error = reason;
        return ImportCommand::UsageError;
    };
    ImportRequest& request = options.request;
    bool scaled = false;
    ArgumentReader args(argc, argv);
    while (args.Next()) {
        const std::string arg = args.Name();
        const bool hasValue = args.HasInlineValue();
        std::string value;
        auto take = [&]() { return args.TakeValue(value); };
        bool flag = arg == "--help" || arg == "-h" || arg == "--version" || arg == "--ground" ||
                    arg == "--no-textures" || arg == "--quiet" || arg == "-q";
        if (flag && hasValue) return fail(arg + " takes no value");
        double real = 0.0;
        if (arg == "--help" || arg == "-h") return ImportCommand::Help;
        if (arg == "--version") return ImportCommand::Version;
        if (arg == "--ground") {
            request.placement.ground = true;
        } else if (arg == "--no-textures") {
            request.textures = false;
        } else if (arg == "--quiet" || arg == "-q") {
            options.quiet = true;
        } else if (arg == "-o" || arg == "--output") {
            if (!take()) return fail(arg + " needs a map folder");
            request.mapFolder = value;
        } else if (arg == "--up") {
            if (!take() || (value != "y" && value != "z" && value != "Y" && value != "Z"))
                return fail("--up must be y or z");
            request.placement.up = value == "y" || value == "Y" ? UpAxis::Y : UpAxis::Z;
        } else if (arg == "--scale") {
            if (!take() || !ParseReal(value, real) || !(real > 0.0))
                return fail("--scale must be a number above 0");
            request.placement.scale = real;
            scaled = true;
        } else if (arg == "--fit") {
            if (!take() || !ParseCount(value, 1, MapMaxCells, request.placement.fitCells))
                return fail("--fit must be a number of cells from 1 to 256");
        } else if (arg == "--margin") {
            if (!take() || !ParseCount(value, 0, MapMaxCells - 1, request.placement.marginCells))
                return fail("--margin must be a number of cells from 0 to 255");
        } else if (arg == "--chunk") {
            if (!take() || !ParseReal(value, real) || real < 1.0 || real > 8192.0)
                return fail("--chunk must be a size in world units from 1 to 8192");
            request.chunkSize = real;
        } else if (arg == "--height-scale") {
            if (!take() || !ParseReal(value, real) || !(real > 0.0))
                return fail("--height-scale must be a number above 0");
            request.heightMap.heightScale = real;
        } else if (arg == "--raw-size") {
            if (!take() ||
                !ParseGridSize(value, request.heightMap.rawWidth, request.heightMap.rawHeight))
                return fail("--raw-size must be WIDTHxHEIGHT in samples, such as 403x344");
        } else if (arg == "--raw-format") {
            if (!take()) return fail("--raw-format needs int16, uint16 or float32");
            if (value == "int16") {
                request.heightMap.rawFormat = RawSampleFormat::Int16;
            } else if (value == "uint16") {
                request.heightMap.rawFormat = RawSampleFormat::UInt16;
            } else if (value == "float32") {
                request.heightMap.rawFormat = RawSampleFormat::Float32;
            } else {
                return fail("--raw-format must be int16, uint16 or float32");
            }
        } else if (arg.size() > 1 && arg[0] == '-') {
            return fail("unknown option " + arg);
        } else {
            request.inputs.push_back(arg);
        }
    }
    if (request.inputs.empty()) return fail("no input given");
    if (request.mapFolder.empty()) return fail("no map folder given: -o MAPDIR");
    if (scaled && request.placement.fitCells) return fail("--scale or --fit, not both");
    if (request.placement.fitCells + 2 * request.placement.marginCells > MapMaxCells)
        return fail("--fit and twice --margin come to more than 256 cells");
    return ImportCommand::Run;
}
