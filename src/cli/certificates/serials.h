// Certificate serial numbers as people write them.
#pragma once

#include <list>
#include <optional>
#include <string>
#include <vector>

#include "pkcs11/pkcs11.h"

namespace cardcert::cli {

// A serial number that somebody typed or pasted: hexadecimal, upper or lower case, with or without
// "0x", colons between bytes and leading zeros.
class Serial {
 public:
  // Nothing when `text` is no such number.
  static std::optional<Serial> Parse(const std::string& text);

  // The certificates with this number. Of several encodings of it (leading zeros) one that is
  // exactly as typed is preferred.
  std::vector<const pkcs11_certificate*> Find(const std::list<pkcs11_certificate>& records) const;

  // The texts by which the component may know the number.
  std::vector<std::string> Spellings() const;

 private:
  Serial(std::string digits, std::string number);

  std::string digits_;  // as typed, in lower case, without prefix and colons
  std::string number_;  // without leading zeros
};

// Whether two records are of one certificate, seen on two tokens perhaps. The issuer is not in a
// record; two certificates with the same subject, key and uses make the same signatures.
bool SameCertificate(const pkcs11_certificate& a, const pkcs11_certificate& b);

// One record for each different certificate of `records`.
std::vector<const pkcs11_certificate*> WithoutCopies(
    const std::vector<const pkcs11_certificate*>& records);

}  // namespace cardcert::cli
