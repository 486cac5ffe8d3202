// Without a terminal each PIN is offered once, and never on the last try that the card reports.
#include "cli/scripted_card/scripted_card_fixture.h"

namespace {

using testing::HasSubstr;
using testing::SizeIs;

class PinTriesTest : public ScriptedCardTest {
 protected:
  Words Pin(const std::string& pin) const { return {"--pin-file", PinFile(pin)}; }
  Words Pins(const std::string& pin, const std::string& so_pin, const std::string& new_pin) const {
    return {"--pin-file",     PinFile(pin),     "--so-pin-file",           PinFile(so_pin),
            "--new-pin-file", PinFile(new_pin), "--allow-unreported-tries"};
  }
  // Runs sign, which has to end with `status` after this many logins and without a signature.
  // Returns standard error.
  std::string ExpectFailure(const Words& options, int status, std::size_t num_logins) const {
    const Finished run = RunSign(options);
    EXPECT_EQ(run.status, status);
    EXPECT_THAT(Calls("C_Login"), SizeIs(num_logins));
    ExpectNotSigned();
    return run.err;
  }
};

TEST_F(PinTriesTest, SignsWithTheRightPin) {
  EXPECT_EQ(RunSign(Pin("1234")).status, 0);
  EXPECT_THAT(Calls("C_Login"), SizeIs(1));
  ExpectSigned();
}

TEST_F(PinTriesTest, WrongPinCostsOneTry) {
  ExpectFailure(Pin("9999"), 7, 1);
}

TEST_F(PinTriesTest, OffersAPinOfWrongLengthOnce) {
  ExpectFailure(Pin("99"), 7, 1);
}

TEST_F(PinTriesTest, DoesNotUseTheLastTryForAWrongPin) {
  Card("left=1");
  const std::string err = ExpectFailure(Pin("9999"), 9, 0);
  EXPECT_EQ(err,
            Error("the PIN was not tried: it is the last try, and a wrong PIN would be locked") +
                Hint("run the command at a terminal to enter the PIN yourself") +
                Error("nothing was signed, to keep the last try of the PIN"));
}

TEST_F(PinTriesTest, DoesNotUseTheLastTryForTheRightPin) {
  Card("left=1");
  ExpectFailure(Pin("1234"), 9, 0);
}

TEST_F(PinTriesTest, LockedPinIsStatus8) {
  Card("left=0");
  const std::string err = ExpectFailure(Pin("1234"), 8, 0);
  EXPECT_EQ(err, Error("the PIN is locked") +
                     Hint("to unlock the PIN, give the SO PIN (PUK) and a new PIN with "
                          "--so-pin-file and --new-pin-file") +
                     Error("nothing was signed: a PIN is locked"));
}

TEST_F(PinTriesTest, OffersThePinOnceIfTheCardReportsNoTries) {
  Card("left=1 pin-flags=0 locks-at-once");
  ExpectFailure(Pin("9999"), 8, 1);
}

TEST_F(PinTriesTest, UnlocksALockedPinWithSoPinAndNewPin) {
  Card("left=0");
  const Finished run = RunSign(Pins("1234", "87654321", "5678"));
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_THAT(Calls("C_Login"), SizeIs(2));  // With the SO PIN, then with the new PIN.
  EXPECT_THAT(Calls("C_InitPIN"), SizeIs(1));
  ExpectSigned();
}

TEST_F(PinTriesTest, ReadsEachPinFromAVariable) {
  Card("left=0");
  environment_["P"] = "1234";
  environment_["S"] = "87654321";
  environment_["N"] = "5678";
  const Finished run = RunSign(
      {"--pin", "env:P", "--so-pin", "env:S", "--new-pin", "env:N", "--allow-unreported-tries"});
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_THAT(Calls("C_InitPIN"), SizeIs(1));
  ExpectSigned();
}

TEST_F(PinTriesTest, LeavesTheLastTryAfterAWrongPin) {
  Card("left=2");
  ExpectFailure(Pin("9999"), 7, 1);  // The last try is left.
}

TEST_F(PinTriesTest, OffersTheNewPinDespiteStaleFlags) {
  Card("left=0 pin-flags=0x60000");  // CKF_USER_PIN_LOCKED, CKF_USER_PIN_FINAL_TRY
  EXPECT_EQ(RunSign(Pins("1234", "87654321", "5678")).status, 0);
  ExpectSigned();
}

TEST_F(PinTriesTest, ReportsTheUnlockedPinOnce) {
  Card("left=0 fail=C_Login/0xa0/2");  // The login with the new PIN fails with CKR_PIN_INCORRECT.
  const Finished run = RunSign(Pins("1234", "87654321", "5678"));
  EXPECT_EQ(run.status, 7);
  EXPECT_EQ(run.err, Error("the PIN is locked") +
                         Progress("the PIN is unlocked and the new PIN is set") +
                         Error("the PIN is wrong") + Error("the PIN is not tried a second time") +
                         Error("nothing was signed: a PIN was not accepted"));
  ExpectNotSigned();
}

TEST_F(PinTriesTest, OffersARefusedNewPinOnce) {
  Card("left=0");
  const Finished run = RunSign(Pins("1234", "87654321", "567"));
  EXPECT_EQ(run.status, 7);
  EXPECT_THAT(Calls("C_InitPIN"), SizeIs(1));
  ExpectNotSigned();
}

TEST_F(PinTriesTest, WrongSoPinCostsOneTry) {
  Card("left=0");
  ExpectFailure(Pins("1234", "11111111", "5678"), 7, 1);
}

// The card sets no flag for the SO PIN before a wrong one was entered, and many cards never do.
TEST_F(PinTriesTest, DoesNotTryTheSoPinIfItsTriesAreNotReported) {
  Card("left=0");
  Words words = Pins("1234", "87654321", "5678");
  words.pop_back();
  const Finished run = RunSign(words);
  EXPECT_EQ(run.status, 9);
  EXPECT_EQ(run.err,
            Error("the PIN is locked") +
                Error("the SO PIN (PUK) was not tried: the token does not report how many tries are"
                      " left") +
                Hint("if the SO PIN (PUK) is right beyond doubt, add --allow-unreported-tries; a"
                     " wrong SO PIN (PUK) uses up a try, and the last one destroys the card") +
                Error("nothing was signed, to keep the last try of the PIN"));
  EXPECT_THAT(Calls("C_Login"), SizeIs(0));
  ExpectNotSigned();
}

TEST_F(PinTriesTest, TriesTheSoPinIfItsTriesAreReported) {
  Card("left=0 so-left=2");  // CKF_SO_PIN_COUNT_LOW
  Words words = Pins("1234", "87654321", "5678");
  words.pop_back();
  EXPECT_EQ(RunSign(words).status, 0);
  ExpectSigned();
}

TEST_F(PinTriesTest, DoesNotUseTheLastTryOfTheSoPin) {
  Card("left=0 so-left=1");
  ExpectFailure(Pins("1234", "87654321", "5678"), 9, 0);
}

TEST_F(PinTriesTest, LockedSoPinIsStatus8) {
  Card("left=0 so-left=0");
  ExpectFailure(Pins("1234", "87654321", "5678"), 8, 0);
}

TEST_F(PinTriesTest, OffersNoPinIfAnUnlistedCertificateHasTheSerial) {
  Card("first=curve");  // An EC certificate with the same serial comes first and is not listed.
  const std::string err = ExpectFailure(Pin("1234"), 5, 0);
  EXPECT_EQ(Masked(err),
            Error("several different certificates have the serial '4fa107':") +
                Progress("  CN=Another  (no RSA key that can be used)") +
                Progress("  Jürgen 山田  4fa107  2048 bits  digitalSignature, nonRepudiation  "
                         "Scripted reader  modulus M...  CN=Jürgen 山田,O=Example\\, Ltd") +
                Hint("the first certificate hides the second: delete it from its token, or remove "
                     "the token"));
  EXPECT_TRUE(AllLinesAreMessages(err));
}

TEST_F(PinTriesTest, OffersNoPinIfAnUnlistedCertificateHasSerialAndKeyLength) {
  Card("first=broken");
  const std::string err = ExpectFailure(Pin("1234"), 5, 0);
  EXPECT_EQ(Masked(err),
            Error("several different certificates have the serial '4fa107':") +
                Progress("  CN=Broken  (no RSA key that can be used)") +
                Progress("  Jürgen 山田  4fa107  2048 bits  digitalSignature, nonRepudiation  "
                         "Scripted reader  modulus M...  CN=Jürgen 山田,O=Example\\, Ltd") +
                Hint("the first certificate hides the second: delete it from its token, or remove "
                     "the token"));
}

TEST_F(PinTriesTest, DoesNotSayCancelledWithoutAUser) {
  const Finished run = RunSign({"--batch"});
  EXPECT_EQ(run.status, 6);
  EXPECT_EQ(run.err,
            "cardcert: error: the token asks for the PIN, which was not given\n"
            "cardcert: hint: use --pin-file FILE or --pin env:NAME\n"
            "cardcert: error: nothing was signed\n");
  EXPECT_EQ(RunSign({}).err,
            Error("the token asks for a PIN, but there is no terminal to ask for it") +
                Hint("use --pin-file FILE or --pin env:NAME") + Error("nothing was signed"));
  EXPECT_THAT(RunSign({}).err, testing::Not(HasSubstr("cancelled")));
  ExpectNotSigned();
}

TEST_F(PinTriesTest, NeedsNoPinForACardWithoutOne) {
  Card("user=no");
  EXPECT_EQ(RunSign({"--batch"}).status, 0);
  EXPECT_THAT(Calls("C_Login"), SizeIs(0));
  ExpectSigned();
}

}  // namespace
