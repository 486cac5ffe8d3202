// PKCS#11 return values by name.
#pragma once

#include <p11-kit/pkcs11.h>

#include <string>
#include <vector>

namespace support {

// Returns the name of the value without its prefix, for example "PIN_INCORRECT". A value that the
// standard does not define is returned as a decimal number.
std::string CkrName(CK_RV rv);

// Returns every value that PKCS#11 2.40 defines, in numerical order, ending with
// CKR_VENDOR_DEFINED.
const std::vector<CK_RV>& AllCkrValues();

}  // namespace support
