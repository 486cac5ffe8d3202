// The memory that holds a PIN on its way from the host to the token.
#pragma once

#include <cstring>

namespace cardcert::detail {

// Holds one PIN and clears it on destruction. Not copyable, so that there is only one place to
// clear. Uses explicit_bzero, because the optimiser may remove a memset of memory that is not read
// again.
class PinBuffer {
 public:
  PinBuffer() = default;
  ~PinBuffer() { Clear(); }
  PinBuffer(const PinBuffer&) = delete;
  PinBuffer& operator=(const PinBuffer&) = delete;

  void Clear() { explicit_bzero(bytes, sizeof bytes); }

  unsigned char bytes[128] = {};
  unsigned long length = sizeof bytes;  // the number of bytes in use, at most sizeof bytes
};

}  // namespace cardcert::detail
