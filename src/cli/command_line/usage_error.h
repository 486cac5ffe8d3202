// Messages about a command line that is not valid. They never repeat what may be a PIN: of an
// unknown option only the name, and no argument that follows one.
#pragma once

#include <string>

namespace CLI {
class App;
class ParseError;
}  // namespace CLI

namespace cardcert::cli {

// Prints why `app` could not parse the command line. `last_word` is the end of it.
void PrintUsageError(const CLI::App& app, const CLI::ParseError& error,
                     const std::string& last_word);

// Prints that there is no such command.
void PrintUnknownCommand(const CLI::App& app, const std::string& name);

}  // namespace cardcert::cli
