// Signatures that the card or the provider refuses to make.
#include "cli/scripted_card/scripted_card_fixture.h"

namespace {

using testing::HasSubstr;

struct Failure {
  const char* name;
  const char* card;
  const char* error;
};

class FailedCallTest : public ScriptedCardTest, public testing::WithParamInterface<Failure> {};

TEST_P(FailedCallTest, ExplainsTheReturnValue) {
  Card(GetParam().card);
  const Finished run = RunSign({"--pin-file", PinFile()});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.err, Error(GetParam().error) + Error("nothing was signed"));
  EXPECT_FALSE(Exists(File("sig")));
  ExpectNoViolations();
}

INSTANTIATE_TEST_SUITE_P(
    Card, FailedCallTest,
    testing::Values(
        Failure{"KeyMissing", "fail=C_Sign/0x66",
                "Signature operation failed (102): the token has no private key that belongs to "
                "this certificate"},
        Failure{"Removed", "fail=C_Sign/0x32",
                "Signature operation failed (50): the card was removed"},
        Failure{"TokenMissing", "fail=C_Sign/0xe0",
                "Signature operation failed (224): the card was removed"},
        Failure{"Device", "fail=C_Sign/0x30",
                "Signature operation failed (48): the card or its reader has failed"},
        Failure{"KeyType", "fail=C_SignInit/0x63",
                "Signature operation failed (99): the private key is not an RSA key"},
        Failure{"Forbidden", "fail=C_SignInit/0x68",
                "Signature operation failed (104): the private key may not be used for "
                "signatures"},
        Failure{"Mechanism", "fail=C_SignInit/0x70",
                "Signature operation failed (112): the token cannot make signatures of this kind "
                "(RSA, PKCS #1 v1.5)"},
        Failure{"LoginForEachSignature", "fail=C_Sign/0x101",
                "Signature operation failed (257): the private key requires a login for each "
                "signature, which is not supported"},
        Failure{"AlreadyLoggedIn", "fail=C_Sign/0x100",
                "Signature operation failed (256): a user is already logged in to the token"},
        Failure{"ReadOnlySession", "fail=C_Sign/0xb7",
                "Signature operation failed (183): the PIN cannot be unlocked while another "
                "session is open"},
        Failure{"Unexplained", "fail=C_Sign/0x80000001", "Signature operation failed (2147483649)"},
        Failure{"Login", "fail=C_Login/0x100",
                "Unexpected token login error: 256\ncardcert: error: Signature operation failed "
                "(256): a user is already logged in to the token"}),
    [](const auto& test) { return test.param.name; });

class SignFailureTest : public ScriptedCardTest {};

TEST_F(SignFailureTest, FailsIfTheProviderCancels) {
  Card("fail=C_Sign/1");
  EXPECT_EQ(RunSign({"--pin-file", PinFile()}).status, 1);
}

TEST_F(SignFailureTest, DoesNotReportProblemsOfTheListing) {
  // An EC certificate was left out of the list before.
  Card("first=ec fail=C_Sign/0x30");
  const Finished run = RunSign({"--pin-file", PinFile()});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.err, Error("Signature operation failed (48): the card or its reader has failed") +
                         Error("nothing was signed"));
}

TEST_F(SignFailureTest, ExplainsAWriteProtectedToken) {
  Card("fail-from=C_OpenSession/0xe2/2");
  const Finished run = RunSign({"--pin-file", PinFile()});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(
      run.err,
      Error("the certificate is listed, but its token cannot be opened for reading and writing:") +
          Progress("  Jürgen 山田  4fa107  2048 bits  digitalSignature, nonRepudiation  Scripted "
                   "reader"));
  EXPECT_THAT(Calls("C_Login"), testing::IsEmpty());
  ExpectNotSigned();
}

}  // namespace
