#include "host/x509/oid_text.h"

#include <cstdint>

namespace cardcert::x509 {

namespace {

// One number of an object identifier: up to 19 * 7 = 133 bits, which fit 45 decimal digits.
class Arc {
 public:
  void AppendSevenBits(std::uint32_t bits) {
    std::uint64_t carry = bits;
    for (std::uint32_t& limb : limbs_) {
      carry += std::uint64_t{limb} << 7;
      limb = static_cast<std::uint32_t>(carry % kBase);
      carry /= kBase;
    }
  }

  // Removes the first arc of the object identifier from its first number, which encodes the first
  // two arcs together (X.690 8.19.4: forty times the first arc plus the second). Returns the digit
  // of the first arc.
  char SplitOffFirstArc() {
    std::uint32_t first = 2;
    if (*this < 80)
      first = *this < 40 ? 0 : 1;
    std::uint32_t borrow = first * 40;
    for (std::uint32_t& limb : limbs_) {
      const std::uint32_t taken = borrow;
      borrow = limb < taken ? 1 : 0;
      limb = limb + (borrow != 0 ? kBase : 0) - taken;
    }
    return static_cast<char>('0' + first);
  }

  template <typename Put>
  void ForEachDigit(Put put) const {
    bool leading = true;
    for (int i = 4; i >= 0; --i) {
      for (std::uint32_t unit = kBase / 10; unit != 0; unit /= 10) {
        const std::uint32_t digit = limbs_[i] / unit % 10;
        leading = leading && digit == 0 && (i != 0 || unit != 1);
        if (!leading)
          put(static_cast<char>('0' + digit));
      }
    }
  }

 private:
  static constexpr std::uint32_t kBase = 1000000000;

  bool operator<(std::uint32_t small) const {
    for (int i = 1; i < 5; ++i) {
      if (limbs_[i] != 0)
        return false;
    }
    return limbs_[0] < small;
  }

  std::uint32_t limbs_[5] = {};  // nine digits each, the lowest digits first
};

// Calls `put` with each character of the dotted form. On failure it has been called with some of
// them already.
template <typename Put>
Refusal ForEachDottedCharacter(Bytes oid, Put put) {
  const std::size_t kMaxArcOctets = 19;
  std::size_t begin = 0;
  while (begin < oid.size) {
    Arc arc;
    std::size_t end = begin;
    do {
      if (end - begin == kMaxArcOctets)
        return Reason::kOidArcTooLarge;
      arc.AppendSevenBits(oid.data[end] & 0x7fU);
    } while ((oid.data[end++] & 0x80U) != 0);
    if (begin == 0)
      put(arc.SplitOffFirstArc());
    put('.');
    arc.ForEachDigit(put);
    begin = end;
  }
  return {};
}

}  // namespace

bool IsDottedFormOf(const char* dotted, Bytes oid) {
  bool same = true;
  const auto match = [&](char character) {
    same = same && *dotted == character;
    dotted += same ? 1 : 0;
  };
  if (ForEachDottedCharacter(oid, match))
    return false;
  return same && *dotted == '\0';
}

Refusal PutDottedOid(Bytes oid, TextWriter* out) {
  return ForEachDottedCharacter(oid, [out](char character) { out->Put(character); });
}

}  // namespace cardcert::x509
