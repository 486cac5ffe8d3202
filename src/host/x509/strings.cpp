#include "host/x509/strings.h"

namespace cardcert::x509 {

namespace {

bool IsSurrogate(std::uint32_t code_point) {
  return code_point >= 0xd800 && code_point <= 0xdfff;
}

std::uint32_t BigEndian(Bytes octets) {
  std::uint32_t value = 0;
  for (std::size_t i = 0; i < octets.size; ++i)
    value = value << 8 | octets.data[i];
  return value;
}

}  // namespace

bool IsCharacterString(unsigned char tag) {
  switch (tag) {
    case kUtf8String:
    case kNumericString:
    case kPrintableString:
    case kT61String:
    case kIa5String:
    case kVisibleString:
    case kUniversalString:
    case kBmpString:
      return true;
    default:
      return false;
  }
}

bool IsPrintableAscii(const Element& string) {
  if (string.tag == kBmpString || string.tag == kUniversalString || string.tag == kNumericString)
    return false;  // more octets a character, or fewer characters
  // All octets, without a way out on the first other one: so compilers take many at a time.
  unsigned others = 0;
  for (std::size_t i = 0; i < string.value.size; ++i)
    others |= string.value.data[i] < 0x20 || string.value.data[i] > 0x7e ? 1U : 0U;
  return others == 0;
}

Refusal CharacterReader::Next(std::uint32_t* out) {
  Bytes octets;
  if (tag_ == kBmpString) {
    if (!rest_.Take(2, &octets))
      return Reason::kBmpStringLength;
    *out = BigEndian(octets);
    if (IsSurrogate(*out))
      return Reason::kBmpStringSurrogate;  // a BMPString has no characters beyond U+FFFF
  } else if (tag_ == kUniversalString) {
    if (!rest_.Take(4, &octets))
      return Reason::kUniversalStringLength;
    *out = BigEndian(octets);
    if (*out > 0x10ffff || IsSurrogate(*out))
      return Reason::kUniversalStringRange;
  } else {
    if (!rest_.Take(1, &octets))
      return Reason::kContentsCutShort;
    *out = octets.data[0];
    if (tag_ == kUtf8String && *out >= 0x80) {
      if (const Refusal refusal = NextUtf8(octets.data[0], out))
        return refusal;
    } else if (tag_ == kNumericString && *out != ' ' && (*out < '0' || *out > '9')) {
      return Reason::kNumericStringSet;
    } else if (tag_ == kIa5String && *out > 0x7f) {
      return Reason::kIa5StringSet;
    } else if (tag_ == kVisibleString && (*out < 0x20 || *out > 0x7e)) {
      return Reason::kVisibleStringSet;
    }
    // Tolerated: a PrintableString with characters outside its set (X.680 41.4), which certificates
    // in use have ("*", "@", "&", "_"). Read as ISO 8859-1, like a T61String, whose own set (T.61)
    // nobody writes.
  }
  if (*out == 0)
    return Reason::kStringNul;
  return {};
}

// RFC 3629 section 4: the range of the second octet keeps out overlong forms, surrogates and what
// is above U+10FFFF.
Refusal CharacterReader::NextUtf8(unsigned char first, std::uint32_t* out) {
  std::size_t num_more = 0;
  unsigned char lowest = 0x80;
  unsigned char highest = 0xbf;
  if (first >= 0xc2 && first <= 0xdf) {
    num_more = 1;
  } else if (first >= 0xe0 && first <= 0xef) {
    num_more = 2;
    lowest = first == 0xe0 ? 0xa0 : lowest;
    highest = first == 0xed ? 0x9f : highest;
  } else if (first >= 0xf0 && first <= 0xf4) {
    num_more = 3;
    lowest = first == 0xf0 ? 0x90 : lowest;
    highest = first == 0xf4 ? 0x8f : highest;
  } else {
    return Reason::kUtf8StringForm;
  }

  Bytes more;
  if (!rest_.Take(num_more, &more))
    return Reason::kUtf8StringForm;
  std::uint32_t code_point = first & (0x3fU >> num_more);
  for (std::size_t i = 0; i < more.size; ++i) {
    if (more.data[i] < lowest || more.data[i] > highest)
      return Reason::kUtf8StringForm;
    lowest = 0x80;
    highest = 0xbf;
    code_point = code_point << 6 | (more.data[i] & 0x3fU);
  }
  *out = code_point;
  return {};
}

Refusal CheckCharacterString(const Element& string) {
  if (IsPrintableAscii(string))
    return {};
  CharacterReader characters(string);
  std::uint32_t code_point = 0;
  while (!characters.AtEnd()) {
    if (const Refusal refusal = characters.Next(&code_point))
      return refusal;
  }
  return {};
}

void TextWriter::PutHex(unsigned char octet) {
  static const char kDigits[] = "0123456789ABCDEF";
  Put(kDigits[octet >> 4]);
  Put(kDigits[octet & 0x0fU]);
}

void TextWriter::PutUtf8(std::uint32_t code_point) {
  const auto put = [this](std::uint32_t octet) { Put(static_cast<char>(octet)); };
  if (code_point < 0x80) {
    put(code_point);
    return;
  }
  if (code_point < 0x800) {
    put(0xc0 | code_point >> 6);
  } else {
    if (code_point < 0x10000) {
      put(0xe0 | code_point >> 12);
    } else {
      put(0xf0 | code_point >> 18);
      put(0x80 | (code_point >> 12 & 0x3f));
    }
    put(0x80 | (code_point >> 6 & 0x3f));
  }
  put(0x80 | (code_point & 0x3f));
}

}  // namespace cardcert::x509
