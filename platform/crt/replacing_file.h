// Output files replace what stood under their name only once they are whole: the bytes go to a
// temporary file of its own beside the target and are renamed into place, so a failed or
// interrupted write never leaves a torn file where a good one stood, two writers of one file never
// mix their bytes, and nothing is ever written through a symbolic link planted at either name.
#pragma once

#include <cstddef>
#include <cstdio>
#include <string>

class ReplacingFile {
public:
    explicit ReplacingFile(const char* path);
    ~ReplacingFile();  // removes the temporary file unless committed
    ReplacingFile(const ReplacingFile&) = delete;
    ReplacingFile& operator=(const ReplacingFile&) = delete;

    FILE* Stream() const { return stream; }  // null if the temporary file could not be made
    // Closes the stream and, if everything written went well, renames it into place.
    bool Commit(bool writtenWell);

private:
    std::string target;
    std::string temporary;  // empty where the target is a device written in place
    FILE* stream;
    int pendingSlot = -1;
};

// Removes every temporary still being written. Safe in a signal handler, for a process that ends
// at once (a second interrupt) and would otherwise leave them behind.
void RemovePartialFilesNow();

// The whole block under path; false if anything failed.
bool WriteFileAtomically(const char* path, const void* data, size_t bytes);

// fopen, except that a symbolic link at path is never opened: null (errno ELOOP) instead. For
// files that grow in place, where a replacing file does not fit.
FILE* OpenFileNoFollow(const char* path, const char* mode);
