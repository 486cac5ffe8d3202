// Names and attribute values as text.
#pragma once

#include <cstddef>

#include "host/x509/der.h"

namespace cardcert::x509 {

// Both functions write UTF-8 with a terminating NUL. On failure the contents of the buffer are
// unspecified; kBufferTooSmall means that the text and the NUL do not fit `size` octets.

// Writes a name in the string form of RFC 4514. Takes the contents of an RDNSequence that passed
// CheckName(). The text is unambiguous: special characters in values are escaped, and values that
// are not character strings are written in hexadecimal.
Refusal WriteName(Bytes rdn_sequence, char* buffer, std::size_t size);

// Writes the value of an attribute without escapes. Takes a value of a name that passed
// CheckName(). Fails with kAttributeNotText if it is not a character string.
Refusal WriteValue(const Element& value, char* buffer, std::size_t size);

}  // namespace cardcert::x509
