// The values of elements. They are checked strictly against X.690: if one value had two encodings,
// two parsers could read one certificate differently.
#pragma once

#include "host/x509/der.h"

namespace cardcert::x509 {

// The functions that take `value` expect the contents of an element, without tag and length. On
// failure `*out` is unchanged.

Refusal CheckInteger(Bytes value);
Refusal CheckOid(Bytes value);
Refusal ReadBoolean(Bytes value, bool* out);

struct BitString {
  unsigned num_unused_bits = 0;  // 0 to 7, at the end of the last octet
  Bytes octets;                  // refers to `value`, without its initial octet
};
Refusal ReadBitString(Bytes value, BitString* out);

// Checks a UTCTime or GeneralizedTime. RFC 5280 4.1.2.5 permits one form of each.
Refusal CheckTime(const Element& time);

// Returns true for the tag of a universal string type in the constructed form, which X.690 10.2
// forbids.
bool IsConstructedString(unsigned char tag);

// Checks an element that may have any type, such as the parameters of an algorithm. Types that
// algorithms use are checked. The contents of a SEQUENCE, a SET and of types that are not universal
// are not looked into. Other universal types are refused.
Refusal CheckOpaque(const Element& element);

}  // namespace cardcert::x509
