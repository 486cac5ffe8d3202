// The values that elements hold: checked against X.690 to the last bit, since two readings of one
// certificate begin with two encodings of one value.
#pragma once

#include "host/x509/der.h"

namespace cardcert::x509 {

// Each takes the contents of an element without tag and length.
Refusal CheckInteger(Bytes value);
Refusal CheckOid(Bytes value);
Refusal ReadBoolean(Bytes value, bool* out);

struct BitString {
  unsigned num_unused_bits = 0;  // at the end of the last octet
  Bytes octets;
};
Refusal ReadBitString(Bytes value, BitString* out);

// UTCTime or GeneralizedTime in the one form of each that RFC 5280 leaves.
Refusal CheckTime(const Element& time);

// Whether this is the tag of a universal type that X.690 10.2 wants in one piece, but in pieces.
bool IsConstructedString(unsigned char tag);

// The parameters of an algorithm, which may be of any type: the types that algorithms use are
// checked; the contents of a SEQUENCE or a SET and of other than universal types are left opaque.
Refusal CheckOpaque(const Element& element);

}  // namespace cardcert::x509
