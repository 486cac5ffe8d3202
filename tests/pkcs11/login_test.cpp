// Login: one request for a PIN, one C_Login, and the handling of its result.
#include "pkcs11/session_test.h"

namespace {

using LoginTest = SessionTest;
using support::CkrName;

TEST_F(LoginTest, LogsInAsUser) {
  AddToken();
  OpenSession();
  pad.Type(PIN_TYPE_USER, "1234");
  EXPECT_EQ(Login(CKU_USER), CKR_OK);
  EXPECT_TRACE(kReadsTokenInfo, EntersPin("USER", 4));
}

TEST_F(LoginTest, LogsInAsSecurityOfficer) {
  AddToken();
  OpenSession();
  pad.Type(PIN_TYPE_SO, "12345678");
  EXPECT_EQ(Login(CKU_SO), CKR_OK);
  EXPECT_TRACE(kReadsTokenInfo, EntersPin("SO", 8));
}

TEST_F(LoginTest, PassesExactlyTheTypedBytes) {
  const std::string pin("12\0\xff", 4);
  AddToken().UserPin(pin);
  provider.TracePins();
  OpenSession();
  pad.Type(PIN_TYPE_USER, pin);
  EXPECT_EQ(Login(CKU_USER), CKR_OK);
  EXPECT_TRACE(kReadsTokenInfo, AsksForPin("USER", 4),
               "C_Login(session 1, USER, PIN \"12\\x00\xff\") = OK");
}

TEST_F(LoginTest, PassesPinThatFillsBuffer) {
  AddToken().UserPin(std::string(128, '7')).PinLengths(4, 128);
  OpenSession();
  pad.Claim(PIN_TYPE_USER, 128);
  EXPECT_EQ(Login(CKU_USER), CKR_OK);
  EXPECT_TRACE(kReadsTokenInfo, "ask USER = claim of 128 bytes", CallsLogin("USER", 128));
}

TEST_F(LoginTest, PassesEmptyPin) {
  AddToken();
  OpenSession();
  pad.Type(PIN_TYPE_USER, "");
  EXPECT_EQ(Login(CKU_USER), CKR_PIN_INCORRECT);
  EXPECT_TRACE(kReadsTokenInfo, EntersWrongPin("USER", 0, CKR_PIN_LEN_RANGE));
}

TEST_F(LoginTest, RejectsPinLengthBeyondBuffer) {
  AddToken();
  OpenSession();
  for (const unsigned long length : {129UL, 1UL << 63, ~0UL}) {
    pad.Claim(PIN_TYPE_USER, length);
    EXPECT_EQ(Login(CKU_USER), CKR_ARGUMENTS_BAD);
    EXPECT_TRACE(kReadsTokenInfo, "ask USER = claim of " + std::to_string(length) + " bytes");
  }
}

TEST_F(LoginTest, RejectsOtherUserTypesWithoutAnyCall) {
  AddToken();
  OpenSession();
  for (const CK_USER_TYPE user_type : {CK_USER_TYPE{2}, CK_USER_TYPE{3}, ~CK_USER_TYPE{0}})
    EXPECT_EQ(Login(user_type), CKR_ARGUMENTS_BAD);
  EXPECT_TRACE("");
}

TEST_F(LoginTest, FailsWhenTokenInfoCannotBeRead) {
  AddToken();
  OpenSession();
  provider.On("C_GetTokenInfo").Return(CKR_DEVICE_ERROR);
  EXPECT_EQ(Login(CKU_USER), CKR_DEVICE_ERROR);
  EXPECT_TRACE("C_GetTokenInfo(slot 1) = DEVICE_ERROR", "log 3: Unable to get info about token");
}

TEST_F(LoginTest, CancelsWithoutCallingLogin) {
  AddToken();
  OpenSession();
  pad.Cancel(PIN_TYPE_USER);
  EXPECT_EQ(Login(CKU_USER), CKR_CANCEL);
  EXPECT_TRACE(kReadsTokenInfo, "ask USER = cancel");
}

TEST_F(LoginTest, PassesExceptionFromPinCallback) {
  AddToken();
  OpenSession();
  pad.Throw(PIN_TYPE_USER);
  EXPECT_THROW(Login(CKU_USER), PinPad::Thrown);
  EXPECT_TRACE(kReadsTokenInfo, "ask USER = exception");
}

TEST_F(LoginTest, WorksWithoutErrorCallback) {
  AddToken().SoTriesLeft(0);
  OpenSession();
  pad.Type(PIN_TYPE_USER, "9999");
  EXPECT_EQ(module.Login(session, 1, CKU_USER, pad.ask(), nullptr, &pad), CKR_PIN_INCORRECT);
  EXPECT_EQ(module.Login(session, 1, CKU_SO, pad.ask(), nullptr, &pad), CKR_PIN_LOCKED);
  EXPECT_TRACE(kReadsTokenInfo, EntersPin("USER", 4, CKR_PIN_INCORRECT),
               LogsLoginError(CKR_PIN_INCORRECT), kReadsTokenInfo, "log 5: Passphrase locked");
}

TEST_F(LoginTest, StopsProgramWithoutPinCallback) {
  AddToken();
  OpenSession();
  testing::FLAGS_gtest_death_test_style = "threadsafe";
  EXPECT_DEATH(module.Login(session, 1, CKU_USER, nullptr, pad.tell(), &pad),
               "the PIN callback is null");
  EXPECT_DEATH(module.Login(session, 1, CK_USER_TYPE{2}, nullptr, pad.tell(), &pad),
               "the PIN callback is null");
}

// The flags of the token that give a warning before the request.
struct WarningCase {
  const char* name;
  CK_USER_TYPE user_type;
  CK_FLAGS flags;
  const char* warning;
};

class LoginWarning : public LoginTest, public testing::WithParamInterface<WarningCase> {};

TEST_P(LoginWarning, PrecedesRequest) {
  const WarningCase& test = GetParam();
  const bool is_user = test.user_type == CKU_USER;
  AddToken().ReportedPinFlags(test.flags);
  OpenSession();
  pad.Cancel(is_user ? PIN_TYPE_USER : PIN_TYPE_SO);
  EXPECT_EQ(Login(test.user_type), CKR_CANCEL);
  EXPECT_TRACE(kReadsTokenInfo, test.warning, is_user ? "ask USER = cancel" : "ask SO = cancel");
}

INSTANTIATE_TEST_SUITE_P(
    Flags, LoginWarning,
    testing::Values(
        WarningCase{"UserFinalTry", CKU_USER, CKF_USER_PIN_FINAL_TRY, kWarnsOfFinalAttempt},
        WarningCase{"UserCountLow", CKU_USER, CKF_USER_PIN_COUNT_LOW, kWarnsOfFailedAttempt},
        WarningCase{"UserFinalTryHidesCountLow", CKU_USER,
                    CKF_USER_PIN_FINAL_TRY | CKF_USER_PIN_COUNT_LOW, kWarnsOfFinalAttempt},
        WarningCase{"UserIgnoresFlagsOfSo", CKU_USER,
                    CKF_SO_PIN_FINAL_TRY | CKF_SO_PIN_COUNT_LOW | CKF_SO_PIN_LOCKED, ""},
        WarningCase{"SoFinalTry", CKU_SO, CKF_SO_PIN_FINAL_TRY, kWarnsOfFinalAttempt},
        WarningCase{"SoCountLow", CKU_SO, CKF_SO_PIN_COUNT_LOW, kWarnsOfFailedAttempt},
        WarningCase{"SoFinalTryHidesCountLow", CKU_SO, CKF_SO_PIN_FINAL_TRY | CKF_SO_PIN_COUNT_LOW,
                    kWarnsOfFinalAttempt},
        WarningCase{"SoIgnoresFlagsOfUser", CKU_SO,
                    CKF_USER_PIN_FINAL_TRY | CKF_USER_PIN_COUNT_LOW | CKF_USER_PIN_LOCKED, ""}),
    [](const auto& test) { return std::string(test.param.name); });

TEST_F(LoginTest, DoesNotAskForLockedSoPin) {
  AddToken().SoTriesLeft(0);
  OpenSession();
  EXPECT_EQ(Login(CKU_SO), CKR_PIN_LOCKED);
  EXPECT_TRACE(kReadsTokenInfo, ReportsLockedPin("SO"));
}

TEST_F(LoginTest, DoesNotUnlockSoPinThatLoginLocks) {
  AddToken().SoTriesLeft(1).ReturnsPinLockedOnLastTry();
  OpenSession();
  pad.Type(PIN_TYPE_SO, "99999999");
  EXPECT_EQ(Login(CKU_SO), CKR_PIN_LOCKED);
  EXPECT_TRACE(kReadsTokenInfo, kWarnsOfFinalAttempt, EntersWrongPin("SO", 8, CKR_PIN_LOCKED));
}

TEST_F(LoginTest, CancelsWhenUserDeclinesUnlock) {
  AddToken().UserTriesLeft(0);
  OpenSession();
  pad.Cancel(PIN_TYPE_UNLOCK);
  EXPECT_EQ(Login(CKU_USER), CKR_CANCEL);
  EXPECT_TRACE(kReadsTokenInfo, ReportsLockedPin("USER"), "ask UNLOCK = no");
}

TEST_F(LoginTest, AsksForNewPinAfterUnlockingLockedPin) {
  // The warning depends on the flags read before the unlock.
  AddToken().UserTriesLeft(0).ReportedPinFlags(CKF_USER_PIN_LOCKED | CKF_USER_PIN_FINAL_TRY);
  OpenSession();
  pad.Agree().Type(PIN_TYPE_SO, "12345678").Type(PIN_TYPE_NEW_USER, "4321");
  pad.Type(PIN_TYPE_USER, "4321");
  EXPECT_EQ(Login(CKU_USER), CKR_OK);
  EXPECT_TRACE(kReadsTokenInfo, ReportsLockedPin("USER"), Unlocks(), kWarnsOfFinalAttempt,
               EntersPin("USER", 4));
}

TEST_F(LoginTest, ReportsWrongPinAfterUnlock) {
  AddToken().UserTriesLeft(0);
  OpenSession();
  pad.Agree().Type(PIN_TYPE_SO, "12345678").Type(PIN_TYPE_NEW_USER, "4321");
  pad.Type(PIN_TYPE_USER, "9999");
  EXPECT_EQ(Login(CKU_USER), CKR_PIN_INCORRECT);
  EXPECT_TRACE(kReadsTokenInfo, ReportsLockedPin("USER"), Unlocks(), kWarnsOfFailedAttempt,
               EntersWrongPin("USER", 4));
}

// So that the caller repeats the login with the new PIN.
TEST_F(LoginTest, ReturnsPinIncorrectAfterUnlockingPinThatLoginLocked) {
  AddToken().UserTriesLeft(1).ReturnsPinLockedOnLastTry();
  OpenSession();
  pad.Type(PIN_TYPE_USER, "9999");
  pad.Agree().Type(PIN_TYPE_SO, "12345678").Type(PIN_TYPE_NEW_USER, "4321");
  EXPECT_EQ(Login(CKU_USER), CKR_PIN_INCORRECT);
  EXPECT_FALSE(LoggedIn());
  EXPECT_TRACE(kReadsTokenInfo, kWarnsOfFinalAttempt, EntersWrongPin("USER", 4, CKR_PIN_LOCKED),
               Unlocks());
}

TEST_F(LoginTest, ReturnsResultOfFailedUnlockAfterLogin) {
  AddToken().UserTriesLeft(1).ReturnsPinLockedOnLastTry();
  provider.On("C_InitPIN").Return(CKR_DEVICE_MEMORY);
  OpenSession();
  pad.Type(PIN_TYPE_USER, "9999");
  pad.Agree().Type(PIN_TYPE_SO, "12345678").Type(PIN_TYPE_NEW_USER, "4321");
  EXPECT_EQ(Login(CKU_USER), CKR_DEVICE_MEMORY);
  EXPECT_TRACE(kReadsTokenInfo, kWarnsOfFinalAttempt, EntersWrongPin("USER", 4, CKR_PIN_LOCKED),
               LogsInToUnlock(), EntersNewPin(4, CKR_DEVICE_MEMORY),
               "log 3: Unexpected passphrase init error: 49", LogsOut());
}

// The user PIN is still locked, so there is no request for it.
TEST_F(LoginTest, ReturnsResultOfFailedUnlockBeforeLogin) {
  AddToken().UserTriesLeft(0);
  provider.On("C_InitPIN").Return(CKR_PIN_INCORRECT);
  OpenSession();
  pad.Agree().Type(PIN_TYPE_SO, "12345678").Type(PIN_TYPE_NEW_USER, "4321");
  EXPECT_EQ(Login(CKU_USER), CKR_GENERAL_ERROR);
  EXPECT_TRACE(kReadsTokenInfo, ReportsLockedPin("USER"), LogsInToUnlock(),
               EntersNewPin(4, CKR_PIN_INCORRECT), "tell SO INCORRECT", LogsOut());
}

// Every value that the standard defines, although C_Login may not return all of them, and some of
// the vendor's.
class LoginResult : public LoginTest, public testing::WithParamInterface<CK_RV> {
 protected:
  // The lines after C_Login.
  static std::string ReportsResult(const std::string& user) {
    const CK_RV rv = GetParam();
    if (rv == CKR_OK)
      return "";
    if (rv == CKR_PIN_INCORRECT || rv == CKR_PIN_LOCKED || IsFormError(rv))
      return ReportsPinError(user, rv);
    return "log 3: Unexpected token login error: " + std::to_string(static_cast<long>(rv)) + '\n';
  }
  static CK_RV ExpectedResult() { return IsFormError(GetParam()) ? CKR_PIN_INCORRECT : GetParam(); }
};

TEST_P(LoginResult, IsClassifiedForUser) {
  AddToken();
  OpenSession();
  provider.On("C_Login").Return(GetParam());
  pad.Type(PIN_TYPE_USER, "1234");
  const bool locked = GetParam() == CKR_PIN_LOCKED;
  if (locked)
    pad.Cancel(PIN_TYPE_UNLOCK);
  EXPECT_EQ(Login(CKU_USER), locked ? CKR_CANCEL : ExpectedResult());
  EXPECT_TRACE(kReadsTokenInfo, EntersPin("USER", 4, GetParam()), ReportsResult("USER"),
               locked ? "ask UNLOCK = no" : "");
}

TEST_P(LoginResult, IsClassifiedForSecurityOfficer) {
  AddToken();
  OpenSession();
  provider.On("C_Login").Return(GetParam());
  pad.Type(PIN_TYPE_SO, "12345678");
  EXPECT_EQ(Login(CKU_SO), ExpectedResult());
  EXPECT_TRACE(kReadsTokenInfo, EntersPin("SO", 8, GetParam()), ReportsResult("SO"));
}

INSTANTIATE_TEST_SUITE_P(EveryValue, LoginResult, testing::ValuesIn(support::AllCkrValues()),
                         [](const auto& test) { return CkrName(test.param); });
INSTANTIATE_TEST_SUITE_P(OfTheVendor, LoginResult, testing::Values(CKR_VENDOR_DEFINED + 7, ~0UL),
                         testing::PrintToStringParamName());

}  // namespace
