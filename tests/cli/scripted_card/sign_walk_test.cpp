// How often cardcert sign reads the tokens, and what it does if they change in between.
#include "cli/scripted_card/scripted_card_fixture.h"

namespace {

using testing::HasSubstr;
using testing::SizeIs;

class SignWalkTest : public ScriptedCardTest {
 protected:
  Finished SignWithPin() const { return RunSign({"--pin-file", PinFile()}); }
  // A walk searches for certificates once on each token that it can open.
  void ExpectSearches(std::size_t number) const {
    std::size_t searches = 0;
    for (const std::string& call : Calls("C_FindObjectsInit"))
      searches += call.find("CKA_CLASS=CKO_CERTIFICATE") != std::string::npos ? 1 : 0;
    EXPECT_EQ(searches, number);
  }
};

TEST_F(SignWalkTest, ReadsTheTokenTwice) {
  EXPECT_EQ(SignWithPin().status, 0);
  ExpectSearches(2);  // To select the certificate, and in the component's Sign().
  EXPECT_THAT(Calls("C_"), SizeIs(35));
  ExpectSigned();
}

TEST_F(SignWalkTest, ReadsTheTokenTwiceIfAnUnlistedCertificateHasAnotherSerial) {
  Card("first=ec");
  EXPECT_EQ(SignWithPin().status, 0);
  ExpectSearches(2);
  ExpectSigned();
}

TEST_F(SignWalkTest, ChecksWhichCertificateIsFoundOnlyIfAnUnlistedOneHasTheSerial) {
  Card("first=curve");
  EXPECT_EQ(SignWithPin().status, 5);
  ExpectSearches(2);
  EXPECT_THAT(Calls("C_Login"), SizeIs(0));
  ExpectNotSigned();
}

TEST_F(SignWalkTest, NamesTheTokenThatGetsThePin) {
  Card("second-card fail=C_OpenSession/0xe2/3");  // The first token is write-protected.
  const Finished run = SignWithPin();
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.err,
            "cardcert: warning: there is more than one copy of the certificate; using the key and"
            " the PIN of the token 'Second card (PIN)' in 'Second reader'\n");
  ExpectSigned();
  PseudoTerminal terminal(SignCommand(), environment_);
  terminal.Expect("Token: 'Second card (PIN)' in the slot 'Second reader'");
  terminal.Enter("PIN: ", "1234");
  terminal.ExpectExit(0);
}

TEST_F(SignWalkTest, OffersNoPinIfTheCardMovedAfterTheListing) {
  Card("move-at-list=3");
  const Finished run = SignWithPin();
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.err, HasSubstr("cardcert: error: the certificate has moved to another slot since"
                                 " it was listed; nothing was signed\n"));
  EXPECT_THAT(Calls("C_Login"), SizeIs(0));
  ExpectNotSigned();
}

}  // namespace
