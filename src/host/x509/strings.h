// The character strings of names (X.680 41, X.690 8.23).
#pragma once

#include <cstdint>

#include "host/x509/der.h"

namespace cardcert::x509 {

// Returns true for the tags of the character strings that CharacterReader supports.
bool IsCharacterString(unsigned char tag);

// Returns true if the contents of a character string can be used as its text without decoding:
// printable ASCII in a type that encodes ASCII as single octets. Most names are such strings.
bool IsPrintableAscii(const Element& string);

// Decodes a character string into Unicode code points and checks it. Refers to the octets of the
// string.
class CharacterReader {
 public:
  // `string` must have a tag for which IsCharacterString() is true.
  explicit CharacterReader(const Element& string) : tag_(string.tag), rest_(string.value) {}

  bool AtEnd() const { return rest_.AtEnd(); }

  // Stores the next character. Must not be called at the end. On failure `*out` is unspecified, and
  // the position may be anywhere in the string.
  //
  // Refuses NUL. Names are returned as C strings, and a name that ends at the NUL would differ from
  // the name that the issuer signed.
  Refusal Next(std::uint32_t* out);

 private:
  Refusal NextUtf8(unsigned char first, std::uint32_t* out);

  unsigned char tag_;
  Cursor rest_;
};

// Checks a whole string, which must have a tag for which IsCharacterString() is true.
Refusal CheckCharacterString(const Element& string);

}  // namespace cardcert::x509
