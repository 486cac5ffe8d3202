// One call of the component's Sign(), and what the program checks around it.
#pragma once

#include <vector>

#include "cli/commands/provider.h"
#include "cli/commands/select.h"
#include "cli/exit_status.h"
#include "cli/pins/pin_answers.h"

namespace cardcert::cli {

// Signs `data` with the key of the selected certificate. `answers` supplies the PINs, but none is
// asked for unless the component has found the certificate in a slot where it was listed. A
// signature that the certificate's public key does not verify is an error.
//
// Returns kExitSuccess, or prints an error and returns the exit status; `*signature` is then empty.
ExitStatus MakeSignature(const Selection& selection, const std::vector<unsigned char>& data,
                         Provider* provider, PinAnswers* answers,
                         std::vector<unsigned char>* signature);

}  // namespace cardcert::cli
