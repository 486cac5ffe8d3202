// The fixture for Sign(), and the parts of its traces. The tests are in signing_test.cpp,
// signing_login_test.cpp and signing_failure_test.cpp.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "pkcs11/expected.h"
#include "pkcs11/expected_login.h"
#include "pkcs11/module_test.h"
#include "pkcs11/pin_pad.h"

class SigningTest : public ModuleTest {
 protected:
  static constexpr char kKeyId[] = "\x0a";

  // Opens a provider with a token in slot 1 that holds certificate "A" (serial 01) as object 1 and
  // its key as object 2.
  scripted::Token& OpenWithToken() {
    Open();
    return provider.Slot(1).Token("Alice").Certificate("A", kKeyId).PrivateKey(kKeyId, Key());
  }
  // The same token, which requires a login with the user PIN "1234".
  scripted::Token& OpenWithPin() { return OpenWithPinAndKey(kKeyId, Key()); }
  // The same with another key. A null pointer stands for a key that is not RSA.
  scripted::Token& OpenWithPinAndKey(const std::string& key_id,
                                     std::shared_ptr<const support::RsaKey> key) {
    Open();
    scripted::Token& token = provider.Slot(1).Token("Alice").UserPin("1234");
    return token.Certificate("A", kKeyId).PrivateKey(key_id, std::move(key));
  }

  static std::shared_ptr<const support::RsaKey> Key() {
    static const auto key = support::RsaKey::Generate(1024);
    return key;
  }

  // Signs "data" into a buffer of `capacity` bytes. Checks that the signature is valid, or that a
  // failure does not change the length.
  bool Sign(const std::string& serial = "01", unsigned long capacity = 256) {
    return SignWith(pad.ask(), pad.tell(), &pad, serial, capacity);
  }
  bool SignWith(pin_cb ask, error_cb tell, void* data, const std::string& serial = "01",
                unsigned long capacity = 256) {
    constexpr unsigned char kData[] = {'d', 'a', 't', 'a'};
    std::vector<unsigned char> signature(capacity);
    unsigned long length = capacity;
    const bool succeeded =
        module.Sign(serial, kData, sizeof kData, signature.data(), &length, ask, tell, data);
    if (succeeded)
      EXPECT_TRUE(
          Key()->Verifies("data", std::string(signature.data(), signature.data() + length)));
    else
      EXPECT_EQ(length, capacity);
    return succeeded;
  }

  PinPad pad;
};

// The search for the certificate in slot 1. Its session stays open.
inline std::string FindsCertificate(int session = 1) {
  return "log 5: Preparing signature operation...\n"
         "log 5: Finding certificate with serial 01\n" +
         ListsSlots({1}) + BeginsSearch(1, session, "SERIAL|RW") +
         ExaminesCertificate(session, 1, "A") + FinishesSearch(session) +
         "log 5: Certificate found\n";
}

inline std::string ReadsId(int session = 1) {
  return "C_GetAttributeValue(session " + std::to_string(session) +
         ", object 1, CKA_ID[256]) = OK, 1 bytes\n";
}

// Everything before the login.
inline std::string Prepares(int session = 1) {
  return FindsCertificate(session) + ReadsId(session) + kReadsTokenInfo;
}

// The login until the first request for a PIN or the warning before that.
inline std::string BeginsLogin() {
  return std::string("log 5: Logging in...\n") + kReadsTokenInfo;
}

inline std::string LogsIn() {
  return BeginsLogin() + EntersPin("USER", 4);
}

// `line` follows if the search for the key ends early.
inline std::string BeginsKeySearch(const std::string& line = std::string()) {
  return "log 5: Finding private key...\n"
         "C_FindObjectsInit(session 1, CKA_ID=0a, CKA_CLASS=CKO_PRIVATE_KEY) = OK\n" +
         line;
}

inline std::string FindsKey() {
  return BeginsKeySearch(FindsObject(1, 2)) + FinishesSearch(1);
}

// C_Sign has the result `answer`.
inline std::string Signs(int capacity = 256, const std::string& answer = "OK, 128 bytes") {
  return "log 5: Signing data...\n"
         "C_SignInit(session 1, CKM_RSA_PKCS, object 2) = OK\n"
         "C_Sign(session 1, data 64617461, room for " +
         std::to_string(capacity) + ") = " + answer + '\n';
}

// The end of a signature, starting with C_CloseSession.
inline std::string Completes() {
  return ClosesSession(1) + "log 5: Signature operation completed\n";
}
inline std::string Aborts() {
  return ClosesSession(1) + "log 3: Signature operation aborted by user\n";
}
inline std::string Fails(CK_RV rv, int session = 1) {
  return ClosesSession(session) + "log 3: Signature operation failed (" +
         std::to_string(static_cast<long>(rv)) + ")\n";
}
