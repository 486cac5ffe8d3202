// Extensions (RFC 5280 4.1.2.9), and the values of two of them.
#pragma once

#include <optional>

#include "host/x509/der.h"

namespace cardcert::x509 {

// The extnValue of each extension that the library uses: the contents of its OCTET STRING. Empty
// optionals for extensions that the certificate does not have.
struct Extensions {
  std::optional<Bytes> basic_constraints;
  std::optional<Bytes> key_usage;
};

// Reads the contents of the field [3] of a tbsCertificate. Does not look into the values of
// extensions. The views in `*out` refer to `value`. On failure `*out` is unspecified.
Refusal ReadExtensions(Bytes value, Extensions* out);

// Reads the value of basic constraints (RFC 5280 4.2.1.9) and stores the flag cA. On failure
// `*is_ca` is unchanged.
Refusal ReadBasicConstraints(Bytes extn_value, bool* is_ca);

// Reads the value of key usage (RFC 5280 4.2.1.3) and stores it in the bit layout of
// cert_key_usage(). On failure `*usage` is unchanged.
Refusal ReadKeyUsage(Bytes extn_value, int* usage);

}  // namespace cardcert::x509
