// tenebrix: the setup dialog on the desktop. It starts in the current directory, or in the one
// given, which holds resource.cfg and where LastShadow.txt is kept.
#include <QApplication>

#include <cstdio>
#include <cstring>

#include "platform/crt/paths.h"
#include "platform/ui/qt/qt_ui.h"
#include "tool/app/app_main.h"

static const char Usage[] =
    "Usage: tenebrix [DIRECTORY]\n"
    "Opens the shadow generator's dialog. DIRECTORY (default: the current one) holds\n"
    "resource.cfg, whose LIT folder lists the scripts; the last map directory is kept\n"
    "there in LastShadow.txt.\n";

int main(int argc, char** argv) {
    QApplication application(argc, argv);  // takes the toolkit's own options out of argv
    if (argc > 2 ||
        (argc == 2 && (!std::strcmp(argv[1], "--help") || !std::strcmp(argv[1], "-h")))) {
        std::fputs(Usage, argc > 2 ? stderr : stdout);
        return argc > 2 ? 2 : 0;
    }
    if (argc == 2 && _chdir(argv[1]) != 0) {
        std::fprintf(stderr, "tenebrix: %s: no such directory\n", argv[1]);
        return 1;
    }
    QtUi ui;
    return RunApplication(nullptr, SW_SHOWNORMAL);
}
