// Implements host/certificate.h with libcrypto: an example of how a host program uses the
// certificate library it already has. Build the component with this file in place of
// src/host/certificate.cpp and link libcrypto.
//
// The component never passes a null pointer or a record without a certificate, so such arguments
// are not checked here.
//
// Differences from src/host/: libcrypto is lenient (BER, octets after the certificate, duplicate
// extensions), attribute names are libcrypto's and case-sensitive, and the only result codes are
// those that the component distinguishes.
#include "host/certificate.h"

#include <openssl/bio.h>
#include <openssl/bn.h>
#include <openssl/core_names.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <cstring>
#include <memory>
#include <new>
#include <utility>

struct certificate {
  X509* x509 = nullptr;
};

namespace {

const int kFailed = 1;
const int kAbsent = -2;

template <typename T, void (*release)(T*)>
struct Release {
  void operator()(T* object) const { release(object); }
};
template <typename T, void (*release)(T*)>
using Owned = std::unique_ptr<T, Release<T, release>>;

void FreeBio(BIO* bio) {
  BIO_free(bio);
}
void FreeOctets(unsigned char* octets) {
  OPENSSL_free(octets);
}

// Copies text and appends a NUL. Fails if the text contains a NUL or does not fit.
int CopyText(const char* text, std::size_t length, char* buffer, unsigned long size) {
  if (length >= size || std::memchr(text, '\0', length) != nullptr)
    return kFailed;
  std::memcpy(buffer, text, length);
  buffer[length] = '\0';
  return 0;
}

int NameAttribute(const X509_NAME* name, const char* attribute, char* buffer, unsigned long size) {
  // Accepts a name or a dotted object identifier.
  const Owned<ASN1_OBJECT, ASN1_OBJECT_free> type(OBJ_txt2obj(attribute, 0));
  if (type == nullptr)
    return kAbsent;
  const int index = X509_NAME_get_index_by_OBJ(name, type.get(), -1);
  if (index < 0)
    return kAbsent;
  unsigned char* utf8 = nullptr;
  const int length =
      ASN1_STRING_to_UTF8(&utf8, X509_NAME_ENTRY_get_data(X509_NAME_get_entry(name, index)));
  if (length < 0)
    return kFailed;
  const Owned<unsigned char, FreeOctets> owner(utf8);
  return CopyText(reinterpret_cast<const char*>(utf8), static_cast<std::size_t>(length), buffer,
                  size);
}

// Returns `code` and, on failure, stores an empty text. Clears libcrypto's error queue, which the
// rest of the program shares.
int AnswerText(int code, char* buffer, unsigned long size) {
  ERR_clear_error();
  if (code != 0 && size > 0)
    buffer[0] = '\0';
  return code;
}

// Returns the value of an extension. Sets `*code` to 0, to kAbsent, or to kFailed if the extension
// is duplicated or cannot be read.
template <typename T, void (*release)(T*)>
Owned<T, release> Extension(const certificate* cert, int nid, int* code) {
  int critical = 0;
  Owned<T, release> value(static_cast<T*>(X509_get_ext_d2i(cert->x509, nid, &critical, nullptr)));
  *code = 0;
  if (value == nullptr)
    *code = critical == -1 ? kAbsent : kFailed;
  ERR_clear_error();
  return value;
}

using Number = Owned<BIGNUM, BN_free>;

// Returns one number of the key, or null if it is negative or longer than `capacity` octets.
Number KeyNumber(const EVP_PKEY* key, const char* which, unsigned long capacity) {
  BIGNUM* value = nullptr;
  if (EVP_PKEY_get_bn_param(key, which, &value) != 1)
    return nullptr;
  Number number(value);
  const bool fits = static_cast<unsigned long>(BN_num_bytes(value)) <= capacity;
  return BN_is_negative(value) == 0 && fits ? std::move(number) : nullptr;
}

void CopyNumber(const Number& number, unsigned char* buffer, unsigned long* length) {
  *length = static_cast<unsigned long>(BN_bn2bin(number.get(), buffer));
}

}  // namespace

certificate* cert_alloc() {
  return new (std::nothrow) certificate;
}

void cert_free(certificate* cert) {
  if (cert != nullptr)
    X509_free(cert->x509);
  delete cert;
}

int cert_parse(const unsigned char* der, int length, certificate* cert) {
  if (length < 0)
    return kFailed;
  X509* const parsed = d2i_X509(nullptr, &der, length);
  ERR_clear_error();
  if (parsed == nullptr)
    return kFailed;
  X509_free(cert->x509);
  cert->x509 = parsed;
  return 0;
}

int cert_subject(const certificate* cert, char* buffer, unsigned long size) {
  const Owned<BIO, FreeBio> text(BIO_new(BIO_s_mem()));
  // Keeps UTF-8 unescaped; libcrypto's RFC 2253 form escapes each octet above 7F.
  const unsigned long form = XN_FLAG_RFC2253 & ~static_cast<unsigned long>(ASN1_STRFLGS_ESC_MSB);
  if (text == nullptr ||
      X509_NAME_print_ex(text.get(), X509_get_subject_name(cert->x509), 0, form) < 0)
    return AnswerText(kFailed, buffer, size);
  char* begin = nullptr;
  const long length = BIO_get_mem_data(text.get(), &begin);
  if (length == 0)
    return AnswerText(CopyText("", 0, buffer, size), buffer, size);
  return AnswerText(CopyText(begin, static_cast<std::size_t>(length), buffer, size), buffer, size);
}

int cert_subject_attr(const certificate* cert, const char* attribute, char* buffer,
                      unsigned long size) {
  const X509_NAME* const subject = X509_get_subject_name(cert->x509);
  return AnswerText(NameAttribute(subject, attribute, buffer, size), buffer, size);
}

int cert_issuer_attr(const certificate* cert, const char* attribute, char* buffer,
                     unsigned long size) {
  const X509_NAME* const issuer = X509_get_issuer_name(cert->x509);
  return AnswerText(NameAttribute(issuer, attribute, buffer, size), buffer, size);
}

int cert_is_ca(const certificate* cert) {
  int code = 0;
  const auto constraints =
      Extension<BASIC_CONSTRAINTS, BASIC_CONSTRAINTS_free>(cert, NID_basic_constraints, &code);
  if (code == kAbsent)
    return 0;
  if (code != 0)
    return -1;
  return constraints->ca != 0 ? 1 : 0;
}

int cert_serial(const certificate* cert, unsigned char* buffer, unsigned long* length) {
  // The encoded contents follow the tag and the length.
  unsigned char* der = nullptr;
  const int der_len = i2d_ASN1_INTEGER(X509_get0_serialNumber(cert->x509), &der);
  ERR_clear_error();
  if (der_len < 0)
    return kFailed;
  const Owned<unsigned char, FreeOctets> owner(der);
  const unsigned char* contents = der;
  long size = 0;
  int tag = 0;
  int tag_class = 0;
  ASN1_get_object(&contents, &size, &tag, &tag_class, der_len);
  if (static_cast<unsigned long>(size) > *length)
    return kFailed;
  std::memcpy(buffer, contents, static_cast<std::size_t>(size));
  *length = static_cast<unsigned long>(size);
  return 0;
}

int cert_key_usage(const certificate* cert, int* usage) {
  int code = 0;
  const auto bits = Extension<ASN1_BIT_STRING, ASN1_BIT_STRING_free>(cert, NID_key_usage, &code);
  *usage = code == kAbsent ? -1 : 0;
  if (code != 0)
    return code;
  const unsigned char* const octets = ASN1_STRING_get0_data(bits.get());
  const int size = ASN1_STRING_length(bits.get());
  if (size > 0)
    *usage |= octets[0];
  if (size > 1)
    *usage |= (octets[1] & 0x80) << 8;
  return 0;
}

int cert_rsa_public_key_components(const certificate* cert, unsigned char* exponent,
                                   unsigned long* exponent_len, unsigned char* modulus,
                                   unsigned long* modulus_len) {
  const EVP_PKEY* const key = X509_get0_pubkey(cert->x509);
  Number e;
  Number n;
  if (key != nullptr && EVP_PKEY_get_base_id(key) == EVP_PKEY_RSA) {
    e = KeyNumber(key, OSSL_PKEY_PARAM_RSA_E, *exponent_len);
    n = KeyNumber(key, OSSL_PKEY_PARAM_RSA_N, *modulus_len);
  }
  ERR_clear_error();
  if (e == nullptr || n == nullptr)
    return kFailed;
  CopyNumber(e, exponent, exponent_len);
  CopyNumber(n, modulus, modulus_len);
  return 0;
}

const char* cert_error_text(int code) {
  switch (code) {
    case 0:
      return "success";
    case kAbsent:
      return "the certificate has no such attribute or extension";
    default:
      return "libcrypto cannot answer";
  }
}
