#include "apps/common/display_check.h"

#include <cstdlib>
#include <cstring>
#include <initializer_list>

bool DisplayMissing(int argc, const char* const* argv) {
    for (const char* name : {"DISPLAY", "WAYLAND_DISPLAY", "QT_QPA_PLATFORM"})
        if (const char* value = std::getenv(name); value && *value) return false;
    for (int i = 1; i < argc; ++i)
        if (std::strcmp(argv[i], "-platform") == 0 || std::strcmp(argv[i], "--platform") == 0)
            return false;
    return true;
}
