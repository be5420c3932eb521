#include "platform/crt/terminal.h"

#include <sys/ioctl.h>
#include <unistd.h>

bool StderrIsTerminal() { return isatty(STDERR_FILENO) == 1; }

int TerminalColumns() {
    winsize size = {};
    if (ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0) return size.ws_col;
    return 80;
}
