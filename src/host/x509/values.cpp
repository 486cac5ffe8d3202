#include "host/x509/values.h"

namespace cardcert::x509 {

Refusal CheckInteger(Bytes value) {
  if (value.size == 0)
    return Reason::kIntegerEmpty;  // X.690 8.3.1: "one or more octets"
  // X.690 8.3.2: the bits of the first octet and bit 8 of the second "shall not all be ones and
  // shall not all be zero".
  if (value.size > 1) {
    const bool second_begins_with_one = (value.data[1] & 0x80U) != 0;
    if (value.data[0] == (second_begins_with_one ? 0xff : 0x00))
      return Reason::kIntegerNotMinimal;
  }
  return {};
}

Refusal CheckOid(Bytes value) {
  if (value.size == 0)
    return Reason::kOidEmpty;
  bool at_arc_begin = true;
  for (std::size_t i = 0; i < value.size; ++i) {
    // X.690 8.19.2: "the leading octet of the subidentifier shall not have the value 80"
    if (at_arc_begin && value.data[i] == 0x80)
      return Reason::kOidNotMinimal;
    at_arc_begin = (value.data[i] & 0x80U) == 0;
  }
  return at_arc_begin ? Refusal() : Refusal(Reason::kOidCutShort);
}

Refusal ReadBoolean(Bytes value, bool* out) {
  if (value.size != 1)
    return Reason::kBooleanLength;
  // Tolerated: TRUE encoded as any octet but 0, although DER requires FF (X.690 11.1). Certificates
  // in use have it.
  *out = value.data[0] != 0;
  return {};
}

Refusal ReadBitString(Bytes value, BitString* out) {
  Cursor cursor(value);
  Bytes initial;
  if (!cursor.Take(1, &initial))
    return Reason::kBitStringEmpty;
  const unsigned num_unused_bits = initial.data[0];
  if (num_unused_bits > 7)
    return Reason::kBitStringUnusedBits;  // X.690 8.6.2.2: "in the range zero to seven"
  const Bytes octets = cursor.Rest();
  if (octets.size == 0 && num_unused_bits != 0)
    return Reason::kBitStringUnusedInEmpty;  // X.690 8.6.2.3: "the initial octet shall be zero"
  // X.690 11.2.1: "each unused bit in the final octet shall be set to zero"
  if (octets.size != 0 && (octets.data[octets.size - 1] & ((1U << num_unused_bits) - 1)) != 0)
    return Reason::kBitStringPadding;
  out->num_unused_bits = num_unused_bits;
  out->octets = octets;
  return {};
}

namespace {

// Returns the number that two digits stand for, or -1 if one of them is not a digit.
int TwoDigits(const unsigned char* text) {
  const int tens = text[0] - '0';
  const int ones = text[1] - '0';
  if (tens < 0 || tens > 9 || ones < 0 || ones > 9)
    return -1;
  return tens * 10 + ones;
}

int DaysOfMonth(int year, int month) {
  static const int kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  const bool leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
  return kDays[month - 1] + (month == 2 && leap ? 1 : 0);
}

}  // namespace

Refusal CheckTime(const Element& time) {
  const bool is_utc_time = time.tag == kUtcTime;
  // RFC 5280 4.1.2.5.1 and 4.1.2.5.2: with seconds, without fractions, and in Greenwich Mean Time.
  const std::size_t num_year_digits = is_utc_time ? 2 : 4;
  if (time.value.size != num_year_digits + 11 || time.value.data[time.value.size - 1] != 'Z')
    return Reason::kTimeForm;

  int pairs[7] = {};  // century, year, month, day, hour, minute, second
  const unsigned char* text = time.value.data;
  for (int i = is_utc_time ? 1 : 0; i < 7; ++i, text += 2) {
    pairs[i] = TwoDigits(text);
    if (pairs[i] < 0)
      return Reason::kTimeForm;
  }
  // RFC 5280 4.1.2.5.1: from 50 on, the year belongs to the twentieth century.
  if (is_utc_time)
    pairs[0] = pairs[1] >= 50 ? 19 : 20;

  const int year = pairs[0] * 100 + pairs[1];
  const int month = pairs[2];
  const int day = pairs[3];
  if (month < 1 || month > 12 || day < 1 || day > DaysOfMonth(year, month))
    return Reason::kTimeRange;
  if (pairs[4] > 23 || pairs[5] > 59 || pairs[6] > 59)
    return Reason::kTimeRange;
  return {};
}

bool IsConstructedString(unsigned char tag) {
  return (tag & 0xe0U) == 0x20 && tag != kSequence && tag != kSet;
}

Refusal CheckOpaque(const Element& element) {
  switch (element.tag) {
    case kBoolean: {
      bool ignored = false;
      return ReadBoolean(element.value, &ignored);
    }
    case kInteger:
      return CheckInteger(element.value);
    case kBitString: {
      BitString ignored;
      return ReadBitString(element.value, &ignored);
    }
    case kNull:
      return element.value.size == 0 ? Refusal() : Refusal(Reason::kNullNotEmpty);
    case kOid:
      return CheckOid(element.value);
    case kOctetString:
    case kSequence:
    case kSet:
      return {};
    default:
      // Bits 8 and 7 are zero in the universal class (X.690 8.1.2.2).
      if ((element.tag & 0xc0U) != 0)
        return {};
      return IsConstructedString(element.tag) ? Reason::kConstructed : Reason::kOpaqueType;
  }
}

}  // namespace cardcert::x509
