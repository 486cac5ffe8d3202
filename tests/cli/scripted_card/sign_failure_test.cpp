// Signatures that the card or the provider refuses to make.
#include "cli/scripted_card/scripted_card_fixture.h"

namespace {

using testing::HasSubstr;

struct Failure {
  const char* name;
  const char* card;
  const char* words;
};

class FailedCallTest : public ScriptedCardTest, public testing::WithParamInterface<Failure> {};

TEST_P(FailedCallTest, ExplainsTheReturnValue) {
  Card(GetParam().card);
  const Finished run = RunSign({"--pin-file", PinFile()});
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.err, HasSubstr(GetParam().words));
  EXPECT_THAT(run.err, HasSubstr("cardcert: error: nothing was signed\n"));
  EXPECT_TRUE(AllLinesAreMessages(run.err));
  EXPECT_FALSE(Exists(File("sig")));
  ExpectNoViolations();
}

INSTANTIATE_TEST_SUITE_P(
    Card, FailedCallTest,
    testing::Values(Failure{"Removed", "fail=C_Sign/0x32", "(50): the card was removed"},
                    Failure{"Device", "fail=C_Sign/0x30",
                            "(48): the card or its reader has failed"},
                    Failure{"Mechanism", "fail=C_SignInit/0x70", "(112): the token cannot make"},
                    Failure{"Forbidden", "fail=C_SignInit/0x68", "(104): the private key may not"},
                    Failure{"LoginForEachSignature", "fail=C_Sign/0x101",
                            "(257): the private key requires a login for each"},
                    Failure{"Unexplained", "fail=C_Sign/0x80000001",
                            "Signature operation failed (2147483649)\n"},
                    Failure{"Login", "fail=C_Login/0x100", "Unexpected token login error: 256"}),
    [](const auto& test) { return test.param.name; });

class SignFailureTest : public ScriptedCardTest {};

TEST_F(SignFailureTest, FailsIfTheProviderCancels) {
  Card("fail=C_Sign/1");
  EXPECT_EQ(RunSign({"--pin-file", PinFile()}).status, 1);
}

TEST_F(SignFailureTest, ExplainsAWriteProtectedToken) {
  Card("fail-from=C_OpenSession/0xe2/2");
  const Finished run = RunSign({"--pin-file", PinFile()});
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.err,
              HasSubstr("cardcert: error: the certificate is listed, but its token cannot be"
                        " opened for reading and writing:\n"));
  EXPECT_THAT(Calls("C_Login"), testing::IsEmpty());
  ExpectNotSigned();
}

}  // namespace
