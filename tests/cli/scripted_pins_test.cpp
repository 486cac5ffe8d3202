// --pin, --pin-file and --batch: no questions, and each PIN is offered once.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "cli/cardcert_fixture.h"

namespace {

using testing::HasSubstr;
using testing::Not;

class ScriptedPinsTest : public CardcertTest {
 protected:
  Finished Sign(const Words& more) const {
    return Cardcert(
        Concat({"sign", "4fa107", "--in", Write("in", "x"), "--out", File("sig")}, more));
  }

  static std::size_t Count(const std::string& text, const std::string& part) {
    std::size_t count = 0;
    for (auto at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
      ++count;
    return count;
  }
};

TEST_F(ScriptedPinsTest, ReadsThePinFromAFileOrVariable) {
  EXPECT_EQ(Sign({"--pin-file", PinFile()}).status, 0);
  environment_["MY_PIN"] = "1234";
  EXPECT_EQ(Sign({"--pin", "env:MY_PIN"}).status, 0);
  EXPECT_EQ(Sign({"--pin", "env:MY_PIN", "--batch"}).status, 0);
}

TEST_F(ScriptedPinsTest, OffersAWrongPinOnce) {
  const Finished run = Sign({"--pin-file", PinFile("9999"), "--log-level", "5"});
  EXPECT_EQ(run.status, 7);
  EXPECT_EQ(Count(run.err, "Token login error"), 1U);
  EXPECT_EQ(Masked(WithoutLog(run.err)), CopyWarning() + Error("the PIN is wrong") +
                                             Error("the PIN is not tried a second time") +
                                             Error("nothing was signed: a PIN was not accepted"));
  EXPECT_FALSE(Exists(File("sig")));
}

TEST_F(ScriptedPinsTest, BatchWithoutPinIsStatus6) {
  const Finished run = Sign({"--batch"});
  EXPECT_EQ(run.status, 6);
  EXPECT_EQ(Masked(run.err),
            CopyWarning() + Error("the token asks for the PIN, which was not given") +
                Hint("use --pin-file FILE or --pin env:NAME") + Error("nothing was signed"));
  EXPECT_FALSE(Exists(File("sig")));
}

TEST_F(ScriptedPinsTest, SoPinAndNewPinDoNotReplaceThePin) {
  EXPECT_EQ(Sign({"--so-pin-file", PinFile("87654321"), "--new-pin-file", PinFile("5678")}).status,
            6);
}

TEST_F(ScriptedPinsTest, UnreadablePinIsStatus2) {
  EXPECT_EQ(Sign({"--pin-file", File("missing")}).status, 2);
  EXPECT_EQ(Sign({"--pin", "env:NO_SUCH_VARIABLE_HERE"}).status, 2);
  EXPECT_EQ(Sign({"--so-pin", "87654321"}).status, 2);
  EXPECT_EQ(Sign({"--new-pin-file", Write("two-lines", "1\n2\n")}).status, 2);
}

TEST_F(ScriptedPinsTest, ClearsTheVariableBeforeLoadingTheProvider) {
  environment_["MY_PIN"] = "sentinel-2718281828";
  const std::string pipe = File("pipe");
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  // The program reads the PIN, then the file to sign, and loads the provider last.
  Process process(Command({"sign", "4fa107", "--in", pipe, "--out", File("sig"), "--pin",
                           "env:MY_PIN", "--log-level", "5"}),
                  environment_);
  int writer = -1;  // Cannot be opened before the program reads.
  ASSERT_TRUE(WaitUntil(
      [&] { return (writer = open(pipe.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC)) >= 0; }));
  const std::string environ = ReadFile("/proc/" + std::to_string(process.pid()) + "/environ");
  EXPECT_THAT(environ, HasSubstr("SOFTHSM2_CONF="));
  EXPECT_THAT(environ, Not(HasSubstr("sentinel")));
  EXPECT_EQ(write(writer, "x", 1), 1);
  close(writer);
  EXPECT_EQ(process.Wait().status, 7);  // The PIN was read, and is wrong.
}

TEST_F(ScriptedPinsTest, CancelsWithoutPinAndTerminal) {
  const Finished run = Sign({});
  EXPECT_EQ(run.status, 6);
  EXPECT_EQ(Masked(run.err),
            CopyWarning() +
                Error("the token asks for a PIN, but there is no terminal to ask for it") +
                Hint("use --pin-file FILE or --pin env:NAME") + Error("nothing was signed"));
}

}  // namespace
