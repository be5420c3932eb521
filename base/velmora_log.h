// The engine's log of what it meets in data files: "velmora.log" in the current directory,
// emptied at the first message of a run, opened and closed for every message.
#pragma once

void VelmoraLog(const char* tag, const char* format, ...) __attribute__((format(printf, 2, 3)));

// Makes the next VelmoraLog behave as the first of a run: it empties the file. A process starts
// so; tests call this to stage a new run in the same process.
void VelmoraLogBeginRun();

// Shows the message in a box captioned with the tag and aborts.
[[noreturn]] void VelmoraFatal(const char* tag, const char* format, ...)
    __attribute__((format(printf, 2, 3)));

// A fatal report about a data file: as VelmoraFatal, except that while a FatalReportTrap is open
// (a job of a run) it shows no box, ends only that job, and returns for the caller to fail.
void VelmoraDataFatal(const char* tag, const char* format, ...)
    __attribute__((format(printf, 2, 3)));
