// Words and lines from input files, made fit for a terminal or a log: a file may hold any bytes,
// and a control byte copied to a terminal can move its cursor or change its settings.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

// The text with every byte that is no printable character (controls, DEL, broken UTF-8) written
// as \xNN. Line ends and tabs stay where keepLineEnds is set.
std::string EscapedText(std::string_view text, bool keepLineEnds = false);

// The text in double quotes, escaped as above with \" and \\ too, and cut after limit bytes of
// the input with "..." behind the closing quote.
std::string QuotedText(std::string_view text, size_t limit = 60);
