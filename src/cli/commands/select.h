// From a serial number on the command line to one certificate.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "cli/certificates/serials.h"
#include "cli/commands/listing.h"
#include "cli/commands/provider.h"
#include "cli/exit_status.h"
#include "pkcs11/pkcs11.h"

namespace cardcert::cli {

// Parses a serial number. Prints an error and returns nothing if `text` is not one.
std::optional<Serial> ParseSerial(const std::string& text);

struct Selection {
  Listing listing;
  const pkcs11_certificate* record = nullptr;  // in `listing`; null: no certificate was found
  bool has_copies = false;                     // more of them on this token or another

  // Returns the record of the same certificate in the slot, or null.
  const pkcs11_certificate* CopyIn(unsigned long slot) const;
};

// What present and sign begin with: opens the provider, lists the certificates and selects the one
// with the serial. Returns kExitSuccess also if there is none, since the caller can say more about
// that. Prints an error and returns kExitAmbiguous if several different certificates have the
// serial, because the component would sign with the first of them; any other failure is printed,
// too.
ExitStatus OpenAndSelect(const ProviderOptions& options, const Serial& serial, Provider* provider,
                         Selection* selection);

// Makes sure that the selected certificate, which is listed, is the one that the component finds by
// its serial. Returns kExitSuccess, or prints an error and returns:
//   kExitAmbiguous  the component finds a certificate that it cannot describe and that is therefore
//                   not listed
//   kExitFailed     the token cannot be opened for reading and writing
// In most cases the listing answers this. Only if a certificate that is left out of the list may
// have the serial does this walk over the tokens.
ExitStatus CheckNothingHides(const Selection& selection, PKCS11Module* module);

// Returns true if the component finds the serial on a token that can be opened for reading and
// writing, in a certificate that need not be listed. Walks over the tokens.
bool IsOnSomeToken(PKCS11Module* module, const Serial& serial);

// Prints that the token of a listed certificate cannot be opened for reading and writing.
void PrintTokenNotWritable(const pkcs11_certificate& record);

}  // namespace cardcert::cli
