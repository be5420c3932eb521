#include "tool/run/batch_file.h"

#include <cstdio>
#include <cstring>
#include <string>

#include "base/diagnostics.h"
#include "base/memory.h"
#include "base/quoted_text.h"
#include "base/services.h"
#include "platform/crt/paths.h"
#include "platform/debug/debug_output.h"
#include "tool/bake/message_log.h"
#include "tool/bake/shadow_script.h"
#include "tool/bake/word_reader.h"
#include "tool/run/app_state.h"

BatchJob* JobList = nullptr;
static std::string ListPath;  // the list the jobs came from, for messages about them

// One more than the run's path buffers hold, so a word that would be cut shows as too long.
enum { BatchWordSize = _MAX_PATH + 1 };

static void FreeJob(BatchJob* job) {
    if (job->Map) FREE(job->Map);
    if (job->SaveAs) FREE(job->SaveAs);
    if (job->Script) FREE(job->Script);
    if (job->Refusal) FREE(job->Refusal);
    DELETE(job);
}

void FreeJobList() {
    while (JobList) {
        BatchJob* next = JobList->Next;
        FreeJob(JobList);
        JobList = next;
    }
}

static bool IsSeparator(char c) {
    return c == '/' || c == '\\';
}

// An output name must name a file in its map's folder or below: a batch list comes from a build
// farm's scripts, and a name that reaches out could overwrite any file the user may write.
static const char* OutputNameFault(const char* name) {
    if (IsSeparator(name[0]) || (name[0] && name[1] == ':')) return "is absolute";
    int depth = 0;
    for (const char* part = name; *part;) {
        size_t length = std::strcspn(part, "/\\");
        if (length == 2 && part[0] == '.' && part[1] == '.') {
            if (--depth < 0) return "climbs out of the map's folder";
        } else if (length > 0 && !(length == 1 && part[0] == '.')) {
            ++depth;
        }
        part += length;
        while (IsSeparator(*part)) ++part;
    }
    return depth > 0 ? nullptr : "names no file in the map's folder";
}

// The first fault of a job's words, as a line naming the list, the job's line and the word.
static char* JobRefusal(const char* list, int line, const char* map, const char* saveAs,
                        const char* script) {
    const std::string where = std::string(list) + " line " + std::to_string(line) + ": the ";
    const char* words[] = {map, saveAs, script};
    const char* kinds[] = {"map", "output name", "script"};
    for (int i = 0; i < 3; ++i) {
        if (std::strlen(words[i]) < _MAX_PATH) continue;
        std::string text = where + kinds[i] + " " + std::string(words[i], 40) +
                           "... is longer than " + std::to_string(_MAX_PATH - 1) + " characters";
        return CopyString(text.c_str());
    }
    if (const char* fault = OutputNameFault(saveAs))
        return CopyString((where + "output name " + saveAs + " " + fault).c_str());
    return nullptr;
}

int OpenBatchFile(const char* path) {
    BatchMode = 1;
    FreeJobList();
    ListPath = path;
    FILE* file = std::fopen(path, "r");
    if (!file) {
        MessageBoxA(nullptr, "FAILED TO OPEN BATCH FILE", "ERROR", MB_OK);
        return 0;
    }
    int jobs = 0, line = 1;
    char map[BatchWordSize], saveAs[BatchWordSize], script[BatchWordSize];
    // A trailing group of fewer than three words is dropped.
    for (;;) {
        if (!ReadWord(file, map, sizeof map, &line)) break;
        const int mapLine = line;
        if (!ReadWord(file, saveAs, sizeof saveAs, &line) ||
            !ReadWord(file, script, sizeof script, &line))
            break;
        char* refusal = JobRefusal(path, mapLine, map, saveAs, script);
        JobList = NEW BatchJob{
            CopyString(map), CopyString(saveAs), CopyString(script), refusal, mapLine, JobList};
        ++jobs;
    }
    std::fclose(file);
    return jobs;
}

// False where text doesn't fit: a cut path could name some other file.
static bool CopyInto(char* buffer, size_t size, const char* text) {
    if (std::strlen(text) >= size) {
        if (size) buffer[0] = '\0';
        return false;
    }
    std::memcpy(buffer, text, std::strlen(text) + 1);
    return true;
}

// The script's read as the list's user needs it told: a batch runs unattended, so a script that
// can't be read, or holds no key, fails the batch, and skipped words get a warning.
static bool ReadJobScript(const BatchJob& job) {
    const std::string where = ListPath + " line " + std::to_string(job.Line) + ": the script " +
                              QuotedText(job.Script, 120);
    ShadowScriptReport report = {0, 0};
    const char* fault = nullptr;
    if (!ParseShadowScript(job.Script, &report))
        fault = "can't be read";
    else if (report.keys == 0)
        fault = "holds no key of a shadow script";
    else if (report.otherWords > 0)
        CorvaneWarning("%s: %d words are no keys and were skipped\n", where.c_str(),
                       report.otherWords);
    if (!fault) return true;
    LogMessage(("***** " + where + " " + fault +
                "; the job bakes with the settings as they stand, and the batch fails *****")
                   .c_str());
    return false;
}

TakenJob TakeNextJob(char* mapPath, size_t mapSize, char* outputName, size_t outputSize) {
    BatchJob* job = JobList;
    ASSERT(job);  // the bake run takes a job only while some are left
    if (!job) return {true, "no job is left"};
    LogMessage("********************************************");
    LogMessage((std::string("MAP: ") + job->Map).c_str());
    LogMessage((std::string("SAVE AS: ") + job->SaveAs).c_str());
    LogMessage((std::string("SCRIPT: ") + job->Script).c_str());
    TakenJob taken = {job->Next == nullptr, job->Refusal ? job->Refusal : ""};
    bool fits =
        CopyInto(mapPath, mapSize, job->Map) && CopyInto(outputName, outputSize, job->SaveAs);
    if (taken.refusal.empty() && !fits) taken.refusal = "the job's names are too long for the run";
    if (taken.refusal.empty()) {
        _chdir(StartDirectory);
        taken.scriptFailed = !ReadJobScript(*job);
    }
    JobList = job->Next;
    FreeJob(job);
    return taken;
}
