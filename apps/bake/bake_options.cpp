#include "apps/bake/bake_options.h"

#include <cstdlib>
#include <cstring>

#include "apps/common/argument_reader.h"

const char* BakeUsage() {
    return "Usage: tenebrix-bake MAP [options]\n"
           "       tenebrix-bake --batch FILE [options]\n"
           "\n"
           "Bakes the sun shadows of a map into a shadow map file beside it.\n"
           "MAP is a map directory holding test.vbf, or a .vbf or .vaf file. The map's type is\n"
           "read from the letter behind the first dot of its path.\n"
           "\n"
           "Options:\n"
           "  --script FILE        shadow script: a path, or the name of a script in the LIT\n"
           "                       folder of resource.cfg (\".ssf\" may be left out)\n"
           "  --out NAME           shadow map file name, relative to the map's folder\n"
           "                       (default texture.dat)\n"
           "  --batch FILE         bake every job of a .BAT list (map, output name, script)\n"
           "  --config FILE        resource.cfg to use; the run then starts in its folder, so\n"
           "                       its folders are relative to it (default: ./resource.cfg)\n"
           "  --texture-size N     side of the shadow map in texels, a power of two from 64\n"
           "                       to 8192 (default 2048)\n"
           "  --threads N          worker threads (default: every core); the result is the\n"
           "                       same for any number\n"
           "  --reference          bake through the literal walk of the ray table instead of\n"
           "                       the fast core; the same bytes, far slower\n"
           "  --crossing RULE      the light test's edge rule: half-open (default) or closed\n"
           "                       (both ends of every edge count, as the light test was\n"
           "                       first written; baked through the literal walk)\n"
           "  --verify N           after each bake, bake N sample rows spread over the map\n"
           "                       again through the literal walk and compare every sample;\n"
           "                       a difference fails the run\n"
           "  --png FILE           greyscale preview of the map's part of the shadow map,\n"
           "                       light white\n"
           "  --png-beside         a preview beside each shadow map, named NAME.png\n"
           "  --stats              samples, rays, rays per second and time per phase\n"
           "  --quiet              print only failures\n"
           "  --help               this text\n"
           "  --version            the program's version\n"
           "\n"
           "Exit status: 0 when every map was baked, 1 when a map or script failed, 2 for a\n"
           "usage error, 130 when interrupted (no partial file is left in place).\n";
}

static bool ParseNumber(const std::string& text, int& value) {
    if (text.empty() || text.size() > 9) return false;
    for (char c : text)
        if (c < '0' || c > '9') return false;
    value = std::atoi(text.c_str());
    return true;
}

BakeCommand ParseBakeOptions(int argc, const char* const* argv, BakeOptions& options,
                             std::string& error) {
    auto fail = [&](const std::string& reason) {
        error = reason;
        return BakeCommand::UsageError;
    };
    ArgumentReader args(argc, argv);
    while (args.Next()) {
        const std::string arg = args.Name();
        const bool hasValue = args.HasInlineValue();
        auto take = [&](std::string& into) { return args.TakeValue(into); };
        std::string number;
        bool flag = arg == "--help" || arg == "-h" || arg == "--version" || arg == "--stats" ||
                    arg == "--quiet" || arg == "-q" || arg == "--png-beside" ||
                    arg == "--reference";
        if (flag && hasValue) return fail(arg + " takes no value");
        if (arg == "--help" || arg == "-h") return BakeCommand::Help;
        if (arg == "--version") return BakeCommand::Version;
        if (arg == "--stats") {
            options.stats = true;
        } else if (arg == "--quiet" || arg == "-q") {
            options.quiet = true;
        } else if (arg == "--png-beside") {
            options.pngBeside = true;
        } else if (arg == "--reference") {
            options.reference = true;
        } else if (arg == "--crossing") {
            std::string rule;
            if (!take(rule) || (rule != "half-open" && rule != "closed"))
                return fail("--crossing must be half-open or closed");
            options.closedCrossing = rule == "closed";
        } else if (arg == "--verify") {
            int n = 0;
            if (!take(number) || !ParseNumber(number, n) || n < 1 || n > 100000)
                return fail("--verify must be a number of rows from 1 to 100000");
            options.verifyRows = n;
        } else if (arg == "--script") {
            if (!take(options.script)) return fail("--script needs a file");
        } else if (arg == "--out") {
            if (!take(options.out)) return fail("--out needs a name");
        } else if (arg == "--batch") {
            if (!take(options.batch)) return fail("--batch needs a file");
        } else if (arg == "--config") {
            if (!take(options.config)) return fail("--config needs a file");
        } else if (arg == "--png") {
            if (!take(options.png)) return fail("--png needs a file");
        } else if (arg == "--texture-size") {
            int n = 0;
            if (!take(number) || !ParseNumber(number, n) || n < 64 || n > 8192 || (n & (n - 1)))
                return fail("--texture-size must be a power of two from 64 to 8192");
            options.textureSize = n;
        } else if (arg == "--threads") {
            int n = 0;
            if (!take(number) || !ParseNumber(number, n) || n < 1 || n > 1024)
                return fail("--threads must be a number from 1 to 1024");
            options.threads = n;
        } else if (arg.size() > 1 && arg[0] == '-') {
            return fail("unknown option " + arg);
        } else if (options.map.empty()) {
            options.map = arg;
        } else {
            return fail("one map at a time (a second map: " + arg + "); use --batch for more");
        }
    }
    if (options.map.empty() && options.batch.empty()) return fail("no map given");
    if (!options.map.empty() && !options.batch.empty()) return fail("a map or --batch, not both");
    if (!options.batch.empty() && options.out != "texture.dat")
        return fail("--out takes one map; a batch names each job's output");
    if (!options.batch.empty() && !options.png.empty())
        return fail("--png takes one map; use --png-beside with --batch");
    if (options.verifyRows > 0 && (options.reference || options.closedCrossing))
        return fail(
            "--verify checks the fast core; it takes neither --reference nor "
            "--crossing closed");
    return BakeCommand::Run;
}
