// Why there is no signature, in words.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "cli/component_log.h"
#include "cli/exit_status.h"

// Tells the user, and says with which status the program ends. `pin_failure` is what the PINs have
// to do with it, `problems` what the component logged; what has been shown is only explained.
ExitStatus ExplainFailure(const std::optional<ExitStatus>& pin_failure,
                          const std::vector<Problem>& problems);
