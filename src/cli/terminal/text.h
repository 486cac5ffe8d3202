// Text that comes from certificates, tokens and files, on its way to a terminal.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace cardcert::cli {

// `text` (UTF-8) such that it stays on its line and cannot steer a terminal: control characters,
// line separators and invisible characters that reorder or hide text stand as \u{HEX}, control
// characters of ASCII and bytes that are no UTF-8 as \xHH.
std::string EscapeForTerminal(std::string_view text);

// Text with one blank in the place of each run of blanks, of whatever width: two of them separate
// fields, so that none can be forged within one.
std::string WithSingleBlanks(std::string_view text);

// The number of terminal columns that escaped text takes.
std::size_t DisplayWidth(std::string_view escaped);

// Escaped text cut to at most `columns` columns, with an ellipsis where something is missing.
std::string CutToWidth(std::string escaped, std::size_t columns);

// Bytes as lower-case hexadecimal, two digits each.
std::string Hex(const unsigned char* bytes, std::size_t length);

}  // namespace cardcert::cli
