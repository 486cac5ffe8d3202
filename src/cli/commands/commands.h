// The commands. Each returns the program's exit status.
#pragma once

#include "cli/exit_status.h"
#include "cli/options.h"

namespace cardcert::cli {

ExitStatus RunList(const ProviderOptions& provider, const ListOptions& options);
ExitStatus RunPresent(const ProviderOptions& provider, const PresentOptions& options);
ExitStatus RunWatch(const ProviderOptions& provider, const WatchOptions& options);
ExitStatus RunSign(const ProviderOptions& provider, const SignOptions& options);

}  // namespace cardcert::cli
