// Views of octets, and the only bounds check for reading them.
#pragma once

#include <cstddef>
#include <cstring>

namespace cardcert::x509 {

// A view of octets that are owned elsewhere. Every output of this type in these headers refers to
// the octets of the input.
struct Bytes {
  const unsigned char* data = nullptr;
  std::size_t size = 0;
};

inline bool operator==(Bytes a, Bytes b) {
  return a.size == b.size && (a.size == 0 || std::memcmp(a.data, b.data, a.size) == 0);
}
inline bool operator!=(Bytes a, Bytes b) {
  return !(a == b);
}

// Moves forward over octets. The parser reads all octets of a certificate through Take(), so that
// this is the only bounds check. It compares with what is left, and therefore cannot overflow.
class Cursor {
 public:
  explicit Cursor(Bytes bytes) : rest_(bytes) {}

  bool AtEnd() const { return rest_.size == 0; }
  Bytes Rest() const { return rest_; }

  // Stores the next `count` octets in `*out` and moves past them. Returns false if fewer are left;
  // the position and `*out` are then unchanged.
  [[nodiscard]] bool Take(std::size_t count, Bytes* out) {
    if (count > rest_.size)
      return false;
    *out = Bytes{rest_.data, count};
    rest_.data += count;
    rest_.size -= count;
    return true;
  }

 private:
  Bytes rest_;
};

}  // namespace cardcert::x509
