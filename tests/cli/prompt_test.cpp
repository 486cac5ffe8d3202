// The prompts of cardcert sign at a pseudo-terminal.
#include "cli/cardcert_fixture.h"
#include "cli/pseudo_terminal.h"

namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

class PromptTest : public CardcertTest {
 protected:
  Words SignCommand(const Words& more = {}) const {
    return Command(
        Concat({"sign", "4fa107", "--in", Write("in", "x"), "--out", File("sig")}, more));
  }
  void ExpectSigned() const { EXPECT_EQ(ReadFile(File("sig")).size(), 256U); }
};

TEST_F(PromptTest, HidesThePinAndRestoresEcho) {
  PseudoTerminal terminal(SignCommand(), environment_);
  terminal.Expect("Certificate: 'Jürgen 山田'");
  terminal.Expect("in the slot 'SoftHSM slot");
  terminal.Enter("PIN: ", "1234");
  terminal.ExpectExit(0);
  EXPECT_THAT(terminal.screen(), Not(HasSubstr("1234")));
  ExpectSigned();
}

TEST_F(PromptTest, AsksAgainAfterAWrongPin) {
  PseudoTerminal terminal(SignCommand(), environment_);
  terminal.Enter("PIN: ", "9999");
  terminal.Expect("cardcert: error: the PIN is wrong\r\n");
  terminal.Expect("cardcert: warning: a wrong PIN was entered before");
  terminal.Enter("PIN: ", "1234");
  terminal.ExpectExit(0);
  ExpectSigned();
}

TEST_F(PromptTest, EmptyLineAndControlDCancel) {
  for (const char* const keys : {"\n", "\x04"}) {
    PseudoTerminal terminal(SignCommand(), environment_);
    terminal.Expect("PIN: ");
    terminal.Type(keys);
    terminal.ExpectExit(6);
    EXPECT_THAT(terminal.screen(), EndsWith("PIN: \n" + Progress("cancelled; nothing was signed")));
    EXPECT_FALSE(Exists(File("sig")));
  }
}

TEST_F(PromptTest, ControlCCancels) {
  PseudoTerminal terminal(SignCommand(), environment_);
  terminal.Expect("PIN: ");
  EXPECT_FALSE(terminal.Echoes());
  terminal.Type("12\x03");
  terminal.ExpectExit(6);
  EXPECT_FALSE(Exists(File("sig")));
}

TEST_F(PromptTest, RestoresEchoAfterAnError) {
  PseudoTerminal terminal(Command({"sign", "6e6f", "--in", Write("in", "x"), "--out", File("sig")}),
                          environment_);
  terminal.Enter("PIN: ", "1234");
  terminal.ExpectExit(1);
}

TEST_F(PromptTest, RestoresEchoBeforeAFatalSignal) {
  for (const int signal : {SIGTERM, SIGHUP, SIGQUIT}) {
    PseudoTerminal terminal(SignCommand(), environment_);
    terminal.Expect("PIN: ");
    EXPECT_FALSE(terminal.Echoes());
    kill(terminal.program(), signal);
    terminal.ExpectExit(-signal);
  }
}

TEST_F(PromptTest, RestoresEchoOnControlZAndAsksAgainOnFg) {
  PseudoTerminal terminal(SignCommand(), environment_);
  for (int i = 0; i < 2; ++i) {
    terminal.Expect("PIN: ");
    EXPECT_FALSE(terminal.Echoes());
    terminal.Type("99\x1a");
    terminal.WaitForStop();
    EXPECT_TRUE(terminal.Echoes());
    terminal.Continue();
  }
  terminal.Enter("PIN: ", "1234");  // Characters typed before Ctrl-Z are discarded.
  terminal.ExpectExit(0);
  ExpectSigned();
}

TEST_F(PromptTest, DoesNotOfferALineThatIsTooLong) {
  PseudoTerminal terminal(SignCommand(), environment_);
  terminal.Enter("PIN: ", std::string(129, '1'));
  terminal.Expect("A PIN has at most 128 bytes.");
  terminal.Enter("PIN: ", "1234");
  terminal.ExpectExit(0);
  EXPECT_THAT(terminal.screen(), Not(HasSubstr("wrong")));
}

TEST_F(PromptTest, AsksOnTheTerminalIfInputAndOutputArePipes) {
  PseudoTerminal terminal(Concat({"sh", "-c", "printf x | \"$@\" > '" + File("sig") + "'", "sh"},
                                 Command({"sign", "4fa107"})),
                          environment_);
  terminal.Enter("PIN: ", "1234");
  terminal.ExpectExit(0);
  ExpectSigned();
}

TEST_F(PromptTest, NotesThatDataIsReadFromTheTerminal) {
  PseudoTerminal terminal(Command({"sign", "4fa107", "--out", File("sig")}), environment_);
  terminal.Expect("cardcert: reading the data to sign from the terminal");
  terminal.Type("x\n\x04");
  terminal.Enter("PIN: ", "1234");
  terminal.ExpectExit(0);
  ExpectSigned();
}

TEST_F(PromptTest, RefusesToWriteARawSignatureToATerminal) {
  PseudoTerminal terminal(Command({"sign", "4fa107", "--in", Write("in", "x")}), environment_);
  terminal.ExpectExit(2);
  EXPECT_EQ(terminal.screen(), Error("a raw signature cannot be shown on a terminal") +
                                   Hint("use --out FILE or --encoding base64"));
}

TEST_F(PromptTest, WritesABase64SignatureToATerminal) {
  PseudoTerminal terminal(
      Command({"sign", "4fa107", "--in", Write("in", "x"), "--encoding", "base64"}), environment_);
  terminal.Enter("PIN: ", "1234");
  terminal.ExpectExit(0);
  const std::string screen = terminal.screen();
  const std::string signature = screen.substr(screen.find("PIN: \n") + 6);
  Write("sig", OpenSsl({"base64", "-d", "-in", Write("base64", signature)}));
  ExpectSignature(File("sig"), "sign", File("in"));
}

TEST_F(PromptTest, RefusesTheTerminalAsPinFile) {
  PseudoTerminal terminal(SignCommand({"--pin-file", "/dev/tty"}), environment_);
  terminal.ExpectExit(2);
  EXPECT_EQ(terminal.screen(),
            Error("cannot read the PIN of --pin-file: it is a terminal, which would show the PIN; "
                  "without this option the PIN is asked for and not shown"));
}

TEST_F(PromptTest, NeverAsksWithBatchOrGivenPins) {
  const std::pair<Words, int> cases[] = {{{"--batch"}, 6}, {{"--pin-file", PinFile("9999")}, 7}};
  for (const auto& [options, status] : cases) {
    PseudoTerminal terminal(SignCommand(options), environment_);
    terminal.ExpectExit(status);
    EXPECT_THAT(terminal.screen(), Not(HasSubstr("PIN: ")));
  }
}

}  // namespace
