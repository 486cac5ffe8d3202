// The program on throw-away tokens: what its transcripts are written in.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "support/files.h"
#include "support/process.h"

using support::Environment;
using support::Exists;
using support::Finished;
using support::Process;
using support::ReadFile;
using support::RunProgram;
using support::TempFolder;

using Words = std::vector<std::string>;

class CardcertTest : public testing::Test {
 protected:
  // Copies the tokens, so that a test may change them.
  void SetUp() override;

  // The whole command: cardcert, `words`, and --module with the tokens' provider.
  Words Command(const Words& words) const;
  Finished Cardcert(const Words& words, const std::string& standard_input = "") const;
  // The program alone.
  Finished Bare(const Words& words) const;

  // list --json, parsed; keyed by serial and, for the twins' sake, name: "4fa107 Jürgen 山田".
  std::map<std::string, nlohmann::json> List(const Words& more = {}) const;

  // What openssl answers; the test fails when it does not succeed.
  static std::string OpenSsl(const Words& words);
  // The certificate NAME.pem of make_token.sh, and the others of its files.
  static std::string Made(const std::string& file) {
    return std::string(CARDCERT_TOKEN) + "/" + file;
  }

  // A file with the PIN of the tokens, or another.
  std::string PinFile(const std::string& pin = "1234") const;
  std::string File(const std::string& name) const { return folder_.File(name); }
  std::string Write(const std::string& name, const std::string& content) const {
    return folder_.Write(name, content);
  }
  // How many names there are in the test's folder: nothing may be left behind in it.
  std::size_t NumFiles() const;

  Environment environment_;

 private:
  TempFolder folder_;
};

// Every line of standard error is the program's own.
testing::AssertionResult AllLinesAreMessages(const std::string& err);
