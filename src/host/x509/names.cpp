#include "host/x509/names.h"

#include <algorithm>

#include "host/x509/values.h"

namespace cardcert::x509 {

namespace {

// X.690 11.6: the encodings of a SET OF in ascending order, the shorter one padded with zeros. An
// encoding is never a prefix of another one, so the padding decides nothing.
bool InOrder(Bytes a, Bytes b) {
  return std::memcmp(a.data, b.data, std::min(a.size, b.size)) <= 0;
}

// What names hold: character strings, the BIT STRING of x500UniqueIdentifier and the SEQUENCE of
// postalAddress and its like (X.520). A SEQUENCE stays opaque.
Refusal CheckValue(const Element& value) {
  if (IsCharacterString(value.tag))
    return CheckCharacterString(value);
  if (value.tag == kBitString || value.tag == kSequence)
    return CheckOpaque(value);
  return IsConstructedString(value.tag) ? Reason::kConstructed : Reason::kAttributeValueType;
}

// RFC 4514 section 2.4: what has a backslash in front.
bool NeedsBackslash(std::uint32_t code_point, bool first, bool last) {
  switch (code_point) {
    case ' ':
      return first || last;
    case '#':
      return first;
    case '"':
    case '+':
    case ',':
    case ';':
    case '<':
    case '>':
    case '\\':
      return true;
    default:
      return false;
  }
}

// Control characters in hexadecimal too, which RFC 4514 section 2.4 allows.
void PutEscaped(std::uint32_t code_point, bool first, bool last, TextWriter* out) {
  if (code_point < 0x20 || code_point == 0x7f) {
    out->Put('\\');
    out->PutHex(static_cast<unsigned char>(code_point));
    return;
  }
  if (NeedsBackslash(code_point, first, last))
    out->Put('\\');
  out->PutUtf8(code_point);
}

// Whether the contents of a string are also its escaped text.
bool NeedsNoEscapes(const Element& string) {
  if (!IsPrintableAscii(string))
    return false;
  const Bytes text = string.value;
  for (std::size_t i = 0; i < text.size; ++i) {
    if (NeedsBackslash(text.data[i], i == 0, i + 1 == text.size))
      return false;
  }
  return true;
}

Refusal PutEscapedString(const Element& string, TextWriter* out) {
  if (NeedsNoEscapes(string)) {
    out->Put(string.value);
    return {};
  }
  CharacterReader characters(string);
  Refusal refusal;
  for (bool first = true; !refusal && !characters.AtEnd(); first = false) {
    std::uint32_t code_point = 0;
    refusal = characters.Next(&code_point);
    PutEscaped(code_point, first, characters.AtEnd(), out);
  }
  return refusal;
}

// RFC 4514 section 2.3: type, "=", value.
Refusal PutAttribute(const Attribute& attribute, TextWriter* out) {
  const char* const word = AttributeShortWord(attribute.type_oid);
  if (word != nullptr) {
    out->Put(word);
  } else if (const Refusal refusal = PutDottedOid(attribute.type_oid, out)) {
    return refusal;
  }
  out->Put('=');
  if (word != nullptr && IsCharacterString(attribute.value.tag))
    return PutEscapedString(attribute.value, out);
  // RFC 4514 section 2.4: after a dotted type, and for a value that is no string, "#" and the
  // hexadecimal form of the whole encoding.
  out->Put('#');
  for (std::size_t i = 0; i < attribute.value.tlv.size; ++i)
    out->PutHex(attribute.value.tlv.data[i]);
  return {};
}

// The same with what separates it from the attribute behind it in the text (RFC 4514 sections 2.1
// and 2.2), which is the one before it in the certificate.
Refusal PutAttribute(const Attribute& attribute, bool last, TextWriter* out) {
  const Refusal refusal = PutAttribute(attribute, out);
  if (!last)
    out->Put(attribute.begins_rdn ? ',' : '+');
  return refusal;
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

// RFC 4514 section 2.1 begins with the last relative distinguished name, so the text grows from the
// end of the buffer towards its beginning, where each attribute is written before it moves to the
// others, and where the text moves when it is whole.
Refusal WriteName(Bytes rdn_sequence, char* buffer, std::size_t size) {
  if (size == 0)
    return Reason::kBufferTooSmall;
  std::size_t begin = size - 1;
  buffer[begin] = '\0';

  NameReader attributes(rdn_sequence);
  for (bool last = true; !attributes.AtEnd(); last = false) {
    Attribute attribute;
    TextWriter writer(buffer, begin);
    Refusal refusal = attributes.Next(&attribute);
    if (!refusal)
      refusal = PutAttribute(attribute, last, &writer);
    if (!refusal && writer.Length() > begin)
      refusal = Reason::kBufferTooSmall;
    if (refusal)
      return refusal;
    begin -= writer.Length();
    std::memmove(buffer + begin, buffer, writer.Length());
  }
  std::memmove(buffer, buffer + begin, size - begin);
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

Refusal WriteValue(const Element& value, char* buffer, std::size_t size) {
  if (!IsCharacterString(value.tag))
    return Reason::kAttributeNotText;
  TextWriter writer(buffer, size);
  Refusal refusal;
  if (IsPrintableAscii(value)) {
    writer.Put(value.value);
  } else {
    CharacterReader characters(value);
    while (!refusal && !characters.AtEnd()) {
      std::uint32_t code_point = 0;
      refusal = characters.Next(&code_point);
      writer.PutUtf8(code_point);
    }
  }
  writer.Put('\0');
  if (!refusal && writer.Length() > size)
    refusal = Reason::kBufferTooSmall;
  return refusal;
}

}  // namespace cardcert::x509
