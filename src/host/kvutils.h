// The string utilities that the smart-card component requires of its host program.
#pragma once

#include <list>
#include <string>
#include <vector>

namespace KVUtils {

// Returns `value` in decimal, with "-" before a negative number.
std::string LongToString(long value);

// Splits `text`, which must not be null, into lines that end with LF or CR LF. Returns the
// terminated lines in order, without their line endings. Stores the text after the last line ending
// in `*rest`, or leaves `*rest` unchanged if there is none. A CR elsewhere is an ordinary
// character.
std::vector<std::string> StringLines(const char* text, std::string* rest);

// Decodes a list of elements separated by `separator` and appends them to `*out`. An empty text has
// no elements. Any other text has one element more than it has separators, so "a,,b" has an empty
// element in the middle and "a," has one at the end. Nothing is trimmed.
//
// Within an element, a backslash before the separator stands for the separator, and two backslashes
// stand for one. Before any other character a backslash is an ordinary character. A list can
// therefore be an element of a list with another separator without further escapes, unless it
// contains that separator or two backslashes in a row, each of which must then be doubled.
//
// Returns false if the text ends with an unpaired backslash; `*out` is then unchanged.
bool DecodeStringList(const std::string& text, std::list<std::string>* out, char separator);

// Returns `text` without any of the characters in `chars` at its beginning and end.
std::string Strip(std::string text, std::string chars);

// Converts `text` from the first encoding to the second. The names are those of iconv(3); an empty
// name stands for the encoding of the current locale (nl_langinfo(CODESET)). Returns the text
// unchanged if the names are equal except for case, if iconv does not support the conversion, or if
// any part of the text cannot be converted exactly.
std::string Transcode(const char* first_encoding, const char* second_encoding, std::string text);

}  // namespace KVUtils
