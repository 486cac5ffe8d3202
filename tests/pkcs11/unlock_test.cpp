// Unlock: consent, a login as security officer, a new user PIN, and the logout.
#include "pkcs11/expected.h"
#include "pkcs11/session_test.h"

namespace {

using support::CkrName;
using UnlockTest = SessionTest;

TEST_F(UnlockTest, SetsNewPinAndLogsOut) {
  AddToken().UserTriesLeft(0);
  OpenSession();
  pad.Agree().Type(PIN_TYPE_SO, "12345678").Type(PIN_TYPE_NEW_USER, "4321");
  EXPECT_EQ(Unlock(), CKR_OK);
  EXPECT_FALSE(LoggedIn());
  EXPECT_FALSE(provider.Slot(1).Token().user_pin.locked());
  EXPECT_TRACE(Unlocks());
}

TEST_F(UnlockTest, DoesNothingWithoutConsent) {
  AddToken();
  OpenSession();
  pad.Cancel(PIN_TYPE_UNLOCK);
  EXPECT_EQ(Unlock(), CKR_CANCEL);
  EXPECT_TRACE("ask UNLOCK = no");
}

// The token limits the number of attempts.
TEST_F(UnlockTest, AsksForSoPinUntilItIsCorrect) {
  for (const int num_wrong : {3, 25}) {
    AddToken().SoPin("12345678", 2 * num_wrong);
    OpenSession();
    pad.Agree();
    for (int i = 0; i < num_wrong; ++i)
      pad.Type(PIN_TYPE_SO, std::string(8, static_cast<char>('1' + i % 3)));
    pad.Type(PIN_TYPE_SO, "12345678").Type(PIN_TYPE_NEW_USER, "4321");
    EXPECT_EQ(Unlock(), CKR_OK);
    EXPECT_TRACE(
        BeginsUnlock(),
        Repeated(num_wrong, EntersWrongPin("SO", 8) + kReadsTokenInfo + kWarnsOfFailedAttempt),
        EntersPin("SO", 8), EntersNewPin(4), LogsOut());
    CloseSession();
    StartOver();
  }
}

TEST_F(UnlockTest, EndsWhenSoPinIsLocked) {
  AddToken().SoTriesLeft(0);
  OpenSession();
  pad.Agree();
  EXPECT_EQ(Unlock(), CKR_PIN_LOCKED);
  EXPECT_TRACE(BeginsUnlock(), ReportsLockedPin("SO"));
}

TEST_F(UnlockTest, EndsWithoutLogoutWhenSoPinIsCancelled) {
  AddToken();
  OpenSession();
  pad.Agree().Cancel(PIN_TYPE_SO);
  EXPECT_EQ(Unlock(), CKR_CANCEL);
  EXPECT_TRACE(BeginsUnlock(), "ask SO = cancel");
}

TEST_F(UnlockTest, EndsWithoutLogoutOnUnexpectedLoginResult) {
  AddToken();
  OpenSession();
  provider.On("C_Login").Return(CKR_SESSION_READ_ONLY_EXISTS);
  pad.Agree().Type(PIN_TYPE_SO, "12345678");
  EXPECT_EQ(Unlock(), CKR_SESSION_READ_ONLY_EXISTS);
  EXPECT_TRACE(BeginsUnlock(), EntersPin("SO", 8, CKR_SESSION_READ_ONLY_EXISTS),
               "log 3: Unexpected token login error: 183");
}

TEST_F(UnlockTest, AsksAgainWhenNewPinHasWrongLength) {
  AddToken();
  OpenSession();
  pad.Agree().Type(PIN_TYPE_SO, "12345678").Type(PIN_TYPE_NEW_USER, "1");
  pad.Type(PIN_TYPE_NEW_USER, "").Type(PIN_TYPE_NEW_USER, "4321");
  EXPECT_EQ(Unlock(), CKR_OK);
  EXPECT_TRACE(LogsInToUnlock(), EntersNewPinOfWrongLength(1), EntersNewPinOfWrongLength(0),
               EntersNewPin(4), LogsOut());
}

TEST_F(UnlockTest, DoesNotLimitAttemptsAtNewPin) {
  constexpr int kRefused = 25;
  AddToken();
  OpenSession();
  pad.Agree().Type(PIN_TYPE_SO, "12345678");
  for (int i = 0; i < kRefused; ++i)
    pad.Type(PIN_TYPE_NEW_USER, "123");
  pad.Type(PIN_TYPE_NEW_USER, "4321");
  EXPECT_EQ(Unlock(), CKR_OK);
  EXPECT_TRACE(LogsInToUnlock(), Repeated(kRefused, EntersNewPinOfWrongLength(3)), EntersNewPin(4),
               LogsOut());
}

TEST_F(UnlockTest, PassesExactlyTheTypedBytes) {
  const std::string new_pin("43\0\xff", 4);
  AddToken();
  provider.TracePins();
  OpenSession();
  pad.Agree().Type(PIN_TYPE_SO, "12345678").Type(PIN_TYPE_NEW_USER, new_pin);
  EXPECT_EQ(Unlock(), CKR_OK);
  EXPECT_TRACE(BeginsUnlock(), AsksForPin("SO", 8), "C_Login(session 1, SO, PIN \"12345678\") = OK",
               AsksForPin("NEW_USER", 4), "C_InitPIN(session 1, PIN \"43\\x00\xff\") = OK",
               LogsOut());
  EXPECT_TRUE(provider.Slot(1).Token().user_pin.Try(new_pin));
}

TEST_F(UnlockTest, LogsOutWhenNewPinIsCancelled) {
  AddToken();
  OpenSession();
  pad.Agree().Type(PIN_TYPE_SO, "12345678").Cancel(PIN_TYPE_NEW_USER);
  EXPECT_EQ(Unlock(), CKR_CANCEL);
  EXPECT_TRACE(LogsInToUnlock(), "ask NEW_USER = cancel", LogsOut());
}

TEST_F(UnlockTest, LogsOutWhenNewPinLengthIsBeyondBuffer) {
  AddToken();
  OpenSession();
  pad.Agree().Type(PIN_TYPE_SO, "12345678").Claim(PIN_TYPE_NEW_USER, 129);
  EXPECT_EQ(Unlock(), CKR_ARGUMENTS_BAD);
  EXPECT_TRACE(LogsInToUnlock(), "ask NEW_USER = claim of 129 bytes", LogsOut());
}

TEST_F(UnlockTest, LogsOutOnExceptionFromPinCallback) {
  AddToken();
  OpenSession();
  pad.Agree().Type(PIN_TYPE_SO, "12345678").Throw(PIN_TYPE_NEW_USER);
  EXPECT_THROW(Unlock(), PinPad::Thrown);
  EXPECT_TRACE(LogsInToUnlock(), "ask NEW_USER = exception", LogsOut());
}

TEST_F(UnlockTest, DoesNotLogOutOnExceptionBeforeLogin) {
  AddToken();
  OpenSession();
  pad.Throw(PIN_TYPE_UNLOCK);
  EXPECT_THROW(Unlock(), PinPad::Thrown);
  EXPECT_TRACE("ask UNLOCK = exception");
}

TEST_F(UnlockTest, LogsOutOnExceptionFromErrorCallback) {
  const error_cb throwing = [](pkcs11_pin_type type, pkcs11_pin_error error, void* data) {
    PinPad::tell()(type, error, data);
    throw PinPad::Thrown("from the error callback");
  };
  const std::pair<CK_RV, std::string> kResults[] = {
      {CKR_PIN_LEN_RANGE, LogsNewPinError(CKR_PIN_LEN_RANGE) + "tell USER INVALID"},
      {CKR_PIN_INCORRECT, "tell SO INCORRECT"},
      {CKR_PIN_LOCKED, "tell SO LOCKED"}};
  for (const auto& [rv, report] : kResults) {
    AddToken();
    OpenSession();
    provider.On("C_InitPIN").Return(rv);
    pad.Agree().Type(PIN_TYPE_SO, "12345678").Type(PIN_TYPE_NEW_USER, "4321");
    EXPECT_THROW(module.Unlock(session, 1, pad.ask(), throwing, &pad), PinPad::Thrown);
    EXPECT_TRACE(LogsInToUnlock(), EntersNewPin(4, rv), report, LogsOut());
    EXPECT_FALSE(LoggedIn());
    CloseSession();
    StartOver();
  }
}

TEST_F(UnlockTest, IgnoresFailureToLogOut) {
  AddToken();
  OpenSession();
  provider.On("C_Logout").Return(CKR_DEVICE_REMOVED);
  pad.Agree().Type(PIN_TYPE_SO, "12345678").Type(PIN_TYPE_NEW_USER, "4321");
  EXPECT_EQ(Unlock(), CKR_OK);
  EXPECT_TRACE(LogsInToUnlock(), EntersNewPin(4), "C_Logout(session 1) = DEVICE_REMOVED");
}

TEST_F(UnlockTest, WorksWithoutErrorCallback) {
  AddToken().SoPin("12345678", 10);
  OpenSession();
  provider.On("C_InitPIN", 2).Return(CKR_PIN_LOCKED);
  pad.Agree().Type(PIN_TYPE_SO, "11111111").Type(PIN_TYPE_SO, "12345678");
  pad.Type(PIN_TYPE_NEW_USER, "1").Type(PIN_TYPE_NEW_USER, "4321");
  EXPECT_EQ(module.Unlock(session, 1, pad.ask(), nullptr, &pad), CKR_PIN_LOCKED);
  EXPECT_TRACE(BeginsUnlock(), EntersPin("SO", 8, CKR_PIN_INCORRECT),
               LogsLoginError(CKR_PIN_INCORRECT), kReadsTokenInfo, kWarnsOfFailedAttempt,
               EntersPin("SO", 8), EntersNewPin(1, CKR_PIN_LEN_RANGE),
               LogsNewPinError(CKR_PIN_LEN_RANGE), EntersNewPin(4, CKR_PIN_LOCKED), LogsOut());
}

// Every value that the standard defines, although C_InitPIN may not return all of them, and some of
// the vendor's.
class InitPinResult : public UnlockTest, public testing::WithParamInterface<CK_RV> {
 protected:
  // The lines between C_InitPIN and C_Logout.
  static std::string ReportsResult() {
    const CK_RV rv = GetParam();
    if (rv == CKR_OK)
      return "";
    if (IsFormError(rv))
      return LogsNewPinError(rv) + "tell USER INVALID\nask NEW_USER = cancel\n";
    if (rv == CKR_PIN_INCORRECT)
      return "tell SO INCORRECT";
    if (rv == CKR_PIN_LOCKED)
      return "tell SO LOCKED";
    return "log 3: Unexpected passphrase init error: " + std::to_string(static_cast<long>(rv));
  }
  static CK_RV ExpectedResult() {
    if (IsFormError(GetParam()))
      return CKR_CANCEL;  // From the next request, which the test cancels.
    return GetParam() == CKR_PIN_INCORRECT ? CKR_GENERAL_ERROR : GetParam();
  }
};

TEST_P(InitPinResult, IsClassified) {
  AddToken();
  OpenSession();
  provider.On("C_InitPIN").Return(GetParam());
  pad.Agree().Type(PIN_TYPE_SO, "12345678").Type(PIN_TYPE_NEW_USER, "4321");
  if (IsFormError(GetParam()))
    pad.Cancel(PIN_TYPE_NEW_USER);
  EXPECT_EQ(Unlock(), ExpectedResult());
  EXPECT_FALSE(LoggedIn());
  EXPECT_TRACE(LogsInToUnlock(), EntersNewPin(4, GetParam()), ReportsResult(), LogsOut());
}

INSTANTIATE_TEST_SUITE_P(EveryValue, InitPinResult, testing::ValuesIn(support::AllCkrValues()),
                         [](const auto& test) { return CkrName(test.param); });
INSTANTIATE_TEST_SUITE_P(OfTheVendor, InitPinResult, testing::Values(CKR_VENDOR_DEFINED + 7, ~0UL),
                         testing::PrintToStringParamName());

}  // namespace
