#include "real_providers/probe/token.h"

#include <openssl/bn.h>

#include <array>
#include <memory>
#include <stdexcept>

#include "host/logfile.h"
#include "support/ckr_names.h"

namespace {

struct FreeNumber {
  void operator()(BIGNUM* number) const { BN_free(number); }
};
struct FreeContext {
  void operator()(BN_CTX* context) const { BN_CTX_free(context); }
};
using Number = std::unique_ptr<BIGNUM, FreeNumber>;

// Returns a DigestInfo with an arbitrary SHA-256 digest (RFC 8017, section 9.2).
std::vector<unsigned char> DigestInfo() {
  std::vector<unsigned char> info = {0x30, 0x31, 0x30, 0x0d, 0x06, 0x09, 0x60, 0x86, 0x48, 0x01,
                                     0x65, 0x03, 0x04, 0x02, 0x01, 0x05, 0x00, 0x04, 0x20};
  info.insert(info.end(), 32, 0xa5);
  return info;
}

Number FromBytes(const unsigned char* bytes, std::size_t length) {
  return Number(BN_bin2bn(bytes, static_cast<int>(length), nullptr));
}

std::string FailureReason(const std::string& log) {
  const std::string words = "Signature operation failed (";
  const std::size_t at = log.rfind(words);
  if (at != std::string::npos)
    return support::CkrName(std::stoul(log.substr(at + words.size())));
  return log.find("aborted by user") != std::string::npos ? "cancelled" : "no certificate";
}

}  // namespace

void Token::Open() {
  std::string log;
  logfile.LogToFunction([&log](const std::string& message, int) { log += message + "\n"; });
  const int result = module_.Open(library_);
  logfile.LogToNothing();
  if (result != 0)
    throw std::runtime_error(log);
}

std::string Token::Sign(const std::string& pin) {
  User user(pin);
  return Sign(&user);
}

std::string Token::Sign(User* user) {
  std::string log;
  logfile.LogToFunction([&log](const std::string& message, int) { log += message + "\n"; });
  const std::vector<unsigned char> info = DigestInfo();
  std::vector<unsigned char> signature(1024);
  unsigned long length = signature.size();
  const bool made = module_.Sign(serial_, info.data(), info.size(), signature.data(), &length,
                                 User::Ask, User::Tell, user);
  logfile.LogToNothing();
  if (!made)
    return FailureReason(log);
  signature.resize(length);
  return IsValidSignature(signature) ? "signed" : "a wrong signature";
}

std::string Token::Unlock(User* user) {
  const pkcs11_certificate_location* const found = module_.FindCertificate(serial_);
  if (found == nullptr)
    return "no certificate";
  const pkcs11_certificate_location location = *found;
  const CK_RV rv = module_.Unlock(location.session, location.slot, User::Ask, User::Tell, user);
  module_.function_list->C_CloseSession(location.session);
  return support::CkrName(rv);
}

std::size_t Token::CountCertificates() {
  const std::list<pkcs11_certificate> records = module_.GetCertificates();
  for (const pkcs11_certificate& record : records) {
    if (record.serial == serial_)
      certificate_ = record;
  }
  return records.size();
}

// Verifies with the public key of the certificate (RFC 8017, section 8.2.2).
bool Token::IsValidSignature(const std::vector<unsigned char>& signature) const {
  const Number modulus = FromBytes(certificate_.modulus, certificate_.modulus_len);
  const Number exponent = FromBytes(certificate_.public_exponent, certificate_.public_exponent_len);
  const Number value = FromBytes(signature.data(), signature.size());
  const std::unique_ptr<BN_CTX, FreeContext> context(BN_CTX_new());
  const std::vector<unsigned char> info = DigestInfo();
  if (signature.size() <= info.size() + 3 ||
      BN_mod_exp(value.get(), value.get(), exponent.get(), modulus.get(), context.get()) != 1)
    return false;
  std::vector<unsigned char> expected(signature.size() - info.size(), 0xff);
  expected[0] = 0;
  expected[1] = 1;
  expected.back() = 0;
  expected.insert(expected.end(), info.begin(), info.end());
  std::vector<unsigned char> found(signature.size());
  return BN_bn2binpad(value.get(), found.data(), static_cast<int>(found.size())) > 0 &&
         found == expected;
}
