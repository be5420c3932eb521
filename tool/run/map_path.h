// The spelling of a map's path handed to the bake run, which tells a map's type by the letter
// behind the path's first dot: the path relative to the start directory where that keeps a
// folder's dot out of the way, otherwise the absolute one.
#pragma once

#include <string>

std::string MapPathForRun(const std::string& file);

// Whether the bake run will read the type of file's extension from this spelling.
bool MapTypeReadable(const std::string& spelling, const std::string& file);
