#include "support/rsa_key.h"

#include <openssl/bio.h>
#include <openssl/bn.h>
#include <openssl/core_names.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>

#include <cstdlib>

namespace support {

namespace {

using UniqueContext = std::unique_ptr<EVP_PKEY_CTX, decltype(&EVP_PKEY_CTX_free)>;
using UniqueBio = std::unique_ptr<BIO, decltype(&BIO_free)>;

EVP_PKEY* Key(void* key) {
  return static_cast<EVP_PKEY*>(key);
}

const unsigned char* Bytes(const std::string& text) {
  return reinterpret_cast<const unsigned char*>(text.data());
}

UniqueContext Context(EVP_PKEY* key) {
  return UniqueContext(EVP_PKEY_CTX_new(key, nullptr), &EVP_PKEY_CTX_free);
}

std::string Number(EVP_PKEY* key, const char* name) {
  BIGNUM* number = nullptr;
  if (EVP_PKEY_get_bn_param(key, name, &number) != 1)
    std::abort();
  std::string text(static_cast<std::size_t>(BN_num_bytes(number)), '\0');
  BN_bn2bin(number, reinterpret_cast<unsigned char*>(&text[0]));
  BN_free(number);
  return text;
}

}  // namespace

std::shared_ptr<const RsaKey> RsaKey::Generate(int bits) {
  EVP_PKEY* const key = EVP_RSA_gen(static_cast<unsigned int>(bits));
  if (key == nullptr)
    std::abort();
  return std::shared_ptr<const RsaKey>(new RsaKey(key));
}

std::shared_ptr<const RsaKey> RsaKey::FromPem(const std::string& pem) {
  const UniqueBio bio(BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())), &BIO_free);
  EVP_PKEY* const key = PEM_read_bio_PrivateKey(bio.get(), nullptr, nullptr, nullptr);
  if (key == nullptr)
    return nullptr;
  std::shared_ptr<const RsaKey> owner(new RsaKey(key));
  return EVP_PKEY_is_a(key, "RSA") == 1 ? owner : nullptr;
}

std::size_t RsaKey::modulus_len() const {
  return static_cast<std::size_t>(EVP_PKEY_get_size(Key(key_)));
}

std::string RsaKey::modulus() const {
  return Number(Key(key_), OSSL_PKEY_PARAM_RSA_N);
}

std::string RsaKey::public_exponent() const {
  return Number(Key(key_), OSSL_PKEY_PARAM_RSA_E);
}

std::string RsaKey::pem() const {
  const UniqueBio bio(BIO_new(BIO_s_mem()), &BIO_free);
  PEM_write_bio_PrivateKey(bio.get(), Key(key_), nullptr, nullptr, 0, nullptr, nullptr);
  char* text = nullptr;
  const long length = BIO_get_mem_data(bio.get(), &text);
  return std::string(text, static_cast<std::size_t>(length));
}

std::optional<std::string> RsaKey::Sign(const std::string& data) const {
  const UniqueContext context = Context(Key(key_));
  std::string signature(modulus_len(), '\0');
  std::size_t length = signature.size();
  if (EVP_PKEY_sign_init(context.get()) != 1 ||
      EVP_PKEY_CTX_set_rsa_padding(context.get(), RSA_PKCS1_PADDING) != 1 ||
      EVP_PKEY_sign(context.get(), reinterpret_cast<unsigned char*>(&signature[0]), &length,
                    Bytes(data), data.size()) != 1)
    return std::nullopt;
  signature.resize(length);
  return signature;
}

bool RsaKey::Verifies(const std::string& data, const std::string& signature) const {
  const UniqueContext context = Context(Key(key_));
  return EVP_PKEY_verify_init(context.get()) == 1 &&
         EVP_PKEY_CTX_set_rsa_padding(context.get(), RSA_PKCS1_PADDING) == 1 &&
         EVP_PKEY_verify(context.get(), Bytes(signature), signature.size(), Bytes(data),
                         data.size()) == 1;
}

RsaKey::~RsaKey() {
  EVP_PKEY_free(Key(key_));
}

}  // namespace support
