// Why there is no signature, in words.
#pragma once

#include <string>
#include <vector>

#include "cli/component_log.h"
#include "cli/exit_status.h"
#include "cli/pins/pin_answers.h"

namespace cardcert::cli {

// Tells the user, and says with which status the program ends. `problems` is what the component
// logged; what has been shown is only explained.
ExitStatus ExplainFailure(const PinAnswers& answers, const std::vector<Problem>& problems);

}  // namespace cardcert::cli
