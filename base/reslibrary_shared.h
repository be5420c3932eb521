// What all resource libraries of the process share, and small disk helpers of the library.
#pragma once

#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>

// Guards the scratch buffer and the data files' positions.
std::mutex& ResourceLock();
// Grows the shared scratch buffer to at least size bytes (it never shrinks); null if the heap
// gives nothing. Call under ResourceLock.
uint8_t* ResourceScratch(uint32_t size);
// Instance count of libraries; the last one's destructor frees the scratch buffer.
void ResourceLibraryCreated();
void ResourceLibraryDestroyed();

// A path as the disk takes it: "\" turned to "/".
std::string ResourceDiskPath(const char* path);
// Size and modification time (seconds since 1970) of a plain file; false for a directory, a file
// of 4 GB or more, or one whose status can't be had.
bool ResourceFileStatus(const char* path, uint32_t* size, int32_t* time);
// The part of path behind root and one separator (either kind); null if path does not lie there.
const char* ResourceNameBehindRoot(const char* root, const char* path);
