// Elements of the distinguished encoding rules (X.690 section 10): a tag, a length, contents.
#pragma once

#include "host/x509/bytes.h"
#include "host/x509/refusal.h"

namespace cardcert::x509 {

// Identifier octets as they stand in a certificate: class, primitive or constructed, number.
enum Tag : unsigned char {
  kBoolean = 0x01,
  kInteger = 0x02,
  kBitString = 0x03,
  kOctetString = 0x04,
  kNull = 0x05,
  kOid = 0x06,
  kUtf8String = 0x0c,
  kNumericString = 0x12,
  kPrintableString = 0x13,
  kT61String = 0x14,
  kIa5String = 0x16,
  kUtcTime = 0x17,
  kGeneralizedTime = 0x18,
  kVisibleString = 0x1a,
  kUniversalString = 0x1c,
  kBmpString = 0x1e,
  kSequence = 0x30,
  kSet = 0x31,
  kContext0 = 0xa0,           // [0] constructed
  kContext1Primitive = 0x81,  // [1] primitive
  kContext2Primitive = 0x82,
  kContext3 = 0xa3,
};

struct Element {
  unsigned char tag = 0;
  Bytes tlv;    // with tag and length
  Bytes value;  // the contents alone
};

// Reads the next element, whatever its tag. The contents are not looked at.
Refusal ReadElement(Cursor* cursor, Element* out);

// Reads the next element, which must have the tag `tag`: otherwise, and where nothing is left, the
// answer is `otherwise`, or kConstructed or kNotConstructed where the form alone differs, or
// kHighTagNumber, since BER readers take a tag in that form for the one that its number tells.
Refusal ReadElement(Cursor* cursor, Tag tag, Reason otherwise, Element* out);

// Whether the next element has this tag: how optional fields are recognised, so that one that is
// missing never shifts those that follow.
bool NextIs(const Cursor& cursor, unsigned char tag);

// Whether the next element has this tag but for its form, primitive or constructed (X.690 8.1.2.5).
bool NextIsInOtherForm(const Cursor& cursor, Tag tag);

// The last step of everything that is read: nothing may be left over. kHighTagNumber again, which
// an optional field before the end may have.
Refusal ExpectEnd(const Cursor& cursor, Reason otherwise);

// The rest is how. Inline, so that the parts of an element stay in registers: behind calls reading
// a certificate and answering takes two thirds more time.

const unsigned char kConstructedBit = 0x20;  // X.690 8.1.2.5

// X.690 8.1.2.4: five ones announce a tag number in further octets, which is for numbers above 30.
inline bool IsHighTagForm(unsigned char first) {
  return (first & 0x1fU) == 0x1f;
}

// Why the next element, which is there or not, is another one than was expected.
inline Refusal Unexpected(const Cursor& cursor, Reason otherwise) {
  return !cursor.AtEnd() && IsHighTagForm(cursor.Rest().data[0]) ? Reason::kHighTagNumber
                                                                 : otherwise;
}

// X.690 8.1.3 as X.690 10.1 narrows it: the definite form in the fewest octets.
inline Refusal ReadLength(Cursor* cursor, std::size_t* out) {
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

inline Refusal ReadElement(Cursor* cursor, Element* out) {
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

inline Refusal ReadElement(Cursor* cursor, Tag tag, Reason otherwise, Element* out) {
  if (NextIs(*cursor, tag))
    return ReadElement(cursor, out);
  if (NextIsInOtherForm(*cursor, tag))
    return (tag & kConstructedBit) != 0 ? Reason::kNotConstructed : Reason::kConstructed;
  return Unexpected(*cursor, otherwise);
}

inline bool NextIs(const Cursor& cursor, unsigned char tag) {
  return !cursor.AtEnd() && cursor.Rest().data[0] == tag;
}

inline bool NextIsInOtherForm(const Cursor& cursor, Tag tag) {
  return NextIs(cursor, static_cast<unsigned char>(tag ^ kConstructedBit));
}

inline Refusal ExpectEnd(const Cursor& cursor, Reason otherwise) {
  return cursor.AtEnd() ? Refusal() : Unexpected(cursor, otherwise);
}

}  // namespace cardcert::x509
