// Where a PIN lives while it is on its way from the host to the token.
#pragma once

#include <cstring>

namespace cardcert::detail {

// Room for one PIN, cleared on every way out of its scope. It is not copied, so that there is only
// one place to clear; explicit_bzero, because the optimiser drops a memset nobody reads after.
class PinBuffer {
 public:
  PinBuffer() = default;
  ~PinBuffer() { Clear(); }
  PinBuffer(const PinBuffer&) = delete;
  PinBuffer& operator=(const PinBuffer&) = delete;

  void Clear() { explicit_bzero(bytes, sizeof bytes); }

  unsigned char bytes[128] = {};
  unsigned long length = sizeof bytes;
};

}  // namespace cardcert::detail
