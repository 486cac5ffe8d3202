#include "support/certificates.h"

#include <openssl/bio.h>
#include <openssl/bn.h>
#include <openssl/ec.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <cstdlib>
#include <memory>

namespace support {

namespace {

using UniqueKey = std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)>;
using UniqueX509 = std::unique_ptr<X509, decltype(&X509_free)>;
using UniqueName = std::unique_ptr<X509_NAME, decltype(&X509_NAME_free)>;
using UniqueBio = std::unique_ptr<BIO, decltype(&BIO_free)>;

constexpr long kYearSeconds = 365L * 24 * 60 * 60;

// Aborts if a call failed that can fail only because of a mistake in a test.
void Must(bool done) {
  if (!done)
    std::abort();
}

void AddEntry(X509_NAME* name, const char* type, const std::string& value) {
  if (value.empty())
    return;
  const auto* const bytes = reinterpret_cast<const unsigned char*>(value.data());
  Must(X509_NAME_add_entry_by_txt(name, type, MBSTRING_UTF8, bytes, static_cast<int>(value.size()),
                                  -1, 0) == 1);
}

UniqueName Name(const std::string& common_name, const std::string& organization) {
  UniqueName name(X509_NAME_new(), &X509_NAME_free);
  AddEntry(name.get(), "O", organization);
  AddEntry(name.get(), "CN", common_name);
  return name;
}

void SetSerial(X509* cert, const std::string& digits) {
  BIGNUM* number = nullptr;
  Must(BN_hex2bn(&number, digits.c_str()) == static_cast<int>(digits.size()));
  Must(BN_to_ASN1_INTEGER(number, X509_get_serialNumber(cert)) != nullptr);
  BN_free(number);
}

void AddExtension(X509* cert, int nid, const std::string& value) {
  if (value.empty())
    return;
  X509_EXTENSION* const extension =
      X509V3_EXT_conf_nid(nullptr, nullptr, nid, const_cast<char*>(value.c_str()));
  Must(extension != nullptr && X509_add_ext(cert, extension, -1) == 1);
  X509_EXTENSION_free(extension);
}

std::string Make(EVP_PKEY* key, const CertificateDetails& details) {
  const UniqueX509 cert(X509_new(), &X509_free);
  const UniqueName subject = Name(details.common_name, details.organization);
  const UniqueName issuer = Name(details.issuer_common_name, std::string());
  X509_set_version(cert.get(), X509_VERSION_3);
  SetSerial(cert.get(), details.serial);
  X509_set_subject_name(cert.get(), subject.get());
  X509_set_issuer_name(cert.get(), issuer.get());
  X509_gmtime_adj(X509_getm_notBefore(cert.get()), -kYearSeconds);
  X509_gmtime_adj(X509_getm_notAfter(cert.get()), kYearSeconds);
  X509_set_pubkey(cert.get(), key);
  AddExtension(cert.get(), NID_basic_constraints, details.basic_constraints);
  AddExtension(cert.get(), NID_key_usage, details.key_usage);
  Must(X509_sign(cert.get(), key, EVP_sha256()) > 0);

  unsigned char* der = nullptr;
  const int length = i2d_X509(cert.get(), &der);
  Must(length > 0);
  const std::string text(reinterpret_cast<const char*>(der), static_cast<std::size_t>(length));
  OPENSSL_free(der);
  return text;
}

}  // namespace

std::string MakeCertificate(const RsaKey& key, const CertificateDetails& details) {
  const std::string pem = key.pem();
  const UniqueBio bio(BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())), &BIO_free);
  const UniqueKey parsed(PEM_read_bio_PrivateKey(bio.get(), nullptr, nullptr, nullptr),
                         &EVP_PKEY_free);
  Must(parsed != nullptr);
  return Make(parsed.get(), details);
}

std::string MakeEcCertificate(const CertificateDetails& details) {
  const UniqueKey key(EVP_EC_gen("P-256"), &EVP_PKEY_free);
  Must(key != nullptr);
  return Make(key.get(), details);
}

}  // namespace support
