// Elements in the distinguished encoding rules (X.690 section 10): tag, length and contents.
#pragma once

#include "host/x509/bytes.h"
#include "host/x509/refusal.h"

namespace cardcert::x509 {

// Identifier octets: the class, primitive or constructed form, and number of a type.
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

// Both views refer to the octets that the element was read from.
struct Element {
  unsigned char tag = 0;
  Bytes tlv;    // the whole element, with tag and length
  Bytes value;  // the contents alone
};

// The functions below take a cursor into the contents of one element. The two that read move it
// past the element that they read. On failure they may have moved it into the element, and `*out`
// is unspecified; the caller must not read on.

// Reads the next element, whatever its tag. Does not look into its contents.
Refusal ReadElement(Cursor* cursor, Element* out);

// Reads the next element, which must have the tag `tag`. If nothing is left or the tag differs,
// fails with `otherwise`, with these exceptions: kConstructed or kNotConstructed if the tag differs
// only in its form, and kHighTagNumber for a tag in the form for numbers above 30, because BER
// parsers accept that form for any number and would read the element as one of the type `tag`.
Refusal ReadElement(Cursor* cursor, Tag tag, Reason otherwise, Element* out);

// Returns true if there is a next element and it has this tag. Optional fields are recognised with
// this, so that a missing one does not shift the fields after it.
bool NextIs(const Cursor& cursor, unsigned char tag);

// Returns true if there is a next element and its tag differs from `tag` only in the form,
// primitive or constructed (X.690 8.1.2.5).
bool NextIsInOtherForm(const Cursor& cursor, Tag tag);

// The last step in reading every constructed element. Fails with `otherwise` if anything is left
// over, or with kHighTagNumber if that begins with a tag in the form for numbers above 30, because
// it may be an optional field that BER parsers would read.
Refusal ExpectEnd(const Cursor& cursor, Reason otherwise);

// Implementation. Inline, because the parts of an element then stay in registers: with function
// calls, parsing and querying a certificate takes two thirds longer.

const unsigned char kConstructedBit = 0x20;  // X.690 8.1.2.5

// X.690 8.1.2.4: five one bits mean that the tag number follows in further octets. The form is for
// numbers above 30.
inline bool IsHighTagForm(unsigned char first) {
  return (first & 0x1fU) == 0x1f;
}

// Returns the reason for a next element that is missing or has another tag than expected.
inline Refusal Unexpected(const Cursor& cursor, Reason otherwise) {
  return !cursor.AtEnd() && IsHighTagForm(cursor.Rest().data[0]) ? Reason::kHighTagNumber
                                                                 : otherwise;
}

// X.690 8.1.3, restricted by X.690 10.1 to the definite form in the fewest octets.
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
  // Five octets are either more than necessary or a length of 4 GiB and more.
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
