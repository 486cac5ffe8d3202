// A provider and the certificate to sign with, on which the commands of the probe operate.
#pragma once

#include <string>
#include <vector>

#include "pkcs11/pkcs11.h"
#include "real_providers/probe/user.h"

class Token {
 public:
  Token(std::string library, std::string serial)
      : library_(std::move(library)), serial_(std::move(serial)) {}

  // Throws std::runtime_error with the log if the provider cannot be loaded.
  void Open();
  void Close() { module_.Close(); }

  // Returns the number of certificates. Also stores the signing certificate, because it may be
  // removed before a signature is verified.
  std::size_t CountCertificates();

  // Signs and verifies the signature with the certificate that CountCertificates() found. Returns
  // "signed", "a wrong signature", "cancelled", "no certificate", or the name of the return value
  // with which signing failed.
  std::string Sign(User* user);
  std::string Sign(const std::string& pin);

  // Calls Unlock() for the token of the certificate. Returns the name of its result, or "no
  // certificate".
  std::string Unlock(User* user);

  PKCS11Module& module() { return module_; }

 private:
  bool IsValidSignature(const std::vector<unsigned char>& signature) const;

  std::string library_;
  std::string serial_;
  PKCS11Module module_;
  pkcs11_certificate certificate_;  // All zero until CountCertificates() has found it.
};
