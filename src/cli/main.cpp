// cardcert, the command-line program.
#include <clocale>
#include <csignal>
#include <exception>
#include <new>

#include "cli/command_line/parser.h"
#include "cli/commands/commands.h"
#include "cli/provider/provider_guard.h"
#include "cli/terminal/console.h"
#include "cli/terminal/signals_at_start.h"
#include "cli/terminal/standard_output.h"

namespace cardcert::cli {
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

ExitStatus Main(int argc, const char* const* argv) {
  ReserveStandardDescriptors();
  std::setlocale(LC_CTYPE, "");  // For file names. Numbers keep their decimal point.
  SignalsAtStart::Get();
  // Without this, a closed pipe to a helper process of the provider or from standard output would
  // end the program. Writing then fails with EPIPE, which is handled like other errors.
  std::signal(SIGPIPE, SIG_IGN);
  try {
    const ParsedOptions parsed = ParseOptions(argc, argv);
    if (!parsed.options)
      return parsed.exit_status;
    const ExitStatus status = Run(*parsed.options);
    return ProviderGuard::fault() ? kExitFailed : status;
  } catch (const std::bad_alloc&) {
    PrintError("out of memory");
    return kExitFailed;
  } catch (const std::exception& error) {
    PrintError(error.what());
    return kExitFailed;
  }
}

}  // namespace
}  // namespace cardcert::cli

int main(int argc, char** argv) {
  return cardcert::cli::Main(argc, argv);
}
