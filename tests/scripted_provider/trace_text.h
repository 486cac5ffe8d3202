// PKCS#11 flags, types and attributes as they are shown in the trace.
#pragma once

#include <p11-kit/pkcs11.h>

#include <string>

namespace scripted {

// Returns "SERIAL", "SERIAL|RW", or another value in hexadecimal.
std::string SessionFlagNames(CK_FLAGS flags);

// Returns "USER", "SO", or another value in decimal.
std::string UserName(CK_USER_TYPE type);

// Returns for example "CKA_CLASS"; for other types "CKA_" and the value in hexadecimal.
std::string AttributeName(CK_ATTRIBUTE_TYPE type);

// Describes a search template: "CKA_ID=0a0b, CKA_CLASS=CKO_CERTIFICATE".
std::string SearchText(const CK_ATTRIBUTE* attributes, CK_ULONG count);

// Describes what C_GetAttributeValue is asked for, with the size of the buffer: "CKA_VALUE NULL" or
// "CKA_VALUE[57]".
std::string ReadText(const CK_ATTRIBUTE* attributes, CK_ULONG count);

// Returns a decimal number, or "unavailable" for CK_UNAVAILABLE_INFORMATION.
std::string LengthText(CK_ULONG length);

}  // namespace scripted
