#include "host/x509/der.h"

namespace x509 {

namespace {

const unsigned char kConstructedBit = 0x20;  // X.690 8.1.2.5

// X.690 8.1.2.4: five ones announce a tag number in further octets, which is for numbers above 30.
bool IsHighTagForm(unsigned char first) {
  return (first & 0x1fU) == 0x1f;
}

// Why the next element, which is there or not, is another one than was expected.
Refusal Unexpected(const Cursor& cursor, Reason otherwise) {
  return !cursor.AtEnd() && IsHighTagForm(cursor.Rest().data[0]) ? Reason::kHighTagNumber
                                                                 : otherwise;
}

// X.690 8.1.3 as X.690 10.1 narrows it: the definite form in the fewest octets.
Refusal ReadLength(Cursor* cursor, std::size_t* out) {
  Bytes first;
  if (!cursor->Take(1, &first))
    return Reason::kHeaderCutShort;
  if (first.data[0] < 0x80) {
    *out = first.data[0];
    return {};
  }
  if (first.data[0] == 0x80)
    return Reason::kIndefiniteLength;  // X.690 10.1: "the definite form of length encoding"
  if (first.data[0] == 0xff)
    return Reason::kReservedLength;  // X.690 8.1.3.5 c: "the value 11111111 shall not be used"

  Bytes octets;
  const std::size_t num_octets = first.data[0] & 0x7fU;
  // Five octets are either too many for the value or stand for more than 4 GiB.
  if (num_octets > 4)
    return Reason::kLengthTooLong;
  if (!cursor->Take(num_octets, &octets))
    return Reason::kHeaderCutShort;
  std::size_t length = 0;
  for (std::size_t i = 0; i < octets.size; ++i)
    length = length << 8 | octets.data[i];
  // X.690 10.1: "encoded in the minimum number of octets"
  if (octets.data[0] == 0 || length < 0x80)
    return Reason::kLengthNotMinimal;
  *out = length;
  return {};
}

}  // namespace

Refusal ReadElement(Cursor* cursor, Element* out) {
  const unsigned char* const begin = cursor->Rest().data;
  Bytes tag;
  if (!cursor->Take(1, &tag))
    return Reason::kHeaderCutShort;
  if (IsHighTagForm(tag.data[0]))
    return Reason::kHighTagNumber;
  std::size_t length = 0;
  if (const Refusal refusal = ReadLength(cursor, &length))
    return refusal;
  if (!cursor->Take(length, &out->value))
    return Reason::kContentsCutShort;
  out->tag = tag.data[0];
  out->tlv = Bytes{begin, static_cast<std::size_t>(out->value.data - begin) + length};
  return {};
}

Refusal ReadElement(Cursor* cursor, Tag tag, Reason otherwise, Element* out) {
  if (NextIs(*cursor, tag))
    return ReadElement(cursor, out);
  if (NextIsInOtherForm(*cursor, tag))
    return (tag & kConstructedBit) != 0 ? Reason::kNotConstructed : Reason::kConstructed;
  return Unexpected(*cursor, otherwise);
}

bool NextIs(const Cursor& cursor, unsigned char tag) {
  return !cursor.AtEnd() && cursor.Rest().data[0] == tag;
}

bool NextIsInOtherForm(const Cursor& cursor, Tag tag) {
  return NextIs(cursor, static_cast<unsigned char>(tag ^ kConstructedBit));
}

Refusal ExpectEnd(const Cursor& cursor, Reason otherwise) {
  return cursor.AtEnd() ? Refusal() : Unexpected(cursor, otherwise);
}

}  // namespace x509
