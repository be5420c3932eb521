#include "engine/mesh/mesh_read_fault.h"

#include <cstdarg>
#include <cstdio>

// Per thread: two jobs may load maps at once.
static thread_local char Fault[400];

const char* MeshReadFault() {
    return Fault;
}

void SetMeshReadFault(const char* format, ...) {
    va_list args;
    va_start(args, format);
    if (std::vsnprintf(Fault, sizeof Fault, format, args) < 0) Fault[0] = '\0';
    va_end(args);
}

void ClearMeshReadFault() {
    Fault[0] = '\0';
}
