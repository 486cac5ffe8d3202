#include "host/kvutils.h"

#include <iconv.h>
#include <langinfo.h>
#include <strings.h>

#include <cerrno>
#include <cstring>
#include <utility>

namespace KVUtils {

std::string LongToString(long value) {
  return std::to_string(value);
}

std::vector<std::string> StringLines(const char* text, std::string* rest) {
  std::vector<std::string> lines;
  while (const char* const line_feed = std::strchr(text, '\n')) {
    const bool has_carriage_return = line_feed != text && line_feed[-1] == '\r';
    lines.emplace_back(text, has_carriage_return ? line_feed - 1 : line_feed);
    text = line_feed + 1;
  }
  if (*text != '\0')
    *rest = text;
  return lines;
}

bool DecodeStringList(const std::string& text, std::list<std::string>* out, char separator) {
  if (text.empty())
    return true;
  std::list<std::string> elements(1);
  for (std::string::size_type i = 0; i < text.size(); ++i) {
    if (text[i] == separator) {
      elements.emplace_back();
      continue;
    }
    if (text[i] == '\\') {
      if (i + 1 == text.size())
        return false;
      if (text[i + 1] == separator || text[i + 1] == '\\')
        ++i;
    }
    elements.back() += text[i];
  }
  out->splice(out->end(), elements);
  return true;
}

std::string Strip(std::string text, std::string chars) {
  const std::string::size_type first = text.find_first_not_of(chars);
  if (first == std::string::npos)
    return {};
  text.erase(text.find_last_not_of(chars) + 1);
  text.erase(0, first);
  return text;
}

namespace {

// An iconv conversion descriptor. Converts to false if iconv does not support the conversion.
class Converter {
 public:
  Converter(const char* to, const char* from) : descriptor_(iconv_open(to, from)) {}
  ~Converter() {
    if (*this)
      iconv_close(descriptor_);
  }
  Converter(const Converter&) = delete;
  Converter& operator=(const Converter&) = delete;

  explicit operator bool() const {
    return descriptor_ != reinterpret_cast<iconv_t>(-1);  // NOLINT: the error value of iconv_open()
  }

  // Converts `*in_left` bytes at `*in` and appends the result to `*out`. If `in` is null, appends
  // the sequence that ends a text in a stateful encoding instead. Returns false if the input cannot
  // be converted exactly; `*out` may then hold part of the result.
  bool Append(char** in, std::size_t* in_left, std::string* out) {
    for (;;) {
      char piece[256];
      char* free_part = piece;
      std::size_t free_len = sizeof piece;
      const std::size_t result = iconv(descriptor_, in, in_left, &free_part, &free_len);
      const int error = errno;
      out->append(piece, sizeof piece - free_len);
      if (result != static_cast<std::size_t>(-1))
        return result == 0;  // Otherwise the number of approximated characters.
      if (error != E2BIG)
        return false;
    }
  }

 private:
  iconv_t descriptor_;
};

// Returns the encoding of the current locale for an empty name.
const char* EncodingName(const char* name) {
  return *name == '\0' ? nl_langinfo(CODESET) : name;
}

}  // namespace

std::string Transcode(const char* first_encoding, const char* second_encoding, std::string text) {
  const char* const from = EncodingName(first_encoding);
  const char* const to = EncodingName(second_encoding);
  if (strcasecmp(from, to) == 0)
    return text;
  Converter converter(to, from);
  if (!converter)
    return text;
  std::string source = text;  // iconv() takes a pointer to non-const input.
  char* in = source.data();
  std::size_t in_left = source.size();
  std::string converted;
  if (!converter.Append(&in, &in_left, &converted) ||
      !converter.Append(nullptr, nullptr, &converted))
    return text;
  return converted;
}

}  // namespace KVUtils
