#include "scripted_provider/trace.h"

#include <cstdio>
#include <sstream>
#include <utility>

namespace scripted {

namespace {

std::string Printable(const std::string& line) {
  std::string text;
  for (std::string::size_type i = 0; i < line.size(); ++i) {
    const auto byte = static_cast<unsigned char>(line[i]);
    const bool trailing_blank = byte == ' ' && i + 1 == line.size();
    if (byte >= 0x20 && byte != 0x7f && !trailing_blank) {
      text += line[i];
      continue;
    }
    char escaped[8] = {};
    std::snprintf(escaped, sizeof escaped, "\\x%02x", byte);
    text += escaped;
  }
  return text;
}

}  // namespace

Trace& Trace::Instance() {
  static Trace trace;
  return trace;
}

void Trace::Add(const std::string& line) {
  std::string text = Printable(line);
  for (const std::string& folder : folders_) {
    for (auto at = text.find(folder); at != std::string::npos; at = text.find(folder, at))
      text.erase(at, folder.size());
  }
  lines_.push_back(std::move(text));
}

void Trace::OmitFolder(const std::string& folder) {
  folders_.push_back(folder);
}

std::string Trace::Take() {
  std::string text;
  for (const std::string& line : std::exchange(lines_, {}))
    text += line + '\n';
  return text;
}

std::string Unindented(const std::string& text) {
  std::istringstream input(text);
  std::string result;
  for (std::string line; std::getline(input, line);) {
    const std::string::size_type first = line.find_first_not_of(' ');
    if (first != std::string::npos)
      result += line.substr(first) + '\n';
  }
  return result;
}

}  // namespace scripted
