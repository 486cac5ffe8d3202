// Verifies a signature with the certificate's public key.
#pragma once

#include <cstddef>
#include <vector>

#include "pkcs11/pkcs11.h"

namespace cardcert::cli {

// Returns the length of the longest data that the key can sign (RFC 8017, section 9.2, step 3).
std::size_t MaxDataLength(const pkcs11_certificate& record);

// Returns true if `signature` is the RSASSA-PKCS1-v1_5 signature of `data` (a DigestInfo, or what
// was signed without a digest) by the key of the certificate.
bool IsSignatureOn(const std::vector<unsigned char>& data,
                   const std::vector<unsigned char>& signature, const pkcs11_certificate& record);

}  // namespace cardcert::cli
