#include "host/x509/attributes.h"

#include "host/x509/oid_text.h"

namespace cardcert::x509 {

namespace {

struct AttributeType {
  const char* oid;  // the contents, without tag and length
  unsigned char oid_size;
  const char* short_word;
  const char* long_word;
};

#define X520(last) "\x55\x04" last, 3                                 // 2.5.4
#define PILOT(last) "\x09\x92\x26\x89\x93\xf2\x2c\x64\x01" last, 10   // 0.9.2342.19200300.100.1
#define PKCS9(last) "\x2a\x86\x48\x86\xf7\x0d\x01\x09" last, 9        // 1.2.840.113549.1.9
#define EV(last) "\x2b\x06\x01\x04\x01\x82\x37\x3c\x02\x01" last, 11  // 1.3.6.1.4.1.311.60.2.1
#define PDA(last) "\x2b\x06\x01\x05\x05\x07\x09" last, 8              // 1.3.6.1.5.5.7.9

const AttributeType kAttributeTypes[] = {
    // RFC 4514 section 3, and other types that are frequent in names.
    {X520("\x03"), "CN", "commonName"},
    {X520("\x06"), "C", "countryName"},
    {X520("\x0a"), "O", "organizationName"},
    {X520("\x0b"), "OU", "organizationalUnitName"},
    {X520("\x07"), "L", "localityName"},
    {X520("\x08"), "ST", "stateOrProvinceName"},
    {X520("\x09"), "street", "streetAddress"},
    {PILOT("\x19"), "DC", "domainComponent"},
    {PILOT("\x01"), "UID", "userId"},
    {X520("\x05"), "serialNumber", "serialNumber"},
    {PKCS9("\x01"), "emailAddress", "emailAddress"},
    // Persons and organizations (RFC 5280 appendix A.1, RFC 3739 3.1, ETSI EN 319 412).
    {X520("\x04"), "SN", "surname"},
    {X520("\x2a"), "GN", "givenName"},
    {X520("\x2b"), "initials", "initials"},
    {X520("\x2c"), "generationQualifier", "generationQualifier"},
    {X520("\x29"), "name", "name"},
    {X520("\x0c"), "title", "title"},
    {X520("\x41"), "pseudonym", "pseudonym"},
    {X520("\x2e"), "dnQualifier", "dnQualifier"},
    {X520("\x61"), "organizationIdentifier", "organizationIdentifier"},
    {X520("\x48"), "role", "role"},
    {X520("\x62"), "c3", "countryCode3c"},
    {X520("\x63"), "n3", "countryCode3n"},
    {X520("\x64"), "dnsName", "dnsName"},
    {X520("\x36"), "dmdName", "dmdName"},
    {PDA("\x02"), "id-pda-placeOfBirth", "placeOfBirth"},
    {PDA("\x03"), "id-pda-gender", "gender"},
    {PDA("\x04"), "id-pda-countryOfCitizenship", "countryOfCitizenship"},
    {PDA("\x05"), "id-pda-countryOfResidence", "countryOfResidence"},
    // Russian tax and registration numbers.
    {"\x2a\x85\x03\x03\x81\x03\x01\x01", 8, "INN", "INN"},
    {"\x2a\x85\x03\x64\x01", 5, "OGRN", "OGRN"},
    {"\x2a\x85\x03\x64\x03", 5, "SNILS", "SNILS"},
    {"\x2a\x85\x03\x64\x05", 5, "OGRNIP", "OGRNIP"},
    // The place of registration of an organization, in extended validation certificates.
    {EV("\x01"), "jurisdictionL", "jurisdictionLocalityName"},
    {EV("\x02"), "jurisdictionST", "jurisdictionStateOrProvinceName"},
    {EV("\x03"), "jurisdictionC", "jurisdictionCountryName"},
    // Other types of RFC 4519 section 2.
    {X520("\x0f"), "businessCategory", "businessCategory"},
    {X520("\x0d"), "description", "description"},
    {X520("\x1b"), "destinationIndicator", "destinationIndicator"},
    {X520("\x31"), "distinguishedName", "distinguishedName"},
    {X520("\x2f"), "enhancedSearchGuide", "enhancedSearchGuide"},
    {X520("\x17"), "facsimileTelephoneNumber", "facsimileTelephoneNumber"},
    {X520("\x33"), "houseIdentifier", "houseIdentifier"},
    {X520("\x19"), "internationaliSDNNumber", "internationaliSDNNumber"},
    {X520("\x1f"), "member", "member"},
    {X520("\x20"), "owner", "owner"},
    {X520("\x13"), "physicalDeliveryOfficeName", "physicalDeliveryOfficeName"},
    {X520("\x10"), "postalAddress", "postalAddress"},
    {X520("\x11"), "postalCode", "postalCode"},
    {X520("\x12"), "postOfficeBox", "postOfficeBox"},
    {X520("\x1c"), "preferredDeliveryMethod", "preferredDeliveryMethod"},
    {X520("\x1a"), "registeredAddress", "registeredAddress"},
    {X520("\x21"), "roleOccupant", "roleOccupant"},
    {X520("\x0e"), "searchGuide", "searchGuide"},
    {X520("\x22"), "seeAlso", "seeAlso"},
    {X520("\x14"), "telephoneNumber", "telephoneNumber"},
    {X520("\x16"), "teletexTerminalIdentifier", "teletexTerminalIdentifier"},
    {X520("\x15"), "telexNumber", "telexNumber"},
    {X520("\x32"), "uniqueMember", "uniqueMember"},
    {X520("\x23"), "userPassword", "userPassword"},
    {X520("\x18"), "x121Address", "x121Address"},
    {X520("\x2d"), "x500UniqueIdentifier", "x500UniqueIdentifier"},
    // RFC 4524 and RFC 2985.
    {PILOT("\x03"), "mail", "rfc822Mailbox"},
    {PILOT("\x2c"), "uniqueIdentifier", "uniqueIdentifier"},
    {PKCS9("\x02"), "unstructuredName", "unstructuredName"},
    {PKCS9("\x08"), "unstructuredAddress", "unstructuredAddress"},
};

#undef X520
#undef PILOT
#undef PKCS9
#undef EV
#undef PDA

Bytes OidOf(const AttributeType& type) {
  return Bytes{reinterpret_cast<const unsigned char*>(type.oid), type.oid_size};
}

// Unlike tolower(), independent of the locale.
char LowerCase(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

bool EqualIgnoringCase(const char* a, const char* b) {
  for (; *a != '\0' && LowerCase(*a) == LowerCase(*b); ++a, ++b) {
  }
  return *a == *b;
}

}  // namespace

const char* AttributeShortWord(Bytes type_oid) {
  for (const AttributeType& type : kAttributeTypes) {
    if (OidOf(type) == type_oid)
      return type.short_word;
  }
  return nullptr;
}

AttributeWord::AttributeWord(const char* word) {
  if (word[0] >= '0' && word[0] <= '9') {
    dotted_ = word;
    return;
  }
  for (const AttributeType& type : kAttributeTypes) {
    if (EqualIgnoringCase(word, type.short_word) || EqualIgnoringCase(word, type.long_word)) {
      type_oid_ = OidOf(type);
      return;
    }
  }
}

bool AttributeWord::StandsFor(Bytes type_oid) const {
  return dotted_ != nullptr ? IsDottedFormOf(dotted_, type_oid) : type_oid_ == type_oid;
}

}  // namespace cardcert::x509
