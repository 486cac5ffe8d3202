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
    return false;  // several octets per character, or a smaller set of characters
  // No early exit, so that compilers vectorise the loop.
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
      return Reason::kBmpStringSurrogate;  // a BMPString has no characters above U+FFFF
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
    // Tolerated: characters outside the set of PrintableString (X.680 41.4). Certificates in use
    // have "*", "@", "&" and "_". Decoded as ISO 8859-1, and so is T61String, because certificates
    // in use do not follow T.61.
  }
  if (*out == 0)
    return Reason::kStringNul;
  return {};
}

// RFC 3629 section 4: the range of the second octet excludes overlong forms, surrogates and code
// points above U+10FFFF.
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

}  // namespace cardcert::x509
