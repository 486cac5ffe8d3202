// The PKCS#11 provider that a command works with, and the log of what the component does with it.
#pragma once

#include <optional>

#include "cli/command_line/options.h"
#include "cli/commands/listing.h"
#include "cli/component_log.h"
#include "cli/exit_status.h"
#include "cli/provider/provider_guard.h"
#include "pkcs11/pkcs11.h"

namespace cardcert::cli {

class Provider {
 public:
  // Applies --name and --filter, starts the log, then loads the provider: nothing is written or
  // loaded unless the whole command line is valid. Returns kExitSuccess, or prints an error and
  // returns the exit status.
  //
  // The provider stays loaded until this object is destroyed. It is not loaded twice, because some
  // providers do not survive that.
  ExitStatus Open(const ProviderOptions& options);

  // Lists the certificates, in one walk over the tokens. Tries a second time if the walk fails,
  // because a token that is inserted at that moment makes it fail. Prints an error and returns
  // nothing if the provider cannot list its slots. Also returns nothing, without a further error,
  // if the provider threw an exception: that was reported.
  std::optional<Listing> List();

  // The same, without a second try and without a message.
  std::optional<Listing> TryToList();

  PKCS11Module& module() { return module_; }
  const ProviderGuard& guard() const { return guard_; }
  ComponentLog& log() { return log_; }

 private:
  ComponentLog log_;
  ProviderGuard guard_;  // after the log and before the module, which is closed first
  PKCS11Module module_;
};

// Prints that the provider cannot list its slots.
void PrintSlotListError();

}  // namespace cardcert::cli
