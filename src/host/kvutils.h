// String utilities that the smart-card component takes from its host program.
#pragma once

#include <list>
#include <string>
#include <vector>

namespace KVUtils {

// The decimal text of `value`, "-" in front of negatives.
std::string LongToString(long value);

// Splits `text` (not null) into lines, which end at LF or CR LF. Returns every line that has an
// end, in order and without it; text after the last end, if any, is stored in `*rest`, which is
// otherwise left as it was (callers pass it in empty). A CR elsewhere is an ordinary character.
std::vector<std::string> StringLines(const char* text, std::string* rest);

// Decodes a list whose elements are separated by `separator` and appends the elements to `*out`.
// An empty text has no elements; otherwise there is one element more than there are separators, so
// "a,,b" has an empty element in its middle and "a," one at its end. Nothing is trimmed.
//
// Within an element "\" + separator stands for the separator and "\\" for one backslash; before any
// other character a backslash is an ordinary character. So a list can be an element of a list with
// another separator as it is, unless it holds the other separator or two backslashes in a row: each
// of those backslashes is written twice then.
//
// Returns false, with `*out` as it was, when a backslash ends the text.
bool DecodeStringList(const std::string& text, std::list<std::string>* out, char separator);

// `text` without the characters of `chars` at its beginning and its end.
std::string Strip(std::string text, std::string chars);

// Converts `text` from the first encoding to the second. Names are those of iconv(3); the empty
// name is the encoding of the current locale (nl_langinfo(CODESET)). Text that cannot be converted
// whole, text between encodings that iconv does not know, and text between two that have the same
// name (in upper or lower case) comes back unchanged.
std::string Transcode(const char* first_encoding, const char* second_encoding, std::string text);

}  // namespace KVUtils
