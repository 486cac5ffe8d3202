// The commands and their options: names, values, defaults and descriptions. The parser reads the
// command line by them, and the help is made of them.
#pragma once

#include "cli/command_line/options.h"

namespace CLI {
class App;
}

namespace cardcert::cli {

// Declares everything to `app`, which writes into `*options` when it parses.
void DeclareCommands(CLI::App* app, Options* options);

}  // namespace cardcert::cli
