// Checks of option values, with messages of the program's own.
#pragma once

#include <CLI/CLI.hpp>

#include <charconv>
#include <cmath>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "cli/terminal/console.h"

namespace cardcert::cli {

// Returns the number if all of `text` is one. Independent of the locale; "nan" and "inf" are not
// numbers here.
template <typename Number>
std::optional<Number> ParseNumber(const std::string& text) {
  Number number = {};
  const std::size_t plus = text.size() > 1 && text[0] == '+' && text[1] != '-' ? 1 : 0;
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data() + plus, end, number);
  if (error != std::errc() || stop != end || !std::isfinite(static_cast<double>(number)))
    return std::nullopt;
  return number;
}

template <typename Number>
CLI::Validator NumberBetween(Number least, Number most) {
  const auto check = [least, most](const std::string& text) -> std::string {
    const std::optional<Number> number = ParseNumber<Number>(text);
    if (number && *number >= least && *number <= most)
      return "";
    std::ostringstream error;
    error << Quoted(text) << " is not a number between " << least << " and " << most;
    return error.str();
  };
  return {check, ""};
}

inline CLI::Validator OneOf(const std::vector<std::string>& names) {
  const auto check = [names](const std::string& text) -> std::string {
    std::string list;
    for (const std::string& name : names) {
      if (text == name)
        return "";
      list += (list.empty() ? "" : ", ") + name;
    }
    return Quoted(text) + " is not one of " + list;
  };
  return {check, ""};
}

// For a flag. The value is not repeated in the message: it may be a PIN that was given by mistake.
inline CLI::Validator NoValue() {
  return {
      [](const std::string& text) { return std::string(text == "true" ? "" : "takes no value"); },
      ""};
}

}  // namespace cardcert::cli
