#include "cli/commands/sign_inputs.h"

#include <unistd.h>

#include <memory>
#include <string>
#include <utility>

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
    if (options.in == "-" && ReadsStandardInput(given.source)) {
      PrintError(std::string(given.option) +
                 "-file is standard input, which is also the data to sign");
      PrintHint("use --in FILE");
      good = false;
    }
    if (good && given.source.given())
      good = (*given.pin = ReadPin(given.source, given.option)) != nullptr;
  }
  for (const Given& given : all)
    ClearPinVariable(given.source);
  return good;
}

// Prints an error and returns true if the signature would replace a file that is read, or the log.
bool OverwritesInput(const OutputFile& output, const ProviderOptions& provider,
                     const SignOptions& options) {
  struct Used {
    const char* option;
    std::optional<std::string> path;
  };
  for (const Used& used :
       {Used{"--in", options.in}, Used{"--pin-file", options.pin.file},
        Used{"--so-pin-file", options.so_pin.file}, Used{"--new-pin-file", options.new_pin.file},
        Used{"--log-file", provider.log_file}}) {
    if (used.path && output.Replaces(*used.path)) {
      PrintError(std::string("--out is the file of ") + used.option + " and would overwrite it");
      return true;
    }
  }
  return false;
}

}  // namespace

std::optional<SignInputs> ReadSignInputs(const ProviderOptions& provider,
                                         const SignOptions& options) {
  GivenPins pins;
  if (!ReadGivenPins(options, &pins))
    return std::nullopt;
  const std::optional<Serial> serial = ParseSerial(options.serial);
  if (!serial)
    return std::nullopt;
  std::optional<OutputFile> output = OutputFile::Prepare(options.out);
  if (!output || OverwritesInput(*output, provider, options))
    return std::nullopt;
  if (options.encoding == "raw" && output->IsTerminal()) {
    PrintError("a raw signature cannot be shown on a terminal");
    PrintHint("use --out FILE or --encoding base64");
    return std::nullopt;
  }
  if (options.in == "-" && isatty(STDIN_FILENO))
    PrintProgress("reading the data to sign from the terminal, up to Ctrl-D; --in reads a file");
  std::optional<std::vector<unsigned char>> data = ReadDataToSign(options.in, options.digest);
  if (!data)
    return std::nullopt;
  return SignInputs{*serial, std::move(*output), std::move(*data), std::move(pins)};
}

}  // namespace cardcert::cli
