// The certificates on the tokens, as one walk has found them.
#pragma once

#include <list>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "cli/component_events.h"
#include "cli/provider/token_identity.h"
#include "pkcs11/pkcs11.h"

namespace cardcert::cli {

// A certificate that the walk has read, in the list or left out of it.
struct WalkedCertificate {
  unsigned long slot = 0;
  std::optional<std::string> subject;  // nothing if it could not be read
  std::optional<std::string> serial;   // nothing if the walk did not get as far as the serial
  // Points into Listing::records. Null if the component cannot describe the certificate (one
  // without an RSA key, for example).
  const pkcs11_certificate* record = nullptr;
};

// Movable, but not copyable: `walk` points into `records`.
struct Listing {
  Listing() = default;
  Listing(Listing&&) = default;
  Listing& operator=(Listing&&) = default;

  std::list<pkcs11_certificate> records;  // what GetCertificates() returned
  // The tokens that the walk has been to, by slot.
  std::map<unsigned long, TokenIdentity> tokens;
  // All certificates that could be parsed, in the order in which the component looks for a serial.
  // Nothing if the events do not fit the records.
  std::optional<std::vector<WalkedCertificate>> walk;
};

// Combines the records of a walk with the events that the component logged during it.
Listing MakeListing(std::list<pkcs11_certificate> records,
                    const std::vector<ComponentEvent>& events);

}  // namespace cardcert::cli
