// Certificate inspection: what the smart-card component asks of an X.509 certificate (RFC 5280).
//
// A certificate is read strictly: it is DER (X.690) and has the form of RFC 5280, with five
// exceptions that certificates in use need (docs/certificates.md lists what is refused, what is
// tolerated and what is taken as it is). Nothing is verified:
// an answer says what the certificate claims, not that the claim is signed, valid or trusted.
//
// Every function that answers an int, but cert_is_ca(), answers 0 for success and another code for
// every other outcome. Codes keep their meaning from release to release:
//
//    -2  the certificate has no such attribute or extension
//    10  an argument is null or negative        13  the input is larger than 1 MiB
//    11  memory is exhausted                    14  the answer does not fit the buffer
//    12  the record holds no certificate
//    20  and above: what is wrong with the certificate; docs/certificates.md lists them all
//
// cert_error_text() has a sentence for each.
// Nothing throws. The questions do not change the record, so several threads may ask at once.
#pragma once

// One parsed certificate. Opaque; owned by whoever called cert_alloc().
struct certificate;

// A fresh, empty record, to be filled by cert_parse() and released by cert_free(). Null when memory
// is exhausted.
certificate* cert_alloc();

// Releases the record and all that cert_parse() attached to it. Null is allowed.
void cert_free(certificate* cert);

// Reads one certificate in DER and keeps a copy of it; `der` may go after the call. Octets that
// follow the certificate are ignored when they are all 00 or all FF, with which cards fill up.
//
// 0: the record holds the certificate, in place of one that it held before. Parts that only one
// question needs (basic constraints, key usage, the key itself) may still turn out unreadable when
// that question is asked.
//
// Any other answer: the octets are refused, or memory is exhausted, or an argument is null or the
// length negative, and the record is as it was. Input of more than 1 MiB is refused unread.
int cert_parse(const unsigned char* der, int length, certificate* cert);

// Writes the subject as text in UTF-8 and in the form of RFC 4514: the most specific relative
// distinguished name first, "," between them and "+" within one, both without spaces, and the last
// attribute of the certificate's order first throughout. A certificate without a subject has an
// empty text.
//
// A type is written as its short word (below), as its only word, or dotted when it has none. A
// value is written as it is, except that `"`, `+`, `,`, `;`, `<`, `>` and `\` have a backslash in
// front, so have a space at either end and a "#" at the beginning, and control characters (00 to
// 1F, 7F) are a backslash and two hexadecimal digits. After a dotted type, and where the value is
// no character string, "#" and the DER in upper-case hexadecimal stand instead. So the text has
// exactly one reading.
//
// Not 0: an empty text (nothing, when `size` is 0). A text that does not fit with its NUL is never
// cut short.
int cert_subject(const certificate* cert, char* buffer, unsigned long size);

// Writes the value of one attribute of the subject or the issuer as text in UTF-8, without escapes.
// Of several values the first in the certificate's order is meant.
//
// `attribute` is a word for an attribute type, long or short, in upper or lower case (as in LDAP),
// or a dotted object identifier for any type ("2.5.4.3"). Where only one word stands, the type has
// only one.
//
//   commonName CN                  organizationName O          organizationalUnitName OU
//   countryName C                  localityName L              stateOrProvinceName ST
//   streetAddress street           postalCode                  postalAddress
//   postOfficeBox                  domainComponent DC          userId UID
//   emailAddress                   rfc822Mailbox mail          serialNumber
//   surname SN                     givenName GN                initials
//   generationQualifier            name                        title
//   pseudonym                      dnQualifier                 role
//   organizationIdentifier         businessCategory            description
//   countryCode3c c3               countryCode3n n3            dnsName
//   dmdName                        houseIdentifier             uniqueIdentifier
//   x500UniqueIdentifier           unstructuredName            unstructuredAddress
//   jurisdictionLocalityName jurisdictionL                     INN
//   jurisdictionStateOrProvinceName jurisdictionST             OGRN
//   jurisdictionCountryName jurisdictionC                      OGRNIP
//   placeOfBirth id-pda-placeOfBirth                           SNILS
//   gender id-pda-gender                                       telephoneNumber
//   countryOfCitizenship id-pda-countryOfCitizenship           facsimileTelephoneNumber
//   countryOfResidence id-pda-countryOfResidence               physicalDeliveryOfficeName
//   destinationIndicator           distinguishedName           enhancedSearchGuide
//   internationaliSDNNumber        member                      owner
//   preferredDeliveryMethod        registeredAddress           roleOccupant
//   searchGuide                    seeAlso                     teletexTerminalIdentifier
//   telexNumber                    uniqueMember                userPassword
//   x121Address
//
// 0: the value and a NUL are written. -2: the name has no such attribute, or nothing has that word.
// Any other: the value is no character string (as that of x500UniqueIdentifier), or does not fit
// with its NUL, or there is nothing to ask. Not 0 leaves an empty text (nothing, when `size` is 0);
// a value is never cut short.
int cert_subject_attr(const certificate* cert, const char* attribute, char* buffer,
                      unsigned long size);
int cert_issuer_attr(const certificate* cert, const char* attribute, char* buffer,
                     unsigned long size);

// Whether this is the certificate of a certification authority, which is what the extension basic
// constraints says (RFC 5280 4.2.1.9). Positive: it is. 0: it is not, or there is no such
// extension. Negative: that cannot be told, since the extension cannot be read or there is nothing
// to ask; the negated code says why.
int cert_is_ca(const certificate* cert);

// Writes the serial number: the contents of its INTEGER as the certificate has them, most
// significant octet first, a leading zero octet included; never empty. On entry `*length` is the
// capacity of the buffer, on success the number of octets written.
//
// Not 0: nothing is written, the length included.
int cert_serial(const certificate* cert, unsigned char* buffer, unsigned long* length);

// Stores what the key may be used for (RFC 5280 4.2.1.3) as a sum of
//
//       128 digitalSignature        8 keyAgreement
//        64 nonRepudiation          4 keyCertSign
//        32 keyEncipherment         2 cRLSign
//        16 dataEncipherment        1 encipherOnly
//                               32768 decipherOnly
//
// 0: stored. It may be 0, for a key that may be used for nothing. -2: the certificate has no such
// extension; -1, every usage, is stored. Any other: the extension cannot be read or there is
// nothing to ask; 0 is stored.
int cert_key_usage(const certificate* cert, int* usage);

// Writes exponent and modulus of a key for rsaEncryption: unsigned, most significant octet first,
// without leading zero octets. On entry the lengths are the capacities of the buffers, on success
// the numbers of octets written.
//
// Not 0: the key is not an RSA key (one for RSASSA-PSS alone is none here), cannot be read, has a
// modulus or exponent that is not positive or does not fit, or there is nothing to ask. Nothing is
// written, the lengths included.
int cert_rsa_public_key_components(const certificate* cert, unsigned char* exponent,
                                   unsigned long* exponent_len, unsigned char* modulus,
                                   unsigned long* modulus_len);

// What an answer of the functions above means, in one English sentence without a full stop, with
// the clause of the standard where there is one. Of cert_is_ca() it takes the negative answers.
// Never null; lives as long as the program.
const char* cert_error_text(int code);
