#include "tool/run/batch_file.h"

#include <cstdio>
#include <cstring>

#include "base/diagnostics.h"
#include "base/memory.h"
#include "base/services.h"
#include "platform/crt/paths.h"
#include "platform/debug/debug_output.h"
#include "tool/bake/message_log.h"
#include "tool/bake/shadow_script.h"
#include "tool/bake/word_reader.h"
#include "tool/run/app_state.h"

BatchJob* JobList = nullptr;

enum { BatchWordSize = 400 };

static void FreeJob(BatchJob* job) {
    if (job->Map) FREE(job->Map);
    if (job->SaveAs) FREE(job->SaveAs);
    if (job->Script) FREE(job->Script);
    DELETE(job);
}

void FreeJobList() {
    while (JobList) {
        BatchJob* next = JobList->Next;
        FreeJob(JobList);
        JobList = next;
    }
}

int OpenBatchFile(const char* path) {
    BatchMode = 1;
    FreeJobList();
    FILE* file = std::fopen(path, "r");
    if (!file) {
        MessageBoxA(nullptr, "FAILED TO OPEN BATCH FILE", "ERROR", MB_OK);
        return 0;
    }
    int jobs = 0;
    char map[BatchWordSize], saveAs[BatchWordSize], script[BatchWordSize];
    // A trailing group of fewer than three words is dropped.
    while (ReadWord(file, map, sizeof map) && ReadWord(file, saveAs, sizeof saveAs) &&
           ReadWord(file, script, sizeof script)) {
        JobList = NEW BatchJob{CopyString(map), CopyString(saveAs), CopyString(script), JobList};
        ++jobs;
    }
    std::fclose(file);
    return jobs;
}

static void CopyInto(char* buffer, size_t size, const char* text) {
    std::snprintf(buffer, size, "%s", text);
}

bool TakeNextJob(char* mapPath, size_t mapSize, char* outputName, size_t outputSize) {
    BatchJob* job = JobList;
    ASSERT(job);  // the bake run takes a job only while some are left
    if (!job) return true;
    char line[BatchWordSize + 16];
    LogMessage("********************************************");
    std::snprintf(line, sizeof line, "MAP: %s", job->Map);
    LogMessage(line);
    std::snprintf(line, sizeof line, "SAVE AS: %s", job->SaveAs);
    LogMessage(line);
    std::snprintf(line, sizeof line, "SCRIPT: %s", job->Script);
    LogMessage(line);
    CopyInto(mapPath, mapSize, job->Map);
    CopyInto(outputName, outputSize, job->SaveAs);
    _chdir(StartDirectory);
    ParseShadowScript(job->Script);
    JobList = job->Next;
    FreeJob(job);
    return JobList == nullptr;
}
