#include "apps/bake/progress_display.h"

#include <chrono>
#include <cstdio>

#include "platform/crt/terminal.h"
#include "tool/bake/progress.h"
#include "tool/bake/shadow_settings.h"

namespace {

using Clock = std::chrono::steady_clock;

bool OnTerminal = false;
bool BarShown = false;
uint64_t PassSamples = 0;
int LastTenth = -1;
Clock::time_point PassStart;

// The samples of the pass under way, from the settings it runs with.
uint64_t SamplesOfPass() {
    const ShadowSettingsRecord& s = ShadowSettings;
    auto side = [&](int32_t cells) {
        int32_t clamped = cells < 0 ? 0 : (cells > 256 ? 256 : cells);
        return uint64_t(clamped) * uint64_t(s.Oversample) * uint64_t(s.TextureSize) / 256;
    };
    return side(s.MapCellsX) * side(s.MapCellsY);
}

void ShowProgress(int percent) {
    if (percent == 0) {
        PassStart = Clock::now();
        PassSamples = SamplesOfPass();
        LastTenth = -1;
    }
    double seconds = std::chrono::duration<double>(Clock::now() - PassStart).count();
    double done = percent / 100.0;
    double rate = seconds > 0.0 ? done * double(PassSamples) / seconds : 0.0;
    if (!OnTerminal) {
        if (percent / 10 == LastTenth) return;
        LastTenth = percent / 10;
        std::fprintf(stderr, "tenebrix-bake: %3d%%  %.2f M samples/s\n", percent, rate / 1e6);
        return;
    }
    int width = TerminalColumns() - 48;
    if (width > 40) width = 40;
    if (width < 10) width = 10;
    char bar[48];
    int filled = percent * width / 100;
    for (int i = 0; i < width; ++i) bar[i] = i < filled ? '#' : '.';
    bar[width] = '\0';
    double left = done > 0.0 ? seconds * (1.0 - done) / done : 0.0;
    std::fprintf(stderr, "\r[%s] %3d%%  %6.2f M samples/s  %5.0f s left ", bar, percent, rate / 1e6,
                 left);
    std::fflush(stderr);
    BarShown = true;
}

}  // namespace

void StartProgressDisplay(bool terminal) {
    OnTerminal = terminal;
    ProgressHooks hooks = {ShowProgress, nullptr, nullptr};
    SetProgressHooks(&hooks);
}

void ProgressDisplayEndPass() {
    if (!BarShown) return;
    std::fprintf(stderr, "\r%*s\r", TerminalColumns() - 1, "");
    BarShown = false;
}
