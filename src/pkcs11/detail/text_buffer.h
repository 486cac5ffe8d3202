// Buffers for texts and serial numbers that the certificate library writes.
#pragma once

#include <cstring>
#include <string>

namespace cardcert::detail {

// The size of the buffers for a subject and for a serial number, in bytes. Longer ones are refused.
inline constexpr unsigned long kCertificateBufferSize = 16834;

// A buffer for a NUL-terminated text of up to kSize - 1 bytes. Starts with an empty text; the other
// bytes are not initialised, because clearing them takes longer than writing most texts.
template <unsigned long kSize>
class TextBuffer {
 public:
  TextBuffer() { bytes_[0] = '\0'; }

  // `data()` points to `size()` bytes that the certificate library may write to.
  char* data() { return bytes_; }
  unsigned long size() const { return kSize; }

  // Returns a copy of the text that was written last. If the certificate library has left out the
  // terminator, the text ends at the end of the buffer.
  std::string text() const { return std::string(bytes_, strnlen(bytes_, kSize)); }

 private:
  char bytes_[kSize];
};

}  // namespace cardcert::detail
