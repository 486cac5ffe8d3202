// Serial numbers as text.
#pragma once

#include <optional>
#include <string>

#include "host/certificate.h"
#include "pkcs11/detail/text_buffer.h"

namespace cardcert::detail {

// Returns the certificate's serial number in lower-case hexadecimal, two digits per byte. Returns
// nothing if the certificate library fails or reports more bytes than the buffer holds.
inline std::optional<std::string> SerialText(const certificate* cert) {
  unsigned char serial[kCertificateBufferSize];
  unsigned long length = sizeof serial;
  if (cert_serial(cert, serial, &length) != 0 || length > sizeof serial)
    return std::nullopt;

  static constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  text.reserve(2 * length);
  for (unsigned long i = 0; i < length; ++i) {
    text += kDigits[serial[i] >> 4];
    text += kDigits[serial[i] & 0x0f];
  }
  return text;
}

}  // namespace cardcert::detail
