// A fatal report met while one job of a run loads or bakes ends that job, not the program: while a
// trap is open the report is kept as the job's reason and the reporting call returns, so the
// reader takes its failure path and the run goes on with the next job. Without a trap the report
// ends the program as it always did. These layers use no exceptions, so the report returns.
#pragma once

class FatalReportTrap {
public:
    FatalReportTrap();
    ~FatalReportTrap();
    FatalReportTrap(const FatalReportTrap&) = delete;
    FatalReportTrap& operator=(const FatalReportTrap&) = delete;

    bool Sprung() const;
    const char* Reason() const;  // the first report's text, without its tag; "" while not sprung

private:
    friend bool TrapFatalReport(const char* tag, const char* text);
    FatalReportTrap* outer;
    bool sprung = false;
    char reason[400];
};

// Keeps the report (tag and text, both given) in the innermost open trap and returns true; false
// where no trap is open, and the caller then ends the program.
bool TrapFatalReport(const char* tag, const char* text);
