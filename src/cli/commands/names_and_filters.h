// --name and --filter.
#pragma once

#include "cli/command_line/options.h"
#include "cli/component_log.h"
#include "pkcs11/pkcs11.h"

namespace cardcert::cli {

// Passes --name and --filter to the component. Warns about filters that the component accepts but
// that hardly mean what the user wants. If one is malformed, prints an error and returns false.
bool ApplyNamesAndFilters(const ProviderOptions& options, ComponentLog* log, PKCS11Module* module);

}  // namespace cardcert::cli
