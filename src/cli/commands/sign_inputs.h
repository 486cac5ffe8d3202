// What cardcert sign reads before it loads a provider.
#pragma once

#include <optional>
#include <vector>

#include "cli/certificates/serials.h"
#include "cli/command_line/options.h"
#include "cli/output/output_file.h"
#include "cli/pins/scripted_pins.h"

namespace cardcert::cli {

struct SignInputs {
  Serial serial;
  OutputFile output;
  std::vector<unsigned char> data;  // what the token is to sign, see digest_info.h
  GivenPins pins;
};

// Prepares the output file, checks that no two files of the command line are in each other's way,
// reads the PINs, and reads the file to sign. Environment variables with
// PINs are cleared, so that the provider does not inherit them. Prints an error and returns nothing
// if something is missing or does not fit together.
std::optional<SignInputs> ReadSignInputs(const ProviderOptions& provider,
                                         const SignOptions& options);

}  // namespace cardcert::cli
