// Bytes as hexadecimal digits.
#pragma once

#include <string>

namespace support {

// Returns two lower-case digits for each byte.
std::string Hex(const std::string& bytes);

// Returns the bytes that the digits stand for. Throws std::invalid_argument if a character is not a
// hexadecimal digit or the number of digits is odd.
std::string FromHex(const std::string& digits);

}  // namespace support
