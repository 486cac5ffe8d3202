// One key of the card and its certificate.
#pragma once

#include <openssl/evp.h>

#include <memory>
#include <optional>
#include <string>

#include "emulated_card/bytes.h"

class CardKey {
 public:
  // Reads an RSA-2048 private key and a certificate, both in PEM. Throws std::runtime_error if a
  // file cannot be read or contains something else.
  CardKey(const std::string& key_path, const std::string& certificate_path);

  const Bytes& certificate_der() const { return certificate_der_; }

  // Applies the private key to a block that the caller has padded to the length of the modulus.
  // Returns nothing if the block has another length or is not less than the modulus.
  std::optional<Bytes> Apply(const Bytes& block) const;

 private:
  struct Free {
    void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
  };

  std::unique_ptr<EVP_PKEY, Free> key_;
  Bytes certificate_der_;
};
