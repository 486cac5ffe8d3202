// One key of the card with its certificate, from the files that openssl makes.
#pragma once

#include <openssl/evp.h>

#include <memory>
#include <optional>
#include <string>

#include "emulated_card/bytes.h"

class RsaKey {
 public:
  // A private key of RSA-2048 and a certificate, both PEM. Throws std::runtime_error.
  RsaKey(const std::string& key_path, const std::string& certificate_path);

  const Bytes& certificate_der() const { return certificate_der_; }

  // The bare private key operation on a block of the modulus's length: padding is the caller's.
  // Nothing: the block has another length, or is not less than the modulus.
  std::optional<Bytes> Apply(const Bytes& block) const;

 private:
  struct Free {
    void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
  };

  std::unique_ptr<EVP_PKEY, Free> key_;
  Bytes certificate_der_;
};
