// Which token a PIN is for.
#pragma once

#include <p11-kit/pkcs11.h>

#include <string>

namespace cardcert::cli {

// What PKCS#11 says about a token that stays the same while the token does (CK_TOKEN_INFO), without
// padding.
struct TokenIdentity {
  std::string label;
  std::string serial_number;
  std::string manufacturer;
  std::string model;
};

TokenIdentity IdentityOf(const CK_TOKEN_INFO& info);

// Returns how the token that is there now differs from the one that was listed, such as "its label
// was 'A' and is 'B'"; an empty text if it does not.
std::string Difference(const TokenIdentity& listed, const TokenIdentity& now);

// Returns true if the token lets its user know when few tries of the SO PIN are left. Most tokens
// never set the flags for that, and this cannot be seen before a wrong SO PIN was entered. True
// therefore needs evidence: one of the flags is set now, or the token is of a kind that was seen to
// set them.
bool ReportsSoPinTries(const CK_TOKEN_INFO& info);

}  // namespace cardcert::cli
