// A provider with a certificate whose key signs: what the probe's commands work on.
#pragma once

#include <string>
#include <vector>

#include "pkcs11/pkcs11.h"
#include "real_providers/probe/user.h"

class Token {
 public:
  Token(std::string library, std::string serial)
      : library_(std::move(library)), serial_(std::move(serial)) {}

  // Throws std::runtime_error with the log when the provider cannot be loaded.
  void Open();
  void Close() { module_.Close(); }

  // Remembers the signing certificate, for it may be gone when its key's signature is checked.
  std::size_t CountCertificates();

  // "signed" when the signature is one of the certificate that was last counted; otherwise why not:
  // the name of the value with which it failed, "cancelled", or "no certificate".
  std::string Sign(User* user);
  std::string Sign(const std::string& pin);

  // What Unlock() answers, on the slot of the certificate; "no certificate".
  std::string Unlock(User* user);

  PKCS11Module& module() { return module_; }

 private:
  bool IsSignature(const std::vector<unsigned char>& signature) const;

  std::string library_;
  std::string serial_;
  PKCS11Module module_;
  pkcs11_certificate certificate_;  // without a modulus as long as it has not been seen
};
