// Locking and unlocking a PIN at the terminal.
#include "cli/scripted_card/scripted_card_fixture.h"

namespace {

using testing::HasSubstr;
using testing::Not;
using testing::SizeIs;

class UnlockTest : public ScriptedCardTest {
 protected:
  // A user who consents to unlock the PIN of a locked card, and gives the right SO PIN.
  static void Unlock(PseudoTerminal* terminal, const std::string& yes = "y") {
    terminal->Answer("[y/N] ", yes);
    terminal->Enter("SO PIN (PUK): ", "87654321");
  }
  static void SetNewPin(PseudoTerminal* terminal, const std::string& pin,
                        const std::string& repeated) {
    terminal->Enter("New PIN: ", pin);
    terminal->Enter("New PIN once more: ", repeated);
  }
};

TEST_F(UnlockTest, SignsAfterLockingAndUnlockingThePin) {
  PseudoTerminal terminal(SignCommand(), environment_);
  terminal.Expect("Certificate: 'Jürgen 山田'");
  terminal.Enter("PIN: ", "1111");
  terminal.Expect("cardcert: error: the PIN is wrong");
  terminal.Expect("cardcert: warning: a wrong PIN was entered before");
  terminal.Enter("PIN: ", "2222");
  terminal.Expect("cardcert: error: the PIN is wrong");
  terminal.Expect("cardcert: warning: this is the last try; a wrong PIN locks it");
  terminal.Enter("PIN: ", "3333");
  terminal.Expect("cardcert: error: the PIN is locked");
  terminal.Answer("Unlock the PIN now, with the SO PIN (PUK), and set a new one? [y/N] ", "y");
  terminal.Enter("SO PIN (PUK): ", "11111111");
  terminal.Expect("cardcert: error: the SO PIN (PUK) is wrong");
  terminal.Expect("cardcert: warning: a wrong SO PIN (PUK) was entered before");
  terminal.Enter("SO PIN (PUK): ", "87654321");
  SetNewPin(&terminal, "5678", "5679");
  terminal.Expect("The two PINs are not the same.");
  SetNewPin(&terminal, "567", "567");
  terminal.Expect("cardcert: error: the token does not accept a PIN of this length or form");
  SetNewPin(&terminal, "5678", "5678");
  terminal.Enter("PIN: ", "5678");
  terminal.ExpectExit(0);
  for (const char* const pin : {"1111", "2222", "3333", "87654321", "567"})
    EXPECT_THAT(terminal.screen(), Not(HasSubstr(pin)));
  ExpectSigned();
}

TEST_F(UnlockTest, OldPinIsWrongAfterUnlocking) {
  Card("left=0");
  PseudoTerminal terminal(SignCommand(), environment_);
  Unlock(&terminal, "yes");
  SetNewPin(&terminal, "5678", "5678");
  terminal.Enter("PIN: ", "1234");
  terminal.Enter("PIN: ", "5678");
  terminal.ExpectExit(0);
  EXPECT_EQ(terminal.screen(),
            "cardcert: error: the PIN is locked\n"
            "Certificate: 'Jürgen 山田'\n"
            "Token: 'Card (PIN)' in the slot 'Scripted reader'\n"
            "Press Enter to cancel.\n"
            "Unlock the PIN now, with the SO PIN (PUK), and set a new one? [y/N] yes\n"
            "SO PIN (PUK): \n"
            "New PIN: \n"
            "New PIN once more: \n"
            "cardcert: the PIN is unlocked and the new PIN is set\n"
            "PIN: \n"
            "cardcert: error: the PIN is wrong\n"
            "cardcert: warning: a wrong PIN was entered before\n"
            "PIN: \n");
  ExpectSigned();
}

TEST_F(UnlockTest, DoesNotWarnAboutTheNewPinBecauseOfStaleFlags) {
  // Some tokens still report "final try" and "locked" after the PIN has been unlocked.
  Card("left=0 pin-flags=0x60000");
  PseudoTerminal terminal(SignCommand(), environment_);
  Unlock(&terminal);
  SetNewPin(&terminal, "5678", "5678");
  terminal.Expect("the PIN is unlocked and the new PIN is set");
  terminal.Enter("PIN: ", "5678");
  terminal.ExpectExit(0);
  EXPECT_THAT(terminal.screen(), Not(HasSubstr("last try")));
  ExpectSigned();
}

TEST_F(UnlockTest, LeavesThePinLockedWithoutATerminal) {
  Card("left=0");
  const Finished run = RunSign({});
  EXPECT_EQ(run.status, 8);
  EXPECT_EQ(run.err,
            "cardcert: error: the PIN is locked\n"
            "cardcert: hint: to unlock the PIN, give the SO PIN (PUK) and a new PIN with"
            " --so-pin-file and --new-pin-file\n"
            "cardcert: error: nothing was signed: a PIN is locked\n");
  ExpectNotSigned();
}

TEST_F(UnlockTest, WaitsForTheForegroundBeforeAsking) {
  Card("left=0");
  PseudoTerminal terminal(SignCommand(), environment_);
  terminal.Expect("[y/N] ");
  terminal.StopBackgroundOutput();
  terminal.Type("\x1a");
  terminal.WaitForStop();
  terminal.ContinueInBackground();
  terminal.WaitForStop();
  terminal.Continue();
  terminal.Answer("[y/N] ", "n");
  terminal.ExpectExit(8);
  ExpectNotSigned();
}

TEST_F(UnlockTest, LeavesThePinLockedWithoutConsent) {
  for (const char* const answer : {"n", "", "yikes"}) {
    Card("left=0");
    PseudoTerminal terminal(SignCommand(), environment_);
    terminal.Answer("[y/N] ", answer);
    terminal.ExpectExit(8);
    EXPECT_EQ(terminal.screen(),
              Error("the PIN is locked") +
                  "Certificate: 'Jürgen 山田'\n"
                  "Token: 'Card (PIN)' in the slot 'Scripted reader'\n"
                  "Press Enter to cancel.\n"
                  "Unlock the PIN now, with the SO PIN (PUK), and set a new one? [y/N] " +
                  answer + "\n" + Error("nothing was signed: a PIN is locked"));
    EXPECT_THAT(Calls("C_Login"), SizeIs(0));
    ExpectNotSigned();
  }
}

TEST_F(UnlockTest, ControlCCancelsEveryQuestion) {
  for (int num_answers = 0; num_answers < 4; ++num_answers) {
    Card("left=0");
    PseudoTerminal terminal(SignCommand(), environment_);
    if (num_answers > 0)
      terminal.Answer("[y/N] ", "y");
    if (num_answers > 1)
      terminal.Enter("SO PIN (PUK): ", "87654321");
    if (num_answers > 2)
      terminal.Enter("New PIN: ", "5678");
    const char* const next[] = {"[y/N] ", "SO PIN (PUK): ", "New PIN: ", "New PIN once more: "};
    terminal.Expect(next[num_answers]);
    terminal.Type("\x03");
    terminal.ExpectExit(6);
    EXPECT_THAT(Calls("C_InitPIN"), SizeIs(0));
    ExpectNotSigned();
  }
}

TEST_F(UnlockTest, FailsIfSoPinIsLocked) {
  Card("left=0 so-left=0");
  PseudoTerminal terminal(SignCommand(), environment_);
  terminal.Answer("[y/N] ", "y");
  terminal.Expect(
      "cardcert: error: the SO PIN (PUK) is locked; only the issuer of the token can help");
  terminal.ExpectExit(8);
  ExpectNotSigned();
}

TEST_F(UnlockTest, WarnsBeforeTheLastTryOfTheSoPin) {
  Card("left=0 so-left=1");
  PseudoTerminal terminal(SignCommand(), environment_);
  terminal.Answer("[y/N] ", "y");
  terminal.Expect("cardcert: warning: this is the last try; a wrong SO PIN (PUK) locks it");
  terminal.Enter("SO PIN (PUK): ", "11111111");
  terminal.ExpectExit(8);
  ExpectNotSigned();
}

TEST_F(UnlockTest, DistinguishesWrongLengthFromWrongPin) {
  PseudoTerminal terminal(SignCommand(), environment_);
  terminal.Enter("PIN: ", "12");
  terminal.Expect("cardcert: error: the token does not accept a PIN of this length or form");
  terminal.Enter("PIN: ", "1234");
  terminal.ExpectExit(0);
  EXPECT_THAT(terminal.screen(), Not(HasSubstr("wrong")));
  ExpectSigned();
}

}  // namespace
