#include "cli/terminal/text.h"

#include <locale.h>
#include <wchar.h>
#include <wctype.h>

#include <algorithm>
#include <cstdio>
#include <iterator>

namespace cardcert::cli {
namespace {

// Makes a UTF-8 locale the current one of this thread. Text of certificates is UTF-8 whatever the
// user's locale is.
class Utf8Scope {
 public:
  Utf8Scope() {
    static const locale_t utf8 = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
    previous_ = uselocale(utf8);  // Null, if there is no such locale, changes nothing.
  }
  ~Utf8Scope() { uselocale(previous_); }
  Utf8Scope(const Utf8Scope&) = delete;
  Utf8Scope& operator=(const Utf8Scope&) = delete;

 private:
  locale_t previous_;
};

struct Character {
  wchar_t code = 0;
  std::size_t num_bytes = 1;
  bool valid = false;
};

Character FirstCharacter(std::string_view text) {
  Character first;
  mbstate_t state = {};
  const std::size_t result = mbrtowc(&first.code, text.data(), text.size(), &state);
  first.valid = result != static_cast<std::size_t>(-1) && result != static_cast<std::size_t>(-2);
  if (first.valid)
    first.num_bytes = std::max<std::size_t>(result, 1);  // 0 is returned for a NUL.
  return first;
}

// Format characters that a terminal obeys or does not show, so that text could look like another.
bool IsDeceptive(wchar_t code) {
  struct Range {
    wchar_t first;
    wchar_t last;
  };
  static constexpr Range kRanges[] = {
      {0xad, 0xad},     {0x61c, 0x61c},   {0x180e, 0x180e}, {0x200b, 0x200b}, {0x200e, 0x200f},
      {0x2028, 0x202e}, {0x2060, 0x206f}, {0xfeff, 0xfeff}, {0xfff9, 0xfffb}, {0xe0000, 0xe0fff},
  };
  return std::any_of(std::begin(kRanges), std::end(kRanges), [code](const Range& range) {
    return range.first <= code && code <= range.last;
  });
}

// Includes no-break spaces, which iswblank() leaves out, and letters that show nothing.
bool IsBlank(const Character& character) {
  static constexpr wchar_t kMore[] = {0xa0, 0x115f, 0x1160, 0x2007, 0x202f, 0x2800, 0x3164, 0xffa0};
  return character.valid &&
         (iswblank(static_cast<wint_t>(character.code)) ||
          std::find(std::begin(kMore), std::end(kMore), character.code) != std::end(kMore));
}

bool IsShowable(const Character& character) {
  return character.valid && iswprint(static_cast<wint_t>(character.code)) &&
         wcwidth(character.code) >= 0 && !IsDeceptive(character.code);
}

std::string Escaped(const Character& character, unsigned char first_byte) {
  char escaped[16] = {};
  if (character.valid && character.code >= 0x80)
    std::snprintf(escaped, sizeof escaped, "\\u{%lx}", static_cast<unsigned long>(character.code));
  else
    std::snprintf(escaped, sizeof escaped, "\\x%02x", first_byte);
  return escaped;
}

std::size_t Width(const Character& character) {
  const int width = character.valid ? wcwidth(character.code) : 1;
  return width > 0 ? static_cast<std::size_t>(width) : 0;
}

}  // namespace

std::string EscapeForTerminal(std::string_view text) {
  const Utf8Scope utf8;
  std::string escaped;
  while (!text.empty()) {
    const Character next = FirstCharacter(text);
    if (IsShowable(next))
      escaped += text.substr(0, next.num_bytes);
    else
      escaped += Escaped(next, static_cast<unsigned char>(text.front()));
    text.remove_prefix(next.num_bytes);
  }
  return escaped;
}

std::string WithSingleBlanks(std::string_view text) {
  const Utf8Scope utf8;
  std::string single;
  bool was_blank = false;
  while (!text.empty()) {
    const Character next = FirstCharacter(text);
    const bool is_blank = IsBlank(next);
    if (!is_blank)
      single += text.substr(0, next.num_bytes);
    else if (!was_blank)
      single += ' ';
    was_blank = is_blank;
    text.remove_prefix(next.num_bytes);
  }
  return single;
}

std::string QuotedLine(std::string_view text) {
  std::string marked;
  for (const char c : WithSingleBlanks(text)) {
    if (c == '\'' || c == '\\')
      marked += '\\';
    marked += c;
  }
  return "'" + CutToWidth(EscapeForTerminal(marked), kQuotedColumns) + "'";
}

std::size_t DisplayWidth(std::string_view escaped) {
  const Utf8Scope utf8;
  std::size_t columns = 0;
  while (!escaped.empty()) {
    const Character next = FirstCharacter(escaped);
    columns += Width(next);
    escaped.remove_prefix(next.num_bytes);
  }
  return columns;
}

std::string CutToWidth(std::string escaped, std::size_t columns) {
  if (DisplayWidth(escaped) <= columns)
    return escaped;
  const Utf8Scope utf8;
  std::string_view rest = escaped;
  std::size_t used = 1;  // for the ellipsis
  while (!rest.empty()) {
    const Character next = FirstCharacter(rest);
    used += Width(next);
    if (used > columns)
      break;
    rest.remove_prefix(next.num_bytes);
  }
  return escaped.substr(0, escaped.size() - rest.size()) + "\u2026";
}

std::string Hex(const unsigned char* bytes, std::size_t length) {
  std::string text;
  for (std::size_t i = 0; i < length; ++i) {
    char digits[3] = {};
    std::snprintf(digits, sizeof digits, "%02x", bytes[i]);
    text += digits;
  }
  return text;
}

}  // namespace cardcert::cli
