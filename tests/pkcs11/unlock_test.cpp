// Unlock: consent, a login as security officer, a new user PIN, and out again.
#include "pkcs11/expected.h"
#include "pkcs11/session_test.h"
#include "support/ckr_names.h"

namespace {

using support::CkrName;
using UnlockTest = SessionTest;

// The lines up to the new PIN, when the security officer's PIN is right at once.
constexpr char kSecurityOfficerIsIn[] = R"(
    ask UNLOCK = yes
    log 5: Attempting to unlock passphrase...
    C_GetTokenInfo(slot 1) = OK
    ask SO = PIN of 8 bytes
    C_Login(session 1, SO, PIN of 8 bytes) = OK
)";

TEST_F(UnlockTest, SetsANewPinAndLogsOut) {
  AddToken().UserTriesLeft(0);
  OpenSession();
  pad.Agree().Type(PIN_TYPE_SO, "12345678").Type(PIN_TYPE_NEW_USER, "4321");
  EXPECT_EQ(Unlock(), CKR_OK);
  EXPECT_FALSE(LoggedIn());
  EXPECT_FALSE(provider.Slot(1).Token().user_pin.locked());
  EXPECT_TRACE(std::string(kSecurityOfficerIsIn) + R"(
    ask NEW_USER = PIN of 4 bytes
    C_InitPIN(session 1, PIN of 4 bytes) = OK
    C_Logout(session 1) = OK
  )");
}

TEST_F(UnlockTest, WithoutConsentNothingHappens) {
  AddToken();
  OpenSession();
  pad.Cancel(PIN_TYPE_UNLOCK);
  EXPECT_EQ(Unlock(), CKR_CANCEL);
  EXPECT_TRACE("ask UNLOCK = no\n");
}

TEST_F(UnlockTest, AsksForTheSecurityOfficersPinForAsLongAsItIsWrong) {
  AddToken().SoPin("12345678", 10);
  OpenSession();
  pad.Agree()
      .Type(PIN_TYPE_SO, "11111111")
      .Type(PIN_TYPE_SO, "22222222")
      .Type(PIN_TYPE_SO, "33333333")
      .Type(PIN_TYPE_SO, "12345678")
      .Type(PIN_TYPE_NEW_USER, "4321");
  EXPECT_EQ(Unlock(), CKR_OK);
  const std::string wrong = R"(
    ask SO = PIN of 8 bytes
    C_Login(session 1, SO, PIN of 8 bytes) = PIN_INCORRECT
    log 5: Token login error: 160
    tell SO INCORRECT
    C_GetTokenInfo(slot 1) = OK
    log 5: Previous failed passphrase attempt for token
  )";
  EXPECT_TRACE(R"(
    ask UNLOCK = yes
    log 5: Attempting to unlock passphrase...
    C_GetTokenInfo(slot 1) = OK
  )" + wrong + wrong +
               wrong + R"(
    ask SO = PIN of 8 bytes
    C_Login(session 1, SO, PIN of 8 bytes) = OK
    ask NEW_USER = PIN of 4 bytes
    C_InitPIN(session 1, PIN of 4 bytes) = OK
    C_Logout(session 1) = OK
  )");
}

// How many attempts there are is the token's business.
TEST_F(UnlockTest, HasNoLimitOfItsOwnForTheSecurityOfficersPin) {
  constexpr int kWrong = 25;
  AddToken().SoPin("12345678", 2 * kWrong);
  OpenSession();
  pad.Agree();
  for (int i = 0; i < kWrong; ++i)
    pad.Type(PIN_TYPE_SO, "99999999");
  pad.Type(PIN_TYPE_SO, "12345678").Type(PIN_TYPE_NEW_USER, "4321");
  EXPECT_EQ(Unlock(), CKR_OK);
  EXPECT_TRACE(R"(
    ask UNLOCK = yes
    log 5: Attempting to unlock passphrase...
    C_GetTokenInfo(slot 1) = OK
  )" + Repeated(kWrong, R"(
    ask SO = PIN of 8 bytes
    C_Login(session 1, SO, PIN of 8 bytes) = PIN_INCORRECT
    log 5: Token login error: 160
    tell SO INCORRECT
    C_GetTokenInfo(slot 1) = OK
    log 5: Previous failed passphrase attempt for token
  )") + R"(
    ask SO = PIN of 8 bytes
    C_Login(session 1, SO, PIN of 8 bytes) = OK
    ask NEW_USER = PIN of 4 bytes
    C_InitPIN(session 1, PIN of 4 bytes) = OK
    C_Logout(session 1) = OK
  )");
}

TEST_F(UnlockTest, ALockedSecurityOfficerPinEndsIt) {
  AddToken().SoTriesLeft(0);
  OpenSession();
  pad.Agree();
  EXPECT_EQ(Unlock(), CKR_PIN_LOCKED);
  EXPECT_TRACE(R"(
    ask UNLOCK = yes
    log 5: Attempting to unlock passphrase...
    C_GetTokenInfo(slot 1) = OK
    log 5: Passphrase locked
    tell SO LOCKED
  )");
}

TEST_F(UnlockTest, ACancelledSecurityOfficerPinEndsItWithoutLogout) {
  AddToken();
  OpenSession();
  pad.Agree().Cancel(PIN_TYPE_SO);
  EXPECT_EQ(Unlock(), CKR_CANCEL);
  EXPECT_TRACE(R"(
    ask UNLOCK = yes
    log 5: Attempting to unlock passphrase...
    C_GetTokenInfo(slot 1) = OK
    ask SO = cancel
  )");
}

TEST_F(UnlockTest, AnUnexpectedLoginResultEndsItWithoutLogout) {
  AddToken();
  OpenSession();
  provider.On("C_Login").Return(CKR_SESSION_READ_ONLY_EXISTS);
  pad.Agree().Type(PIN_TYPE_SO, "12345678");
  EXPECT_EQ(Unlock(), CKR_SESSION_READ_ONLY_EXISTS);
  EXPECT_TRACE(R"(
    ask UNLOCK = yes
    log 5: Attempting to unlock passphrase...
    C_GetTokenInfo(slot 1) = OK
    ask SO = PIN of 8 bytes
    C_Login(session 1, SO, PIN of 8 bytes) = SESSION_READ_ONLY_EXISTS
    log 3: Unexpected token login error: 183
  )");
}

TEST_F(UnlockTest, ANewPinOfTheWrongLengthIsAskedForAgainWhileLoggedIn) {
  AddToken();
  OpenSession();
  pad.Agree()
      .Type(PIN_TYPE_SO, "12345678")
      .Type(PIN_TYPE_NEW_USER, "1")
      .Type(PIN_TYPE_NEW_USER, "")
      .Type(PIN_TYPE_NEW_USER, "4321");
  EXPECT_EQ(Unlock(), CKR_OK);
  EXPECT_TRACE(std::string(kSecurityOfficerIsIn) + R"(
    ask NEW_USER = PIN of 1 bytes
    C_InitPIN(session 1, PIN of 1 bytes) = PIN_LEN_RANGE
    log 5: Passphrase init error: 162
    tell USER INVALID
    ask NEW_USER = PIN of 0 bytes
    C_InitPIN(session 1, PIN of 0 bytes) = PIN_LEN_RANGE
    log 5: Passphrase init error: 162
    tell USER INVALID
    ask NEW_USER = PIN of 4 bytes
    C_InitPIN(session 1, PIN of 4 bytes) = OK
    C_Logout(session 1) = OK
  )");
}

TEST_F(UnlockTest, HasNoLimitForNewPinsThatAreRefused) {
  constexpr int kRefused = 25;
  AddToken();
  OpenSession();
  pad.Agree().Type(PIN_TYPE_SO, "12345678");
  for (int i = 0; i < kRefused; ++i)
    pad.Type(PIN_TYPE_NEW_USER, "123");
  pad.Type(PIN_TYPE_NEW_USER, "4321");
  EXPECT_EQ(Unlock(), CKR_OK);
  EXPECT_TRACE(std::string(kSecurityOfficerIsIn) + Repeated(kRefused, R"(
    ask NEW_USER = PIN of 3 bytes
    C_InitPIN(session 1, PIN of 3 bytes) = PIN_LEN_RANGE
    log 5: Passphrase init error: 162
    tell USER INVALID
  )") + R"(
    ask NEW_USER = PIN of 4 bytes
    C_InitPIN(session 1, PIN of 4 bytes) = OK
    C_Logout(session 1) = OK
  )");
}

TEST_F(UnlockTest, PassesOnExactlyTheBytesThatWereTyped) {
  const std::string new_pin("43\0\xff", 4);
  AddToken();
  provider.TracePins();
  OpenSession();
  pad.Agree().Type(PIN_TYPE_SO, "12345678").Type(PIN_TYPE_NEW_USER, new_pin);
  EXPECT_EQ(Unlock(), CKR_OK);
  EXPECT_TRACE(R"(
    ask UNLOCK = yes
    log 5: Attempting to unlock passphrase...
    C_GetTokenInfo(slot 1) = OK
    ask SO = PIN of 8 bytes
    C_Login(session 1, SO, PIN "12345678") = OK
    ask NEW_USER = PIN of 4 bytes
    C_InitPIN(session 1, PIN "43\x00)"
               "\xff"
               R"(") = OK
    C_Logout(session 1) = OK
  )");
  EXPECT_TRUE(provider.Slot(1).Token().user_pin.Try(new_pin));
}

TEST_F(UnlockTest, ACancelledNewPinStillLogsOut) {
  AddToken();
  OpenSession();
  pad.Agree().Type(PIN_TYPE_SO, "12345678").Cancel(PIN_TYPE_NEW_USER);
  EXPECT_EQ(Unlock(), CKR_CANCEL);
  EXPECT_TRACE(std::string(kSecurityOfficerIsIn) + R"(
    ask NEW_USER = cancel
    C_Logout(session 1) = OK
  )");
}

TEST_F(UnlockTest, AClaimBeyondTheBufferNeverReachesTheTokenAndLogsOut) {
  AddToken();
  OpenSession();
  pad.Agree().Type(PIN_TYPE_SO, "12345678").Claim(PIN_TYPE_NEW_USER, 129);
  EXPECT_EQ(Unlock(), CKR_ARGUMENTS_BAD);
  EXPECT_TRACE(std::string(kSecurityOfficerIsIn) + R"(
    ask NEW_USER = claim of 129 bytes
    C_Logout(session 1) = OK
  )");
}

TEST_F(UnlockTest, AnExceptionFromTheCallbackLogsOutOnTheWay) {
  AddToken();
  OpenSession();
  pad.Agree().Type(PIN_TYPE_SO, "12345678").Throw(PIN_TYPE_NEW_USER);
  EXPECT_THROW(Unlock(), PinPad::Thrown);
  EXPECT_TRACE(std::string(kSecurityOfficerIsIn) + R"(
    ask NEW_USER = exception
    C_Logout(session 1) = OK
  )");
}

TEST_F(UnlockTest, AnExceptionFromTheErrorCallbackLogsOutOnTheWay) {
  const error_cb throwing = [](pkcs11_pin_type type, pkcs11_pin_error error, void* data) {
    PinPad::tell()(type, error, data);
    throw PinPad::Thrown("told");
  };
  struct Case {
    CK_RV rv;
    const char* told;
  };
  for (const auto& [rv, told] : {Case{CKR_PIN_LEN_RANGE,
                                      "PIN_LEN_RANGE\n"
                                      "log 5: Passphrase init error: 162\ntell USER INVALID\n"},
                                 Case{CKR_PIN_INCORRECT, "PIN_INCORRECT\ntell SO INCORRECT\n"},
                                 Case{CKR_PIN_LOCKED, "PIN_LOCKED\ntell SO LOCKED\n"}}) {
    provider.Reset();
    AddToken();
    OpenSession();
    provider.On("C_InitPIN").Return(rv);
    pad.Agree().Type(PIN_TYPE_SO, "12345678").Type(PIN_TYPE_NEW_USER, "4321");
    EXPECT_THROW(module.Unlock(session, 1, pad.ask(), throwing, &pad), PinPad::Thrown);
    EXPECT_TRACE(std::string(kSecurityOfficerIsIn) + R"(
    ask NEW_USER = PIN of 4 bytes
    C_InitPIN(session 1, PIN of 4 bytes) = )" +
                 told + "C_Logout(session 1) = OK\n");
    EXPECT_FALSE(LoggedIn());
    module.function_list->C_CloseSession(session);
    session = CK_INVALID_HANDLE;
    module.Close();
  }
}

TEST_F(UnlockTest, AnExceptionBeforeTheLoginNeedsNoLogout) {
  AddToken();
  OpenSession();
  pad.Throw(PIN_TYPE_UNLOCK);
  EXPECT_THROW(Unlock(), PinPad::Thrown);
  EXPECT_TRACE("ask UNLOCK = exception\n");
}

TEST_F(UnlockTest, TheResultOfTheLogoutDoesNotMatter) {
  AddToken();
  OpenSession();
  provider.On("C_Logout").Return(CKR_DEVICE_REMOVED);
  pad.Agree().Type(PIN_TYPE_SO, "12345678").Type(PIN_TYPE_NEW_USER, "4321");
  EXPECT_EQ(Unlock(), CKR_OK);
  EXPECT_TRACE(std::string(kSecurityOfficerIsIn) + R"(
    ask NEW_USER = PIN of 4 bytes
    C_InitPIN(session 1, PIN of 4 bytes) = OK
    C_Logout(session 1) = DEVICE_REMOVED
  )");
}

TEST_F(UnlockTest, WithoutAnErrorCallbackNobodyIsTold) {
  AddToken().SoPin("12345678", 10);
  OpenSession();
  provider.On("C_InitPIN", 2).Return(CKR_PIN_LOCKED);
  pad.Agree()
      .Type(PIN_TYPE_SO, "11111111")
      .Type(PIN_TYPE_SO, "12345678")
      .Type(PIN_TYPE_NEW_USER, "1")
      .Type(PIN_TYPE_NEW_USER, "4321");
  EXPECT_EQ(module.Unlock(session, 1, pad.ask(), nullptr, &pad), CKR_PIN_LOCKED);
  EXPECT_TRACE(R"(
    ask UNLOCK = yes
    log 5: Attempting to unlock passphrase...
    C_GetTokenInfo(slot 1) = OK
    ask SO = PIN of 8 bytes
    C_Login(session 1, SO, PIN of 8 bytes) = PIN_INCORRECT
    log 5: Token login error: 160
    C_GetTokenInfo(slot 1) = OK
    log 5: Previous failed passphrase attempt for token
    ask SO = PIN of 8 bytes
    C_Login(session 1, SO, PIN of 8 bytes) = OK
    ask NEW_USER = PIN of 1 bytes
    C_InitPIN(session 1, PIN of 1 bytes) = PIN_LEN_RANGE
    log 5: Passphrase init error: 162
    ask NEW_USER = PIN of 4 bytes
    C_InitPIN(session 1, PIN of 4 bytes) = PIN_LOCKED
    C_Logout(session 1) = OK
  )");
}

// Every value of the standard that C_InitPIN can answer, and some that it cannot.
class InitPinResult : public UnlockTest, public testing::WithParamInterface<CK_RV> {
 protected:
  std::string Aftermath() const {
    const CK_RV rv = GetParam();
    const std::string number = std::to_string(static_cast<long>(rv));
    if (rv == CKR_OK)
      return "";
    if (IsFormError(rv))
      return "log 5: Passphrase init error: " + number +
             "\n"
             "tell USER INVALID\n"
             "ask NEW_USER = cancel\n";
    if (rv == CKR_PIN_INCORRECT)
      return "tell SO INCORRECT\n";
    if (rv == CKR_PIN_LOCKED)
      return "tell SO LOCKED\n";
    return "log 3: Unexpected passphrase init error: " + number + "\n";
  }
  CK_RV ExpectedResult() const {
    if (IsFormError(GetParam()))
      return CKR_CANCEL;  // The next request is cancelled, or it would go on.
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
  EXPECT_TRACE(std::string(kSecurityOfficerIsIn) +
               "ask NEW_USER = PIN of 4 bytes\n"
               "C_InitPIN(session 1, PIN of 4 bytes) = " +
               support::CkrName(GetParam()) + "\n" + Aftermath() + "C_Logout(session 1) = OK\n");
}

INSTANTIATE_TEST_SUITE_P(EveryValue, InitPinResult, testing::ValuesIn(support::AllCkrValues()),
                         [](const auto& value) { return support::CkrName(value.param); });
INSTANTIATE_TEST_SUITE_P(OfTheVendor, InitPinResult, testing::Values(CKR_VENDOR_DEFINED + 7, ~0UL),
                         testing::PrintToStringParamName());

}  // namespace
