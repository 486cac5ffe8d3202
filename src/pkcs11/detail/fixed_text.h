// The fixed-width text fields of PKCS#11. They are padded with blanks, and by some providers with
// zero bytes.
#pragma once

#include <p11-kit/pkcs11.h>

#include <algorithm>
#include <string>

namespace cardcert::detail {

// The characters that are stripped from descriptions, in the form that KVUtils::Strip() takes.
inline constexpr char kWhiteSpace[] = " \f\n\r\t\v";

// Returns the field up to its first zero byte, or the whole field if it has none.
template <std::size_t kWidth>
std::string FixedText(const CK_UTF8CHAR (&field)[kWidth]) {
  return std::string(field, std::find(field, field + kWidth, '\0'));
}

// Returns the token's label without its padding. Only blanks count as padding, and the first
// character always stays, so a label of blanks becomes a single blank.
inline std::string TokenLabel(const CK_TOKEN_INFO& token_info) {
  std::string label = FixedText(token_info.label);
  while (label.size() > 1 && label.back() == ' ')
    label.pop_back();
  return label;
}

}  // namespace cardcert::detail
