// Serial numbers, and which records belong to one certificate.
#pragma once

#include <list>
#include <optional>
#include <string>
#include <vector>

#include "pkcs11/pkcs11.h"

namespace cardcert::cli {

// A serial number as a user types or pastes it: hexadecimal, upper or lower case, with or without
// "0x", colons between bytes and leading zeros.
class Serial {
 public:
  // Returns nothing if `text` is not a serial number.
  static std::optional<Serial> Parse(const std::string& text);

  // Returns the certificates with this number. If some are encoded exactly as typed, leading zeros
  // included, returns only those. The result points into `records`.
  std::vector<const pkcs11_certificate*> Find(const std::list<pkcs11_certificate>& records) const;

  // Returns the texts under which the component may know the number, see
  // pkcs11_certificate::serial.
  std::vector<std::string> Spellings() const;

 private:
  Serial(std::string digits, std::string number);

  std::string digits_;  // as typed, in lower case, without prefix and colons
  std::string number_;  // without leading zeros
};

// Returns true if the records describe one certificate, which may be on two tokens. Records do not
// contain the issuer, but certificates with the same subject, key and uses make the same
// signatures.
bool SameCertificate(const pkcs11_certificate& a, const pkcs11_certificate& b);

// Returns the first record of each different certificate.
std::vector<const pkcs11_certificate*> WithoutCopies(
    const std::vector<const pkcs11_certificate*>& records);

}  // namespace cardcert::cli
