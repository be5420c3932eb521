// Allocation macros of the base library. The ordinary build uses the plain heap; the tracked
// build (CV_DEBUG_MEMORY) routes them through the memory tracker with the caller's file and line.
#pragma once

#include <cstddef>
#include <cstdlib>

#define NEW new
#define DELETE(p) delete (p)
#define DELETEARRAY(p) delete[] (p)
#define MALLOC(size) std::malloc(size)
#define FREE(p) std::free(p)

// Allocates size bytes, copies the smaller of the old and new size from old (which may be null),
// frees old. oldSize is what the caller knows of the old block.
void* CvReallocCopy(void* old, size_t oldSize, size_t size);

// Start and end of the tracker; with the plain heap there is nothing to track or report.
void MemoryInit();
void MemoryClose();
