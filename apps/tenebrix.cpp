// tenebrix: the setup dialog on the desktop. It starts in the current directory, or in the one
// given, which holds resource.cfg and where LastShadow.txt is kept.
#include <QApplication>

#include <cstdio>

#include "apps/common/command_line.h"
#include "apps/common/display_check.h"
#include "platform/crt/paths.h"
#include "platform/ui/qt/qt_display.h"
#include "platform/ui/qt/qt_ui.h"
#include "tool/app/app_main.h"

namespace {

CommandLineOutcome ParseDialogOptions(int argc, char** argv, std::string& directory) {
    CommandLine line("tenebrix",
                     "Opens the shadow generator's dialog. DIRECTORY holds resource.cfg, whose LIT "
                     "folder lists the scripts; the last map directory is kept there in "
                     "LastShadow.txt. The toolkit's own options, such as -platform, are taken "
                     "too.",
                     "Exit status: 0 when the dialog was closed, 1 when the directory or the "
                     "window system could not be used, 2 for a usage error.");
    line.app.add_option("DIRECTORY", directory, "where to start (default: the current one)")
        ->type_name("");
    return line.Parse(argc, argv);
}

}  // namespace

int main(int argc, char** argv) {
    // Help and version come before the toolkit, which needs a display; a word the toolkit takes
    // is only known to be one after it has started.
    std::string directory;
    CommandLineOutcome early = ParseDialogOptions(argc, argv, directory);
    if (!early.run && early.status == 0) return PrintOutcome(early);
    if (DisplayMissing(argc, argv)) {
        if (!early.run) return PrintOutcome(early);  // no toolkit to take the word either
        std::fprintf(stderr,
                     "tenebrix: no display to open the dialog on (DISPLAY is not set); bake from "
                     "a terminal with tenebrix-bake, or set QT_QPA_PLATFORM=offscreen\n");
        return ExitFailed;
    }
    QApplication application(argc, argv);  // takes the toolkit's own options out of argv
    directory.clear();
    CommandLineOutcome parsed = ParseDialogOptions(argc, argv, directory);
    if (!parsed.run) return PrintOutcome(parsed);
    if (!directory.empty() && _chdir(directory.c_str()) != 0) {
        std::fprintf(stderr, "tenebrix: %s: no such directory\n", directory.c_str());
        return ExitFailed;
    }
    QtUi ui;
    QtDisplay display(ui);  // the device draws with the desktop's GL and shows in the viewer
    return RunApplication(nullptr, SW_SHOWNORMAL);
}
