// The words of the application's text files (scripts, batch lists): runs of characters between
// white space, as the standard library's "%s" reads them.
#pragma once

#include <cstddef>
#include <cstdio>

// Skips white space and reads one word into buffer, cut to size - 1 characters; the rest of an
// overlong word is read and dropped, so its tail never turns up as a word of its own. False at
// the end of the file or on a read error, with nothing read. Where line is given, the line
// breaks passed on the way are added to it, so it ends as the word's line. Where length is given,
// it gets the word's whole length, dropped characters and NUL bytes counted: a caller that must not
// take a cut word or one whose text ends early compares it with size and the text's length.
bool ReadWord(FILE* file, char* buffer, size_t size, int* line = nullptr, size_t* length = nullptr);
