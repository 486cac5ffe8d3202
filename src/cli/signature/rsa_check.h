// The certificate's public key, as a witness of what the token has done.
#pragma once

#include <cstddef>
#include <vector>

#include "pkcs11/pkcs11.h"

namespace cardcert::cli {

// The longest data that the certificate's key can sign (RFC 8017, section 9.2, step 3).
std::size_t MaxDataLength(const pkcs11_certificate& record);

// Whether `signature` is the RSASSA-PKCS1-v1_5 signature on `data` (a DigestInfo, or whatever was
// signed as it is) by the key of the certificate.
bool IsSignatureOn(const std::vector<unsigned char>& data,
                   const std::vector<unsigned char>& signature, const pkcs11_certificate& record);

}  // namespace cardcert::cli
