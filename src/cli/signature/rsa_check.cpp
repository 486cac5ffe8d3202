#include "cli/signature/rsa_check.h"

#include <openssl/bn.h>
#include <openssl/core_names.h>
#include <openssl/evp.h>
#include <openssl/param_build.h>
#include <openssl/rsa.h>

#include <memory>

namespace cardcert::cli {
namespace {

struct Free {
  void operator()(BIGNUM* number) const { BN_free(number); }
  void operator()(OSSL_PARAM_BLD* builder) const { OSSL_PARAM_BLD_free(builder); }
  void operator()(OSSL_PARAM* parameters) const { OSSL_PARAM_free(parameters); }
  void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
  void operator()(EVP_PKEY_CTX* context) const { EVP_PKEY_CTX_free(context); }
};
template <typename T>
using Owned = std::unique_ptr<T, Free>;

Owned<BIGNUM> Number(const unsigned char* bytes, unsigned long length) {
  return Owned<BIGNUM>(BN_bin2bn(bytes, static_cast<int>(length), nullptr));
}

Owned<EVP_PKEY> PublicKey(const pkcs11_certificate& record) {
  const Owned<BIGNUM> modulus = Number(record.modulus, record.modulus_len);
  const Owned<BIGNUM> exponent = Number(record.public_exponent, record.public_exponent_len);
  const Owned<OSSL_PARAM_BLD> builder(OSSL_PARAM_BLD_new());
  if (!modulus || !exponent || !builder ||
      OSSL_PARAM_BLD_push_BN(builder.get(), OSSL_PKEY_PARAM_RSA_N, modulus.get()) != 1 ||
      OSSL_PARAM_BLD_push_BN(builder.get(), OSSL_PKEY_PARAM_RSA_E, exponent.get()) != 1)
    return nullptr;
  const Owned<OSSL_PARAM> parameters(OSSL_PARAM_BLD_to_param(builder.get()));
  const Owned<EVP_PKEY_CTX> context(EVP_PKEY_CTX_new_from_name(nullptr, "RSA", nullptr));
  EVP_PKEY* key = nullptr;
  if (!parameters || !context || EVP_PKEY_fromdata_init(context.get()) != 1 ||
      EVP_PKEY_fromdata(context.get(), &key, EVP_PKEY_PUBLIC_KEY, parameters.get()) != 1)
    return nullptr;
  return Owned<EVP_PKEY>(key);
}

}  // namespace

std::size_t MaxDataLength(const pkcs11_certificate& record) {
  constexpr std::size_t kPadding = 11;
  const bool leading_zero = record.modulus_len > 0 && record.modulus[0] == 0;
  const std::size_t length = record.modulus_len - (leading_zero ? 1 : 0);
  return length > kPadding ? length - kPadding : 0;
}

bool IsSignatureOn(const std::vector<unsigned char>& data,
                   const std::vector<unsigned char>& signature, const pkcs11_certificate& record) {
  const Owned<EVP_PKEY> key = PublicKey(record);
  if (!key)
    return false;
  const Owned<EVP_PKEY_CTX> context(EVP_PKEY_CTX_new(key.get(), nullptr));
  if (!context || EVP_PKEY_verify_recover_init(context.get()) != 1 ||
      EVP_PKEY_CTX_set_rsa_padding(context.get(), RSA_PKCS1_PADDING) != 1)
    return false;
  // As no digest is set, libcrypto returns everything inside the padding.
  std::vector<unsigned char> recovered(static_cast<std::size_t>(EVP_PKEY_get_size(key.get())));
  std::size_t length = recovered.size();
  if (EVP_PKEY_verify_recover(context.get(), recovered.data(), &length, signature.data(),
                              signature.size()) != 1)
    return false;
  recovered.resize(length);
  return recovered == data;
}

}  // namespace cardcert::cli
