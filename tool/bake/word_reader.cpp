#include "tool/bake/word_reader.h"

static bool IsWhiteSpace(int c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r';
}

bool ReadWord(FILE* file, char* buffer, size_t size, int* line, size_t* length) {
    int c;
    do {
        c = std::getc(file);
        if (c == '\n' && line) ++*line;
    } while (c != EOF && IsWhiteSpace(c));
    if (c == EOF) return false;
    size_t kept = 0, whole = 0;
    for (; c != EOF && !IsWhiteSpace(c); c = std::getc(file), ++whole)
        if (kept + 1 < size) buffer[kept++] = char(c);
    if (c != EOF) std::ungetc(c, file);
    if (size) buffer[kept] = '\0';
    if (length) *length = whole;
    return true;
}
