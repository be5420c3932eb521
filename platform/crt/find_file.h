// Whether a file stands in a folder, asked the way data from Windows expects: paths with either
// separator, and file names in any case.
#pragma once

#include <cstddef>

// Looks for name, which may hold subfolders, under folder. Both may use "/" or "\"; a trailing
// separator on the folder is dropped, and an empty or null folder means the current directory.
// Each part of the name that is not there as written is matched without regard to ASCII case
// among its folder's entries (the smallest such name in byte order, so the answer is stable).
// On a hit, out receives the path as it stands on disk, with "/" separators, and the result is
// true. A directory is not a file. A path that does not fit in outSize bytes with its terminator
// is not found; out is written only on a hit.
bool FileExistsAnyCase(const char* folder, const char* name, char* out, size_t outSize);
