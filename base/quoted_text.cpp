#include "base/quoted_text.h"

#include <cstdint>
#include <cstdio>

namespace {

// Length of the well-formed UTF-8 sequence at text[at] of two or more bytes, or 0.
size_t Utf8Length(std::string_view text, size_t at) {
    const uint8_t lead = uint8_t(text[at]);
    size_t length = lead >= 0xF0 && lead <= 0xF4 ? 4 : lead >= 0xE0 ? 3 : lead >= 0xC2 ? 2 : 0;
    if (length == 0 || lead >= 0xF5 || at + length > text.size()) return 0;
    for (size_t k = 1; k < length; ++k)
        if ((uint8_t(text[at + k]) & 0xC0) != 0x80) return 0;
    const uint8_t second = uint8_t(text[at + 1]);
    // Overlong forms, surrogates and code points past U+10FFFF.
    if ((lead == 0xE0 && second < 0xA0) || (lead == 0xED && second >= 0xA0) ||
        (lead == 0xF0 && second < 0x90) || (lead == 0xF4 && second >= 0x90))
        return 0;
    return length;
}

void AppendEscaped(std::string& out, std::string_view text, bool keepLineEnds, bool quoted) {
    for (size_t i = 0; i < text.size();) {
        const uint8_t c = uint8_t(text[i]);
        if (c >= 0x80) {
            if (size_t length = Utf8Length(text, i)) {
                out.append(text.substr(i, length));
                i += length;
                continue;
            }
        } else if (quoted && (c == '"' || c == '\\')) {
            out += '\\';
            out += char(c);
            ++i;
            continue;
        } else if ((c >= 0x20 && c != 0x7F) || (keepLineEnds && (c == '\n' || c == '\t'))) {
            out += char(c);
            ++i;
            continue;
        }
        char code[5];
        std::snprintf(code, sizeof code, "\\x%02X", c);
        out += code;
        ++i;
    }
}

}  // namespace

std::string EscapedText(std::string_view text, bool keepLineEnds) {
    std::string out;
    AppendEscaped(out, text, keepLineEnds, false);
    return out;
}

std::string QuotedText(std::string_view text, size_t limit) {
    const bool cut = text.size() > limit;
    if (cut) {
        // Never half a character: a sequence the cut runs through goes whole.
        size_t lead = limit;
        while (lead > 0 && (uint8_t(text[lead]) & 0xC0) == 0x80) --lead;
        const size_t length = Utf8Length(text, lead);
        text = text.substr(0, length > 0 && lead + length > limit ? lead : limit);
    }
    std::string out = "\"";
    AppendEscaped(out, text, false, true);
    out += cut ? "\"..." : "\"";
    return out;
}
