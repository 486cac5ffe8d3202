// PKCS#11 return values by name.
#pragma once

#include <p11-kit/pkcs11.h>

#include <string>

// Without its CKR_: "DEVICE_REMOVED". A number for values that have none here.
std::string ReturnValueName(CK_RV rv);
