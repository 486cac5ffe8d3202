// A card that locks, at the terminal.
#include "cli/scripted_card/scripted_card_fixture.h"

namespace {

using testing::HasSubstr;
using testing::Not;
using testing::SizeIs;

class UnlockTest : public ScriptedCardTest {};

// Says what the user types where the terminal shows `prompt`, and that it stays invisible.
#define ENTER(terminal, prompt, keys)          \
  do {                                         \
    ASSERT_TRUE((terminal).Shows(prompt));     \
    EXPECT_FALSE((terminal).Echoes());         \
    (terminal).Type(std::string(keys) + "\n"); \
  } while (false)

TEST_F(UnlockTest, SignsAfterLockingAndUnlockingThePin) {
  PseudoTerminal terminal(Sign(), environment_);
  ASSERT_TRUE(terminal.Shows("Signing with 'Jürgen 山田' in 'Scripted reader'."));
  ENTER(terminal, "PIN: ", "1111");
  ASSERT_TRUE(terminal.Shows("cardcert: the PIN is wrong"));
  ASSERT_TRUE(terminal.Shows("Note: a wrong PIN has been entered before."));
  ENTER(terminal, "PIN: ", "2222");
  ASSERT_TRUE(terminal.Shows("cardcert: the PIN is wrong"));
  ASSERT_TRUE(terminal.Shows(
      "Warning: this is the last try. If the PIN is wrong once more, it is locked."));
  ENTER(terminal, "PIN: ", "3333");
  ASSERT_TRUE(terminal.Shows("cardcert: the PIN is locked"));
  ASSERT_TRUE(
      terminal.Shows("Unlock the PIN now, with the SO PIN (PUK), and set a new one? [y/N] "));
  EXPECT_TRUE(terminal.Echoes());
  terminal.Type("y\n");
  ENTER(terminal, "SO PIN (PUK): ", "11111111");
  ASSERT_TRUE(terminal.Shows("cardcert: the SO PIN (PUK) is wrong"));
  ASSERT_TRUE(terminal.Shows("Note: a wrong SO PIN (PUK) has been entered before."));
  ENTER(terminal, "SO PIN (PUK): ", "87654321");
  ENTER(terminal, "New PIN: ", "5678");
  ENTER(terminal, "New PIN once more: ", "5679");
  ASSERT_TRUE(terminal.Shows("The two are not the same."));
  ENTER(terminal, "New PIN: ", "567");
  ENTER(terminal, "New PIN once more: ", "567");
  ASSERT_TRUE(terminal.Shows("cardcert: the token does not accept a PIN of this length or form"));
  ENTER(terminal, "New PIN: ", "5678");
  ENTER(terminal, "New PIN once more: ", "5678");
  ENTER(terminal, "PIN: ", "5678");
  EXPECT_EQ(terminal.Wait(), 0);
  EXPECT_TRUE(terminal.Echoes());
  for (const char* const pin : {"1111", "2222", "3333", "87654321", "567"})
    EXPECT_THAT(terminal.screen(), Not(HasSubstr(pin)));
  ExpectASignature();
}

TEST_F(UnlockTest, OldPinIsWrongAfterUnlocking) {
  Card("left=0");
  PseudoTerminal terminal(Sign(), environment_);
  ASSERT_TRUE(terminal.Shows("[y/N] "));
  terminal.Type("yes\n");
  ENTER(terminal, "SO PIN (PUK): ", "87654321");
  ENTER(terminal, "New PIN: ", "5678");
  ENTER(terminal, "New PIN once more: ", "5678");
  ENTER(terminal, "PIN: ", "1234");
  ASSERT_TRUE(terminal.Shows("cardcert: the PIN is wrong"));
  ENTER(terminal, "PIN: ", "5678");
  EXPECT_EQ(terminal.Wait(), 0);
  ExpectASignature();
}

TEST_F(UnlockTest, DoesNotWarnAboutTheNewPinBecauseOfStaleFlags) {
  // Some tokens' flags lag behind: "final try" and "locked", after the unlocking, too.
  Card("left=0 pin-flags=0x60000");
  PseudoTerminal terminal(Sign(), environment_);
  ASSERT_TRUE(terminal.Shows("[y/N] "));
  terminal.Type("y\n");
  ENTER(terminal, "SO PIN (PUK): ", "87654321");
  ENTER(terminal, "New PIN: ", "5678");
  ENTER(terminal, "New PIN once more: ", "5678");
  ASSERT_TRUE(terminal.Shows("the PIN is unlocked, and the new one is set"));
  ENTER(terminal, "PIN: ", "5678");
  EXPECT_EQ(terminal.Wait(), 0);
  EXPECT_THAT(terminal.screen(), Not(HasSubstr("last try")));
  ExpectASignature();
}

TEST_F(UnlockTest, LeavesThePinLockedWithoutATerminal) {
  Card("left=0");
  const Finished run = RunSign({});
  EXPECT_EQ(run.status, 8);
  EXPECT_EQ(run.err,
            "cardcert: the PIN is locked\n"
            "cardcert: to unlock it, give the SO PIN (PUK) and a new PIN as well, with"
            " --so-pin-file and --new-pin-file\n"
            "cardcert: nothing was signed: a PIN is locked\n");
  ExpectNoSignature();
}

TEST_F(UnlockTest, WaitsForTheForegroundBeforeAsking) {
  Card("left=0");
  PseudoTerminal terminal(Sign(), environment_);
  ASSERT_TRUE(terminal.Shows("[y/N] "));
  terminal.StopBackgroundOutput();
  terminal.Type("\x1a");
  ASSERT_TRUE(terminal.WaitForStop());
  terminal.ContinueInBackground();
  ASSERT_TRUE(terminal.WaitForStop());
  terminal.Continue();
  ASSERT_TRUE(terminal.Shows("[y/N] "));
  terminal.Type("n\n");
  EXPECT_EQ(terminal.Wait(), 8);
  ExpectNoSignature();
}

TEST_F(UnlockTest, LeavesThePinLockedWithoutConsent) {
  for (const char* const answer : {"n\n", "\n", "yikes\n"}) {
    Card("left=0");
    PseudoTerminal terminal(Sign(), environment_);
    ASSERT_TRUE(terminal.Shows("[y/N] "));
    terminal.Type(answer);
    EXPECT_EQ(terminal.Wait(), 8);
    EXPECT_THAT(terminal.screen(), HasSubstr("cardcert: nothing was signed: a PIN is locked"));
    EXPECT_THAT(Calls("C_Login"), SizeIs(0));
    ExpectNoSignature();
  }
}

TEST_F(UnlockTest, ControlCCancelsEveryQuestion) {
  // How far the user goes before Ctrl-C.
  for (int steps = 0; steps < 4; ++steps) {
    SCOPED_TRACE(steps);
    Card("left=0");
    PseudoTerminal terminal(Sign(), environment_);
    ASSERT_TRUE(terminal.Shows("[y/N] "));
    if (steps > 0) {
      terminal.Type("y\n");
      ASSERT_TRUE(terminal.Shows("SO PIN (PUK): "));
    }
    if (steps > 1) {
      terminal.Type("87654321\n");
      ASSERT_TRUE(terminal.Shows("New PIN: "));
    }
    if (steps > 2) {
      terminal.Type("5678\n");
      ASSERT_TRUE(terminal.Shows("New PIN once more: "));
    }
    terminal.Type("\x03");
    EXPECT_EQ(terminal.Wait(), 6);
    EXPECT_TRUE(terminal.Echoes());
    EXPECT_THAT(Calls("C_InitPIN"), SizeIs(0));
    ExpectNoSignature();
  }
}

TEST_F(UnlockTest, FailsIfSoPinIsLocked) {
  Card("left=0 so-left=0");
  PseudoTerminal terminal(Sign(), environment_);
  ASSERT_TRUE(terminal.Shows("[y/N] "));
  terminal.Type("y\n");
  ASSERT_TRUE(
      terminal.Shows("cardcert: the SO PIN (PUK) is locked; only who issued the token can help"));
  EXPECT_EQ(terminal.Wait(), 8);
  ExpectNoSignature();
}

TEST_F(UnlockTest, WarnsBeforeTheLastTryOfTheSoPin) {
  Card("left=0 so-left=1");
  PseudoTerminal terminal(Sign(), environment_);
  ASSERT_TRUE(terminal.Shows("[y/N] "));
  terminal.Type("y\n");
  ASSERT_TRUE(terminal.Shows(
      "Warning: this is the last try. If the SO PIN (PUK) is wrong once more, it is locked."));
  ENTER(terminal, "SO PIN (PUK): ", "11111111");
  EXPECT_EQ(terminal.Wait(), 8);
  ExpectNoSignature();
}

TEST_F(UnlockTest, DistinguishesWrongLengthFromWrongPin) {
  PseudoTerminal terminal(Sign(), environment_);
  ENTER(terminal, "PIN: ", "12");
  ASSERT_TRUE(terminal.Shows("cardcert: the token does not accept a PIN of this length or form"));
  ENTER(terminal, "PIN: ", "1234");
  EXPECT_EQ(terminal.Wait(), 0);
  EXPECT_THAT(terminal.screen(), Not(HasSubstr("wrong")));
  ExpectASignature();
}

}  // namespace
