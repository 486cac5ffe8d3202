// Extensions (RFC 5280 4.1.2.9), and the two that are asked for.
#pragma once

#include <optional>

#include "host/x509/der.h"

namespace cardcert::x509 {

// The contents of the extnValue of each extension that is asked for; absent without the extension.
struct Extensions {
  std::optional<Bytes> basic_constraints;
  std::optional<Bytes> key_usage;
};

// Reads what the tag [3] of a tbsCertificate holds. No extension's value is looked into here.
Refusal ReadExtensions(Bytes value, Extensions* out);

// RFC 5280 4.2.1.9. One that cannot be read says neither yes nor no.
Refusal ReadBasicConstraints(Bytes extn_value, bool* is_ca);

// RFC 5280 4.2.1.3, in the bit layout of cert_key_usage().
Refusal ReadKeyUsage(Bytes extn_value, int* usage);

}  // namespace cardcert::x509
