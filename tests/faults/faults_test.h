// The fixture of the tests that inject failures: two slots with healthy tokens, a user who answers
// every request, and the conditions that must hold after every failure.
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

// Adds token "Alice" with certificate A (serial 01) and its key in slot 1, and "Bob" with B (02) in
// slot 2.
void AddHealthyTokens(scripted::Provider& provider);
// Sets the PINs of both tokens, which then require a login.
void SetPins(scripted::Provider& provider);
// Returns the key of both tokens.
const support::RsaKey& HealthyKey();

// The data of PIN callbacks that answer every request with the correct PIN and agree to an unlock.
// They cancel after `requests_left` requests, since a provider may refuse every PIN.
struct User {
  int requests_left = 20;
  int num_errors = 0;  // Calls of the error callback.
  static bool Ask(pkcs11_pin_type type, unsigned char* buffer, unsigned long* length, void* data);
  static void Tell(pkcs11_pin_type type, pkcs11_pin_error error, void* data);
};

// Returns the names of the records, for example "A B".
std::string NamesOf(const std::list<pkcs11_certificate>& records);

// Returns the log lines in the trace with their levels, for example "3: Unable to read
// certificate".
std::vector<std::string> LogLines();
// Returns the lines of levels 2 and 3 without their levels, each ended by a newline.
std::string FailureLines();

class FaultsTest : public testing::Test {
 protected:
  FaultsTest();
  ~FaultsTest() override;

  // Adds the healthy tokens, loads the provider and clears the trace. Ends what was begun before.
  void Begin();
  // Closes the module, and checks that every rule was used and that everything was closed.
  void End();

  // Checks that no session, login, certificate or library is left over, and that the component has
  // used the provider and the host correctly.
  void ExpectNothingLeftOver();

  // Removes unused rules, and ends the sessions and logins that an operation leaves to its caller.
  void EndSessionsOfCaller();

  // Checks that the module can be opened again and lists both certificates.
  void ExpectStillWorks();

  // Returns the names of the certificates that GetCertificates() lists.
  std::string List();

  scripted::Provider& provider;
  scripted_host::Host& host;
  PKCS11Module module;
};

}  // namespace faults
