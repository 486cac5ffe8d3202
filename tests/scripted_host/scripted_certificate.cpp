#include "scripted_host/scripted_certificate.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <sstream>

namespace scripted_host {

namespace {

bool IsHexadecimal(const std::string& text) {
  return text.size() % 2 == 0 && std::all_of(text.begin(), text.end(), [](unsigned char digit) {
           return std::isxdigit(digit) != 0;
         });
}

bool IsPrintable(const std::string& text) {
  return std::all_of(text.begin(), text.end(),
                     [](unsigned char byte) { return std::isprint(byte) != 0; });
}

}  // namespace

bool Certificate::Parse(const std::string& text) {
  if (text.empty() || !IsPrintable(text))
    return false;
  std::istringstream words(text);
  std::getline(words, name_, ';');
  for (std::string word; std::getline(words, word, ';');) {
    const std::string::size_type equals = word.find('=');
    if (equals == std::string::npos)
      return false;
    words_[word.substr(0, equals)] = word.substr(equals + 1);
  }
  return IsHexadecimal(Text("serial"));
}

std::string Certificate::Text(const std::string& word, const std::string& otherwise) const {
  const auto found = words_.find(word);
  return found == words_.end() ? otherwise : found->second;
}

long Certificate::Number(const std::string& word, long otherwise) const {
  return Has(word) ? std::strtol(Text(word).c_str(), nullptr, 10) : otherwise;
}

std::string Certificate::serial() const {
  const std::string digits = Text("serial", "01");
  std::string bytes;
  for (std::string::size_type i = 0; i < digits.size(); i += 2)
    bytes += static_cast<char>(std::strtol(digits.substr(i, 2).c_str(), nullptr, 16));
  return bytes;
}

}  // namespace scripted_host
