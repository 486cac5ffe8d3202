// Why there is no signature, in words.
#pragma once

#include <vector>

#include "cli/component_log.h"
#include "cli/exit_status.h"
#include "cli/pins/pin_answers.h"

namespace cardcert::cli {

// Prints why Sign() failed and returns the exit status. `problems` is what the component logged;
// lines that --log-level has shown are explained, but not repeated.
ExitStatus ExplainFailure(const PinAnswers& answers, const std::vector<Problem>& problems);

}  // namespace cardcert::cli
