#include "emulated_card/bytes.h"

#include <cstddef>

namespace {

Bytes EncodedLength(std::size_t length) {
  const auto low = static_cast<std::uint8_t>(length);
  if (length < 0x80)
    return {low};
  if (length < 0x100)
    return {0x81, low};
  return {0x82, static_cast<std::uint8_t>(length >> 8), low};
}

}  // namespace

Bytes operator+(Bytes first, const Bytes& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

Bytes Tlv(const Bytes& tag, const Bytes& value) {
  return tag + EncodedLength(value.size()) + value;
}

std::optional<Bytes> FindTlv(const Bytes& sequence, std::uint8_t tag) {
  std::size_t at = 0;
  while (at + 2 <= sequence.size()) {
    const std::uint8_t found = sequence[at++];
    std::size_t length = sequence[at++];
    if (length > 0x80) {
      std::size_t num_octets = length & 0x7f;
      length = 0;
      for (; num_octets > 0 && at < sequence.size() && length < 0x10000; --num_octets)
        length = length << 8 | sequence[at++];
      if (num_octets > 0)
        return std::nullopt;
    }
    if (length > sequence.size() - at)
      return std::nullopt;
    const auto begin = sequence.begin() + static_cast<std::ptrdiff_t>(at);
    if (found == tag)
      return Bytes(begin, begin + static_cast<std::ptrdiff_t>(length));
    at += length;
  }
  return std::nullopt;
}
