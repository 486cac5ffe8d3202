// The program with a scripted card in the reader.
#pragma once

#include <memory>
#include <string>

#include "cli/cardcert_fixture.h"
#include "cli/pseudo_terminal.h"

class ScriptedCardTest : public CardcertTest {
 protected:
  void SetUp() override;

  // What the card is like, in the words of card.cpp.
  void Card(const std::string& words) { environment_["SCRIPTED_CARD"] = words; }

  // The command with the card's provider; `sign` with everything but PINs.
  static Words WithCard(const Words& words);
  Words Sign(const Words& more = {}) const;

  Finished RunCard(const Words& words) const { return RunProgram(WithCard(words), environment_); }
  Finished RunSign(const Words& more) const { return RunProgram(Sign(more), environment_); }

  // The calls that the card saw of one function, or of all whose names begin so.
  std::vector<std::string> Calls(const std::string& function) const;
  // After the run: the caller did nothing wrong, and left nothing open.
  void ExpectNoViolations() const;
  void ExpectASignature() const;
  void ExpectNoSignature() const;
};
