#include "host/x509/names.h"

#include <algorithm>

#include "host/x509/strings.h"
#include "host/x509/values.h"

namespace cardcert::x509 {

namespace {

// X.690 11.6: the elements of a SET OF are in ascending order of their encodings, and the shorter
// one is padded with zeros for the comparison. The padding is never compared, because no encoding
// is a prefix of another.
bool InOrder(Bytes a, Bytes b) {
  return std::memcmp(a.data, b.data, std::min(a.size, b.size)) <= 0;
}

// Permits the types that names use: character strings, BIT STRING for x500UniqueIdentifier, and
// SEQUENCE for postalAddress and similar attributes (X.520). Does not look into a SEQUENCE.
Refusal CheckValue(const Element& value) {
  if (IsCharacterString(value.tag))
    return CheckCharacterString(value);
  if (value.tag == kBitString || value.tag == kSequence)
    return CheckOpaque(value);
  return IsConstructedString(value.tag) ? Reason::kConstructed : Reason::kAttributeValueType;
}

}  // namespace

Refusal NameReader::Next(Attribute* out) {
  out->begins_rdn = rdn_.AtEnd();
  if (out->begins_rdn) {
    Element rdn;
    if (const Refusal refusal = ReadElement(&rdns_, kSet, Reason::kRdnType, &rdn))
      return refusal;
    if (rdn.value.size == 0)
      return Reason::kRdnEmpty;  // RFC 5280 4.1.2.4: "SET SIZE (1..MAX) OF"
    rdn_ = Cursor(rdn.value);
  }

  Element attribute;
  if (const Refusal refusal = ReadElement(&rdn_, kSequence, Reason::kAttributeType, &attribute))
    return refusal;
  if (!out->begins_rdn && !InOrder(previous_tlv_, attribute.tlv))
    return Reason::kRdnOrder;
  previous_tlv_ = attribute.tlv;

  Cursor fields(attribute.value);
  Element type;
  if (const Refusal refusal = ReadElement(&fields, kOid, Reason::kAttributeOidType, &type))
    return refusal;
  if (const Refusal refusal = ReadElement(&fields, &out->value))
    return refusal;
  out->type_oid = type.value;
  return ExpectEnd(fields, Reason::kAttributeTrailing);
}

Refusal CheckName(Bytes rdn_sequence) {
  NameReader attributes(rdn_sequence);
  while (!attributes.AtEnd()) {
    Attribute attribute;
    if (const Refusal refusal = attributes.Next(&attribute))
      return refusal;
    if (const Refusal refusal = CheckOid(attribute.type_oid))
      return refusal;
    if (const Refusal refusal = CheckValue(attribute.value))
      return refusal;
  }
  return {};
}

bool FindAttribute(Bytes rdn_sequence, const AttributeWord& word, Element* value) {
  NameReader attributes(rdn_sequence);
  Attribute attribute;
  while (!attributes.AtEnd() && !attributes.Next(&attribute)) {
    if (word.StandsFor(attribute.type_oid)) {
      *value = attribute.value;
      return true;
    }
  }
  return false;
}

}  // namespace cardcert::x509
