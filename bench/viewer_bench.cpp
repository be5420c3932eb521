// The viewer on generated maps, off screen through whatever GL the machine has (Mesa's llvmpipe
// where there is no GPU): building its display copy of a baked map, and drawing its frames at
// 640x480 from the default camera and from one that sees the whole map.
#include <benchmark/benchmark.h>

#include <cstring>
#include <string>

#include "base/memory.h"
#include "bench/bench_maps.h"
#include "bench/bench_registry.h"
#include "engine/mesh/mesh.h"
#include "engine/render/mesh_renderer.h"
#include "engine/render/renderer.h"
#include "engine/scene/scene.h"
#include "engine/texture/texture.h"
#include "platform/crt/clock.h"
#include "platform/dx7/call_recorder.h"
#include "platform/dx7/gl_context.h"
#include "tool/run/app_state.h"
#include "tool/view/viewer_scene.h"

namespace {

// The device, scene and shadow texture of one benchmark, and the display copy of map.
class ViewerSession {
public:
    explicit ViewerSession(CMesh* map) {
        DxSetRendering(DxRendering::GlWhenAvailable);
        SetSleepInstant(true);
        if (!DxCurrentGlContext()) return;
        OpenMeshRenderer();
        Device = OpenDevice(reinterpret_cast<void*>(uintptr_t(1)), OpenWindowed | Open3D,
                            ViewerWidth, ViewerHeight, 32);
        if (!Device) return;
        Scene = NEW CScene;
        SceneRoot = Scene->layerRoot[0];
        SetUpViewer();
        ShadowTexture = CreateTexture(1024, 1024, 0x8888);
        std::memset(ShadowTexture->pixels, 0xC0, size_t(1024) * 1024 * 4);
        Device->LoadDeviceTexture(ShadowTexture);
        if (map) BuildViewerMesh(map);
        ready = true;
    }
    ~ViewerSession() {
        FreeViewerScene();
        if (Device) CloseDevice(Device);
        Device = nullptr;
        if (ShadowTexture) FreeTexture(ShadowTexture);
        ShadowTexture = nullptr;
        CloseVelmora();
    }
    ViewerSession(const ViewerSession&) = delete;
    ViewerSession& operator=(const ViewerSession&) = delete;

    bool ready = false;
};

void BuildDisplayCopy(benchmark::State& state, BenchMapId id) {
    CMesh* map = GetBenchMap(id).mesh;
    if (!map) {
        state.SkipWithError(GetBenchMap(id).missing.c_str());
        return;
    }
    ViewerSession session(nullptr);
    if (!session.ready) {
        state.SkipWithError(("no display device: " + DxGlFailure()).c_str());
        return;
    }
    for (auto _ : state) {
        BuildViewerMesh(map);
        state.PauseTiming();
        DELETE(ViewerMesh);
        ViewerMesh = nullptr;
        state.ResumeTiming();
    }
    state.counters["triangles"] = double(GetBenchMap(id).triangles);
}

// whole: the camera sees the whole map; otherwise the viewer's first view, of the corner.
void DrawFrames(benchmark::State& state, BenchMapId id, bool whole) {
    const BenchMap& map = GetBenchMap(id);
    if (!map.mesh) {
        state.SkipWithError(map.missing.c_str());
        return;
    }
    ViewerSession session(map.mesh);
    if (!session.ready) {
        state.SkipWithError(("no display device: " + DxGlFailure()).c_str());
        return;
    }
    const float side = float(map.cells) * 32.0f;
    if (whole) {
        Focus = {side / 2, 0, -side / 2};
        Distance = side * 1.2;
    }
    ViewerActive = 1;
    double drawn = 0;
    {
        DxCallRecorder calls;  // one frame, to report what reaches the device
        ViewerFrame();
        for (const std::string& call : calls.Only("DrawIndexedPrimitiveVB")) {
            // "DrawIndexedPrimitiveVB(type, buffer, start, vertices, indices, flags)"
            size_t comma = call.rfind(", ");
            size_t before = call.rfind(", ", comma - 1);
            drawn += std::stod(call.substr(before + 2, comma - before - 2)) / 3;
        }
    }
    for (auto _ : state) ViewerFrame();
    ViewerActive = 0;
    state.counters["frames/s"] = benchmark::Counter(double(state.iterations()),
                                                    benchmark::Counter::kIsRate);
    state.counters["triangles"] = double(map.triangles);
    state.counters["drawn"] = drawn;
}

}  // namespace

void RegisterViewerBenchmarks() {
    for (BenchMapId id : {Chunked128, Chunked256, PugetSound}) {
        benchmark::RegisterBenchmark((std::string("ViewerBuild/") + BenchMapName(id)).c_str(),
                                     BuildDisplayCopy, id)
            ->Iterations(3)
            ->UseRealTime()
            ->Unit(benchmark::kMillisecond);
        for (bool whole : {false, true})
            benchmark::RegisterBenchmark((std::string("ViewerFrame/") + BenchMapName(id) +
                                          (whole ? "/whole" : "/first"))
                                             .c_str(),
                                         DrawFrames, id, whole)
                ->MinTime(2.0)
                ->UseRealTime()
                ->Unit(benchmark::kMillisecond);
    }
}
