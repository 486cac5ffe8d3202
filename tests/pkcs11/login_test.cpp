// Login: one PIN asked for, one C_Login, and what becomes of its result.
#include "pkcs11/session_test.h"
#include "support/ckr_names.h"

namespace {

using support::CkrName;
using LoginTest = SessionTest;

TEST_F(LoginTest, LogsInAsUser) {
  AddToken();
  OpenSession();
  pad.Type(PIN_TYPE_USER, "1234");
  EXPECT_EQ(Login(CKU_USER), CKR_OK);
  EXPECT_TRACE(R"(
    C_GetTokenInfo(slot 1) = OK
    ask USER = PIN of 4 bytes
    C_Login(session 1, USER, PIN of 4 bytes) = OK
  )");
}

TEST_F(LoginTest, LogsInAsSecurityOfficer) {
  AddToken();
  OpenSession();
  pad.Type(PIN_TYPE_SO, "12345678");
  EXPECT_EQ(Login(CKU_SO), CKR_OK);
  EXPECT_TRACE(R"(
    C_GetTokenInfo(slot 1) = OK
    ask SO = PIN of 8 bytes
    C_Login(session 1, SO, PIN of 8 bytes) = OK
  )");
}

TEST_F(LoginTest, PassesOnExactlyTheBytesThatWereTyped) {
  AddToken().UserPin(std::string("12\0\xff", 4));
  provider.TracePins();
  OpenSession();
  pad.Type(PIN_TYPE_USER, std::string("12\0\xff", 4));
  EXPECT_EQ(Login(CKU_USER), CKR_OK);
  EXPECT_TRACE(R"(
    C_GetTokenInfo(slot 1) = OK
    ask USER = PIN of 4 bytes
    C_Login(session 1, USER, PIN "12\x00)"
               "\xff"
               R"(") = OK
  )");
}

TEST_F(LoginTest, AnotherUserTypeIsRefusedUnheard) {
  AddToken();
  OpenSession();
  for (const CK_USER_TYPE user_type : {CK_USER_TYPE{2}, CK_USER_TYPE{3}, ~CK_USER_TYPE{0}})
    EXPECT_EQ(Login(user_type), CKR_ARGUMENTS_BAD);
  EXPECT_TRACE("");
}

TEST_F(LoginTest, AnUnreadableTokenEndsIt) {
  AddToken();
  OpenSession();
  provider.On("C_GetTokenInfo").Return(CKR_DEVICE_ERROR);
  EXPECT_EQ(Login(CKU_USER), CKR_DEVICE_ERROR);
  EXPECT_TRACE(R"(
    C_GetTokenInfo(slot 1) = DEVICE_ERROR
    log 3: Unable to get info about token
  )");
}

// What the token's flags say before the PIN is asked for.
struct FlagCase {
  const char* name;
  CK_USER_TYPE user_type;
  CK_FLAGS flags;
  const char* line;
};

class LoginWarning : public LoginTest, public testing::WithParamInterface<FlagCase> {};

TEST_P(LoginWarning, StandsBeforeTheRequest) {
  const FlagCase& flag = GetParam();
  AddToken().ReportedPinFlags(flag.flags);
  OpenSession();
  const bool user = flag.user_type == CKU_USER;
  pad.Cancel(user ? PIN_TYPE_USER : PIN_TYPE_SO);
  EXPECT_EQ(Login(flag.user_type), CKR_CANCEL);
  EXPECT_TRACE("C_GetTokenInfo(slot 1) = OK\n" + std::string(flag.line) +
               (user ? "\nask USER = cancel\n" : "\nask SO = cancel\n"));
}

constexpr char kFinal[] = "log 5: Final passphrase attempt for token";
constexpr char kPrevious[] = "log 5: Previous failed passphrase attempt for token";

INSTANTIATE_TEST_SUITE_P(
    Flags, LoginWarning,
    testing::Values(FlagCase{"UserFinalTry", CKU_USER, CKF_USER_PIN_FINAL_TRY, kFinal},
                    FlagCase{"UserCountLow", CKU_USER, CKF_USER_PIN_COUNT_LOW, kPrevious},
                    FlagCase{"UserFinalTryHidesCountLow", CKU_USER,
                             CKF_USER_PIN_FINAL_TRY | CKF_USER_PIN_COUNT_LOW, kFinal},
                    FlagCase{"UserIgnoresTheSecurityOfficers", CKU_USER,
                             CKF_SO_PIN_FINAL_TRY | CKF_SO_PIN_COUNT_LOW | CKF_SO_PIN_LOCKED, ""},
                    FlagCase{"SoFinalTry", CKU_SO, CKF_SO_PIN_FINAL_TRY, kFinal},
                    FlagCase{"SoCountLow", CKU_SO, CKF_SO_PIN_COUNT_LOW, kPrevious},
                    FlagCase{"SoFinalTryHidesCountLow", CKU_SO,
                             CKF_SO_PIN_FINAL_TRY | CKF_SO_PIN_COUNT_LOW, kFinal},
                    FlagCase{"SoIgnoresTheUsers", CKU_SO,
                             CKF_USER_PIN_FINAL_TRY | CKF_USER_PIN_COUNT_LOW | CKF_USER_PIN_LOCKED,
                             ""}),
    [](const auto& flag) { return std::string(flag.param.name); });

TEST_F(LoginTest, ALockedSecurityOfficerPinIsNotAskedFor) {
  AddToken().SoTriesLeft(0);
  OpenSession();
  EXPECT_EQ(Login(CKU_SO), CKR_PIN_LOCKED);
  EXPECT_TRACE(R"(
    C_GetTokenInfo(slot 1) = OK
    log 5: Passphrase locked
    tell SO LOCKED
  )");
}

TEST_F(LoginTest, ALockedUserPinStaysLockedWithoutConsent) {
  AddToken().UserTriesLeft(0);
  OpenSession();
  pad.Cancel(PIN_TYPE_UNLOCK);
  EXPECT_EQ(Login(CKU_USER), CKR_CANCEL);
  EXPECT_TRACE(R"(
    C_GetTokenInfo(slot 1) = OK
    log 5: Passphrase locked
    tell USER LOCKED
    ask UNLOCK = no
  )");
}

TEST_F(LoginTest, AfterTheUnlockOfALockedPinTheSameCallAsksForTheNewOne) {
  // The flags are those from before the unlock.
  AddToken().UserTriesLeft(0).ReportedPinFlags(CKF_USER_PIN_LOCKED | CKF_USER_PIN_FINAL_TRY);
  OpenSession();
  pad.Agree().Type(PIN_TYPE_SO, "12345678").Type(PIN_TYPE_NEW_USER, "4321");
  pad.Type(PIN_TYPE_USER, "4321");
  EXPECT_EQ(Login(CKU_USER), CKR_OK);
  EXPECT_TRACE(R"(
    C_GetTokenInfo(slot 1) = OK
    log 5: Passphrase locked
    tell USER LOCKED
    ask UNLOCK = yes
    log 5: Attempting to unlock passphrase...
    C_GetTokenInfo(slot 1) = OK
    ask SO = PIN of 8 bytes
    C_Login(session 1, SO, PIN of 8 bytes) = OK
    ask NEW_USER = PIN of 4 bytes
    C_InitPIN(session 1, PIN of 4 bytes) = OK
    C_Logout(session 1) = OK
    log 5: Final passphrase attempt for token
    ask USER = PIN of 4 bytes
    C_Login(session 1, USER, PIN of 4 bytes) = OK
  )");
}

TEST_F(LoginTest, AWrongPinAfterAnUnlockReportsBoth) {
  AddToken().UserTriesLeft(0);
  OpenSession();
  pad.Agree().Type(PIN_TYPE_SO, "12345678").Type(PIN_TYPE_NEW_USER, "4321");
  pad.Type(PIN_TYPE_USER, "9999");
  EXPECT_EQ(Login(CKU_USER), CKR_PIN_INCORRECT);
  EXPECT_TRACE(R"(
    C_GetTokenInfo(slot 1) = OK
    log 5: Passphrase locked
    tell USER LOCKED
    ask UNLOCK = yes
    log 5: Attempting to unlock passphrase...
    C_GetTokenInfo(slot 1) = OK
    ask SO = PIN of 8 bytes
    C_Login(session 1, SO, PIN of 8 bytes) = OK
    ask NEW_USER = PIN of 4 bytes
    C_InitPIN(session 1, PIN of 4 bytes) = OK
    C_Logout(session 1) = OK
    log 5: Previous failed passphrase attempt for token
    ask USER = PIN of 4 bytes
    C_Login(session 1, USER, PIN of 4 bytes) = PIN_INCORRECT
    log 5: Token login error: 160
    tell USER INCORRECT
  )");
}

TEST_F(LoginTest, APinThatIsLockedByTheLoginIsUnlockedAndAskedForAgainByTheCaller) {
  AddToken().UserTriesLeft(1).ReturnsPinLockedOnLastTry();
  OpenSession();
  pad.Type(PIN_TYPE_USER, "9999");
  pad.Agree().Type(PIN_TYPE_SO, "12345678").Type(PIN_TYPE_NEW_USER, "4321");
  EXPECT_EQ(Login(CKU_USER), CKR_PIN_INCORRECT);
  EXPECT_FALSE(LoggedIn());
  EXPECT_TRACE(R"(
    C_GetTokenInfo(slot 1) = OK
    log 5: Final passphrase attempt for token
    ask USER = PIN of 4 bytes
    C_Login(session 1, USER, PIN of 4 bytes) = PIN_LOCKED
    log 5: Token login error: 164
    tell USER LOCKED
    ask UNLOCK = yes
    log 5: Attempting to unlock passphrase...
    C_GetTokenInfo(slot 1) = OK
    ask SO = PIN of 8 bytes
    C_Login(session 1, SO, PIN of 8 bytes) = OK
    ask NEW_USER = PIN of 4 bytes
    C_InitPIN(session 1, PIN of 4 bytes) = OK
    C_Logout(session 1) = OK
  )");
}

TEST_F(LoginTest, AFailedUnlockIsAnsweredAsItIs) {
  AddToken().UserTriesLeft(1).ReturnsPinLockedOnLastTry();
  provider.On("C_InitPIN").Return(CKR_DEVICE_MEMORY);
  OpenSession();
  pad.Type(PIN_TYPE_USER, "9999");
  pad.Agree().Type(PIN_TYPE_SO, "12345678").Type(PIN_TYPE_NEW_USER, "4321");
  EXPECT_EQ(Login(CKU_USER), CKR_DEVICE_MEMORY);
  EXPECT_TRACE(R"(
    C_GetTokenInfo(slot 1) = OK
    log 5: Final passphrase attempt for token
    ask USER = PIN of 4 bytes
    C_Login(session 1, USER, PIN of 4 bytes) = PIN_LOCKED
    log 5: Token login error: 164
    tell USER LOCKED
    ask UNLOCK = yes
    log 5: Attempting to unlock passphrase...
    C_GetTokenInfo(slot 1) = OK
    ask SO = PIN of 8 bytes
    C_Login(session 1, SO, PIN of 8 bytes) = OK
    ask NEW_USER = PIN of 4 bytes
    C_InitPIN(session 1, PIN of 4 bytes) = DEVICE_MEMORY
    log 3: Unexpected passphrase init error: 49
    C_Logout(session 1) = OK
  )");
}

// The user PIN is not asked for when it is locked still.
TEST_F(LoginTest, AFailedUnlockOfALockedPinIsAnsweredAsItIs) {
  AddToken().UserTriesLeft(0);
  provider.On("C_InitPIN").Return(CKR_PIN_INCORRECT);
  OpenSession();
  pad.Agree().Type(PIN_TYPE_SO, "12345678").Type(PIN_TYPE_NEW_USER, "4321");
  EXPECT_EQ(Login(CKU_USER), CKR_GENERAL_ERROR);
  EXPECT_TRACE(R"(
    C_GetTokenInfo(slot 1) = OK
    log 5: Passphrase locked
    tell USER LOCKED
    ask UNLOCK = yes
    log 5: Attempting to unlock passphrase...
    C_GetTokenInfo(slot 1) = OK
    ask SO = PIN of 8 bytes
    C_Login(session 1, SO, PIN of 8 bytes) = OK
    ask NEW_USER = PIN of 4 bytes
    C_InitPIN(session 1, PIN of 4 bytes) = PIN_INCORRECT
    tell SO INCORRECT
    C_Logout(session 1) = OK
  )");
}

TEST_F(LoginTest, AnSoPinThatIsLockedByTheLoginIsNotUnlocked) {
  AddToken().SoTriesLeft(1).ReturnsPinLockedOnLastTry();
  OpenSession();
  pad.Type(PIN_TYPE_SO, "99999999");
  EXPECT_EQ(Login(CKU_SO), CKR_PIN_LOCKED);
  EXPECT_TRACE(R"(
    C_GetTokenInfo(slot 1) = OK
    log 5: Final passphrase attempt for token
    ask SO = PIN of 8 bytes
    C_Login(session 1, SO, PIN of 8 bytes) = PIN_LOCKED
    log 5: Token login error: 164
    tell SO LOCKED
  )");
}

TEST_F(LoginTest, ACancelNeverReachesTheToken) {
  AddToken();
  OpenSession();
  pad.Cancel(PIN_TYPE_USER);
  EXPECT_EQ(Login(CKU_USER), CKR_CANCEL);
  EXPECT_TRACE(R"(
    C_GetTokenInfo(slot 1) = OK
    ask USER = cancel
  )");
}

TEST_F(LoginTest, WithoutAnErrorCallbackNobodyIsTold) {
  AddToken().SoTriesLeft(0);
  OpenSession();
  pad.Type(PIN_TYPE_USER, "9999");
  EXPECT_EQ(module.Login(session, 1, CKU_USER, pad.ask(), nullptr, &pad), CKR_PIN_INCORRECT);
  EXPECT_EQ(module.Login(session, 1, CKU_SO, pad.ask(), nullptr, &pad), CKR_PIN_LOCKED);
  EXPECT_TRACE(R"(
    C_GetTokenInfo(slot 1) = OK
    ask USER = PIN of 4 bytes
    C_Login(session 1, USER, PIN of 4 bytes) = PIN_INCORRECT
    log 5: Token login error: 160
    C_GetTokenInfo(slot 1) = OK
    log 5: Passphrase locked
  )");
}

TEST_F(LoginTest, WithoutAPinCallbackTheProgramStops) {
  AddToken();
  OpenSession();
  testing::FLAGS_gtest_death_test_style = "threadsafe";
  EXPECT_DEATH(module.Login(session, 1, CKU_USER, nullptr, pad.tell(), &pad),
               "the PIN callback is null");
  EXPECT_DEATH(module.Login(session, 1, CK_USER_TYPE{2}, nullptr, pad.tell(), &pad),
               "the PIN callback is null");
}

TEST_F(LoginTest, APinThatFillsTheBufferIsPassedOn) {
  AddToken().UserPin(std::string(128, '7')).PinLengths(4, 128);
  OpenSession();
  pad.Claim(PIN_TYPE_USER, 128);
  EXPECT_EQ(Login(CKU_USER), CKR_OK);
  EXPECT_TRACE(R"(
    C_GetTokenInfo(slot 1) = OK
    ask USER = claim of 128 bytes
    C_Login(session 1, USER, PIN of 128 bytes) = OK
  )");
}

TEST_F(LoginTest, AnEmptyPinIsPassedOn) {
  AddToken();
  OpenSession();
  pad.Type(PIN_TYPE_USER, "");
  EXPECT_EQ(Login(CKU_USER), CKR_PIN_INCORRECT);
  EXPECT_TRACE(R"(
    C_GetTokenInfo(slot 1) = OK
    ask USER = PIN of 0 bytes
    C_Login(session 1, USER, PIN of 0 bytes) = PIN_LEN_RANGE
    log 5: Token login error: 162
    tell USER INVALID
  )");
}

TEST_F(LoginTest, AClaimBeyondTheBufferNeverReachesTheToken) {
  AddToken();
  OpenSession();
  for (const unsigned long length : {129UL, 1UL << 63, ~0UL}) {
    pad.Claim(PIN_TYPE_USER, length);
    EXPECT_EQ(Login(CKU_USER), CKR_ARGUMENTS_BAD);
    EXPECT_TRACE("C_GetTokenInfo(slot 1) = OK\nask USER = claim of " + std::to_string(length) +
                 " bytes\n");
  }
}

TEST_F(LoginTest, AnExceptionFromThePinCallbackComesOut) {
  AddToken();
  OpenSession();
  pad.Throw(PIN_TYPE_USER);
  EXPECT_THROW(Login(CKU_USER), PinPad::Thrown);
  EXPECT_TRACE(R"(
    C_GetTokenInfo(slot 1) = OK
    ask USER = exception
  )");
}

// Every value of the standard that C_Login can answer, and some that it cannot.
class LoginResult : public LoginTest, public testing::WithParamInterface<CK_RV> {
 protected:
  // What follows C_Login, for the user and the security officer alike, and the result.
  std::string Aftermath(const std::string& user) const {
    const CK_RV rv = GetParam();
    const std::string number = std::to_string(static_cast<long>(rv));
    if (rv == CKR_OK)
      return "";
    const std::string known = "log 5: Token login error: " + number + "\ntell " + user;
    if (rv == CKR_PIN_INCORRECT)
      return known + " INCORRECT\n";
    if (rv == CKR_PIN_LOCKED)
      return known + " LOCKED\n";
    if (IsFormError(rv))
      return known + " INVALID\n";
    return "log 3: Unexpected token login error: " + number + "\n";
  }
  CK_RV ExpectedResult() const { return IsFormError(GetParam()) ? CKR_PIN_INCORRECT : GetParam(); }
};

TEST_P(LoginResult, OfTheUserIsClassified) {
  AddToken();
  OpenSession();
  provider.On("C_Login").Return(GetParam());
  pad.Type(PIN_TYPE_USER, "1234");
  const bool locked = GetParam() == CKR_PIN_LOCKED;
  if (locked)
    pad.Cancel(PIN_TYPE_UNLOCK);
  EXPECT_EQ(Login(CKU_USER), locked ? CKR_CANCEL : ExpectedResult());
  EXPECT_TRACE(
      "C_GetTokenInfo(slot 1) = OK\n"
      "ask USER = PIN of 4 bytes\n"
      "C_Login(session 1, USER, PIN of 4 bytes) = " +
      support::CkrName(GetParam()) + "\n" + Aftermath("USER") +
      (locked ? "ask UNLOCK = no\n" : ""));
}

TEST_P(LoginResult, OfTheSecurityOfficerIsClassified) {
  AddToken();
  OpenSession();
  provider.On("C_Login").Return(GetParam());
  pad.Type(PIN_TYPE_SO, "12345678");
  EXPECT_EQ(Login(CKU_SO), ExpectedResult());
  EXPECT_TRACE(
      "C_GetTokenInfo(slot 1) = OK\n"
      "ask SO = PIN of 8 bytes\n"
      "C_Login(session 1, SO, PIN of 8 bytes) = " +
      support::CkrName(GetParam()) + "\n" + Aftermath("SO"));
}

std::string NameOfResult(const testing::TestParamInfo<CK_RV>& info) {
  return support::CkrName(info.param);
}

INSTANTIATE_TEST_SUITE_P(EveryValue, LoginResult, testing::ValuesIn(support::AllCkrValues()),
                         NameOfResult);
INSTANTIATE_TEST_SUITE_P(OfTheVendor, LoginResult, testing::Values(CKR_VENDOR_DEFINED + 7, ~0UL),
                         testing::PrintToStringParamName());

}  // namespace
