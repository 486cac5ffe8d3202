// RSA keys for tokens, with the real arithmetic.
#pragma once

#include <memory>
#include <optional>
#include <string>

namespace scripted {

class RsaKey {
 public:
  // A new key. 1024 bits take some milliseconds, 2048 up to a second.
  static std::shared_ptr<const RsaKey> Generate(int bits);
  // A private key in PEM; null when it is none or no RSA key.
  static std::shared_ptr<const RsaKey> FromPem(const std::string& pem);

  std::size_t modulus_len() const;
  // Unsigned and big-endian, without leading zeros.
  std::string modulus() const;
  std::string public_exponent() const;
  // The private key in PEM.
  std::string pem() const;

  // What CKM_RSA_PKCS does: pads the data as RSASSA-PKCS1-v1_5 does a DigestInfo and exponentiates
  // (RFC 8017, section 8.2.1). Nothing when the data are longer than the modulus less 11 bytes.
  std::optional<std::string> Sign(const std::string& data) const;
  // Whether `signature` is what Sign() makes of `data`, by the public key alone.
  bool Verifies(const std::string& data, const std::string& signature) const;

  ~RsaKey();
  RsaKey(const RsaKey&) = delete;
  RsaKey& operator=(const RsaKey&) = delete;

 private:
  explicit RsaKey(void* key) : key_(key) {}

  void* key_;  // An EVP_PKEY; libcrypto stays out of this header.
};

}  // namespace scripted
