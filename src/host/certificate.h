// Certificate inspection: what the smart-card component needs to know about an X.509 certificate
// (RFC 5280).
//
// Parsing is strict. A certificate must be DER (X.690) in the form of RFC 5280, with five
// exceptions for certificates in use. docs/certificates.md lists what is refused and what is
// tolerated. Nothing is verified: a result is what the certificate claims, not that the claim is
// signed, valid or trusted.
//
// Every function that returns an int, except cert_is_ca(), returns 0 on success and one of these
// codes on failure. A code never changes its meaning.
//
//    -2  the certificate has no such attribute or extension
//    10  an argument is null or negative        13  the input is larger than 1 MiB
//    11  memory is exhausted                    14  the result does not fit the buffer
//    12  the record holds no certificate
//    20 and above: what is wrong with the certificate; docs/certificates.md has the full list
//
// cert_error_text() returns a sentence for each code. No function throws. The functions that take a
// const certificate do not change it, so several threads may query one certificate at the same
// time.
#pragma once

// One parsed certificate. Opaque. Owned by the caller of cert_alloc().
struct certificate;

// Returns an empty record to be filled by cert_parse() and released with cert_free(). Returns null
// if memory is exhausted.
certificate* cert_alloc();

// Releases the record and everything it holds. Does nothing if `cert` is null.
void cert_free(certificate* cert);

// Parses `length` bytes at `der` as one DER certificate. The record keeps a copy, so the input may
// be freed after the call. Trailing octets are ignored if they are all 00 or all FF, because cards
// pad their files so.
//
// On success the record holds the certificate and replaces the one it held before. Basic
// constraints, key usage and the key itself are not parsed until they are queried, so such a query
// may still fail.
//
// On failure the record is unchanged. Input of more than 1 MiB is refused without reading it.
int cert_parse(const unsigned char* der, int length, certificate* cert);

// Writes the subject to `buffer` as UTF-8 text with a terminating NUL, in the string form of RFC
// 4514: the most specific relative distinguished name first, with "," between names, "+" between
// the attributes of one name, and no spaces around either. Within one name, too, the attributes are
// in the reverse of the certificate's order. The text of an empty subject is empty.
//
// An attribute type is written as its short word (see below), as its only word, or in dotted form
// if it has no word. In a value, a backslash is put before `"`, `+`, `,`, `;`, `<`, `>`, `\`, a
// space at either end, and a "#" at the beginning. Control characters (00 to 1F, 7F) are written as
// a backslash and two hexadecimal digits. The value of a type in dotted form, and every value that
// is not a character string, is written as "#" and its DER encoding in upper-case hexadecimal. The
// text is therefore unambiguous.
//
// `size` is the size of the buffer in bytes. On failure the text is empty, or nothing is written if
// `size` is 0. A text is never truncated.
int cert_subject(const certificate* cert, char* buffer, unsigned long size);

// Write the value of one attribute of the subject or of the issuer to `buffer` as UTF-8 text with a
// terminating NUL, without escapes. If the attribute occurs several times, the first value in the
// certificate's order is written.
//
// `attribute` selects the attribute type: a long or short word from this table, in upper or lower
// case (as in LDAP, RFC 4512 1.4), or the object identifier of any type in dotted form ("2.5.4.3").
// Types with one word have no separate short word.
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
// `size` is the size of the buffer in bytes. On failure the text is empty, or nothing is written if
// `size` is 0. A text is never truncated. Returns -2 if the name has no such attribute or the word
// is unknown. Fails if the value is not a character string, such as that of x500UniqueIdentifier.
int cert_subject_attr(const certificate* cert, const char* attribute, char* buffer,
                      unsigned long size);
int cert_issuer_attr(const certificate* cert, const char* attribute, char* buffer,
                     unsigned long size);

// Returns a positive value if the certificate is that of a certification authority according to its
// basic constraints (RFC 5280 4.2.1.9). Returns 0 if it is not, or if it has no basic constraints.
// Returns a negated code if the extension cannot be parsed, or if the record is null or empty.
int cert_is_ca(const certificate* cert);

// Writes the serial number to `buffer`: the contents of its INTEGER as encoded, most significant
// octet first, including a leading zero octet. It is never empty. On entry `*length` is the size of
// the buffer in bytes; on success it is the number of bytes written. On failure the buffer and
// `*length` are unchanged.
int cert_serial(const certificate* cert, unsigned char* buffer, unsigned long* length);

// Stores the permitted usages of the key (RFC 5280 4.2.1.3) as a sum of
//
//       128 digitalSignature        8 keyAgreement
//        64 nonRepudiation          4 keyCertSign
//        32 keyEncipherment         2 cRLSign
//        16 dataEncipherment        1 encipherOnly
//                               32768 decipherOnly
//
// The sum may be 0: the extension may permit no usage. If the certificate has no such extension,
// returns -2 and stores -1, which stands for every usage. On any other failure stores 0, unless
// `usage` is null.
int cert_key_usage(const certificate* cert, int* usage);

// Writes the exponent and modulus of an rsaEncryption key: unsigned, most significant octet first,
// without leading zero octets. On entry the lengths are the sizes of the buffers in bytes; on
// success they are the numbers of bytes written. The buffers must not overlap.
//
// Fails if the key is not for rsaEncryption (keys for RSASSA-PSS only are refused, too), if it
// cannot be parsed, or if the modulus or exponent is not positive or does not fit its buffer. On
// failure neither the buffers nor the lengths are changed.
int cert_rsa_public_key_components(const certificate* cert, unsigned char* exponent,
                                   unsigned long* exponent_len, unsigned char* modulus,
                                   unsigned long* modulus_len);

// Returns the meaning of a code that one of these functions returned: one English sentence without
// a full stop, citing the standard where there is one. Takes the negative results of cert_is_ca(),
// too. Never returns null. The text is a constant.
const char* cert_error_text(int code);
