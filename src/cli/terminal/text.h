// Text from certificates, tokens and files, made safe for a terminal.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace cardcert::cli {

// Returns `text` (UTF-8) with everything escaped that a terminal obeys or that could deceive its
// reader: control characters, line separators, and invisible characters that reorder or hide text
// as \u{HEX}; ASCII control characters and bytes that are not UTF-8 as \xHH.
std::string EscapeForTerminal(std::string_view text);

// Returns `text` with each run of blank characters replaced by one space. Two spaces separate the
// fields of a line, so a field must not contain two.
std::string WithSingleBlanks(std::string_view text);

// Returns `text` on one line between single quotation marks, such that nothing in it looks like the
// end of the quotation: escaped, with single blanks, with a backslash before each ' and \, and cut
// to kQuotedColumns columns. For text from tokens and certificates in questions to the user, where
// a forged sentence would do most harm.
inline constexpr std::size_t kQuotedColumns = 48;
std::string QuotedLine(std::string_view text);

// Returns the number of terminal columns of escaped text.
std::size_t DisplayWidth(std::string_view escaped);

// Cuts escaped text to at most `columns` columns, with an ellipsis at the end if it was longer.
std::string CutToWidth(std::string escaped, std::size_t columns);

// Returns the bytes in lower-case hexadecimal, two digits each.
std::string Hex(const unsigned char* bytes, std::size_t length);

}  // namespace cardcert::cli
