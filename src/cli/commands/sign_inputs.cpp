#include "cli/commands/sign_inputs.h"

#include <unistd.h>

#include <memory>
#include <string>
#include <utility>

#include "cli/commands/file_roles.h"
#include "cli/commands/select.h"
#include "cli/signature/digest_info.h"
#include "cli/terminal/console.h"

namespace cardcert::cli {
namespace {

// Prints an error and returns false if a PIN that was given cannot be read.
bool ReadGivenPins(const SignOptions& options, GivenPins* pins) {
  struct Given {
    const PinSource& source;
    const char* option;
    std::unique_ptr<Secret>* pin;
  };
  const Given all[] = {{options.pin, "--pin", &pins->user},
                       {options.so_pin, "--so-pin", &pins->security_officer},
                       {options.new_pin, "--new-pin", &pins->new_user}};
  bool good = true;
  for (const Given& given : all) {
    if (good && given.source.given())
      good = (*given.pin = ReadPin(given.source, given.option)) != nullptr;
  }
  for (const Given& given : all)
    ClearPinVariable(given.source);
  return good;
}

}  // namespace

std::optional<SignInputs> ReadSignInputs(const ProviderOptions& provider,
                                         const SignOptions& options) {
  const std::optional<Serial> serial = ParseSerial(options.serial);
  if (!serial)
    return std::nullopt;
  std::optional<OutputFile> output = OutputFile::Prepare(options.out);
  if (!output || !CheckFiles(provider, options, *output))
    return std::nullopt;
  if (options.encoding == "raw" && output->IsTerminal()) {
    PrintError("a raw signature cannot be shown on a terminal");
    PrintHint("use --out FILE or --encoding base64");
    return std::nullopt;
  }
  GivenPins pins;
  pins.allow_unreported_tries = options.allow_unreported_tries;
  if (!ReadGivenPins(options, &pins))
    return std::nullopt;
  if (options.in == "-" && isatty(STDIN_FILENO))
    PrintProgress("reading the data to sign from the terminal, up to Ctrl-D; --in reads a file");
  std::optional<std::vector<unsigned char>> data = ReadDataToSign(options.in, options.digest);
  if (!data)
    return std::nullopt;
  return SignInputs{*serial, std::move(*output), std::move(*data), std::move(pins)};
}

}  // namespace cardcert::cli
