// Mbed TLS 2.28. Its structures are public, so parsed values are read from them in place.
#include <mbedtls/oid.h>
#include <mbedtls/pk.h>
#include <mbedtls/rsa.h>
#include <mbedtls/x509_crt.h>

#include "answers.h"

namespace {

// The library does not convert strings, so the octets are copied whatever the string type is.
template <std::size_t oid_size>
bool WriteAttribute(const mbedtls_x509_name& name, const char (&oid)[oid_size],
                    char (&buffer)[1024]) {
  for (const mbedtls_x509_name* attribute = &name; attribute != nullptr;
       attribute = attribute->next) {
    if (attribute->oid.len == oid_size - 1 && std::memcmp(attribute->oid.p, oid, oid_size - 1) == 0)
      return CopyText(attribute->val.p, attribute->val.len, buffer);
  }
  buffer[0] = '\0';
  return true;
}

template <std::size_t capacity>
bool WriteNumber(const mbedtls_mpi& number, unsigned char (&buffer)[capacity],
                 unsigned long* length) {
  const std::size_t size = mbedtls_mpi_size(&number);
  if (size > capacity || mbedtls_mpi_write_binary(&number, buffer, size) != 0)
    return false;
  *length = size;
  return true;
}

bool WriteRsaKey(const mbedtls_pk_context& key, Answers* answers) {
  answers->exponent_len = answers->modulus_len = 0;
  if (mbedtls_pk_get_type(&key) != MBEDTLS_PK_RSA)
    return true;
  const mbedtls_rsa_context* const rsa = mbedtls_pk_rsa(key);
  return WriteNumber(rsa->E, answers->exponent, &answers->exponent_len) &&
         WriteNumber(rsa->N, answers->modulus, &answers->modulus_len);
}

bool AskAll(const mbedtls_x509_crt& crt, Answers* answers) {
  if (mbedtls_x509_dn_gets(answers->subject, sizeof answers->subject, &crt.subject) < 0 ||
      crt.serial.len > sizeof answers->serial)
    return false;
  std::memcpy(answers->serial, crt.serial.p, crt.serial.len);
  answers->serial_len = crt.serial.len;
  answers->is_ca = crt.ca_istrue != 0;
  const bool has_key_usage = (crt.ext_types & MBEDTLS_X509_EXT_KEY_USAGE) != 0;
  answers->key_usage = has_key_usage ? static_cast<int>(crt.key_usage) : -1;
  return WriteAttribute(crt.subject, MBEDTLS_OID_AT_CN, answers->subject_common_name) &&
         WriteAttribute(crt.subject, MBEDTLS_OID_AT_ORGANIZATION, answers->subject_organization) &&
         WriteAttribute(crt.issuer, MBEDTLS_OID_AT_CN, answers->issuer_common_name) &&
         WriteAttribute(crt.issuer, MBEDTLS_OID_AT_ORGANIZATION, answers->issuer_organization) &&
         WriteRsaKey(crt.pk, answers);
}

}  // namespace

bool AskMbedtls(const std::string& der, Answers* answers) {
  mbedtls_x509_crt crt;
  mbedtls_x509_crt_init(&crt);
  const bool done = mbedtls_x509_crt_parse_der_nocopy(&crt, OctetsOf(der), der.size()) == 0 &&
                    AskAll(crt, answers);
  mbedtls_x509_crt_free(&crt);
  return done;
}
