// Runs the program with the scripted card in the reader.
#pragma once

#include <string>
#include <vector>

#include "cli/cardcert_fixture.h"
#include "cli/pseudo_terminal.h"

class ScriptedCardTest : public CardcertTest {
 protected:
  void SetUp() override;

  // Describes the card in the words of scripted_card_provider.cpp.
  void Card(const std::string& words) { environment_["SCRIPTED_CARD"] = words; }

  // A command line: cardcert, `words`, and --module with the card's provider.
  static Words CardCommand(const Words& words);
  // The same for sign with everything but PINs: signs the file "in" and writes the file "sig".
  Words SignCommand(const Words& more = {}) const;

  Finished RunCard(const Words& words) const {
    return RunProgram(CardCommand(words), environment_);
  }
  Finished RunSign(const Words& more) const { return RunProgram(SignCommand(more), environment_); }

  // The provider calls whose trace begins with `text`, for example "C_Login".
  std::vector<std::string> Calls(const std::string& text) const;
  // To be called after the run. The caller broke no rule and left nothing open.
  void ExpectNoViolations() const;
  // These check the violations, too.
  void ExpectSigned() const;
  void ExpectNotSigned() const;
};
