#include "cli/scripted_card/scripted_card_fixture.h"

#include <sstream>

void ScriptedCardTest::SetUp() {
  CardcertTest::SetUp();
  environment_["SCRIPTED_CARD_FILES"] = CARDCERT_TOKEN;
  environment_["SCRIPTED_CARD_TRACE"] = File("trace");
  Card("");
}

Words ScriptedCardTest::CardCommand(const Words& words) {
  return Concat({CARDCERT_PROGRAM}, words, {"--module", SCRIPTED_CARD_LIBRARY});
}

Words ScriptedCardTest::SignCommand(const Words& more) const {
  return CardCommand(
      Concat({"sign", "4fa107", "--in", Write("in", "x"), "--out", File("sig")}, more));
}

std::vector<std::string> ScriptedCardTest::Calls(const std::string& text) const {
  std::vector<std::string> calls;
  std::istringstream lines(ReadFile(File("trace")));
  for (std::string line; std::getline(lines, line);) {
    if (line.compare(0, text.size(), text) == 0)
      calls.push_back(line);
  }
  return calls;
}

void ScriptedCardTest::ExpectNoViolations() const {
  EXPECT_THAT(Calls("C_Finalize"), testing::SizeIs(1));
  EXPECT_THAT(Calls("VIOLATION"), testing::IsEmpty());
}

void ScriptedCardTest::ExpectSigned() const {
  ExpectNoViolations();
  ExpectSignature(File("sig"), "sign", File("in"));
}

void ScriptedCardTest::ExpectNotSigned() const {
  ExpectNoViolations();
  EXPECT_THAT(Calls("C_Sign("), testing::IsEmpty());
  EXPECT_FALSE(Exists(File("sig")));
}
