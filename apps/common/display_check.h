// The toolkit aborts where it finds no window system: the programs that open windows say so in
// words before it starts.
#pragma once

// True when nothing names a display: no DISPLAY, WAYLAND_DISPLAY or QT_QPA_PLATFORM, and no
// -platform among the arguments. A platform named by the user is left to the toolkit.
bool DisplayMissing(int argc, const char* const* argv);
