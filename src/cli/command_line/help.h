// The layout of the help, at most 80 columns wide.
#pragma once

namespace CLI {
class App;
}

namespace cardcert::cli {

// Makes app->help(), and that of commands that are declared later, write the program's layout.
void SetHelpFormat(CLI::App* app);

}  // namespace cardcert::cli
