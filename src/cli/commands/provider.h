// The provider that a command works with.
#pragma once

#include <list>
#include <optional>
#include <string>
#include <vector>

#include "cli/component_log.h"
#include "cli/exit_status.h"
#include "cli/options.h"
#include "pkcs11/pkcs11.h"

namespace cardcert::cli {

// Sets the naming specification and the filters, starts the log and loads the provider, in this
// order: nothing is written or loaded before the whole command line is known to be good. Any other
// result than kExitSuccess has been complained about.
ExitStatus OpenProvider(const ProviderOptions& options, ComponentLog* log, PKCS11Module* module);

// What went wrong while certificates were listed, in words for a user, each thing once. Slots
// without a usable token are no surprise and are left out. Of what the log has shown there are only
// explanations.
std::vector<std::string> Notes(const std::vector<Problem>& problems);
void ShowNotes(const std::vector<std::string>& notes);

// The module's certificates; what went wrong with single ones is left in the log's problems.
// Nothing, with a complaint, when the provider cannot list its slots: that is no empty list.
std::optional<std::list<pkcs11_certificate>> ListCertificates(ComponentLog* log,
                                                              PKCS11Module* module);

// Complains that the provider could not list its slots.
void PrintSlotListError();

}  // namespace cardcert::cli
