// Why the last mesh read on this thread failed, in words for the user who gave the file: the
// engine log keeps the file's name and the tag of the reader, a front end shows this beside the
// name it already prints.
#pragma once

// "" after a read that went well, or before any.
const char* MeshReadFault();

void SetMeshReadFault(const char* format, ...) __attribute__((format(printf, 1, 2)));
void ClearMeshReadFault();
