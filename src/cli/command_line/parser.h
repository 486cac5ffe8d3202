// Reads the command line.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "cli/command_line/options.h"
#include "cli/exit_status.h"

namespace cardcert::cli {

struct ParsedOptions {
  std::optional<Options> options;  // nothing: the program ends with `exit_status`
  ExitStatus exit_status = kExitSuccess;
};

// Parses the command line. Prints the help or the version if asked to, and an error if it is not
// valid; there are no options then.
ParsedOptions ParseOptions(int argc, const char* const* argv);

// Returns the help of a command, or of the program if the name is empty. The command must exist.
std::string HelpText(const std::string& command);

// Returns the names of all commands, and of all options of a command, as they are typed.
std::vector<std::string> CommandNames();
std::vector<std::string> OptionNames(const std::string& command);

}  // namespace cardcert::cli
