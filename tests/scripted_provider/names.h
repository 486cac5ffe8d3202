// The standard's numbers, as they stand in a trace.
#pragma once

#include <p11-kit/pkcs11.h>

#include <string>
#include <vector>

namespace scripted {

// "OK", "PIN_INCORRECT", ...: the names of the standard without their prefix; a number without a
// name in decimal.
std::string ResultName(CK_RV rv);

// Every return value that the standard's header defines, in its order.
const std::vector<CK_RV>& AllResults();

// "SERIAL", "SERIAL|RW", "0x10".
std::string SessionFlagNames(CK_FLAGS flags);

// "USER", "SO", or the number.
std::string UserName(CK_USER_TYPE type);

// "CKA_CLASS", or "CKA_" and the number in hexadecimal.
std::string AttributeName(CK_ATTRIBUTE_TYPE type);

// What a search asks for: "CKA_ID=0a0b, CKA_CLASS=CKO_CERTIFICATE".
std::string SearchText(const CK_ATTRIBUTE* attributes, CK_ULONG count);

// What a read asks for, with the room offered: "CKA_VALUE NULL" or "CKA_VALUE[57]".
std::string ReadText(const CK_ATTRIBUTE* attributes, CK_ULONG count);

// Lower-case hexadecimal.
std::string Hex(const std::string& bytes);

// "57", or "unavailable" for CK_UNAVAILABLE_INFORMATION.
std::string LengthText(CK_ULONG length);

}  // namespace scripted
