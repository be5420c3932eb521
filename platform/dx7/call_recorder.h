// A record of the calls the display layer receives, for tests that read the engine's call stream
// (state cache, pools, queues). While a recorder lives, every call on a DirectDraw, Direct3D,
// device, surface or vertex buffer object is written as one line, "Name(arg, arg, ...)":
// numbers in decimal, objects as "#N" by their creation number ("null" for none), records by the
// fields that matter (a viewport as x, y, width, height, minZ, maxZ). Recorders nest; the
// innermost one hears the calls.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

enum class DxRendering {
    GlWhenAvailable,  // draw through GL where a context can be made, record either way
    RecordOnly,       // no GL at all: state is kept and calls are recorded, pixels stay untouched
};

class DxCallRecorder {
public:
    DxCallRecorder();
    ~DxCallRecorder();
    DxCallRecorder(const DxCallRecorder&) = delete;
    DxCallRecorder& operator=(const DxCallRecorder&) = delete;

    const std::vector<std::string>& Calls() const { return calls; }
    // The calls whose name is one of names (comma separated, e.g. "SetRenderState,SetTexture").
    std::vector<std::string> Only(const char* names) const;
    void Clear() { calls.clear(); }

    static void Note(std::string line);  // to the innermost recorder, if any

private:
    std::vector<std::string> calls;
    DxCallRecorder* previous;
};

// The creation number that the record shows for a display layer object ("#N"); 0 for null or
// for anything that is not a live object of this layer.
uint32_t DxObjectNumber(const void* object);

// How the device draws. Set before objects are made; a device keeps the mode it was made with.
void DxSetRendering(DxRendering mode);
DxRendering DxGetRendering();
