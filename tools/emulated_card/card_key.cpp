#include "emulated_card/card_key.h"

#include <openssl/pem.h>
#include <openssl/rsa.h>
#include <openssl/x509.h>

#include <cstdio>
#include <stdexcept>

namespace {

struct Close {
  void operator()(std::FILE* file) const { std::fclose(file); }
};
struct FreeCertificate {
  void operator()(X509* certificate) const { X509_free(certificate); }
};
struct FreeContext {
  void operator()(EVP_PKEY_CTX* context) const { EVP_PKEY_CTX_free(context); }
};

std::unique_ptr<std::FILE, Close> OpenFile(const std::string& path) {
  std::unique_ptr<std::FILE, Close> file(std::fopen(path.c_str(), "re"));
  if (!file)
    throw std::runtime_error("cannot open " + path);
  return file;
}

}  // namespace

CardKey::CardKey(const std::string& key_path, const std::string& certificate_path)
    : key_(PEM_read_PrivateKey(OpenFile(key_path).get(), nullptr, nullptr, nullptr)) {
  if (!key_ || EVP_PKEY_get_base_id(key_.get()) != EVP_PKEY_RSA ||
      EVP_PKEY_get_bits(key_.get()) != 2048)
    throw std::runtime_error(key_path + " does not contain an RSA-2048 private key");
  const std::unique_ptr<X509, FreeCertificate> certificate(
      PEM_read_X509(OpenFile(certificate_path).get(), nullptr, nullptr, nullptr));
  const int length = certificate ? i2d_X509(certificate.get(), nullptr) : -1;
  if (length <= 0)
    throw std::runtime_error(certificate_path + " does not contain a certificate");
  certificate_der_.resize(static_cast<std::size_t>(length));
  unsigned char* end = certificate_der_.data();
  i2d_X509(certificate.get(), &end);
}

std::optional<Bytes> CardKey::Apply(const Bytes& block) const {
  Bytes result(static_cast<std::size_t>(EVP_PKEY_get_size(key_.get())));
  std::size_t length = result.size();
  const std::unique_ptr<EVP_PKEY_CTX, FreeContext> context(EVP_PKEY_CTX_new(key_.get(), nullptr));
  if (block.size() != length || !context || EVP_PKEY_decrypt_init(context.get()) != 1 ||
      EVP_PKEY_CTX_set_rsa_padding(context.get(), RSA_NO_PADDING) != 1 ||
      EVP_PKEY_decrypt(context.get(), result.data(), &length, block.data(), block.size()) != 1)
    return std::nullopt;
  result.resize(length);
  return result;
}
