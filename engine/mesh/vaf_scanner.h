// The VAF reader's view of a text file held in memory: what fscanf does with the few formats that
// the format's grammar uses, with every read bounded by the text's end, and the first fault met,
// with the line it stands on.
//
// After a fault the scanner is spent: every later read finds the end of the text, so each loop of
// the grammar ends at once and the first fault is the one reported.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

enum : int { VAFEnd = -1 };  // Scan: the text ended before the first conversion, as EOF

class VAFScanner {
public:
    // text[size] must be a '\0' that is not part of the text.
    VAFScanner(const char* text, size_t length) : data(text), size(length) {}

    // fscanf: a blank skips any amount of white space, none included; %d reads a 32-bit integer
    // into an int32_t, %f a float; every other character must stand there. Returns the number
    // of conversions, or VAFEnd where the text ended (or a fault was met) before the first one.
    // An integer outside what 32 bits hold, or a float that is not finite, is a fault.
    template <typename... Out>
    int Scan(const char* format, Out*... out) {
        void* targets[] = {static_cast<void*>(out)..., nullptr};
        return ScanInto(format, targets);
    }
    // " %s": the next word, up to the first white space. False at the end of the text. word
    // stops at a '\0' inside it, as a C string would; at is the offset of its first character.
    bool Word(std::string_view& word, size_t& at);
    // A quoted name: everything up to and including the first '"' is passed over, then the name
    // runs to the next '"', which is eaten. False, with a fault, where the text ends first.
    bool QuotedName(std::string_view& name);
    void SkipSpace();

    size_t Offset() const { return offset; }
    size_t Line(size_t at) const;  // 1 for the first line

    // Keeps the first fault, with the offset it was met at, and spends the scanner. Always false.
    bool Fail(size_t at, const char* format, ...) __attribute__((format(printf, 3, 4)));
    // A fault at the end of the text: "the file ends inside ...".
    bool FailEnd(const char* format, ...) __attribute__((format(printf, 2, 3)));
    bool Failed() const { return failed; }
    const char* Fault() const { return fault; }
    size_t FaultLine() const { return Line(faultAt); }

private:
    int ScanInto(const char* format, void* const* targets);
    bool ReadInt(int32_t& out);
    bool ReadFloat(float& out);
    bool AtEnd() const { return offset >= size; }

    const char* data;
    size_t size;
    size_t offset = 0;
    bool failed = false;
    size_t faultAt = 0;
    char fault[240] = "";
};

// C's isspace in the "C" locale.
inline bool VAFSpace(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r';
}
