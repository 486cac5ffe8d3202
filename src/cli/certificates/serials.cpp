#include "cli/certificates/serials.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace cardcert::cli {
namespace {

constexpr char kHexDigits[] = "0123456789abcdef";

std::string WithoutLeadingZeros(const std::string& digits) {
  const std::string::size_type first = digits.find_first_not_of('0');
  return first == std::string::npos ? "0" : digits.substr(first);
}

bool SameBytes(const unsigned char* a, unsigned long a_len, const unsigned char* b,
               unsigned long b_len) {
  return a_len == b_len && std::memcmp(a, b, a_len) == 0;
}

}  // namespace

Serial::Serial(std::string digits, std::string number)
    : digits_(std::move(digits)), number_(std::move(number)) {}

std::optional<Serial> Serial::Parse(const std::string& text) {
  const bool has_prefix = text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
  std::string digits;
  std::size_t group = 0;  // where the digits behind the last colon begin
  const auto end_group = [&] {
    // A single digit is a byte without its leading zero.
    if (digits.size() == group + 1)
      digits.insert(group, 1, '0');
    group = digits.size();
  };
  for (const char c : text.substr(has_prefix ? 2 : 0)) {
    if (c == ':')
      end_group();
    else
      digits += 'A' <= c && c <= 'F' ? static_cast<char>(c - 'A' + 'a') : c;
  }
  if (text.find(':') != std::string::npos)
    end_group();
  if (digits.empty() || digits.find_first_not_of(kHexDigits) != std::string::npos)
    return std::nullopt;
  return Serial(digits, WithoutLeadingZeros(digits));
}

std::vector<const pkcs11_certificate*> Serial::Find(
    const std::list<pkcs11_certificate>& records) const {
  std::vector<const pkcs11_certificate*> exact;
  std::vector<const pkcs11_certificate*> equal;
  for (const pkcs11_certificate& record : records) {
    if (record.serial == digits_)
      exact.push_back(&record);
    if (WithoutLeadingZeros(record.serial) == number_)
      equal.push_back(&record);
  }
  return exact.empty() ? equal : exact;
}

std::vector<std::string> Serial::Spellings() const {
  const std::string even = (number_.size() % 2 == 0 ? "" : "0") + number_;
  std::vector<std::string> spellings = {digits_};
  // A positive INTEGER with its highest bit set has a zero byte before it (X.690, section 8.3).
  for (const std::string& spelling : {even, "00" + even}) {
    if (std::find(spellings.begin(), spellings.end(), spelling) == spellings.end())
      spellings.push_back(spelling);
  }
  return spellings;
}

bool SameCertificate(const pkcs11_certificate& a, const pkcs11_certificate& b) {
  return a.serial == b.serial && a.subject == b.subject && a.is_ca == b.is_ca &&
         a.key_usage == b.key_usage &&
         SameBytes(a.modulus, a.modulus_len, b.modulus, b.modulus_len) &&
         SameBytes(a.public_exponent, a.public_exponent_len, b.public_exponent,
                   b.public_exponent_len);
}

std::vector<const pkcs11_certificate*> WithoutCopies(
    const std::vector<const pkcs11_certificate*>& records) {
  std::vector<const pkcs11_certificate*> different;
  for (const pkcs11_certificate* record : records) {
    const bool known = std::any_of(
        different.begin(), different.end(),
        [record](const pkcs11_certificate* other) { return SameCertificate(*record, *other); });
    if (!known)
      different.push_back(record);
  }
  return different;
}

}  // namespace cardcert::cli
