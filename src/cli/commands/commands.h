// The commands. Each returns the program's exit status, and has printed an error if that is not
// kExitSuccess.
#pragma once

#include "cli/command_line/options.h"
#include "cli/exit_status.h"

namespace cardcert::cli {

ExitStatus RunList(const ProviderOptions& provider_options, const ListOptions& options);
ExitStatus RunPresent(const ProviderOptions& provider_options, const PresentOptions& options);
ExitStatus RunWatch(const ProviderOptions& provider_options, const WatchOptions& options);
ExitStatus RunSign(const ProviderOptions& provider_options, const SignOptions& options);

}  // namespace cardcert::cli
