#include "base/memory.h"

#include <cstring>

#include "platform/debug/debug_output.h"

#ifdef CV_DEBUG_MEMORY
#include "base/memory_tables.h"
#endif

// Printed on every close, in either build; in the ordinary build it is all that a close prints.
static const char* const CloseNotice[] = {
    "\nCorvane DEBUG_MEMORY checking is OFF\n",
    "No DEBUG memory allocation information can be displayed.\n",
    ("** Add the CV_DEBUG_MEMORY define in 'Project Settings' (the define turns the checking on)"
     " to turn it ON **\n"),
};

void*(CvReallocCopy)(void* old, size_t oldSize, size_t size) {
#ifdef CV_DEBUG_MEMORY
    // Reached only through the function's address; the macro passes its caller's line.
    return CvReallocCopyAt(old, oldSize, size, __FILE__, __LINE__);
#else
    void* block = size ? std::malloc(size) : nullptr;
    if (block && old) std::memcpy(block, old, oldSize < size ? oldSize : size);
    std::free(old);
    return block;
#endif
}

void MemoryInit() {
#ifdef CV_DEBUG_MEMORY
    MemoryResetTables();
#endif
}

void MemoryClose() {
#ifdef CV_DEBUG_MEMORY
    for (const char* line : CloseNotice) MemoryOutput(line);
    MemoryReportLeaksAndEmpty();
#else
    for (const char* line : CloseNotice) OutputDebugStringA(line);
#endif
}
