// RSA keys for tokens of the tests, computed by libcrypto.
#pragma once

#include <memory>
#include <optional>
#include <string>

namespace support {

class RsaKey {
 public:
  // Returns a new key. Takes a few milliseconds with 1024 bits, up to a second with 2048.
  static std::shared_ptr<const RsaKey> Generate(int bits);
  // Returns null if `pem` is not an RSA private key in PEM.
  static std::shared_ptr<const RsaKey> FromPem(const std::string& pem);

  std::size_t modulus_len() const;
  // Unsigned, most significant byte first, without leading zeros.
  std::string modulus() const;
  std::string public_exponent() const;
  // The private key in PEM.
  std::string pem() const;

  // Does what CKM_RSA_PKCS does: adds the padding of RSASSA-PKCS1-v1_5 to `data`, which is normally
  // a DigestInfo, and applies the private key (RFC 8017, section 8.2.1). Returns nothing if `data`
  // is longer than the modulus minus 11 bytes.
  std::optional<std::string> Sign(const std::string& data) const;
  // Returns true if `signature` is the signature of `data`. Uses only the public key.
  bool Verifies(const std::string& data, const std::string& signature) const;

  ~RsaKey();
  RsaKey(const RsaKey&) = delete;
  RsaKey& operator=(const RsaKey&) = delete;

 private:
  explicit RsaKey(void* key) : key_(key) {}

  void* key_;  // An EVP_PKEY. A void pointer keeps libcrypto's headers out of this one.
};

}  // namespace support
