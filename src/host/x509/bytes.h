// Octets that somebody else owns, and the one place where they are checked against their end.
#pragma once

#include <cstddef>
#include <cstring>

namespace cardcert::x509 {

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

// Walks forward over octets. Everything that is read from a certificate is taken here, so Take() is
// the only bounds check; it compares with what is left and therefore cannot overflow.
class Cursor {
 public:
  explicit Cursor(Bytes bytes) : rest_(bytes) {}

  bool AtEnd() const { return rest_.size == 0; }
  Bytes Rest() const { return rest_; }

  // Moves past `count` octets and stores them in `*out`. Returns false when fewer are left; then
  // nothing changes.
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
