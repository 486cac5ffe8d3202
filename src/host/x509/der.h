// Elements of the distinguished encoding rules (X.690 section 10): a tag, a length, contents.
#pragma once

#include "host/x509/bytes.h"
#include "host/x509/refusal.h"

namespace x509 {

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

}  // namespace x509
