// Runs the program on copies of the SoftHSM tokens of make_tokens.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <nlohmann/json.hpp>
#include <string>

#include "support/files.h"
#include "support/process.h"

using support::Concat;
using support::Environment;
using support::Exists;
using support::Finished;
using support::Process;
using support::ReadFile;
using support::RunProgram;
using support::TempFolder;
using support::WaitUntil;
using support::Words;

class CardcertTest : public testing::Test {
 protected:
  // Copies the tokens, so that a test may change them.
  void SetUp() override;

  // A command line: cardcert, `words`, and --module with the provider of the tokens.
  static Words Command(const Words& words);
  Finished Cardcert(const Words& words, const std::string& standard_input = "") const;
  // Runs cardcert with `words` alone.
  Finished CardcertWithoutModule(const Words& words) const;
  // Runs a shell script in which "$@" is `command`.
  Finished InShell(const std::string& script, const Words& command) const;
  Finished InBash(const std::string& script, const Words& command) const;

  // Runs list --json. The keys of the result are serial and name, because two certificates have
  // the same serial: "4fa107 Jürgen 山田".
  std::map<std::string, nlohmann::json> List(const Words& more = {}) const;

  // Runs openssl, which has to succeed, and returns its standard output.
  static std::string OpenSsl(const Words& words);
  // Checks that `signature` is the key's signature on the file `in`. `name` is a key of
  // make_tokens.
  void ExpectSignature(const std::string& signature, const std::string& name, const std::string& in,
                       const std::string& digest = "sha256") const;
  // The path of a file that make_tokens has made.
  static std::string Made(const std::string& file) {
    return std::string(CARDCERT_TOKEN) + "/" + file;
  }
  // Adds a certificate of make_tokens to the token "first", or removes it, as another program
  // would. `name` is also its label.
  void AddToToken(const std::string& name, const std::string& id) const;
  void RemoveFromToken(const std::string& name) const;

  // Writes a file with the PIN and returns its path.
  std::string PinFile(const std::string& pin = "1234") const;
  // As Write(), for a file that only its owner can read.
  std::string SecretFile(const std::string& name, const std::string& content) const;
  std::string File(const std::string& name) const { return folder_.File(name); }
  std::string Write(const std::string& name, const std::string& content) const {
    return folder_.Write(name, content);
  }
  // The number of files in the test's folder.
  std::size_t NumFiles() const;

  Environment environment_;

 private:
  void CertificateTool(const Words& words) const;

  TempFolder folder_;
};

// Messages of the program on standard error.
std::string Error(const std::string& text);
std::string Warning(const std::string& text);
std::string Hint(const std::string& text);
std::string Progress(const std::string& text);

// The last hint after a provider could not be loaded.
inline constexpr char kUsualPlaces[] =
    "PKCS#11 libraries are often in /usr/lib/*/pkcs11/ or named *pkcs11*.so";
// The messages about a library that dlopen() cannot load.
std::string LoadError(const std::string& path, const std::string& reason, const std::string& hint);
// The warning about the EC certificate on the token "first".
std::string LeftOutWarning();
// The warning about the two copies of the certificate "sign", after Masked().
std::string CopyWarning();
// Matches the error about the certificates "plain" and "twin", after Masked(). SoftHSM chooses
// their order.
testing::Matcher<std::string> IsErrorAboutPlainAndTwin();
// Returns `text` with "N", "M" and "T" in place of what differs from build to build: the numbers in
// SoftHSM's names of slots, the beginnings of moduli, and which of two tokens comes first.
std::string Masked(const std::string& text);

// Returns the lines of standard error that are messages of the program and not of the log.
std::string WithoutLog(const std::string& err);

// Checks that the program has refused to do anything: it ended with `status` and wrote nothing but
// messages. Returns the messages.
std::string Refusal(const Finished& run, int status = 2);

// Succeeds if every line of standard error is a message of the program.
testing::AssertionResult AllLinesAreMessages(const std::string& err);
