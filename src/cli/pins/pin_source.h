// PINs that the command line names a place for, instead of the terminal.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "cli/terminal/secret.h"

namespace cardcert::cli {

// Where one PIN comes from. At most one of the two is set.
struct PinSource {
  std::optional<std::string> variable;  // "env:NAME"
  std::optional<std::string> file;

  bool given() const { return variable || file; }
};

// Reads the PIN: the only line of the file, or the value of the environment variable; 1 to 128
// bytes. On failure prints an error, which never contains any part of the PIN, and returns null.
// Prints a warning if the file can be read or changed by other users than its owner and root.
// `option` is the option of the variable ("--pin"), for the error.
std::unique_ptr<Secret> ReadPin(const PinSource& source, const std::string& option);

// Overwrites every entry of the environment variable and removes it, so that neither the provider
// nor a process that it starts inherits the PIN, and nobody reads it in /proc. Does nothing for a
// file.
void ClearPinVariable(const PinSource& source);

}  // namespace cardcert::cli
