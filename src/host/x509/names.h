// Distinguished names (RFC 5280 4.1.2.4) and their text (RFC 4514).
#pragma once

#include "host/x509/attributes.h"

namespace cardcert::x509 {

struct Attribute {
  Bytes type_oid;
  Element value;
  bool begins_rdn = false;  // the first attribute of its relative distinguished name
};

// Walks the attributes of an RDNSequence in the order of the certificate.
class NameReader {
 public:
  explicit NameReader(Bytes rdn_sequence) : rdns_(rdn_sequence), rdn_(Bytes{}) {}

  bool AtEnd() const { return rdn_.AtEnd() && rdns_.AtEnd(); }
  Refusal Next(Attribute* out);

 private:
  Cursor rdns_;
  Cursor rdn_;          // what is left of the current one
  Bytes previous_tlv_;  // the attribute before, within the same one
};

// Checks a whole name, values included. The functions below take names that passed.
Refusal CheckName(Bytes rdn_sequence);

// Writes the text of the name and a NUL. The text has exactly one reading: what belongs to a value
// is escaped, and what is no text is written in hexadecimal.
Refusal WriteName(Bytes rdn_sequence, char* buffer, std::size_t size);

// Looks an attribute up in the structure, never in the text. False when the name has none of it.
bool FindAttribute(Bytes rdn_sequence, const AttributeWord& word, Element* value);

// Writes a value, without escapes, and a NUL.
Refusal WriteValue(const Element& value, char* buffer, std::size_t size);

}  // namespace cardcert::x509
