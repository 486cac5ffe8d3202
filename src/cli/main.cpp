// cardcert: the smart-card component at work on the command line.
#include <clocale>
#include <csignal>
#include <exception>

#include "cli/commands/commands.h"
#include "cli/terminal/console.h"

using namespace cardcert::cli;

namespace {

ExitStatus Run(const Options& options) {
  switch (options.command) {
    case Command::kList:
      return RunList(options.provider, options.list);
    case Command::kPresent:
      return RunPresent(options.provider, options.present);
    case Command::kWatch:
      return RunWatch(options.provider, options.watch);
    case Command::kSign:
      return RunSign(options.provider, options.sign);
  }
  return kExitFailed;
}

}  // namespace

int main(int argc, char** argv) {
  ReserveStandardDescriptors();
  std::setlocale(LC_CTYPE, "");  // The encoding of file names; numbers keep their point.
  // A provider may talk to a helper process, and standard output to a pipe: either may go away, and
  // is then an error like others.
  std::signal(SIGPIPE, SIG_IGN);
  try {
    const ParsedOptions parsed = ParseOptions(argc, argv);
    return parsed.options ? Run(*parsed.options) : parsed.exit_status;
  } catch (const std::exception& error) {
    PrintError(error.what());
    return kExitFailed;
  }
}
