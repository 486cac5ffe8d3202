// How options are declared: names as the parser takes them ("-m,--module"), the name of the value
// for the help, the variable that receives the value, and the description. `app` keeps a pointer to
// the variable.
#pragma once

#include <CLI/CLI.hpp>

#include <string>

#include "cli/command_line/values.h"

namespace cardcert::cli {

template <typename Value>
CLI::Option* AddValue(CLI::App* app, const char* names, const char* value_name, Value* value,
                      const char* description) {
  return app->add_option(names, *value, description)->type_name(value_name);
}

template <typename Value, typename Number>
CLI::Option* AddNumber(CLI::App* app, const char* names, const char* value_name, Value* value,
                       Number least, Number most, const char* description) {
  const auto store = [value](const std::string& text) { *value = *ParseNumber<Number>(text); };
  return app->add_option_function<std::string>(names, store, description)
      ->type_name(value_name)
      ->check(NumberBetween(least, most));
}

inline void AddFlag(CLI::App* app, const char* name, bool* flag, const char* description) {
  app->add_flag(name, *flag, description)->check(NoValue());
}

}  // namespace cardcert::cli
