// The string utilities that take texts apart. The first byte chooses the separator. Properties:
//   - a list that is encoded is decoded to the same elements, and what cannot be decoded leaves its
//     list alone;
//   - lines and their ends make the text again;
//   - stripping takes only what it is told, at both ends, and once is enough;
//   - a number in decimal is the number.
#include <cstring>
#include <utility>

#include "fuzzing.h"
#include "host/kvutils.h"

namespace {

std::string Encoded(const std::list<std::string>& elements, char separator) {
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
  std::list<std::string> elements = {"there before"};
  const bool decoded = KVUtils::DecodeStringList(text, &elements, separator);
  Check(elements.front() == "there before", "elements are appended");
  elements.pop_front();
  Check(decoded || elements.empty(), "what cannot be decoded leaves the list alone");
  Check(elements.empty() == (!decoded || text.empty()), "only an empty text has no elements");
  Check(elements.size() != 1 || !elements.front().empty(), "an empty element has a neighbour");
  std::list<std::string> again;
  Check(KVUtils::DecodeStringList(Encoded(elements, separator), &again, separator) &&
            again == elements,
        "a list that is encoded is decoded to the same elements");
}

void CheckLines(const std::string& text) {
  std::string rest;
  std::string all;
  for (const std::string& line : KVUtils::StringLines(text.c_str(), &rest)) {
    Check(line.find('\n') == std::string::npos, "a line has no line feed");
    // Which of the two ends it had, the text itself says.
    all += line;
    all += text.compare(all.size(), 2, "\r\n") == 0 ? "\r\n" : "\n";
  }
  Check(rest.find('\n') == std::string::npos, "the rest has no line feed");
  Check(all + rest == text.c_str(), "lines and their ends make the text again");
}

void CheckStrip(const std::string& text) {
  const std::string chars = " \f\n\r\t\v";
  const std::string stripped = KVUtils::Strip(text, chars);
  Check(KVUtils::Strip(stripped, chars) == stripped, "once is enough");
  Check(stripped.empty() ||
            (std::strchr(chars.c_str(), stripped.front()) == nullptr || stripped.front() == '\0'),
        "nothing is left at the beginning");
  const std::string::size_type at = text.find(stripped);
  Check(at != std::string::npos, "what is left is a part of the text");
  const std::string::size_type first = text.find_first_not_of(chars);
  Check(stripped.empty() == (first == std::string::npos), "nothing is left of white space only");
  if (!stripped.empty())
    Check(text.substr(first, stripped.size()) == stripped &&
              text.find_first_not_of(chars, first + stripped.size()) == std::string::npos,
          "only white space is taken");
}

void CheckNumber(Input input) {
  unsigned long number = 0;
  for (int i = 0; i < 8; ++i)
    number = number << 8 | input.Byte();
  const long value = static_cast<long>(number);
  const std::string text = KVUtils::LongToString(value);
  Check(std::strtol(text.c_str(), nullptr, 10) == value, "a number in decimal is the number");
  Check((text.front() == '-') == (value < 0), "a sign is that of the number");
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
