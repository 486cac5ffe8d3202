// The fixed-width text fields of PKCS#11: padded with blanks, and by some providers with zeros.
#pragma once

#include <p11-kit/pkcs11.h>

#include <algorithm>
#include <string>

namespace cardcert::detail {

// White space, as it is stripped from descriptions.
inline constexpr char kWhiteSpace[] = " \f\n\r\t\v";

// The field up to its first zero byte, and never beyond its width.
template <std::size_t kWidth>
std::string FixedText(const CK_UTF8CHAR (&field)[kWidth]) {
  return std::string(field, std::find(field, field + kWidth, '\0'));
}

// The token's label without its padding. Only blanks count as padding, and the first character
// always stays: a label of blanks alone is one blank.
inline std::string TokenLabel(const CK_TOKEN_INFO& token_info) {
  std::string label = FixedText(token_info.label);
  while (label.size() > 1 && label.back() == ' ')
    label.pop_back();
  return label;
}

}  // namespace cardcert::detail
