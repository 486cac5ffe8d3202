// A certificate record in the program's own terms.
#pragma once

#include <string>

#include "pkcs11/pkcs11.h"

namespace cardcert::cli {

// The pieces of the presentable name in one line, "-" for a piece that could not be produced.
std::string NameText(const pkcs11_certificate& record);

// The key's length as the component counts it: whole bytes, rounded down to a multiple of 16 bits,
// so that a leading zero byte makes no difference.
unsigned long KeyBits(const pkcs11_certificate& record);

}  // namespace cardcert::cli
