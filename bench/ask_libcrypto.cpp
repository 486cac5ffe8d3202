// libcrypto. Faster than examples/openssl_host: looks up attribute types by number instead of by
// name, does not copy strings that are UTF-8 already, and ignores the error queue, which is empty
// as long as nothing fails.
#include <openssl/bio.h>
#include <openssl/bn.h>
#include <openssl/core_names.h>
#include <openssl/evp.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include "answers.h"

namespace {

bool WriteSubject(const X509* x509, Answers* answers) {
  BIO* const text = BIO_new(BIO_s_mem());
  // Writes UTF-8 unchanged; by default the library would escape each octet.
  const unsigned long form = XN_FLAG_RFC2253 & ~static_cast<unsigned long>(ASN1_STRFLGS_ESC_MSB);
  bool done = false;
  if (X509_NAME_print_ex(text, X509_get_subject_name(x509), 0, form) >= 0) {
    char* begin = nullptr;
    const long length = BIO_get_mem_data(text, &begin);
    done = CopyText(begin, static_cast<std::size_t>(length), answers->subject);
  }
  BIO_free(text);
  return done;
}

bool WriteAttribute(const X509_NAME* name, int nid, char (&buffer)[1024]) {
  buffer[0] = '\0';
  const int index = X509_NAME_get_index_by_NID(name, nid, -1);
  if (index < 0)
    return true;
  const ASN1_STRING* const value = X509_NAME_ENTRY_get_data(X509_NAME_get_entry(name, index));
  const int type = ASN1_STRING_type(value);
  if (type == V_ASN1_UTF8STRING || type == V_ASN1_PRINTABLESTRING || type == V_ASN1_IA5STRING)
    return CopyText(ASN1_STRING_get0_data(value),
                    static_cast<std::size_t>(ASN1_STRING_length(value)), buffer);
  unsigned char* utf8 = nullptr;
  const int length = ASN1_STRING_to_UTF8(&utf8, value);
  if (length < 0)
    return false;
  const bool done = CopyText(utf8, static_cast<std::size_t>(length), buffer);
  OPENSSL_free(utf8);
  return done;
}

// Does not use X509_get_extension_flags() and X509_get_key_usage(), which hash the certificate and
// parse every extension.
bool ReadExtensions(const X509* x509, Answers* answers) {
  int critical = 0;
  auto* const constraints = static_cast<BASIC_CONSTRAINTS*>(
      X509_get_ext_d2i(x509, NID_basic_constraints, &critical, nullptr));
  if (constraints == nullptr && critical != -1)
    return false;
  answers->is_ca = constraints != nullptr && constraints->ca != 0;
  BASIC_CONSTRAINTS_free(constraints);

  auto* const bits =
      static_cast<ASN1_BIT_STRING*>(X509_get_ext_d2i(x509, NID_key_usage, &critical, nullptr));
  answers->key_usage = -1;
  if (bits == nullptr)
    return critical == -1;
  const unsigned char* const octets = ASN1_STRING_get0_data(bits);
  const int size = ASN1_STRING_length(bits);
  answers->key_usage = (size > 0 ? octets[0] : 0) | (size > 1 ? (octets[1] & 0x80) << 8 : 0);
  ASN1_BIT_STRING_free(bits);
  return true;
}

bool WriteSerial(const X509* x509, Answers* answers) {
  // The library stores sign and magnitude. The encoding contains the octets after tag and length.
  const ASN1_INTEGER* const serial = X509_get0_serialNumber(x509);
  unsigned char der[sizeof answers->serial];
  const int der_len = i2d_ASN1_INTEGER(serial, nullptr);
  if (der_len < 0 || static_cast<std::size_t>(der_len) > sizeof der)
    return false;
  unsigned char* end = der;
  i2d_ASN1_INTEGER(serial, &end);
  const unsigned char* contents = der;
  long size = 0;
  int tag = 0;
  int tag_class = 0;
  ASN1_get_object(&contents, &size, &tag, &tag_class, der_len);
  std::memcpy(answers->serial, contents, static_cast<std::size_t>(size));
  answers->serial_len = static_cast<unsigned long>(size);
  return true;
}

template <std::size_t capacity>
bool WriteNumber(const EVP_PKEY* key, const char* which, unsigned char (&buffer)[capacity],
                 unsigned long* length) {
  BIGNUM* number = nullptr;
  if (EVP_PKEY_get_bn_param(key, which, &number) != 1)
    return false;
  const auto size = static_cast<unsigned long>(BN_num_bytes(number));
  const bool fits = size <= capacity;
  if (fits) {
    BN_bn2bin(number, buffer);
    *length = size;
  }
  BN_free(number);
  return fits;
}

bool WriteRsaKey(const X509* x509, Answers* answers) {
  answers->exponent_len = answers->modulus_len = 0;
  const EVP_PKEY* const key = X509_get0_pubkey(x509);
  if (key == nullptr)
    return false;
  if (EVP_PKEY_get_base_id(key) != EVP_PKEY_RSA)
    return true;
  return WriteNumber(key, OSSL_PKEY_PARAM_RSA_E, answers->exponent, &answers->exponent_len) &&
         WriteNumber(key, OSSL_PKEY_PARAM_RSA_N, answers->modulus, &answers->modulus_len);
}

bool AskAll(const X509* x509, Answers* answers) {
  const X509_NAME* const subject = X509_get_subject_name(x509);
  const X509_NAME* const issuer = X509_get_issuer_name(x509);
  return WriteSubject(x509, answers) &&
         WriteAttribute(subject, NID_commonName, answers->subject_common_name) &&
         WriteAttribute(subject, NID_organizationName, answers->subject_organization) &&
         WriteAttribute(issuer, NID_commonName, answers->issuer_common_name) &&
         WriteAttribute(issuer, NID_organizationName, answers->issuer_organization) &&
         ReadExtensions(x509, answers) && WriteSerial(x509, answers) && WriteRsaKey(x509, answers);
}

}  // namespace

bool AskLibcrypto(const std::string& der, Answers* answers) {
  const unsigned char* octets = OctetsOf(der);
  X509* const x509 = d2i_X509(nullptr, &octets, static_cast<long>(der.size()));
  const bool done = x509 != nullptr && AskAll(x509, answers);
  X509_free(x509);
  return done;
}
