// Distinguished names (RFC 5280 4.1.2.4): walking, checking and searching them.
#pragma once

#include "host/x509/attributes.h"
#include "host/x509/der.h"

namespace cardcert::x509 {

// Every function here takes the contents of an RDNSequence, without its tag and length.

struct Attribute {
  Bytes type_oid;           // the contents of the OBJECT IDENTIFIER
  Element value;            // of any type
  bool begins_rdn = false;  // true for the first attribute of its relative distinguished name
};

// Walks the attributes of a name in the order of the certificate. Checks the structure of the name,
// but neither the contents of types nor those of values. Refers to the octets of the name.
class NameReader {
 public:
  explicit NameReader(Bytes rdn_sequence) : rdns_(rdn_sequence), rdn_(Bytes{}) {}

  bool AtEnd() const { return rdn_.AtEnd() && rdns_.AtEnd(); }

  // Reads the next attribute. Must not be called at the end, nor after it has failed. On failure
  // `*out` is unspecified.
  Refusal Next(Attribute* out);

 private:
  Cursor rdns_;
  Cursor rdn_;          // what is left of the current relative distinguished name
  Bytes previous_tlv_;  // the previous attribute in it
};

// Checks a whole name: its structure, types and values.
Refusal CheckName(Bytes rdn_sequence);

// Finds the first attribute of the type that `word` stands for and stores its value, which refers
// to the octets of the name. Searches the structure, not the text, so the contents of a value are
// never mistaken for an attribute. Takes a name that passed CheckName(). Returns false if there is
// no such attribute; `*value` is then unchanged.
bool FindAttribute(Bytes rdn_sequence, const AttributeWord& word, Element* value);

}  // namespace cardcert::x509
