// Batch lists (.BAT): blank-separated words, three to a job (map, output name, script). Jobs are
// stacked, so the last job of the file is baked first.
#pragma once

#include <cstddef>

struct BatchJob {
    char* Map;     // map mesh, relative to StartDirectory or absolute; owned
    char* SaveAs;  // shadow map file, relative to the map's directory; owned
    char* Script;  // .ssf script, relative to StartDirectory or absolute; owned
    BatchJob* Next;
};

extern BatchJob* JobList;

// Sets BatchMode and reads the file into JobList. A file that can't be opened shows the box
// "FAILED TO OPEN BATCH FILE" and leaves no jobs. Returns the number of jobs read.
int OpenBatchFile(const char* path);

// Takes the head job: logs it, copies its map and output name over the run's buffers (cut to
// their sizes), goes back to StartDirectory and reads its script. Returns true when no job is
// left behind it. JobList must not be empty.
bool TakeNextJob(char* mapPath, size_t mapSize, char* outputName, size_t outputSize);

void FreeJobList();
