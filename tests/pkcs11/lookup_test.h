// The fixture for FindCertificate() and CertificatePresent(), and the parts of their traces. The
// tests are in lookup_test.cpp and lookup_failure_test.cpp.
#pragma once

#include <string>
#include <vector>

#include "pkcs11/expected.h"
#include "pkcs11/module_test.h"

class LookupTest : public ModuleTest {
 protected:
  // Opens a provider with one token for each list of certificates, in slots 1, 2, ...
  void OpenWithTokens(const std::vector<std::vector<std::string>>& tokens) {
    Open();
    CK_SLOT_ID slot = 0;
    for (const std::vector<std::string>& certificates : tokens) {
      scripted::Token& token = provider.Slot(++slot).Token("Alice");
      for (const std::string& text : certificates)
        token.Certificate(text);
    }
  }

  // Closes the session that a search has handed over.
  void CloseSessionOf(const pkcs11_certificate_location* location) {
    ASSERT_NE(location, nullptr);
    ASSERT_EQ(provider.sessions().size(), 1u) << "exactly one session must be open";
    EXPECT_FALSE(provider.sessions().front().search.has_value()) << "its search must be finished";
    EXPECT_EQ(module.function_list->C_CloseSession(location->session), CKR_OK);
    ClearTrace();
  }

  // What a search leaves in the record that all searches share.
  static void ExpectLocation(const pkcs11_certificate_location& location, CK_SLOT_ID slot,
                             CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object) {
    EXPECT_EQ(location.slot, slot);
    EXPECT_EQ(location.session, session);
    EXPECT_EQ(location.object, object);
  }
};

// The start of a search among these slots.
inline std::string BeginsLookup(const std::string& serial) {
  return "log 5: Finding certificate with serial " + serial + '\n';
}
inline std::string BeginsLookup(const std::string& serial, const std::vector<int>& slots) {
  return BeginsLookup(serial) + ListsSlots(slots);
}

inline std::string SearchesSlot(int slot, int session) {
  return BeginsSearch(slot, session, "SERIAL|RW");
}

// A certificate with another serial.
inline std::string PassesOver(int session, int object, const std::string& text,
                              const std::string& serial) {
  return ExaminesCertificate(session, object, text) +
         "log 5: Not the certificate we're looking for (serial " + serial + ")\n";
}

// The certificate; its session stays open.
inline std::string FindsMatch(int session, int object, const std::string& text) {
  return ExaminesCertificate(session, object, text) + FinishesSearch(session) +
         "log 5: Certificate found\n";
}

inline std::string EndsSlot(int session) {
  return FindsNoObject(session) + EndsSearch(session);
}

inline constexpr char kNotFound[] = "log 5: Failed to find the certificate\n";
