// The types of attributes in names: object identifiers and the words that stand for them.
#pragma once

#include "host/x509/strings.h"

namespace cardcert::x509 {

// The word for an attribute type in the text of a name: a descriptor that RFC 4514 section 3 lists
// or that is registered for LDAP, else the customary one. Null for a type without a word.
const char* AttributeShortWord(Bytes type_oid);

// Which attribute type a word stands for: a long or a short word, in either case (RFC 4512 1.4), or
// a dotted object identifier without superfluous zeros.
class AttributeWord {
 public:
  explicit AttributeWord(const char* word);

  bool StandsFor(Bytes type_oid) const;

 private:
  const char* dotted_ = nullptr;  // the word, when it begins with a digit
  Bytes type_oid_;                // else what it stands for, empty when for nothing
};

// Writes the object identifier in dotted form (RFC 4512 1.4). Arcs of up to 19 octets are written,
// which holds the 128 bits of X.667; larger ones are refused, since the work grows with their
// square.
Refusal PutDottedOid(Bytes oid, TextWriter* out);

}  // namespace cardcert::x509
