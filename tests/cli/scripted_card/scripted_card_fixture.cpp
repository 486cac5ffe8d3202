#include "cli/scripted_card/scripted_card_fixture.h"

#include <sstream>

void ScriptedCardTest::SetUp() {
  CardcertTest::SetUp();
  environment_["SCRIPTED_CARD_FILES"] = CARDCERT_TOKEN;
  environment_["SCRIPTED_CARD_TRACE"] = File("trace");
  Card("");
}

Words ScriptedCardTest::WithCard(const Words& words) {
  Words command = {CARDCERT_PROGRAM};
  command.insert(command.end(), words.begin(), words.end());
  command.insert(command.end(), {"--module", SCRIPTED_CARD_LIBRARY});
  return command;
}

Words ScriptedCardTest::Sign(const Words& more) const {
  Words words = {"sign", "4fa107", "--in", Write("in", "x"), "--out", File("sig")};
  words.insert(words.end(), more.begin(), more.end());
  return WithCard(words);
}

std::vector<std::string> ScriptedCardTest::Calls(const std::string& function) const {
  std::vector<std::string> calls;
  std::istringstream lines(ReadFile(File("trace")));
  for (std::string line; std::getline(lines, line);) {
    if (line.compare(0, function.size(), function) == 0)
      calls.push_back(line);
  }
  return calls;
}

void ScriptedCardTest::ExpectNoViolations() const {
  EXPECT_THAT(Calls("C_Finalize"), testing::SizeIs(1));
  EXPECT_THAT(Calls("VIOLATION"), testing::IsEmpty());
}

void ScriptedCardTest::ExpectASignature() const {
  ExpectNoViolations();
  const std::string key = Write("public.pem", OpenSsl({"rsa", "-in", Made("sign.key"), "-pubout"}));
  EXPECT_EQ(OpenSsl({"dgst", "-sha256", "-verify", key, "-signature", File("sig"), File("in")}),
            "Verified OK\n");
}

void ScriptedCardTest::ExpectNoSignature() const {
  ExpectNoViolations();
  EXPECT_THAT(Calls("C_Sign("), testing::IsEmpty());
  EXPECT_FALSE(Exists(File("sig")));
}
