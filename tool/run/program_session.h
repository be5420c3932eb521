// The start and stop that every program of the project shares: the desktop application and the
// command line tools alike.
#pragma once

#include <cstdint>

// Where a program sends the base library's reports; a null entry keeps the library's own handler
// (an error then shows its box).
struct ProgramReporters {
    void (*warning)(const char* text) = nullptr;
    void (*alert)(const char* text) = nullptr;
    void (*error)(uint32_t code, const char* text) = nullptr;
};

// Starts the base library and hands its reports to the reporters.
void StartProgram(const ProgramReporters& reporters);

// Frees what the runs left behind (the resource manager, cached and loaded textures, the job list,
// the message log), logs textures something still held where asked, and closes the base library,
// which reports files left open and memory not released. The command line tools don't ask: their
// engine log should hold only what the engine met in the user's files.
void StopProgram(bool logHeldTextures = true);
