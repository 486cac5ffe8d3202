#include "host/kvutils.h"

#include "scripted_host/scripted_host.h"

std::string KVUtils::LongToString(long long value) {
  const std::string text = std::to_string(value);
  scripted_host::Host::Instance().Called("LongToString", '(' + text + ')');
  return text;
}

std::vector<std::string> KVUtils::StringLines(const std::string& text, std::string* rest) {
  std::vector<std::string> lines;
  std::string line;
  for (const char c : text) {
    if (c != '\n') {
      line += c;
      continue;
    }
    lines.push_back(line);
    line.clear();
  }
  *rest = line;
  return lines;
}

bool KVUtils::DecodeStringList(const std::string& text, std::list<std::string>* out,
                               int separator) {
  if (!text.empty() && text.back() == '\\')
    return false;
  std::string element;
  for (const char c : text) {
    if (c != separator) {
      element += c;
      continue;
    }
    out->push_back(element);
    element.clear();
  }
  if (!text.empty())
    out->push_back(element);
  return true;
}

std::string KVUtils::Strip(const std::string& text, const std::string& chars) {
  scripted_host::Host::Instance().Called("Strip", "(\"" + text + "\", \"" + chars + "\")");
  const std::string::size_type first = text.find_first_not_of(chars);
  const std::string::size_type last = text.find_last_not_of(chars);
  return first == std::string::npos ? std::string() : text.substr(first, last - first + 1);
}

std::string KVUtils::Transcode(const std::string& first_encoding,
                               const std::string& second_encoding, const std::string& text) {
  scripted_host::Host& host = scripted_host::Host::Instance();
  const std::string result = host.transcoded().empty() ? text : host.transcoded();
  host.Called("Transcode", "(\"" + first_encoding + "\", \"" + second_encoding + "\", " + text +
                               ") = " + result);
  return result;
}
