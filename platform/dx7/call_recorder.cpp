// The call record. Each line is "Name(arguments)", Name the published method or function name:
//
//   - the object a call is made on comes first for surfaces, clippers and vertex buffers
//     ("Lock(#7, 1)", "Flip(#3)"); calls on the DirectDraw, Direct3D and device objects
//     leave it out, as an engine has one of each ("SetRenderState(27, 1)");
//   - objects are "#N", N their creation number (one counter over all objects), or "null";
//   - states, indices, counts and flags are decimal; colours and surface caps are hexadecimal
//     with "0x" ("Clear(0, 1, 0xFF000000, 1, 0)", "CreateSurface(caps 0x2040, 640x480)");
//   - floats are printed with %g; an index array shows as its count
//     ("DrawIndexedPrimitiveVB(4, #7, 0, 300, 900, 0)");
//   - records show the fields that matter: a viewport as x, y, width, height, minZ, maxZ, a
//     matrix as its 16 values row by row, a material as its diffuse, ambient, specular and
//     emissive colours and power.
//
// Failed calls are recorded as well: the line says what was asked, not what came of it.
#include "platform/dx7/call_recorder.h"

#include <cstdio>
#include <unordered_map>

#include "platform/dx7/dx_objects.h"

namespace {

DxCallRecorder* Innermost = nullptr;
DxRendering Rendering = DxRendering::GlWhenAvailable;

struct ObjectTable {
    std::unordered_map<const void*, uint32_t> numbers;
    uint32_t counter = 0;
};

ObjectTable& Objects() {
    static ObjectTable table;
    return table;
}

std::string NameOf(const std::string& line) {
    size_t open = line.find('(');
    return open == std::string::npos ? line : line.substr(0, open);
}

}  // namespace

DxCallRecorder::DxCallRecorder() : previous(Innermost) {
    Innermost = this;
}

DxCallRecorder::~DxCallRecorder() {
    // Recorders nest; one that ends out of turn takes itself out of the chain.
    for (DxCallRecorder** at = &Innermost; *at; at = &(*at)->previous) {
        if (*at == this) {
            *at = previous;
            break;
        }
    }
}

std::vector<std::string> DxCallRecorder::Only(const char* names) const {
    std::vector<std::string> wanted;
    std::string list = names ? names : "";
    size_t start = 0;
    while (start <= list.size()) {
        size_t comma = list.find(',', start);
        if (comma == std::string::npos) comma = list.size();
        std::string name = list.substr(start, comma - start);
        while (!name.empty() && name.front() == ' ') name.erase(name.begin());
        while (!name.empty() && name.back() == ' ') name.pop_back();
        if (!name.empty()) wanted.push_back(name);
        start = comma + 1;
    }
    std::vector<std::string> out;
    for (const std::string& line : calls) {
        std::string name = NameOf(line);
        for (const std::string& w : wanted) {
            if (name == w) {
                out.push_back(line);
                break;
            }
        }
    }
    return out;
}

void DxCallRecorder::Note(std::string line) {
    if (Innermost) Innermost->calls.push_back(std::move(line));
}

void DxSetRendering(DxRendering mode) {
    Rendering = mode;
}

DxRendering DxGetRendering() {
    return Rendering;
}

uint32_t DxObjectNumber(const void* object) {
    if (!object) return 0;
    auto found = Objects().numbers.find(object);
    return found == Objects().numbers.end() ? 0 : found->second;
}

bool DxRecording() {
    return Innermost != nullptr;
}

void DxNote(const char* format, ...) {
    if (!Innermost) return;
    va_list args;
    va_start(args, format);
    va_list copy;
    va_copy(copy, args);
    int length = vsnprintf(nullptr, 0, format, copy);
    va_end(copy);
    std::string line(length > 0 ? size_t(length) : 0, '\0');
    if (length > 0) vsnprintf(line.data(), line.size() + 1, format, args);
    va_end(args);
    DxCallRecorder::Note(std::move(line));
}

std::string DxRef(const void* object) {
    uint32_t number = DxObjectNumber(object);
    return number ? "#" + std::to_string(number) : std::string("null");
}

uint32_t DxRegisterObject(const void* object) {
    ObjectTable& table = Objects();
    uint32_t number = ++table.counter;
    table.numbers[object] = number;
    return number;
}

void DxForgetObject(const void* object) {
    Objects().numbers.erase(object);
}
