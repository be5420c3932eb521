// Batch lists (.BAT): blank-separated words, three to a job (map, output name, script). Jobs are
// stacked, so the last job of the file is baked first.
#pragma once

#include <cstddef>
#include <string>

struct BatchJob {
    char* Map;      // map mesh, relative to StartDirectory or absolute; owned
    char* SaveAs;   // shadow map file, relative to the map's directory; owned
    char* Script;   // .ssf script, relative to StartDirectory or absolute; owned
    char* Refusal;  // why the job can't run, naming the list and its line; null if it can; owned
    int Line;       // where the job's map stands in the list
    BatchJob* Next;
};

extern BatchJob* JobList;

// Sets BatchMode and reads the file into JobList. A file that can't be opened shows the box
// "FAILED TO OPEN BATCH FILE" and leaves no jobs. Returns the number of jobs read. A job whose
// words don't fit the run's path buffers, or whose output name is absolute or climbs out of its
// map's folder, is kept with its refusal, so it fails in its turn and the others still run.
int OpenBatchFile(const char* path);

struct TakenJob {
    bool last;                  // no job is left behind this one
    std::string refusal;        // empty when the job may run
    bool scriptFailed = false;  // its script can't be read or holds no key: the job still bakes,
                                // with the settings as they stand, and fails the run
};

// Takes the head job: logs it, copies its map and output name over the run's buffers, goes back
// to StartDirectory and reads its script, saying in the log what the script lacked. A refused
// job, or one whose words don't fit the buffers, reads no script and comes back with its
// refusal. JobList must not be empty.
TakenJob TakeNextJob(char* mapPath, size_t mapSize, char* outputName, size_t outputSize);

void FreeJobList();
