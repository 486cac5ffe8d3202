// The prompts, at a real pseudo-terminal.
#include "cli/cardcert_fixture.h"
#include "cli/pseudo_terminal.h"

namespace {

using testing::HasSubstr;
using testing::Not;

class PromptTest : public CardcertTest {
 protected:
  Words Sign() const {
    return Command({"sign", "4fa107", "--in", Write("in", "x"), "--out", File("sig")});
  }
  void ExpectASignature() const { EXPECT_EQ(ReadFile(File("sig")).size(), 256U); }
};

TEST_F(PromptTest, HidesThePinAndRestoresEcho) {
  PseudoTerminal terminal(Sign(), environment_);
  ASSERT_TRUE(terminal.Shows("Signing with 'Jürgen 山田' in 'SoftHSM slot"));
  ASSERT_TRUE(terminal.Shows("PIN: "));
  EXPECT_FALSE(terminal.Echoes());
  terminal.Type("1234\n");
  EXPECT_EQ(terminal.Wait(), 0);
  EXPECT_TRUE(terminal.Echoes());
  EXPECT_THAT(terminal.screen(), Not(HasSubstr("1234")));
  ExpectASignature();
}

TEST_F(PromptTest, AsksAgainAfterAWrongPin) {
  PseudoTerminal terminal(Sign(), environment_);
  ASSERT_TRUE(terminal.Shows("PIN: "));
  terminal.Type("9999\n");
  ASSERT_TRUE(terminal.Shows("cardcert: the PIN is wrong\r\n"));
  ASSERT_TRUE(terminal.Shows("Note: a wrong PIN has been entered before."));
  ASSERT_TRUE(terminal.Shows("PIN: "));
  EXPECT_FALSE(terminal.Echoes());
  terminal.Type("1234\n");
  EXPECT_EQ(terminal.Wait(), 0);
  EXPECT_TRUE(terminal.Echoes());
  ExpectASignature();
}

TEST_F(PromptTest, EmptyLineAndControlDCancel) {
  for (const char* const keys : {"\n", "\x04"}) {
    PseudoTerminal terminal(Sign(), environment_);
    ASSERT_TRUE(terminal.Shows("PIN: "));
    terminal.Type(keys);
    EXPECT_EQ(terminal.Wait(), 6);
    EXPECT_TRUE(terminal.Echoes());
    EXPECT_THAT(terminal.screen(), HasSubstr("cardcert: cancelled, nothing was signed"));
    EXPECT_FALSE(Exists(File("sig")));
  }
}

TEST_F(PromptTest, ControlCCancels) {
  PseudoTerminal terminal(Sign(), environment_);
  ASSERT_TRUE(terminal.Shows("PIN: "));
  EXPECT_FALSE(terminal.Echoes());
  terminal.Type("12\x03");
  EXPECT_EQ(terminal.Wait(), 6);
  EXPECT_TRUE(terminal.Echoes());
  EXPECT_FALSE(Exists(File("sig")));
}

TEST_F(PromptTest, RestoresEchoAfterAnError) {
  PseudoTerminal terminal(Command({"sign", "6e6f", "--in", Write("in", "x"), "--out", File("sig")}),
                          environment_);
  ASSERT_TRUE(terminal.Shows("PIN: "));
  EXPECT_FALSE(terminal.Echoes());
  terminal.Type("1234\n");
  EXPECT_EQ(terminal.Wait(), 1);
  EXPECT_TRUE(terminal.Echoes());
}

TEST_F(PromptTest, RestoresEchoBeforeAFatalSignal) {
  for (const int signal : {SIGTERM, SIGHUP, SIGQUIT}) {
    PseudoTerminal terminal(Sign(), environment_);
    ASSERT_TRUE(terminal.Shows("PIN: "));
    EXPECT_FALSE(terminal.Echoes());
    kill(terminal.program(), signal);
    EXPECT_EQ(terminal.Wait(), -signal);
    EXPECT_TRUE(terminal.Echoes());
  }
}

TEST_F(PromptTest, RestoresEchoOnControlZAndAsksAgainOnFg) {
  PseudoTerminal terminal(Sign(), environment_);
  ASSERT_TRUE(terminal.Shows("PIN: "));
  for (int i = 0; i < 2; ++i) {
    EXPECT_FALSE(terminal.Echoes());
    terminal.Type("99\x1a");
    ASSERT_TRUE(terminal.WaitForStop());
    EXPECT_TRUE(terminal.Echoes());
    terminal.Continue();
    ASSERT_TRUE(terminal.Shows("PIN: "));
  }
  EXPECT_FALSE(terminal.Echoes());
  terminal.Type("1234\n");  // What was typed before Ctrl-Z is gone.
  EXPECT_EQ(terminal.Wait(), 0);
  EXPECT_TRUE(terminal.Echoes());
  ExpectASignature();
}

TEST_F(PromptTest, DoesNotOfferALineThatIsTooLong) {
  PseudoTerminal terminal(Sign(), environment_);
  ASSERT_TRUE(terminal.Shows("PIN: "));
  terminal.Type(std::string(129, '1') + "\n");
  ASSERT_TRUE(terminal.Shows("No PIN is longer than 128 bytes."));
  ASSERT_TRUE(terminal.Shows("PIN: "));
  terminal.Type("1234\n");
  EXPECT_EQ(terminal.Wait(), 0);
  EXPECT_THAT(terminal.screen(), Not(HasSubstr("wrong")));
}

TEST_F(PromptTest, AsksOnTheTerminalIfInputAndOutputArePipes) {
  Words command = {"sh", "-c", "printf x | \"$@\" > '" + File("sig") + "'", "sh"};
  const Words sign = Command({"sign", "4fa107"});
  command.insert(command.end(), sign.begin(), sign.end());
  PseudoTerminal terminal(command, environment_);
  ASSERT_TRUE(terminal.Shows("PIN: "));
  EXPECT_FALSE(terminal.Echoes());
  terminal.Type("1234\n");
  EXPECT_EQ(terminal.Wait(), 0);
  ExpectASignature();
}

TEST_F(PromptTest, NotesThatDataIsReadFromTheTerminal) {
  PseudoTerminal terminal(Command({"sign", "4fa107", "--out", File("sig")}), environment_);
  ASSERT_TRUE(terminal.Shows("cardcert: what is to be signed is read from the terminal"));
  terminal.Type("x\n\x04");
  ASSERT_TRUE(terminal.Shows("PIN: "));
  EXPECT_FALSE(terminal.Echoes());
  terminal.Type("1234\n");
  EXPECT_EQ(terminal.Wait(), 0);
  ExpectASignature();
}

TEST_F(PromptTest, RefusesToWriteARawSignatureToATerminal) {
  PseudoTerminal terminal(Command({"sign", "4fa107", "--in", Write("in", "x")}), environment_);
  EXPECT_EQ(terminal.Wait(), 2);
  EXPECT_THAT(terminal.screen(), HasSubstr("a raw signature is not for a terminal"));
}

TEST_F(PromptTest, RefusesTheTerminalAsPinFile) {
  Words command = Sign();
  command.insert(command.end(), {"--pin-file", "/dev/tty"});
  PseudoTerminal terminal(command, environment_);
  EXPECT_EQ(terminal.Wait(), 2);
  EXPECT_THAT(terminal.screen(), HasSubstr("--pin-file: it is a terminal"));
}

TEST_F(PromptTest, NeverAsksWithBatchOrGivenPins) {
  const std::string wrong = PinFile("9999");
  for (const Words& more : {Words{"--batch"}, Words{"--pin-file", wrong}}) {
    Words command = Sign();
    command.insert(command.end(), more.begin(), more.end());
    PseudoTerminal terminal(command, environment_);
    EXPECT_EQ(terminal.Wait(), more.size() == 1 ? 6 : 7);
    EXPECT_THAT(terminal.screen(), Not(HasSubstr("PIN: ")));
  }
}

}  // namespace
