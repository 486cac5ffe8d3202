// Queries for single attributes of subject and issuer.
#include <gtest/gtest.h>

#include "certificate_parts.h"
#include "parsed.h"

namespace {

using der::Certificate;

TEST(Attributes, ReturnsFirstOfSeveralValues) {
  const std::string subject = der::Sequence(der::Set(der::Attribute("OU", der::Utf8("first"))),
                                            der::Set(der::Attribute("OU", der::Utf8("second")),
                                                     der::Attribute("OU", der::Utf8("thirdd"))));
  EXPECT_EQ(Parsed(WithSubject(subject).Der()).SubjectAttr("OU").text, "first");
}

TEST(Attributes, DistinguishesSubjectAndIssuer) {
  const Parsed cert(
      Certificate().Subject({{"CN", "s"}, {"O", "o"}}).Issuer({{"CN", "i"}, {"L", "l"}}).Der());
  EXPECT_EQ(cert.SubjectAttr("CN").text, "s");
  EXPECT_EQ(cert.IssuerAttr("CN").text, "i");
  EXPECT_EQ(cert.SubjectAttr("L").code, -2);
  EXPECT_EQ(cert.IssuerAttr("O").code, -2);
}

TEST(Attributes, AbsentAttributeGivesEmptyText) {
  const Parsed cert(Certificate().Der());
  EXPECT_EQ(cert.SubjectAttr("title").code, -2);
  EXPECT_EQ(cert.SubjectAttr("title").text, "");
  EXPECT_EQ(cert.SubjectAttr("title", 0).code, -2);
}

TEST(Attributes, UnknownWordIsAbsent) {
  const Parsed cert(Certificate().Der());
  for (const char* word : {"", "common_name", "commonNam", "commonNames", "C N", "CN ", "colour"}) {
    EXPECT_EQ(cert.SubjectAttr(word).code, -2) << word;
    EXPECT_EQ(cert.IssuerAttr(word).code, -2) << word;
  }
}

TEST(Attributes, DistinguishesAbsentFromNonText) {
  Certificate description;
  description.issuer = der::Sequence(der::Set(der::Attribute("2.5.4.45", der::BitString("x"))));
  const Parsed cert(description.Der());
  EXPECT_EQ(cert.IssuerAttr("commonName").code, -2);
  EXPECT_EQ(cert.IssuerAttr("x500UniqueIdentifier").code, CodeOf(Reason::kAttributeNotText));
  EXPECT_EQ(cert.IssuerAttr("x500UniqueIdentifier").text, "");
}

struct WordCase {
  const char* long_word;
  const char* short_word;
  const char* dotted;
};

void PrintTo(const WordCase& one, std::ostream* out) {
  *out << one.long_word;
}

class AttributeWords : public testing::TestWithParam<WordCase> {};

TEST_P(AttributeWords, NameTypeInAnyFormAndCase) {
  const Parsed cert(Certificate().Subject({{GetParam().dotted, "x"}}).Der());
  const auto upper = [](std::string word) {
    for (char& c : word)
      c = c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
    return word;
  };
  for (const std::string word : {GetParam().long_word, GetParam().short_word, GetParam().dotted}) {
    EXPECT_EQ(cert.SubjectAttr(word).text, "x") << word;
    EXPECT_EQ(cert.SubjectAttr(upper(word)).text, "x") << word;
  }
  EXPECT_EQ(cert.Subject().text, std::string(GetParam().short_word) + "=x");
}

// Every word that certificate.h lists.
const WordCase kAttributeWords[] = {
    {"commonName", "CN", "2.5.4.3"},
    {"surname", "SN", "2.5.4.4"},
    {"serialNumber", "serialNumber", "2.5.4.5"},
    {"countryName", "C", "2.5.4.6"},
    {"localityName", "L", "2.5.4.7"},
    {"stateOrProvinceName", "ST", "2.5.4.8"},
    {"streetAddress", "street", "2.5.4.9"},
    {"organizationName", "O", "2.5.4.10"},
    {"organizationalUnitName", "OU", "2.5.4.11"},
    {"title", "title", "2.5.4.12"},
    {"description", "description", "2.5.4.13"},
    {"searchGuide", "searchGuide", "2.5.4.14"},
    {"businessCategory", "businessCategory", "2.5.4.15"},
    {"postalAddress", "postalAddress", "2.5.4.16"},
    {"postalCode", "postalCode", "2.5.4.17"},
    {"postOfficeBox", "postOfficeBox", "2.5.4.18"},
    {"physicalDeliveryOfficeName", "physicalDeliveryOfficeName", "2.5.4.19"},
    {"telephoneNumber", "telephoneNumber", "2.5.4.20"},
    {"telexNumber", "telexNumber", "2.5.4.21"},
    {"teletexTerminalIdentifier", "teletexTerminalIdentifier", "2.5.4.22"},
    {"facsimileTelephoneNumber", "facsimileTelephoneNumber", "2.5.4.23"},
    {"x121Address", "x121Address", "2.5.4.24"},
    {"internationaliSDNNumber", "internationaliSDNNumber", "2.5.4.25"},
    {"registeredAddress", "registeredAddress", "2.5.4.26"},
    {"destinationIndicator", "destinationIndicator", "2.5.4.27"},
    {"preferredDeliveryMethod", "preferredDeliveryMethod", "2.5.4.28"},
    {"member", "member", "2.5.4.31"},
    {"owner", "owner", "2.5.4.32"},
    {"roleOccupant", "roleOccupant", "2.5.4.33"},
    {"seeAlso", "seeAlso", "2.5.4.34"},
    {"userPassword", "userPassword", "2.5.4.35"},
    {"name", "name", "2.5.4.41"},
    {"givenName", "GN", "2.5.4.42"},
    {"initials", "initials", "2.5.4.43"},
    {"generationQualifier", "generationQualifier", "2.5.4.44"},
    {"x500UniqueIdentifier", "x500UniqueIdentifier", "2.5.4.45"},
    {"dnQualifier", "dnQualifier", "2.5.4.46"},
    {"enhancedSearchGuide", "enhancedSearchGuide", "2.5.4.47"},
    {"distinguishedName", "distinguishedName", "2.5.4.49"},
    {"uniqueMember", "uniqueMember", "2.5.4.50"},
    {"houseIdentifier", "houseIdentifier", "2.5.4.51"},
    {"dmdName", "dmdName", "2.5.4.54"},
    {"pseudonym", "pseudonym", "2.5.4.65"},
    {"role", "role", "2.5.4.72"},
    {"organizationIdentifier", "organizationIdentifier", "2.5.4.97"},
    {"countryCode3c", "c3", "2.5.4.98"},
    {"countryCode3n", "n3", "2.5.4.99"},
    {"dnsName", "dnsName", "2.5.4.100"},
    {"userId", "UID", "0.9.2342.19200300.100.1.1"},
    {"rfc822Mailbox", "mail", "0.9.2342.19200300.100.1.3"},
    {"domainComponent", "DC", "0.9.2342.19200300.100.1.25"},
    {"uniqueIdentifier", "uniqueIdentifier", "0.9.2342.19200300.100.1.44"},
    {"emailAddress", "emailAddress", "1.2.840.113549.1.9.1"},
    {"unstructuredName", "unstructuredName", "1.2.840.113549.1.9.2"},
    {"unstructuredAddress", "unstructuredAddress", "1.2.840.113549.1.9.8"},
    {"jurisdictionLocalityName", "jurisdictionL", "1.3.6.1.4.1.311.60.2.1.1"},
    {"jurisdictionStateOrProvinceName", "jurisdictionST", "1.3.6.1.4.1.311.60.2.1.2"},
    {"jurisdictionCountryName", "jurisdictionC", "1.3.6.1.4.1.311.60.2.1.3"},
    {"placeOfBirth", "id-pda-placeOfBirth", "1.3.6.1.5.5.7.9.2"},
    {"gender", "id-pda-gender", "1.3.6.1.5.5.7.9.3"},
    {"countryOfCitizenship", "id-pda-countryOfCitizenship", "1.3.6.1.5.5.7.9.4"},
    {"countryOfResidence", "id-pda-countryOfResidence", "1.3.6.1.5.5.7.9.5"},
    {"INN", "INN", "1.2.643.3.131.1.1"},
    {"OGRN", "OGRN", "1.2.643.100.1"},
    {"SNILS", "SNILS", "1.2.643.100.3"},
    {"OGRNIP", "OGRNIP", "1.2.643.100.5"}};

INSTANTIATE_TEST_SUITE_P(Types, AttributeWords, testing::ValuesIn(kAttributeWords),
                         [](const auto& one) { return one.param.long_word; });

}  // namespace
