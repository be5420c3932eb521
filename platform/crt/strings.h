// The C runtime's case-insensitive comparison, as the Windows runtime names it.
#pragma once

int _stricmp(const char* a, const char* b);  // ASCII case folding; <0, 0, >0 as strcmp
