// The command line of tenebrix-bake.
#pragma once

#include <string>

#include "apps/common/command_line.h"

struct BakeOptions {
    std::string map;                  // a map directory holding test.vbf, or a .vbf/.vaf file
    std::string script;               // a path, or the name of a script in the LIT folder
    std::string out = "texture.dat";  // the shadow map's name, relative to the map's folder
    std::string batch;                // a .BAT list instead of a map
    std::string config;               // resource.cfg; default: the current directory's
    std::string png;                  // a preview of the map's part of the shadow map
    std::string viewPng;              // the viewer's first frame of the baked map
    int textureSize = 0;              // 0: the default, 2048
    int threads = 0;                  // 0: every core
    bool reference = false;           // bake through the literal walk
    bool closedCrossing = false;      // the light test counts both ends of every edge
    int verifyRows = 0;               // sample rows checked against the literal walk after a bake
    bool pngBeside = false;           // a preview beside each shadow map, named NAME.png
    int pngScale = 0;                 // pixels a texel along each side; 0: 512 on the long side
    bool stats = false;
    bool quiet = false;
};

// Reads the arguments into options; without a run, the outcome holds the answer to print or the
// usage error.
CommandLineOutcome ParseBakeOptions(int argc, const char* const* argv, BakeOptions& options);
