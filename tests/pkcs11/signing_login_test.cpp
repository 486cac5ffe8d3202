// Sign on a token that requires a login: PINs that are wrong, cancelled or locked.
#include "pkcs11/signing_test.h"

namespace {

using SigningLoginTest = SigningTest;

TEST_F(SigningLoginTest, FailsWithoutPinCallback) {
  OpenWithPin();
  EXPECT_FALSE(SignWith(nullptr, nullptr, &pad));
  EXPECT_TRACE(Prepares(), "log 5: Logging in...", Fails(CKR_PIN_INCORRECT));
}

TEST_F(SigningLoginTest, AsksAgainAfterPinOfWrongValueOrLength) {
  OpenWithPin();
  pad.Type(PIN_TYPE_USER, "1111").Type(PIN_TYPE_USER, "22").Type(PIN_TYPE_USER, "1234");
  EXPECT_TRUE(Sign());
  EXPECT_TRACE(Prepares(), BeginsLogin(), EntersWrongPin("USER", 4), kReadsTokenInfo,
               kWarnsOfFailedAttempt, EntersWrongPin("USER", 2, CKR_PIN_LEN_RANGE), kReadsTokenInfo,
               kWarnsOfFailedAttempt, EntersPin("USER", 4), FindsKey(), Signs(), LogsOut(),
               Completes());
}

TEST_F(SigningLoginTest, WarnsOfFinalAttemptAfterTwoWrongPins) {
  OpenWithPin();
  pad.Type(PIN_TYPE_USER, "1111").Type(PIN_TYPE_USER, "2222").Type(PIN_TYPE_USER, "1234");
  EXPECT_TRUE(Sign());
  EXPECT_TRACE(Prepares(), BeginsLogin(), EntersWrongPin("USER", 4), kReadsTokenInfo,
               kWarnsOfFailedAttempt, EntersWrongPin("USER", 4), kReadsTokenInfo,
               kWarnsOfFinalAttempt, EntersPin("USER", 4), FindsKey(), Signs(), LogsOut(),
               Completes());
}

// The token limits the number of attempts.
TEST_F(SigningLoginTest, DoesNotLimitAttempts) {
  constexpr int kWrong = 25;
  OpenWithPin().UserPin("1234", 2 * kWrong);
  for (int i = 0; i < kWrong; ++i)
    pad.Type(PIN_TYPE_USER, "9999");
  pad.Type(PIN_TYPE_USER, "1234");
  EXPECT_TRUE(Sign());
  EXPECT_TRACE(
      Prepares(), BeginsLogin(),
      Repeated(kWrong, EntersWrongPin("USER", 4) + kReadsTokenInfo + kWarnsOfFailedAttempt),
      EntersPin("USER", 4), FindsKey(), Signs(), LogsOut(), Completes());
}

// All searches write their result to the same record. Sign() must have copied what it needs.
TEST_F(SigningLoginTest, IsNotAffectedBySearchFromPinCallback) {
  OpenWithPin();
  pad.Type(PIN_TYPE_USER, "9999").Meanwhile([this] {
    provider.Slot(2).Token("Bob").Certificate("B;serial=02");
    EXPECT_TRUE(module.CertificatePresent("02"));
  });
  pad.Type(PIN_TYPE_USER, "1234");
  EXPECT_TRUE(Sign());
  EXPECT_TRACE(Prepares(), BeginsLogin(), AsksForPin("USER", 4),
               // The search from the callback.
               "log 5: Finding certificate with serial 02", ListsSlots({1, 2}),
               BeginsSearch(1, 2, "SERIAL|RW"), ExaminesCertificate(2, 1, "A"),
               "log 5: Not the certificate we're looking for (serial 01)", FindsNoObject(2),
               EndsSearch(2), BeginsSearch(2, 3, "SERIAL|RW"),
               ExaminesCertificate(3, 3, "B;serial=02"), FinishesSearch(3),
               "log 5: Certificate found", ClosesSession(3),
               // The login continues.
               CallsLogin("USER", 4, CKR_PIN_INCORRECT), ReportsPinError("USER", CKR_PIN_INCORRECT),
               kReadsTokenInfo, kWarnsOfFailedAttempt, EntersPin("USER", 4), FindsKey(), Signs(),
               LogsOut(), Completes());
}

TEST_F(SigningLoginTest, AbortsWhenUserCancelsPin) {
  OpenWithPin();
  pad.Cancel(PIN_TYPE_USER);
  EXPECT_FALSE(Sign());
  EXPECT_TRACE(Prepares(), BeginsLogin(), "ask USER = cancel", Aborts());
}

TEST_F(SigningLoginTest, AbortsWhenUserDeclinesUnlock) {
  OpenWithPin().UserTriesLeft(0);
  pad.Cancel(PIN_TYPE_UNLOCK);
  EXPECT_FALSE(Sign());
  EXPECT_TRACE(Prepares(), BeginsLogin(), ReportsLockedPin("USER"), "ask UNLOCK = no", Aborts());
}

TEST_F(SigningLoginTest, SignsAfterUnlockingPin) {
  OpenWithPin().SoPin("12345678").UserTriesLeft(1);
  pad.Type(PIN_TYPE_USER, "9999");
  pad.Agree().Type(PIN_TYPE_SO, "12345678");
  pad.Type(PIN_TYPE_NEW_USER, "12").Type(PIN_TYPE_NEW_USER, "4321");
  pad.Type(PIN_TYPE_USER, "4321");
  EXPECT_TRUE(Sign());
  EXPECT_TRACE(Prepares(), BeginsLogin(), kWarnsOfFinalAttempt, EntersWrongPin("USER", 4),
               kReadsTokenInfo, ReportsLockedPin("USER"), LogsInToUnlock(),
               EntersNewPinOfWrongLength(2), EntersNewPin(4), LogsOut(), kWarnsOfFailedAttempt,
               EntersPin("USER", 4), FindsKey(), Signs(), LogsOut(), Completes());
}

TEST_F(SigningLoginTest, RejectsPinLengthBeyondBuffer) {
  OpenWithPin();
  pad.Claim(PIN_TYPE_USER, 129);
  EXPECT_FALSE(Sign());
  EXPECT_TRACE(Prepares(), BeginsLogin(), "ask USER = claim of 129 bytes",
               Fails(CKR_ARGUMENTS_BAD));
}

TEST_F(SigningLoginTest, FailsWithoutLogoutOnUnexpectedLoginResult) {
  OpenWithPin();
  provider.On("C_Login").Return(CKR_DEVICE_REMOVED);
  pad.Type(PIN_TYPE_USER, "1234");
  EXPECT_FALSE(Sign());
  EXPECT_TRACE(Prepares(), BeginsLogin(), EntersPin("USER", 4, CKR_DEVICE_REMOVED),
               "log 3: Unexpected token login error: 50", Fails(CKR_DEVICE_REMOVED));
}

TEST_F(SigningLoginTest, FailsAndKeepsLoginOfHost) {
  OpenWithPin();
  CK_SESSION_HANDLE session = CK_INVALID_HANDLE;
  ASSERT_EQ(module.function_list->C_OpenSession(1, CKF_SERIAL_SESSION, nullptr, nullptr, &session),
            CKR_OK);
  CK_UTF8CHAR pin[] = {'1', '2', '3', '4'};
  ASSERT_EQ(module.function_list->C_Login(session, CKU_USER, pin, sizeof pin), CKR_OK);
  ClearTrace();
  pad.Type(PIN_TYPE_USER, "1234");
  EXPECT_FALSE(Sign());
  EXPECT_TRACE(Prepares(2), BeginsLogin(), EntersPin("USER", 4, CKR_USER_ALREADY_LOGGED_IN, 2),
               "log 3: Unexpected token login error: 256", Fails(CKR_USER_ALREADY_LOGGED_IN, 2));
  EXPECT_EQ(provider.Slot(1).Token().login, CKU_USER);
  EXPECT_EQ(module.function_list->C_Logout(session), CKR_OK);
  EXPECT_EQ(module.function_list->C_CloseSession(session), CKR_OK);
}

}  // namespace
