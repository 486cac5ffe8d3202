// Readers with a PIN pad: the token reports a protected authentication path, and a null PIN starts
// an entry on the pad.
#include <filesystem>

#include "cli/scripted_card/scripted_card_fixture.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

const std::string kIntroduction =
    "Certificate: 'Jürgen 山田'\n"
    "Token: 'Card (PIN)' in the slot 'Scripted reader'\n";

std::string OnReader(const std::string& pin) {
  return "Enter the " + pin + " for the token 'Card (PIN)' on the reader, not here.\n";
}

const std::string kAvoidPinPad = Hint(
    "--pin-file FILE or --pin env:NAME pass the PIN through this computer instead, if the"
    " token accepts that");

class PinPadTest : public ScriptedCardTest {
 protected:
  // Runs sign at a terminal. `answers` are the answers to questions that end with "[y/N] ".
  std::string Screen(const std::string& card, int status, const Words& answers = {}) {
    Card(card);
    PseudoTerminal terminal(SignCommand(), environment_);
    for (const std::string& answer : answers)
      terminal.Answer("[y/N] ", answer);
    terminal.ExpectExit(status);
    return terminal.screen();
  }
};

TEST_F(PinPadTest, SendsTheUserToTheReader) {
  EXPECT_EQ(Screen("pad=1234", 0), kIntroduction + OnReader("PIN"));
  EXPECT_THAT(Calls("C_Login"), ElementsAre("C_Login(session 2, USER, PIN NULL) = OK"));
  ExpectSigned();
}

TEST_F(PinPadTest, AsksBeforeEachFurtherTry) {
  const std::string wrong = Error("the PIN is wrong");
  EXPECT_EQ(Screen("pad=1111,2222,1234", 0, {"y", "y"}),
            kIntroduction + OnReader("PIN") + wrong + Warning("a wrong PIN was entered before") +
                "Try again? [y/N] y\n" + OnReader("PIN") + wrong +
                Warning("this is the last try; a wrong PIN locks it") +
                "Use the last try? [y/N] y\n" + OnReader("PIN"));
  ExpectSigned();
}

TEST_F(PinPadTest, UsesNoFurtherTryWithoutConsent) {
  for (const char* const answer : {"n", "", "yikes"}) {
    const std::string screen = Screen("pad=1111", 6, {answer});
    EXPECT_THAT(screen, HasSubstr("Try again? [y/N] "));
    EXPECT_THAT(screen, HasSubstr("cardcert: cancelled; nothing was signed\n"));
    EXPECT_THAT(Calls("C_Login"), SizeIs(1));
    ExpectNotSigned();
  }
}

TEST_F(PinPadTest, UsesTheLastTryOnlyWithConsent) {
  EXPECT_EQ(Screen("left=1 pad=", 6, {"n"}),
            kIntroduction + Warning("this is the last try; a wrong PIN locks it") +
                "Use the last try? [y/N] n\n" + Progress("cancelled; nothing was signed"));
  EXPECT_THAT(Calls("C_Login"), IsEmpty());
  ExpectNotSigned();
}

TEST_F(PinPadTest, UnlocksOnThePad) {
  EXPECT_EQ(Screen("left=0 pad=11111111,87654321,567,5678,5678", 0, {"y", "y", "y"}),
            Error("the PIN is locked") + kIntroduction +
                "Unlock the PIN now, with the SO PIN (PUK), and set a new one? [y/N] y\n" +
                OnReader("SO PIN (PUK)") + Error("the SO PIN (PUK) is wrong") +
                Warning("a wrong SO PIN (PUK) was entered before") + "Try again? [y/N] y\n" +
                OnReader("SO PIN (PUK)") + OnReader("new PIN") +
                Error("the token does not accept a PIN of this length or form") +
                "Try again? [y/N] y\n" + OnReader("new PIN") +
                Progress("the PIN is unlocked and the new PIN is set") + OnReader("PIN"));
  EXPECT_THAT(Calls("C_InitPIN"), ElementsAre("C_InitPIN(session 2, PIN NULL) = PIN_LEN_RANGE",
                                              "C_InitPIN(session 2, PIN NULL) = OK"));
  ExpectSigned();
}

TEST_F(PinPadTest, UsesTheLastTryOfTheSoPinOnlyWithConsent) {
  const std::string screen = Screen("left=0 so-left=1 pad=", 6, {"y", "n"});
  EXPECT_THAT(screen, HasSubstr(Warning("this is the last try; a wrong SO PIN (PUK) locks it") +
                                "Use the last try? [y/N] n\n"));
  EXPECT_THAT(Calls("C_Login"), IsEmpty());
  ExpectNotSigned();
}

TEST_F(PinPadTest, EndsWhenTheEntryIsCancelledOrTimesOut) {
  // CKR_CANCEL, CKR_FUNCTION_CANCELED, CKR_FUNCTION_REJECTED
  for (const char* const result : {"0x1", "0x50", "0x200"}) {
    EXPECT_EQ(Screen(std::string("pad=!") + result, 6),
              kIntroduction + OnReader("PIN") +
                  Error("the entry on the reader was cancelled or took too long; nothing was"
                        " signed"));
    EXPECT_THAT(Calls("C_Login"), SizeIs(1));
    ExpectNotSigned();
  }
}

TEST_F(PinPadTest, EndsWhenTheEntryOfTheNewPinIsCancelled) {
  EXPECT_THAT(Screen("left=0 pad=87654321,!0x50", 6, {"y"}),
              HasSubstr(OnReader("new PIN") +
                        Error("the entry on the reader was cancelled or took too long; nothing was"
                              " signed")));
  EXPECT_THAT(Calls("C_InitPIN"), SizeIs(1));
  ExpectNotSigned();
}

// A provider may report a pad that it cannot use.
TEST_F(PinPadTest, EndsWhenTheProviderTakesNoPinFromThePad) {
  EXPECT_EQ(Screen("pad=!0x7", 1),  // CKR_ARGUMENTS_BAD
            kIntroduction + OnReader("PIN") +
                Error("the token reports a PIN pad, but the provider does not take the PIN from"
                      " there") +
                kAvoidPinPad + Error("nothing was signed"));
  EXPECT_THAT(Calls("C_Login"), SizeIs(1));
  ExpectNotSigned();
}

TEST_F(PinPadTest, NamesAnotherWayWhenThePadFails) {
  EXPECT_EQ(Screen("pad=!0x54", 1),  // CKR_FUNCTION_NOT_SUPPORTED
            kIntroduction + OnReader("PIN") + Error("Unexpected token login error: 84") +
                Error("Signature operation failed (84)") + kAvoidPinPad +
                Error("nothing was signed"));
  ExpectNotSigned();
}

TEST_F(PinPadTest, NeedsATerminal) {
  Card("pad=");
  const Finished run = RunSign({});
  EXPECT_EQ(run.status, 6);
  EXPECT_EQ(run.err,
            Error("the token asks for the PIN on the reader, but there is no terminal to say so") +
                kAvoidPinPad + Error("nothing was signed"));
  EXPECT_THAT(Calls("C_Login"), IsEmpty());
  ExpectNotSigned();
}

TEST_F(PinPadTest, DoesNotWaitForAPersonInAScript) {
  Card("pad=");
  const Finished run = RunSign({"--batch"});
  EXPECT_EQ(run.status, 6);
  EXPECT_EQ(run.err, Error("the token asks for the PIN on the reader, and a scripted run does not"
                           " wait for a person") +
                         Hint("run the command at a terminal, without --batch and options for"
                              " PINs") +
                         Error("nothing was signed"));
  EXPECT_THAT(Calls("C_Login"), IsEmpty());
  ExpectNotSigned();
}

TEST_F(PinPadTest, PassesAGivenPin) {
  Card("pad=");
  const Finished run = RunSign({"--pin-file", PinFile()});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.err, Warning("the token asks for the PIN on the reader; passing it through this"
                             " computer instead"));
  EXPECT_THAT(Calls("C_Login"), ElementsAre("C_Login(session 2, USER, PIN of 4 bytes) = OK"));
  ExpectSigned();
}

TEST_F(PinPadTest, OffersAGivenPinOnce) {
  Card("pad=");
  EXPECT_EQ(RunSign({"--pin-file", PinFile("9999")}).status, 7);
  EXPECT_THAT(Calls("C_Login"), SizeIs(1));
  ExpectNotSigned();
}

// This provider is SoftHSM behind a pad, and refuses every PIN that is passed to it.
TEST_F(PinPadTest, SignsWithATokenThatTakesPinsFromThePadOnly) {
  environment_["PIN_PAD_ENTRY"] = "1234";
  Words command = Command({"sign", "4fa107", "--in", Write("in", "x"), "--out", File("sig")});
  command.back() = PIN_PAD_PROVIDER;
  {
    PseudoTerminal terminal(command, environment_);
    terminal.Expect("on the reader, not here.");
    terminal.ExpectExit(0);
  }
  ExpectSignature(File("sig"), "sign", File("in"));

  std::filesystem::remove(File("sig"));
  const Finished run = RunProgram(Concat(command, {"--pin-file", PinFile()}), environment_);
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.err, HasSubstr("the reader or its user rejected the request"));
  EXPECT_FALSE(Exists(File("sig")));
}

}  // namespace
