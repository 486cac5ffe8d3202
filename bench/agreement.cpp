#include "agreement.h"

#include <algorithm>
#include <vector>

#include "support/hex.h"

namespace {

struct Attribute {
  std::string type;
  std::string value;
};

std::string WithoutEscapes(const std::string& text) {
  std::string plain;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\\' && i + 1 < text.size())
      ++i;
    plain += text[i];
  }
  return plain;
}

Attribute ToAttribute(const std::string& text) {
  const std::size_t begin = text.find_first_not_of(' ');
  const std::size_t equals = text.find('=');
  if (begin == std::string::npos || equals == std::string::npos)
    return {"", text};
  return {text.substr(begin, equals - begin), WithoutEscapes(text.substr(equals + 1))};
}

std::vector<Attribute> AttributesOf(const std::string& name) {
  std::vector<Attribute> attributes;
  std::size_t begin = 0;
  for (std::size_t i = 0; i < name.size(); ++i) {
    if (name[i] == '\\') {
      ++i;
    } else if (name[i] == ',' || name[i] == '+') {
      const bool spaced = name[i] == '+' && i > begin && name[i - 1] == ' ';
      attributes.push_back(ToAttribute(name.substr(begin, i - begin - (spaced ? 1 : 0))));
      begin = i + 1;
    }
  }
  if (!name.empty())
    attributes.push_back(ToAttribute(name.substr(begin)));
  return attributes;
}

bool EndsWith(const std::string& text, const std::string& end) {
  return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

bool EqualExceptQuestionMarks(const std::string& ours, const std::string& theirs) {
  return std::equal(ours.begin(), ours.end(), theirs.begin(), theirs.end(), [](char a, char b) {
    const bool not_ascii = (static_cast<unsigned>(a) & 0x80U) != 0;
    return a == b || (b == '?' && not_ascii);
  });
}

bool SameAttribute(const Attribute& ours, const Attribute& theirs) {
  if (theirs.type[0] >= '0' && theirs.type[0] <= '9' && theirs.type != ours.type)
    return EndsWith(theirs.value, support::Hex(ours.value));
  const bool same_type = theirs.type == ours.type || theirs.type == "??" ||
                         (theirs.type == "EMAIL" && ours.type == "emailAddress");
  return same_type && EqualExceptQuestionMarks(ours.value, theirs.value);
}

bool SameName(const std::string& ours, const std::string& theirs) {
  const std::vector<Attribute> a = AttributesOf(ours);
  const std::vector<Attribute> b = AttributesOf(theirs);
  return std::equal(a.begin(), a.end(), b.begin(), b.end(), SameAttribute) ||
         std::equal(a.begin(), a.end(), b.rbegin(), b.rend(), SameAttribute);
}

bool SameText(const char* ours, const char* theirs) {
  return std::strcmp(ours, theirs) == 0;
}

bool SameOctets(const unsigned char* ours, unsigned long ours_len, const unsigned char* theirs,
                unsigned long theirs_len) {
  return ours_len == theirs_len && std::memcmp(ours, theirs, ours_len) == 0;
}

}  // namespace

std::string Difference(const Answers& ours, const Answers& theirs) {
  if (!SameName(ours.subject, theirs.subject))
    return std::string("the subject text: ") + theirs.subject;
  if (!SameText(ours.subject_common_name, theirs.subject_common_name))
    return "the subject's common name";
  if (!SameText(ours.subject_organization, theirs.subject_organization))
    return "the subject's organization";
  if (!SameText(ours.issuer_common_name, theirs.issuer_common_name))
    return "the issuer's common name";
  if (!SameText(ours.issuer_organization, theirs.issuer_organization))
    return "the issuer's organization";
  if (ours.is_ca != theirs.is_ca)
    return "the CA flag";
  if (!SameOctets(ours.serial, ours.serial_len, theirs.serial, theirs.serial_len))
    return "the serial number";
  if (ours.key_usage != theirs.key_usage)
    return "the key usage";
  if (!SameOctets(ours.exponent, ours.exponent_len, theirs.exponent, theirs.exponent_len))
    return "the RSA exponent";
  if (!SameOctets(ours.modulus, ours.modulus_len, theirs.modulus, theirs.modulus_len))
    return "the RSA modulus";
  return "";
}
