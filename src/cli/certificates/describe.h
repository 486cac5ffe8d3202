// Facts about a certificate that its record does not hold as such.
#pragma once

#include <string>

#include "pkcs11/pkcs11.h"

namespace cardcert::cli {

// Returns the parts of the presentable name in one line, with "-" for an empty part.
std::string NameText(const pkcs11_certificate& record);

// Returns the length of the key in bits as the component logs it: rounded down to a multiple of 16,
// so that a leading zero byte of the modulus makes no difference.
unsigned long KeyBits(const pkcs11_certificate& record);

}  // namespace cardcert::cli
