#include "engine/mesh/vaf_scanner.h"

#include <locale.h>

#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

// Numbers read as the "C" locale writes them, whatever locale the program has set: the files
// were written with a decimal point.
locale_t CLocale() {
    static locale_t locale = newlocale(LC_ALL_MASK, "C", locale_t(nullptr));
    return locale;
}

bool Digit(char c) {
    return c >= '0' && c <= '9';
}

}  // namespace

void VAFScanner::SkipSpace() {
    while (!AtEnd() && VAFSpace(data[offset])) ++offset;
}

size_t VAFScanner::Line(size_t at) const {
    at = std::min(at, size);
    return size_t(std::count(data, data + at, '\n')) + 1;
}

bool VAFScanner::Fail(size_t at, const char* format, ...) {
    if (failed) return false;
    failed = true;
    faultAt = at;
    va_list args;
    va_start(args, format);
    if (std::vsnprintf(fault, sizeof fault, format, args) < 0) fault[0] = '\0';
    va_end(args);
    offset = size;  // spent: every later read meets the end
    return false;
}

bool VAFScanner::FailEnd(const char* format, ...) {
    if (failed) return false;
    char text[sizeof fault];
    va_list args;
    va_start(args, format);
    if (std::vsnprintf(text, sizeof text, format, args) < 0) text[0] = '\0';
    va_end(args);
    return Fail(size, "the file ends inside %s", text);
}

bool VAFScanner::Word(std::string_view& word, size_t& at) {
    SkipSpace();
    if (AtEnd()) return false;
    at = offset;
    while (!AtEnd() && !VAFSpace(data[offset])) ++offset;
    const char* start = data + at;
    const void* nul = std::memchr(start, '\0', offset - at);
    word =
        std::string_view(start, nul ? size_t(static_cast<const char*>(nul) - start) : offset - at);
    return true;
}

bool VAFScanner::QuotedName(std::string_view& name) {
    const void* open = AtEnd() ? nullptr : std::memchr(data + offset, '"', size - offset);
    if (!open) return FailEnd("a quoted name");
    size_t start = size_t(static_cast<const char*>(open) - data) + 1;
    const void* close = std::memchr(data + start, '"', size - start);
    if (!close) return Fail(start - 1, "a quoted name that is never closed");
    size_t end = size_t(static_cast<const char*>(close) - data);
    offset = end + 1;
    const void* nul = std::memchr(data + start, '\0', end - start);
    name = std::string_view(
        data + start, nul ? size_t(static_cast<const char*>(nul) - (data + start)) : end - start);
    return true;
}

// Sign and digits; no digit is a matching failure with nothing eaten. Values from -2^31 up to
// 2^32 - 1 are taken, the upper half wrapping as a C library's %d does on a 32-bit int.
bool VAFScanner::ReadInt(int32_t& out) {
    size_t at = offset, p = offset;
    bool negative = false;
    if (data[p] == '+' || data[p] == '-') negative = data[p++] == '-';
    if (p >= size || !Digit(data[p])) return false;
    uint64_t value = 0;
    for (; p < size && Digit(data[p]); ++p)
        if (value <= 0xFFFFFFFFull) value = value * 10 + uint64_t(data[p] - '0');
    offset = p;
    if (negative ? value > 0x80000000ull : value > 0xFFFFFFFFull) {
        int length = int(std::min<size_t>(p - at, 40));
        return Fail(at, "the number %.*s%s does not fit in 32 bits", length, data + at,
                    p - at > 40 ? "..." : "");
    }
    out = int32_t(uint32_t(negative ? 0 - value : value));
    return true;
}

bool VAFScanner::ReadFloat(float& out) {
    const char* start = data + offset;
    char* end = nullptr;
    float value = strtof_l(start, &end, CLocale());
    if (end == start) return false;
    size_t at = offset;
    offset = size_t(end - data);
    if (!std::isfinite(value)) {
        int length = int(std::min<size_t>(offset - at, 40));
        return Fail(at, "the number %.*s%s is out of range", length, start,
                    offset - at > 40 ? "..." : "");
    }
    out = value;
    return true;
}

int VAFScanner::ScanInto(const char* format, void* const* targets) {
    int converted = 0;
    for (const char* f = format; *f; ++f) {
        if (failed) return VAFEnd;
        if (*f == ' ') {
            SkipSpace();
            continue;
        }
        if (*f == '%') {
            SkipSpace();
            if (AtEnd()) return converted ? converted : VAFEnd;
            ++f;
            bool read = *f == 'd' ? ReadInt(*static_cast<int32_t*>(targets[converted]))
                                  : ReadFloat(*static_cast<float*>(targets[converted]));
            if (failed) return VAFEnd;
            if (!read) return converted;
            ++converted;
            continue;
        }
        if (AtEnd()) return converted ? converted : VAFEnd;
        if (data[offset] != *f) return converted;
        ++offset;
    }
    return converted;
}
