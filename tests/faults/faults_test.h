// The fixture of the tests that let something go wrong: two slots with healthy tokens, a user who
// answers everything, and what has to hold whatever went wrong.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "pkcs11/pkcs11.h"
#include "scripted_host/scripted_host.h"
#include "scripted_provider/in_process_loader.h"
#include "scripted_provider/provider.h"

namespace faults {

// Slot 1 holds "Alice" with the certificate A (serial 01), slot 2 "Bob" with B (02), each with its
// key. With PINs they want a login.
void AddHealthyTokens(scripted::Provider& provider);
void SetPins(scripted::Provider& provider);
const support::RsaKey& HealthyKey();

// Answers every request with the right PIN, and consents; cancels after so many requests, so that a
// provider that refuses every PIN does not go on for ever.
struct User {
  int patience = 20;
  int told = 0;
  static bool Ask(pkcs11_pin_type type, unsigned char* buffer, unsigned long* length, void* data);
  static void Tell(pkcs11_pin_type type, pkcs11_pin_error error, void* data);
};

// "A B": the names of the records.
std::string NamesOf(const std::list<pkcs11_certificate>& records);

// The log lines of the trace, each as "3: Unable to read certificate".
std::vector<std::string> LogLines();
// Those of level 2 and 3, without the level, each ended by a line break.
std::string FailureLines();

class FaultsTest : public testing::Test {
 protected:
  FaultsTest();
  ~FaultsTest() override;

  // Adds the healthy tokens, loads the provider and clears the trace.
  void Begin();

  // Sessions, logins, certificates and libraries are as they have to be after any operation; the
  // caller of FindCertificate holds one session.
  void ExpectBalance(std::size_t sessions = 0);

  // Forgets what is left of the script, and ends what the caller of a single step would end.
  void Finish();

  // The same module still works: it is closed, opened, and lists what is there.
  void ExpectStillWorks();

  scripted::Provider& provider;
  scripted_host::Host& host;
  PKCS11Module module;
};

}  // namespace faults
