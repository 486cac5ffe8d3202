// The string utilities of another host program: the same names with other types.
#pragma once

#include <list>
#include <string>
#include <vector>

struct KVUtils {
  static std::string LongToString(long long value);
  static std::vector<std::string> StringLines(const std::string& text, std::string* rest);
  static bool DecodeStringList(const std::string& text, std::list<std::string>* out, int separator);
  static std::string Strip(const std::string& text, const std::string& chars);
  static std::string Transcode(const std::string& first_encoding,
                               const std::string& second_encoding, const std::string& text);
};
