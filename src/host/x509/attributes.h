// The attribute types of names: their object identifiers and the words for them.
#pragma once

#include "host/x509/bytes.h"

namespace cardcert::x509 {

// Returns the word for an attribute type in the text of a name: a descriptor that RFC 4514 section
// 3 lists or that is registered for LDAP, otherwise the customary one. Returns null for a type that
// has no word. The word is a constant.
const char* AttributeShortWord(Bytes type_oid);

// A word for an attribute type: a short or a long word in upper or lower case (RFC 4512 1.4), or a
// dotted object identifier without superfluous zeros.
class AttributeWord {
 public:
  // Keeps a pointer to `word`, which must not be null and must outlive the object.
  explicit AttributeWord(const char* word);

  // Returns true if the word stands for this type. An unknown word stands for no type.
  bool StandsFor(Bytes type_oid) const;

 private:
  const char* dotted_ = nullptr;  // the word, if it begins with a digit
  Bytes type_oid_;                // otherwise the type of the word, empty if the word is unknown
};

}  // namespace cardcert::x509
