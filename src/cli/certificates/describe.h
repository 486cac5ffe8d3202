// Facts about a certificate that its record does not hold as such.
#pragma once

#include <string>

#include "pkcs11/pkcs11.h"

namespace cardcert::cli {

// Returns the parts of the presentable name in one line, with "-" for an empty part.
std::string NameText(const pkcs11_certificate& record);

}  // namespace cardcert::cli
