// What is different between two lists of certificates.
#pragma once

#include <list>

#include "pkcs11/pkcs11.h"

namespace cardcert::cli {

// Returns the entries of `from` that are not in `without`. An entry is a certificate in a slot
// under a name; an entry that is in `from` more often than in `without` is returned that much more
// often.
std::list<pkcs11_certificate> Difference(std::list<pkcs11_certificate> from,
                                         std::list<pkcs11_certificate> without);

}  // namespace cardcert::cli
