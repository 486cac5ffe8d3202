// What a user is told about certificates and tokens that could not be read.
#pragma once

#include <string>
#include <vector>

#include "cli/component_log.h"

namespace cardcert::cli {

// Returns a message for each different failure of a walk over the certificates. Slots without a
// usable token are normal and not reported. Explains failures that --log-level has already shown,
// but does not repeat them.
std::vector<std::string> ListingWarnings(const std::vector<Problem>& problems);

void PrintWarnings(const std::vector<std::string>& warnings);

}  // namespace cardcert::cli
