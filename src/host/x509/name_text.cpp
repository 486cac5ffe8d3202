#include "host/x509/name_text.h"

#include <cstring>

#include "host/x509/attributes.h"
#include "host/x509/names.h"
#include "host/x509/oid_text.h"
#include "host/x509/strings.h"
#include "host/x509/text_writer.h"

namespace cardcert::x509 {

namespace {

// RFC 4514 section 2.4.
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

// Also writes control characters in hexadecimal, as RFC 4514 section 2.4 permits.
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

// Returns true if the contents of a string are its escaped text, too.
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

// RFC 4514 section 2.3: the type, "=" and the value.
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
  // RFC 4514 section 2.4: after a dotted type, and for a value that is not a string, the whole
  // encoding follows "#" in hexadecimal.
  out->Put('#');
  for (std::size_t i = 0; i < attribute.value.tlv.size; ++i)
    out->PutHex(attribute.value.tlv.data[i]);
  return {};
}

// Writes the attribute and, unless it is the last one in the text, the separator after it (RFC 4514
// sections 2.1 and 2.2). The next attribute in the text is the previous one in the certificate.
Refusal PutAttribute(const Attribute& attribute, bool last, TextWriter* out) {
  const Refusal refusal = PutAttribute(attribute, out);
  if (!last)
    out->Put(attribute.begins_rdn ? ',' : '+');
  return refusal;
}

}  // namespace

// In RFC 4514 section 2.1 the text begins with the last relative distinguished name. The text
// therefore grows from the end of the buffer: each attribute is written at the beginning and then
// moved in front of the others. In the end the whole text is moved to the beginning.
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
