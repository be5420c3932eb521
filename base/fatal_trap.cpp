#include "base/fatal_trap.h"

#include <cstdio>
#include <cstring>

// Traps are opened and closed by the run's own thread; the bake's workers report nothing fatal.
static FatalReportTrap* Innermost = nullptr;

FatalReportTrap::FatalReportTrap() : outer(Innermost) {
    reason[0] = '\0';
    Innermost = this;
}

FatalReportTrap::~FatalReportTrap() {
    Innermost = outer;
}

bool FatalReportTrap::Sprung() const {
    return sprung;
}

const char* FatalReportTrap::Reason() const {
    return reason;
}

bool TrapFatalReport(const char* tag, const char* text) {
    FatalReportTrap* trap = Innermost;
    if (!trap) return false;
    if (!trap->sprung) {
        // One line: the reason stands inside the run's "MAP REFUSED" line. The tag names code,
        // not anything the user gave, so only the text goes there.
        (void)tag;
        std::snprintf(trap->reason, sizeof trap->reason, "%s", text);
        for (char* c = trap->reason; *c; ++c)
            if (*c == '\n' || *c == '\r') *c = ' ';
        size_t length = std::strlen(trap->reason);
        while (length > 0 && trap->reason[length - 1] == ' ') trap->reason[--length] = '\0';
    }
    trap->sprung = true;
    return true;
}
