// Fuzz target: the string utilities of KVUtils. The first eight bytes are a number, the next one
// chooses the separator of a list, the rest is a text. Properties:
//   - an encoded list is decoded to the same elements; a failure leaves the list unchanged;
//   - lines, line ends and the remaining text together are the original text;
//   - Strip() removes only the given characters, only at both ends, and removes all of them;
//   - a number in decimal is parsed to the same number.
#include <cstring>
#include <utility>

#include "fuzzing.h"
#include "host/kvutils.h"

namespace {

std::string EncodeList(const std::list<std::string>& elements, char separator) {
  std::string text;
  bool first = true;
  for (const std::string& element : elements) {
    if (!std::exchange(first, false))
      text += separator;
    for (const char c : element)
      text += c == separator || c == '\\' ? std::string("\\") + c : std::string(1, c);
  }
  return text;
}

void CheckList(const std::string& text, char separator) {
  std::list<std::string> elements = {"existing element"};
  const bool decoded = KVUtils::DecodeStringList(text, &elements, separator);
  Check(elements.front() == "existing element", "elements are appended");
  elements.pop_front();
  Check(decoded || elements.empty(), "a text that cannot be decoded leaves the list unchanged");
  Check(elements.empty() == (!decoded || text.empty()), "only an empty text has no elements");
  Check(elements.size() != 1 || !elements.front().empty(), "a single element is not empty");
  std::list<std::string> again;
  Check(KVUtils::DecodeStringList(EncodeList(elements, separator), &again, separator) &&
            again == elements,
        "an encoded list is decoded to the same elements");
}

void CheckLines(const std::string& text) {
  std::string rest;
  std::string all;
  for (const std::string& line : KVUtils::StringLines(text.c_str(), &rest)) {
    Check(line.find('\n') == std::string::npos, "a line contains no line feed");
    all += line;
    // StringLines() removes the line end; the text shows which of the two it was.
    all += text.compare(all.size(), 2, "\r\n") == 0 ? "\r\n" : "\n";
  }
  Check(rest.find('\n') == std::string::npos, "the remaining text contains no line feed");
  Check(all + rest == text.c_str(),
        "lines, line ends and the remaining text are the original text");
}

void CheckStrip(const std::string& text) {
  const std::string chars = " \f\n\r\t\v";
  const std::string stripped = KVUtils::Strip(text, chars);
  Check(KVUtils::Strip(stripped, chars) == stripped,
        "stripping twice is the same as stripping once");
  Check(stripped.empty() ||
            (std::strchr(chars.c_str(), stripped.front()) == nullptr || stripped.front() == '\0'),
        "a stripped text begins with another character");
  const std::string::size_type at = text.find(stripped);
  Check(at != std::string::npos, "a stripped text is part of the original text");
  const std::string::size_type first = text.find_first_not_of(chars);
  Check(stripped.empty() == (first == std::string::npos),
        "only a text of white space becomes empty");
  if (!stripped.empty())
    Check(text.substr(first, stripped.size()) == stripped &&
              text.find_first_not_of(chars, first + stripped.size()) == std::string::npos,
          "only white space is removed");
}

void CheckNumber(Input input) {
  unsigned long number = 0;
  for (int i = 0; i < 8; ++i)
    number = number << 8 | input.Byte();
  const long value = static_cast<long>(number);
  const std::string text = KVUtils::LongToString(value);
  Check(std::strtol(text.c_str(), nullptr, 10) == value,
        "a number in decimal is parsed to the same number");
  Check((text.front() == '-') == (value < 0), "a number in decimal has the right sign");
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  CheckNumber(input);
  const char separators[] = {',', '|', ';', '\0'};
  const char separator = separators[input.Below(4)];
  const std::string text = input.Rest();
  CheckList(text, separator);
  CheckLines(text);
  CheckStrip(text);
  return 0;
}
