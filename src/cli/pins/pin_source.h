// PINs that are given with the command instead of being asked for.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "cli/terminal/secret.h"

namespace cardcert::cli {

// One kind of PIN as the command line gives it: at most one of the two.
struct PinSource {
  std::optional<std::string> variable;  // "env:NAME"
  std::optional<std::string> file;

  bool given() const { return variable || file; }
};

// Reads the PIN. Null, with a complaint that never holds any of it, when there is no usable one:
// a file must hold one line, an environment variable must be set; 1 to 128 bytes.
// `option` is what the source was given with.
std::unique_ptr<Secret> ReadPin(const PinSource& source, const std::string& option);

// Whether the PIN would be read from what the program has as its standard input.
bool ReadsStandardInput(const PinSource& source);

// Overwrites the source's environment variable and removes it, so that neither the provider nor
// anything it starts inherits the PIN. Nothing for a file.
void ForgetPinVariable(const PinSource& source);

}  // namespace cardcert::cli
