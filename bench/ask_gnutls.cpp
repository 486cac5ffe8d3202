// GnuTLS.
#include <gnutls/gnutls.h>
#include <gnutls/x509.h>

#include "answers.h"

namespace {

bool WriteSubject(gnutls_x509_crt_t crt, Answers* answers) {
  gnutls_datum_t text = {};
  if (gnutls_x509_crt_get_dn3(crt, &text, 0) != 0)
    return false;
  const bool done = CopyText(text.data, text.size, answers->subject);
  gnutls_free(text.data);
  return done;
}

// Copies the value of an attribute. Returns false if its string type is not encoded as UTF-8.
bool CopyValue(const gnutls_x509_ava_st& attribute, char (&buffer)[1024]) {
  const unsigned long kUtf8String = 12;
  const unsigned long kPrintableString = 19;
  const unsigned long kIa5String = 22;
  const unsigned long tag = attribute.value_tag;
  return (tag == kUtf8String || tag == kPrintableString || tag == kIa5String) &&
         CopyText(attribute.value.data, attribute.value.size, buffer);
}

// The size of a dotted type includes its NUL.
bool IsType(const gnutls_x509_ava_st& attribute, const char* oid) {
  return attribute.oid.size == std::strlen(oid) + 1 &&
         std::memcmp(attribute.oid.data, oid, attribute.oid.size) == 0;
}

// Walks the name once. gnutls_x509_crt_get_dn_by_oid() would search the whole name for each type
// and return the value with the escapes of RFC 4514.
bool WriteAttributes(gnutls_x509_dn_t name, char (&common_name)[1024], char (&organization)[1024]) {
  bool has_common_name = false;
  bool has_organization = false;
  common_name[0] = organization[0] = '\0';
  int code = 0;
  for (int rdn = 0; code == 0; ++rdn) {
    gnutls_x509_ava_st attribute;
    code = gnutls_x509_dn_get_rdn_ava(name, rdn, 0, &attribute);
    for (int i = 1; code == 0; ++i) {
      if (!has_common_name && IsType(attribute, GNUTLS_OID_X520_COMMON_NAME)) {
        has_common_name = true;
        if (!CopyValue(attribute, common_name))
          return false;
      } else if (!has_organization && IsType(attribute, GNUTLS_OID_X520_ORGANIZATION_NAME)) {
        has_organization = true;
        if (!CopyValue(attribute, organization))
          return false;
      }
      if (gnutls_x509_dn_get_rdn_ava(name, rdn, i, &attribute) != 0)
        break;
    }
  }
  return code == GNUTLS_E_ASN1_ELEMENT_NOT_FOUND;
}

bool ReadExtensions(gnutls_x509_crt_t crt, Answers* answers) {
  const int is_ca = gnutls_x509_crt_get_ca_status(crt, nullptr);
  answers->is_ca = is_ca > 0;
  unsigned usage = 0;
  const int code = gnutls_x509_crt_get_key_usage(crt, &usage, nullptr);
  const bool has_usage = code != GNUTLS_E_REQUESTED_DATA_NOT_AVAILABLE;
  answers->key_usage = has_usage ? static_cast<int>(usage) : -1;
  return (is_ca >= 0 || is_ca == GNUTLS_E_REQUESTED_DATA_NOT_AVAILABLE) &&
         (code >= 0 || !has_usage);
}

template <std::size_t capacity>
bool WriteNumber(const gnutls_datum_t& number, unsigned char (&buffer)[capacity],
                 unsigned long* length) {
  const unsigned num_zeros = number.size > 0 && number.data[0] == 0 ? 1 : 0;
  const unsigned size = number.size - num_zeros;
  if (size > capacity)
    return false;
  std::memcpy(buffer, number.data + num_zeros, size);
  *length = size;
  return true;
}

bool WriteRsaKey(gnutls_x509_crt_t crt, Answers* answers) {
  answers->exponent_len = answers->modulus_len = 0;
  if (gnutls_x509_crt_get_pk_algorithm(crt, nullptr) != GNUTLS_PK_RSA)
    return true;
  gnutls_datum_t modulus = {};
  gnutls_datum_t exponent = {};
  if (gnutls_x509_crt_get_pk_rsa_raw(crt, &modulus, &exponent) != 0)
    return false;
  const bool done = WriteNumber(exponent, answers->exponent, &answers->exponent_len) &&
                    WriteNumber(modulus, answers->modulus, &answers->modulus_len);
  gnutls_free(modulus.data);
  gnutls_free(exponent.data);
  return done;
}

bool AskAll(gnutls_x509_crt_t crt, Answers* answers) {
  size_t serial_len = sizeof answers->serial;
  if (gnutls_x509_crt_get_serial(crt, answers->serial, &serial_len) != 0)
    return false;
  answers->serial_len = serial_len;
  gnutls_x509_dn_t subject = nullptr;
  gnutls_x509_dn_t issuer = nullptr;
  return gnutls_x509_crt_get_subject(crt, &subject) == 0 &&
         gnutls_x509_crt_get_issuer(crt, &issuer) == 0 && WriteSubject(crt, answers) &&
         WriteAttributes(subject, answers->subject_common_name, answers->subject_organization) &&
         WriteAttributes(issuer, answers->issuer_common_name, answers->issuer_organization) &&
         ReadExtensions(crt, answers) && WriteRsaKey(crt, answers);
}

}  // namespace

bool AskGnutls(const std::string& der, Answers* answers) {
  gnutls_x509_crt_t crt = nullptr;
  if (gnutls_x509_crt_init(&crt) != 0)
    return false;
  // The library does not modify its input.
  const gnutls_datum_t octets = {const_cast<unsigned char*>(OctetsOf(der)),
                                 static_cast<unsigned>(der.size())};
  const bool done =
      gnutls_x509_crt_import(crt, &octets, GNUTLS_X509_FMT_DER) == 0 && AskAll(crt, answers);
  gnutls_x509_crt_deinit(crt);
  return done;
}
