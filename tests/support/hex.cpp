#include "support/hex.h"

#include <stdexcept>

namespace support {

namespace {

int DigitValue(char digit) {
  if (digit >= '0' && digit <= '9')
    return digit - '0';
  if (digit >= 'a' && digit <= 'f')
    return digit - 'a' + 10;
  if (digit >= 'A' && digit <= 'F')
    return digit - 'A' + 10;
  throw std::invalid_argument("not a hexadecimal digit");
}

}  // namespace

std::string Hex(const std::string& bytes) {
  constexpr char kDigits[] = "0123456789abcdef";
  std::string digits;
  for (const char c : bytes) {
    const auto byte = static_cast<unsigned char>(c);
    digits += kDigits[byte >> 4];
    digits += kDigits[byte & 0x0f];
  }
  return digits;
}

std::string FromHex(const std::string& digits) {
  if (digits.size() % 2 != 0)
    throw std::invalid_argument("an odd number of hexadecimal digits");
  std::string bytes;
  for (std::size_t i = 0; i < digits.size(); i += 2)
    bytes += static_cast<char>(DigitValue(digits[i]) << 4 | DigitValue(digits[i + 1]));
  return bytes;
}

}  // namespace support
