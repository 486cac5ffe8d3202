// Sign: finding the certificate and its key, logging in, signing, and cleaning up on every path.
#include "pkcs11/expected.h"
#include "pkcs11/module_test.h"
#include "pkcs11/pin_pad.h"
#include "support/ckr_names.h"

namespace {

class SigningTest : public ModuleTest {
 protected:
  // A token in slot 1 with certificate "A" (serial 01) and the key that belongs to it.
  scripted::Token& AddToken() {
    return provider.Slot(1).Token("Alice").Certificate("A", kKeyId).PrivateKey(kKeyId, Key());
  }
  // The same, which asks for the user PIN "1234".
  scripted::Token& AddTokenWithPin() {
    scripted::Token& token = provider.Slot(1).Token("Alice");
    return token.UserPin("1234").Certificate("A", kKeyId).PrivateKey(kKeyId, Key());
  }

  static std::shared_ptr<const support::RsaKey> Key() {
    static const auto key = support::RsaKey::Generate(1024);
    return key;
  }

  // Signs "data" with room for `capacity` bytes. The result is checked: a signature is right, and a
  // failure leaves the length alone.
  bool Sign(const std::string& serial = "01", unsigned long capacity = 256,
            bool with_pin_pad = true) {
    constexpr unsigned char kData[] = {'d', 'a', 't', 'a'};
    std::vector<unsigned char> signature(capacity);
    unsigned long length = capacity;
    const bool signed_ =
        module.Sign(serial, kData, sizeof kData, signature.data(), &length,
                    with_pin_pad ? pad.ask() : nullptr, with_pin_pad ? pad.tell() : nullptr, &pad);
    if (signed_)
      EXPECT_TRUE(
          Key()->Verifies("data", std::string(signature.data(), signature.data() + length)));
    else
      EXPECT_EQ(length, capacity);
    return signed_;
  }

  static constexpr char kKeyId[] = "\x0a";
  PinPad pad;
};

// The lines until the certificate in slot 1 is found.
constexpr char kFound[] = R"(
    log 5: Preparing signature operation...
    log 5: Finding certificate with serial 01
    C_GetSlotList(TOKEN_PRESENT, NULL) = OK, 1 slots
    C_GetSlotList(TOKEN_PRESENT, room for 1) = OK, slots 1
    log 5: Getting certificates for slot 1
    C_OpenSession(slot 1, SERIAL|RW) = OK, session 1
    C_FindObjectsInit(session 1, CKA_CLASS=CKO_CERTIFICATE) = OK
    C_FindObjects(session 1, max 1) = OK, object 1
    log 5: Getting certificate with id 1
    C_GetAttributeValue(session 1, object 1, CKA_VALUE NULL) = OK, 1 bytes
    C_GetAttributeValue(session 1, object 1, CKA_VALUE[1]) = OK, 1 bytes
    cert_alloc()
    cert_parse(A) = 0
    cert_free(A)
    C_FindObjectsFinal(session 1) = OK
    log 5: Certificate found
)";
constexpr char kReadId[] = "C_GetAttributeValue(session 1, object 1, CKA_ID[256]) = OK, 1 bytes\n";
constexpr char kTokenInfo[] = "C_GetTokenInfo(slot 1) = OK\n";
constexpr char kLogin[] = R"(
    log 5: Logging in...
    C_GetTokenInfo(slot 1) = OK
    ask USER = PIN of 4 bytes
    C_Login(session 1, USER, PIN of 4 bytes) = OK
)";
constexpr char kKey[] = R"(
    log 5: Finding private key...
    C_FindObjectsInit(session 1, CKA_ID=0a, CKA_CLASS=CKO_PRIVATE_KEY) = OK
    C_FindObjects(session 1, max 1) = OK, object 2
    C_FindObjectsFinal(session 1) = OK
)";
constexpr char kSignature[] = R"(
    log 5: Signing data...
    C_SignInit(session 1, CKM_RSA_PKCS, object 2) = OK
    C_Sign(session 1, data 64617461, room for 256) = OK, 128 bytes
)";
constexpr char kLogout[] = "C_Logout(session 1) = OK\n";
constexpr char kClose[] = "C_CloseSession(session 1) = OK\n";
constexpr char kCompleted[] = "log 5: Signature operation completed\n";
constexpr char kAborted[] = "log 3: Signature operation aborted by user\n";

std::string Lines(std::initializer_list<std::string> parts) {
  std::string lines;
  for (const std::string& part : parts)
    lines += part + "\n";
  return lines;
}

std::string Failed(CK_RV rv) {
  return "log 3: Signature operation failed (" + std::to_string(rv) + ")";
}

TEST_F(SigningTest, ATokenThatNeedsNoLoginIsNotLoggedInTo) {
  AddToken();
  Open();
  EXPECT_TRUE(Sign());
  EXPECT_TRACE(Lines({kFound, kReadId, kTokenInfo, kKey, kSignature, kClose, kCompleted}));
}

TEST_F(SigningTest, ATokenThatNeedsNoLoginNeedsNoPinCallback) {
  AddToken();
  Open();
  EXPECT_TRUE(Sign("01", 256, false));
  EXPECT_TRACE(Lines({kFound, kReadId, kTokenInfo, kKey, kSignature, kClose, kCompleted}));
}

TEST_F(SigningTest, LogsInForOneSignatureOnly) {
  AddTokenWithPin();
  Open();
  pad.Type(PIN_TYPE_USER, "1234");
  EXPECT_TRUE(Sign());
  EXPECT_TRACE(
      Lines({kFound, kReadId, kTokenInfo, kLogin, kKey, kSignature, kLogout, kClose, kCompleted}));
}

TEST_F(SigningTest, WithoutAPinCallbackATokenThatNeedsALoginFails) {
  AddTokenWithPin();
  Open();
  EXPECT_FALSE(Sign("01", 256, false));
  EXPECT_TRACE(Lines({kFound, kReadId, kTokenInfo, "log 5: Logging in...", kClose, Failed(160)}));
}

TEST_F(SigningTest, AWrongPinIsAskedForAgain) {
  AddTokenWithPin();
  Open();
  pad.Type(PIN_TYPE_USER, "1111").Type(PIN_TYPE_USER, "22").Type(PIN_TYPE_USER, "1234");
  EXPECT_TRUE(Sign());
  EXPECT_TRACE(Lines({kFound, kReadId, kTokenInfo, R"(
    log 5: Logging in...
    C_GetTokenInfo(slot 1) = OK
    ask USER = PIN of 4 bytes
    C_Login(session 1, USER, PIN of 4 bytes) = PIN_INCORRECT
    log 5: Token login error: 160
    tell USER INCORRECT
    C_GetTokenInfo(slot 1) = OK
    log 5: Previous failed passphrase attempt for token
    ask USER = PIN of 2 bytes
    C_Login(session 1, USER, PIN of 2 bytes) = PIN_LEN_RANGE
    log 5: Token login error: 162
    tell USER INVALID
    C_GetTokenInfo(slot 1) = OK
    log 5: Previous failed passphrase attempt for token
    ask USER = PIN of 4 bytes
    C_Login(session 1, USER, PIN of 4 bytes) = OK
  )",
                      kKey, kSignature, kLogout, kClose, kCompleted}));
}

TEST_F(SigningTest, AWrongPinTwiceAndThenTheRightOneGivesTwoErrorsAndOneSignature) {
  AddTokenWithPin();
  Open();
  pad.Type(PIN_TYPE_USER, "1111").Type(PIN_TYPE_USER, "2222").Type(PIN_TYPE_USER, "1234");
  EXPECT_TRUE(Sign());
  EXPECT_TRACE(Lines({kFound, kReadId, kTokenInfo, R"(
    log 5: Logging in...
    C_GetTokenInfo(slot 1) = OK
    ask USER = PIN of 4 bytes
    C_Login(session 1, USER, PIN of 4 bytes) = PIN_INCORRECT
    log 5: Token login error: 160
    tell USER INCORRECT
    C_GetTokenInfo(slot 1) = OK
    log 5: Previous failed passphrase attempt for token
    ask USER = PIN of 4 bytes
    C_Login(session 1, USER, PIN of 4 bytes) = PIN_INCORRECT
    log 5: Token login error: 160
    tell USER INCORRECT
    C_GetTokenInfo(slot 1) = OK
    log 5: Final passphrase attempt for token
    ask USER = PIN of 4 bytes
    C_Login(session 1, USER, PIN of 4 bytes) = OK
  )",
                      kKey, kSignature, kLogout, kClose, kCompleted}));
}

// How many attempts there are is the token's business.
TEST_F(SigningTest, HasNoLimitOfItsOwnForThePin) {
  constexpr int kWrong = 25;
  AddTokenWithPin().UserPin("1234", 2 * kWrong);
  Open();
  for (int i = 0; i < kWrong; ++i)
    pad.Type(PIN_TYPE_USER, "9999");
  pad.Type(PIN_TYPE_USER, "1234");
  EXPECT_TRUE(Sign());
  EXPECT_TRACE(Lines({kFound, kReadId, kTokenInfo, R"(
    log 5: Logging in...
    C_GetTokenInfo(slot 1) = OK
  )",
                      Repeated(kWrong, R"(
    ask USER = PIN of 4 bytes
    C_Login(session 1, USER, PIN of 4 bytes) = PIN_INCORRECT
    log 5: Token login error: 160
    tell USER INCORRECT
    C_GetTokenInfo(slot 1) = OK
    log 5: Previous failed passphrase attempt for token
  )"),
                      R"(
    ask USER = PIN of 4 bytes
    C_Login(session 1, USER, PIN of 4 bytes) = OK
  )",
                      kKey, kSignature, kLogout, kClose, kCompleted}));
}

// All searches share one answer; a signature under way no longer looks at it.
TEST_F(SigningTest, ASearchFromThePinCallbackDoesNotChangeWhereItGoesOn) {
  AddTokenWithPin();
  Open();
  pad.Type(PIN_TYPE_USER, "9999").Meanwhile([this] {
    provider.Slot(2).Token("Bob").Certificate("B;serial=02");
    EXPECT_TRUE(module.CertificatePresent("02"));
  });
  pad.Type(PIN_TYPE_USER, "1234");
  EXPECT_TRUE(Sign());
  EXPECT_TRACE(Lines({kFound, kReadId, kTokenInfo, R"(
    log 5: Logging in...
    C_GetTokenInfo(slot 1) = OK
    ask USER = PIN of 4 bytes
    log 5: Finding certificate with serial 02
    C_GetSlotList(TOKEN_PRESENT, NULL) = OK, 2 slots
    C_GetSlotList(TOKEN_PRESENT, room for 2) = OK, slots 1 2
  )",
                      BeginSearch(1, 2, "SERIAL|RW") + Found(2, 1) + Reading(2, 1, "A"), R"(
    cert_free(A)
    log 5: Not the certificate we're looking for (serial 01)
  )",
                      FoundNoMore(2) + EndSearch(2) + BeginSearch(2, 3, "SERIAL|RW") + Found(3, 3) +
                          Reading(3, 3, "B;serial=02"),
                      R"(
    cert_free(B)
    C_FindObjectsFinal(session 3) = OK
    log 5: Certificate found
    C_CloseSession(session 3) = OK
    C_Login(session 1, USER, PIN of 4 bytes) = PIN_INCORRECT
    log 5: Token login error: 160
    tell USER INCORRECT
    C_GetTokenInfo(slot 1) = OK
    log 5: Previous failed passphrase attempt for token
    ask USER = PIN of 4 bytes
    C_Login(session 1, USER, PIN of 4 bytes) = OK
  )",
                      kKey, kSignature, kLogout, kClose, kCompleted}));
}

TEST_F(SigningTest, ACancelledPinAborts) {
  AddTokenWithPin();
  Open();
  pad.Cancel(PIN_TYPE_USER);
  EXPECT_FALSE(Sign());
  EXPECT_TRACE(Lines({kFound, kReadId, kTokenInfo, R"(
    log 5: Logging in...
    C_GetTokenInfo(slot 1) = OK
    ask USER = cancel
  )",
                      kClose, kAborted}));
}

TEST_F(SigningTest, ARefusedUnlockAborts) {
  AddTokenWithPin().UserTriesLeft(0);
  Open();
  pad.Cancel(PIN_TYPE_UNLOCK);
  EXPECT_FALSE(Sign());
  EXPECT_TRACE(Lines({kFound, kReadId, kTokenInfo, R"(
    log 5: Logging in...
    C_GetTokenInfo(slot 1) = OK
    log 5: Passphrase locked
    tell USER LOCKED
    ask UNLOCK = no
  )",
                      kClose, kAborted}));
}

TEST_F(SigningTest, SignsAfterALockedPinWasUnlocked) {
  AddTokenWithPin().SoPin("12345678").UserTriesLeft(1);
  Open();
  pad.Type(PIN_TYPE_USER, "9999");
  pad.Agree()
      .Type(PIN_TYPE_SO, "12345678")
      .Type(PIN_TYPE_NEW_USER, "12")
      .Type(PIN_TYPE_NEW_USER, "4321");
  pad.Type(PIN_TYPE_USER, "4321");
  EXPECT_TRUE(Sign());
  EXPECT_TRACE(Lines({kFound, kReadId, kTokenInfo, R"(
    log 5: Logging in...
    C_GetTokenInfo(slot 1) = OK
    log 5: Final passphrase attempt for token
    ask USER = PIN of 4 bytes
    C_Login(session 1, USER, PIN of 4 bytes) = PIN_INCORRECT
    log 5: Token login error: 160
    tell USER INCORRECT
    C_GetTokenInfo(slot 1) = OK
    log 5: Passphrase locked
    tell USER LOCKED
    ask UNLOCK = yes
    log 5: Attempting to unlock passphrase...
    C_GetTokenInfo(slot 1) = OK
    ask SO = PIN of 8 bytes
    C_Login(session 1, SO, PIN of 8 bytes) = OK
    ask NEW_USER = PIN of 2 bytes
    C_InitPIN(session 1, PIN of 2 bytes) = PIN_LEN_RANGE
    log 5: Passphrase init error: 162
    tell USER INVALID
    ask NEW_USER = PIN of 4 bytes
    C_InitPIN(session 1, PIN of 4 bytes) = OK
    C_Logout(session 1) = OK
    log 5: Previous failed passphrase attempt for token
    ask USER = PIN of 4 bytes
    C_Login(session 1, USER, PIN of 4 bytes) = OK
  )",
                      kKey, kSignature, kLogout, kClose, kCompleted}));
}

TEST_F(SigningTest, APinBeyondTheBufferFails) {
  AddTokenWithPin();
  Open();
  pad.Claim(PIN_TYPE_USER, 129);
  EXPECT_FALSE(Sign());
  EXPECT_TRACE(Lines({kFound, kReadId, kTokenInfo, R"(
    log 5: Logging in...
    C_GetTokenInfo(slot 1) = OK
    ask USER = claim of 129 bytes
  )",
                      kClose, Failed(CKR_ARGUMENTS_BAD)}));
}

TEST_F(SigningTest, AnUnexpectedLoginResultEndsItWithoutLogout) {
  AddTokenWithPin();
  Open();
  provider.On("C_Login").Return(CKR_DEVICE_REMOVED);
  pad.Type(PIN_TYPE_USER, "1234");
  EXPECT_FALSE(Sign());
  EXPECT_TRACE(Lines({kFound, kReadId, kTokenInfo, R"(
    log 5: Logging in...
    C_GetTokenInfo(slot 1) = OK
    ask USER = PIN of 4 bytes
    C_Login(session 1, USER, PIN of 4 bytes) = DEVICE_REMOVED
    log 3: Unexpected token login error: 50
  )",
                      kClose, Failed(50)}));
}

// A login that the host has made itself makes this one fail, and stays.
TEST_F(SigningTest, ATokenThatTheHostIsLoggedInToStaysLoggedIn) {
  AddTokenWithPin();
  Open();
  CK_SESSION_HANDLE session = CK_INVALID_HANDLE;
  ASSERT_EQ(module.function_list->C_OpenSession(1, CKF_SERIAL_SESSION, nullptr, nullptr, &session),
            CKR_OK);
  CK_UTF8CHAR pin[] = {'1', '2', '3', '4'};
  ASSERT_EQ(module.function_list->C_Login(session, CKU_USER, pin, sizeof pin), CKR_OK);
  ClearTrace();
  pad.Type(PIN_TYPE_USER, "1234");
  EXPECT_FALSE(Sign());
  EXPECT_TRACE(Lines({R"(
    log 5: Preparing signature operation...
    log 5: Finding certificate with serial 01
    C_GetSlotList(TOKEN_PRESENT, NULL) = OK, 1 slots
    C_GetSlotList(TOKEN_PRESENT, room for 1) = OK, slots 1
  )",
                      BeginSearch(1, 2, "SERIAL|RW") + Found(2, 1) + Reading(2, 1, "A"), R"(
    cert_free(A)
    C_FindObjectsFinal(session 2) = OK
    log 5: Certificate found
    C_GetAttributeValue(session 2, object 1, CKA_ID[256]) = OK, 1 bytes
    C_GetTokenInfo(slot 1) = OK
    log 5: Logging in...
    C_GetTokenInfo(slot 1) = OK
    ask USER = PIN of 4 bytes
    C_Login(session 2, USER, PIN of 4 bytes) = USER_ALREADY_LOGGED_IN
    log 3: Unexpected token login error: 256
    C_CloseSession(session 2) = OK
    log 3: Signature operation failed (256)
  )"}));
  EXPECT_EQ(provider.Slot(1).Token().login, CKU_USER);
  EXPECT_EQ(module.function_list->C_Logout(session), CKR_OK);
  EXPECT_EQ(module.function_list->C_CloseSession(session), CKR_OK);
}

TEST_F(SigningTest, AnUnknownSerialFailsWithTheWordsOfTheSearch) {
  AddToken();
  Open();
  EXPECT_FALSE(Sign("02"));
  EXPECT_TRACE(R"(
    log 5: Preparing signature operation...
    log 5: Finding certificate with serial 02
    C_GetSlotList(TOKEN_PRESENT, NULL) = OK, 1 slots
    C_GetSlotList(TOKEN_PRESENT, room for 1) = OK, slots 1
    log 5: Getting certificates for slot 1
    C_OpenSession(slot 1, SERIAL|RW) = OK, session 1
    C_FindObjectsInit(session 1, CKA_CLASS=CKO_CERTIFICATE) = OK
    C_FindObjects(session 1, max 1) = OK, object 1
    log 5: Getting certificate with id 1
    C_GetAttributeValue(session 1, object 1, CKA_VALUE NULL) = OK, 1 bytes
    C_GetAttributeValue(session 1, object 1, CKA_VALUE[1]) = OK, 1 bytes
    cert_alloc()
    cert_parse(A) = 0
    cert_free(A)
    log 5: Not the certificate we're looking for (serial 01)
    C_FindObjects(session 1, max 1) = OK, no object
    C_FindObjectsFinal(session 1) = OK
    C_CloseSession(session 1) = OK
    log 5: Failed to find the certificate
  )");
}

TEST_F(SigningTest, AnUnreadableIdFails) {
  AddToken();
  Open();
  provider.On("C_GetAttributeValue", 3).Return(CKR_ATTRIBUTE_TYPE_INVALID);
  EXPECT_FALSE(Sign());
  EXPECT_TRACE(Lines(
      {kFound, "C_GetAttributeValue(session 1, object 1, CKA_ID[256]) = ATTRIBUTE_TYPE_INVALID",
       "log 3: Unable to read certificate ID", kClose, Failed(18)}));
}

TEST_F(SigningTest, AnIdBeyondTheBufferFails) {
  struct Case {
    CK_ULONG length;
    const char* text;
  };
  for (const Case& claim : {Case{257, "257"}, Case{1UL << 31, "2147483648"},
                            Case{CK_UNAVAILABLE_INFORMATION, "unavailable"}}) {
    provider.Reset();
    AddToken();
    Open();
    provider.On("C_GetAttributeValue", 3).ReportNumber(claim.length);
    EXPECT_FALSE(Sign());
    EXPECT_TRACE(
        Lines({kFound,
               "C_GetAttributeValue(session 1, object 1, CKA_ID[256]) = OK, " +
                   std::string(claim.text) + " bytes",
               "log 3: Unable to read certificate ID", kClose, Failed(CKR_GENERAL_ERROR)}));
    module.Close();
  }
}

TEST_F(SigningTest, AnIdThatFillsTheBufferIsUsedWhole) {
  const std::string id(256, '\x5a');
  provider.Slot(1).Token("Alice").Certificate("A", id).PrivateKey(id, Key());
  Open();
  EXPECT_TRUE(Sign());
  EXPECT_TRACE(
      Lines({kFound, "C_GetAttributeValue(session 1, object 1, CKA_ID[256]) = OK, 256 bytes",
             kTokenInfo, "log 5: Finding private key...",
             "C_FindObjectsInit(session 1, CKA_ID=" + Repeated(256, "5a") +
                 ", CKA_CLASS=CKO_PRIVATE_KEY) = OK",
             R"(
    C_FindObjects(session 1, max 1) = OK, object 2
    C_FindObjectsFinal(session 1) = OK
  )",
             kSignature, kClose, kCompleted}));
}

TEST_F(SigningTest, AnEmptyIdIsLookedForLikeAnyOther) {
  provider.Slot(1).Token("Alice").Certificate("A", "").PrivateKey("", Key());
  Open();
  EXPECT_TRUE(Sign());
  EXPECT_TRACE(Lines({kFound, "C_GetAttributeValue(session 1, object 1, CKA_ID[256]) = OK, 0 bytes",
                      kTokenInfo, R"(
    log 5: Finding private key...
    C_FindObjectsInit(session 1, CKA_ID=, CKA_CLASS=CKO_PRIVATE_KEY) = OK
    C_FindObjects(session 1, max 1) = OK, object 2
    C_FindObjectsFinal(session 1) = OK
  )",
                      kSignature, kClose, kCompleted}));
}

TEST_F(SigningTest, AnUnreadableTokenFails) {
  AddToken();
  Open();
  provider.On("C_GetTokenInfo").Return(CKR_DEVICE_ERROR);
  EXPECT_FALSE(Sign());
  EXPECT_TRACE(Lines({kFound, kReadId, "C_GetTokenInfo(slot 1) = DEVICE_ERROR",
                      "log 3: Unable to get info about token", kClose, Failed(48)}));
}

TEST_F(SigningTest, AKeySearchThatCannotBeginFails) {
  AddTokenWithPin();
  Open();
  provider.On("C_FindObjectsInit", 2).Return(CKR_DEVICE_ERROR);
  pad.Type(PIN_TYPE_USER, "1234");
  EXPECT_FALSE(Sign());
  EXPECT_TRACE(Lines({kFound, kReadId, kTokenInfo, kLogin, R"(
    log 5: Finding private key...
    C_FindObjectsInit(session 1, CKA_ID=0a, CKA_CLASS=CKO_PRIVATE_KEY) = DEVICE_ERROR
  )",
                      kLogout, kClose, Failed(48)}));
}

TEST_F(SigningTest, AKeySearchThatBreaksOffFailsWithoutBeingEnded) {
  AddTokenWithPin();
  Open();
  provider.On("C_FindObjects", 2).Return(CKR_DEVICE_ERROR);
  pad.Type(PIN_TYPE_USER, "1234");
  EXPECT_FALSE(Sign());
  EXPECT_TRACE(Lines({kFound, kReadId, kTokenInfo, kLogin, R"(
    log 5: Finding private key...
    C_FindObjectsInit(session 1, CKA_ID=0a, CKA_CLASS=CKO_PRIVATE_KEY) = OK
    C_FindObjects(session 1, max 1) = DEVICE_ERROR
  )",
                      kLogout, kClose, Failed(48)}));
}

// Any number but 0, although the standard allows no more than were asked for (PKCS#11 2.40, section
// 5.7, C_FindObjects).
TEST_F(SigningTest, MoreKeysThanAskedForAreOne) {
  struct Case {
    CK_ULONG count;
    const char* text;
  };
  for (const Case& claim : {Case{2, "2"}, Case{1UL << 32, "4294967296"},
                            Case{CK_UNAVAILABLE_INFORMATION, "unavailable"}}) {
    provider.Reset();
    AddToken();
    Open();
    provider.On("C_FindObjects", 2).ReportNumber(claim.count);
    EXPECT_TRUE(Sign());
    EXPECT_TRACE(Lines({kFound, kReadId, kTokenInfo,
                        R"(
    log 5: Finding private key...
    C_FindObjectsInit(session 1, CKA_ID=0a, CKA_CLASS=CKO_PRIVATE_KEY) = OK
    C_FindObjects(session 1, max 1) = OK, object 2 of )" +
                            std::string(claim.text) + R"(
    C_FindObjectsFinal(session 1) = OK
  )",
                        kSignature, kClose, kCompleted}));
    module.Close();
  }
}

TEST_F(SigningTest, WithoutAKeyOfTheCertificatesIdItFailsWithKeyNeeded) {
  provider.Slot(1)
      .Token("Alice")
      .UserPin("1234")
      .Certificate("A", kKeyId)
      .PrivateKey("other", Key());
  Open();
  pad.Type(PIN_TYPE_USER, "1234");
  EXPECT_FALSE(Sign());
  EXPECT_TRACE(Lines({kFound, kReadId, kTokenInfo, kLogin, R"(
    log 5: Finding private key...
    C_FindObjectsInit(session 1, CKA_ID=0a, CKA_CLASS=CKO_PRIVATE_KEY) = OK
    C_FindObjects(session 1, max 1) = OK, no object
  )",
                      kLogout, kClose, Failed(102)}));
}

TEST_F(SigningTest, AKeyOfAnotherTypeFailsAndNoOtherMechanismIsTried) {
  provider.Slot(1)
      .Token("Alice")
      .UserPin("1234")
      .Certificate("A", kKeyId)
      .PrivateKey(kKeyId, nullptr);
  Open();
  pad.Type(PIN_TYPE_USER, "1234");
  EXPECT_FALSE(Sign());
  EXPECT_TRACE(Lines({kFound, kReadId, kTokenInfo, kLogin, kKey, R"(
    log 5: Signing data...
    C_SignInit(session 1, CKM_RSA_PKCS, object 2) = KEY_TYPE_INCONSISTENT
  )",
                      kLogout, kClose, Failed(99)}));
}

TEST_F(SigningTest, ABufferTooSmallFailsAndKeepsItsLength) {
  AddTokenWithPin();
  Open();
  pad.Type(PIN_TYPE_USER, "1234");
  EXPECT_FALSE(Sign("01", 127));
  EXPECT_TRACE(Lines({kFound, kReadId, kTokenInfo, kLogin, kKey, R"(
    log 5: Signing data...
    C_SignInit(session 1, CKM_RSA_PKCS, object 2) = OK
    C_Sign(session 1, data 64617461, room for 127) = BUFFER_TOO_SMALL
  )",
                      kLogout, kClose, Failed(336)}));
}

TEST_F(SigningTest, ABufferOfExactlyTheSizeSuffices) {
  AddToken();
  Open();
  EXPECT_TRUE(Sign("01", 128));
  EXPECT_TRACE(Lines({kFound, kReadId, kTokenInfo, kKey, R"(
    log 5: Signing data...
    C_SignInit(session 1, CKM_RSA_PKCS, object 2) = OK
    C_Sign(session 1, data 64617461, room for 128) = OK, 128 bytes
  )",
                      kClose, kCompleted}));
}

TEST_F(SigningTest, ASignatureThatClaimsMoreThanTheBufferHoldsFails) {
  AddToken();
  Open();
  provider.On("C_Sign").ReportNumber(257);
  EXPECT_FALSE(Sign());
  EXPECT_TRACE(Lines({kFound, kReadId, kTokenInfo, kKey, R"(
    log 5: Signing data...
    C_SignInit(session 1, CKM_RSA_PKCS, object 2) = OK
    C_Sign(session 1, data 64617461, room for 256) = OK, 257 bytes
  )",
                      kClose, Failed(CKR_GENERAL_ERROR)}));
}

TEST_F(SigningTest, AProviderThatAnswersCancelAbortsLikeAUser) {
  AddTokenWithPin();
  Open();
  provider.On("C_Sign").Return(CKR_CANCEL);
  pad.Type(PIN_TYPE_USER, "1234");
  EXPECT_FALSE(Sign());
  EXPECT_TRACE(Lines({kFound, kReadId, kTokenInfo, kLogin, kKey, R"(
    log 5: Signing data...
    C_SignInit(session 1, CKM_RSA_PKCS, object 2) = OK
    C_Sign(session 1, data 64617461, room for 256) = CANCEL
  )",
                      kLogout, kClose, kAborted}));
}

// From whichever call it comes, and whatever else is said of it.
struct CancelCase {
  const char* name;
  const char* function;
  int nth;
  const char* lines;  // From the token's answer on, up to the logout or the close.
  bool logged_in;
};

class CancelledBy : public SigningTest, public testing::WithParamInterface<CancelCase> {};

constexpr char kCancelledId[] = R"(
    C_GetAttributeValue(session 1, object 1, CKA_ID[256]) = CANCEL
    log 3: Unable to read certificate ID
)";
constexpr char kCancelledTokenInfo[] = R"(
    C_GetAttributeValue(session 1, object 1, CKA_ID[256]) = OK, 1 bytes
    C_GetTokenInfo(slot 1) = CANCEL
    log 3: Unable to get info about token
)";
constexpr char kCancelledTokenInfoOfTheLogin[] = R"(
    C_GetAttributeValue(session 1, object 1, CKA_ID[256]) = OK, 1 bytes
    C_GetTokenInfo(slot 1) = OK
    log 5: Logging in...
    C_GetTokenInfo(slot 1) = CANCEL
    log 3: Unable to get info about token
)";
constexpr char kCancelledLogin[] = R"(
    C_GetAttributeValue(session 1, object 1, CKA_ID[256]) = OK, 1 bytes
    C_GetTokenInfo(slot 1) = OK
    log 5: Logging in...
    C_GetTokenInfo(slot 1) = OK
    ask USER = PIN of 4 bytes
    C_Login(session 1, USER, PIN of 4 bytes) = CANCEL
    log 3: Unexpected token login error: 1
)";
constexpr char kCancelledSearch[] = R"(
    log 5: Finding private key...
    C_FindObjectsInit(session 1, CKA_ID=0a, CKA_CLASS=CKO_PRIVATE_KEY) = CANCEL
)";
constexpr char kCancelledKey[] = R"(
    log 5: Finding private key...
    C_FindObjectsInit(session 1, CKA_ID=0a, CKA_CLASS=CKO_PRIVATE_KEY) = OK
    C_FindObjects(session 1, max 1) = CANCEL
)";
constexpr char kCancelledSignature[] = R"(
    log 5: Finding private key...
    C_FindObjectsInit(session 1, CKA_ID=0a, CKA_CLASS=CKO_PRIVATE_KEY) = OK
    C_FindObjects(session 1, max 1) = OK, object 2
    C_FindObjectsFinal(session 1) = OK
    log 5: Signing data...
    C_SignInit(session 1, CKM_RSA_PKCS, object 2) = CANCEL
)";

TEST_P(CancelledBy, TheProviderIsAborted) {
  const CancelCase& cancel = GetParam();
  AddTokenWithPin();
  Open();
  provider.On(cancel.function, cancel.nth).Return(CKR_CANCEL);
  const bool asks = cancel.logged_in || std::string(cancel.function) == "C_Login";
  if (asks)
    pad.Type(PIN_TYPE_USER, "1234");
  EXPECT_FALSE(Sign());
  EXPECT_TRACE(cancel.logged_in ? Lines({kFound, kReadId, kTokenInfo, kLogin, cancel.lines, kLogout,
                                         kClose, kAborted})
                                : Lines({kFound, cancel.lines, kClose, kAborted}));
}

INSTANTIATE_TEST_SUITE_P(
    Calls, CancelledBy,
    testing::Values(CancelCase{"Id", "C_GetAttributeValue", 3, kCancelledId, false},
                    CancelCase{"TokenInfo", "C_GetTokenInfo", 1, kCancelledTokenInfo, false},
                    CancelCase{"TokenInfoOfTheLogin", "C_GetTokenInfo", 2,
                               kCancelledTokenInfoOfTheLogin, false},
                    CancelCase{"Login", "C_Login", 1, kCancelledLogin, false},
                    CancelCase{"Search", "C_FindObjectsInit", 2, kCancelledSearch, true},
                    CancelCase{"Key", "C_FindObjects", 2, kCancelledKey, true},
                    CancelCase{"Signature", "C_SignInit", 1, kCancelledSignature, true}),
    [](const auto& cancel) { return std::string(cancel.param.name); });

// A token without a login is not logged out of, wherever it fails, and a value of the vendor's is
// signed in the message.
TEST_F(SigningTest, AFailureWithoutALoginNeedsNoLogout) {
  AddToken();
  Open();
  provider.On("C_FindObjects", 2).Return(~CK_RV{0});
  EXPECT_FALSE(Sign());
  EXPECT_TRACE(Lines({kFound, kReadId, kTokenInfo, R"(
    log 5: Finding private key...
    C_FindObjectsInit(session 1, CKA_ID=0a, CKA_CLASS=CKO_PRIVATE_KEY) = OK
  )",
                      "C_FindObjects(session 1, max 1) = " + support::CkrName(~CK_RV{0}), kClose,
                      "log 3: Signature operation failed (-1)"}));
}

TEST_F(SigningTest, TheResultsOfWhatEndsTheSearchesDoNotMatter) {
  AddToken();
  Open();
  provider.On("C_FindObjectsFinal").Return(CKR_DEVICE_ERROR).Always();
  EXPECT_TRUE(Sign());
  EXPECT_TRACE(Lines({R"(
    log 5: Preparing signature operation...
    log 5: Finding certificate with serial 01
    C_GetSlotList(TOKEN_PRESENT, NULL) = OK, 1 slots
    C_GetSlotList(TOKEN_PRESENT, room for 1) = OK, slots 1
  )",
                      BeginSearch(1, 1, "SERIAL|RW") + Found(1, 1) + Reading(1, 1, "A"), R"(
    cert_free(A)
    C_FindObjectsFinal(session 1) = DEVICE_ERROR
    log 5: Certificate found
  )",
                      kReadId, kTokenInfo, R"(
    log 5: Finding private key...
    C_FindObjectsInit(session 1, CKA_ID=0a, CKA_CLASS=CKO_PRIVATE_KEY) = OK
    C_FindObjects(session 1, max 1) = OK, object 2
    C_FindObjectsFinal(session 1) = DEVICE_ERROR
  )",
                      kSignature, kClose, kCompleted}));
}

TEST_F(SigningTest, TheResultsOfLogoutAndCloseDoNotMatter) {
  AddTokenWithPin();
  Open();
  provider.On("C_Logout").Return(CKR_DEVICE_REMOVED);
  provider.On("C_CloseSession").Return(CKR_DEVICE_REMOVED);
  pad.Type(PIN_TYPE_USER, "1234");
  EXPECT_TRUE(Sign());
  EXPECT_TRACE(Lines({kFound, kReadId, kTokenInfo, kLogin, kKey, kSignature, R"(
    C_Logout(session 1) = DEVICE_REMOVED
    C_CloseSession(session 1) = DEVICE_REMOVED
  )",
                      kCompleted}));
}

TEST_F(SigningTest, AnExceptionFromThePinCallbackClosesTheSession) {
  AddTokenWithPin();
  Open();
  pad.Throw(PIN_TYPE_USER);
  EXPECT_THROW(Sign(), PinPad::Thrown);
  EXPECT_TRACE(Lines({kFound, kReadId, kTokenInfo, R"(
    log 5: Logging in...
    C_GetTokenInfo(slot 1) = OK
    ask USER = exception
  )",
                      kClose}));
}

TEST_F(SigningTest, AnExceptionAfterTheLoginLogsOutAndClosesTheSession) {
  AddTokenWithPin();
  Open();
  host.ThrowAtMessage("Signing data");
  pad.Type(PIN_TYPE_USER, "1234");
  EXPECT_THROW(Sign(), Thrown);
  EXPECT_TRACE(Lines(
      {kFound, kReadId, kTokenInfo, kLogin, kKey, "log 5: Signing data...", kLogout, kClose}));
}

// Every message on the way, of a login that needs two attempts, and of what can fail: whatever was
// begun is ended.
struct MessageCase {
  const char* message;
  const char* failing_function = nullptr;
  int nth = 1;
  CK_RV rv = CKR_DEVICE_ERROR;
};

class ThrownAt : public SigningTest, public testing::WithParamInterface<MessageCase> {};

TEST_P(ThrownAt, AMessageNothingIsLeftOpen) {
  AddTokenWithPin();
  Open();
  host.ThrowAtMessage(GetParam().message);
  if (GetParam().failing_function != nullptr)
    provider.On(GetParam().failing_function, GetParam().nth).Return(GetParam().rv);
  if (std::string(GetParam().message) == "Passphrase locked")
    provider.Slot(1).Token().ReportedPinFlags(CKF_USER_PIN_LOCKED);
  const pin_cb ask = [](pkcs11_pin_type type, unsigned char* buffer, unsigned long* length,
                        void* data) {
    if (type == PIN_TYPE_UNLOCK)
      return false;
    const std::string pin = *static_cast<int*>(data) == 0 ? "9999" : "1234";
    ++*static_cast<int*>(data);
    pin.copy(reinterpret_cast<char*>(buffer), pin.size());
    *length = pin.size();
    return true;
  };
  int num_asked = 0;
  unsigned char signature[256] = {};
  unsigned long length = sizeof signature;
  EXPECT_THROW(module.Sign("01", signature, 4, signature, &length, ask, nullptr, &num_asked),
               Thrown);
  EXPECT_TRUE(provider.sessions().empty());
  EXPECT_FALSE(provider.Slot(1).Token().login.has_value());
  EXPECT_EQ(host.certificates_alive(), 0u);
  EXPECT_THAT(provider.ViolationsSoFar(), testing::IsEmpty());
  provider.Slot(1).Token().reported_pin_flags.reset();
  EXPECT_TRUE(module.Sign("01", signature, 4, signature, &length, ask, nullptr, &num_asked));
}

INSTANTIATE_TEST_SUITE_P(
    Messages, ThrownAt,
    testing::Values(MessageCase{"Preparing signature operation"}, MessageCase{"Certificate found"},
                    MessageCase{"Logging in"}, MessageCase{"Token login error"},
                    MessageCase{"Previous failed"}, MessageCase{"Finding private key"},
                    MessageCase{"Signing data"}, MessageCase{"Signature operation completed"},
                    MessageCase{"Unable to read certificate ID", "C_GetAttributeValue", 3},
                    MessageCase{"Unable to get info about token", "C_GetTokenInfo", 1},
                    // Of the login.
                    MessageCase{"Unable to get info about token", "C_GetTokenInfo", 2},
                    MessageCase{"Passphrase locked"},
                    MessageCase{"Unexpected token login error", "C_Login"},
                    MessageCase{"Signature operation aborted", "C_Sign", 1, CKR_CANCEL},
                    MessageCase{"Signature operation failed", "C_Sign"}));

TEST_F(SigningTest, ACardPulledOutBetweenTwoCallsIsAFailureAndNoMore) {
  // The healthy run tells how many calls there are.
  AddTokenWithPin();
  Open();
  const int before = provider.num_calls();
  pad.Type(PIN_TYPE_USER, "1234");
  ASSERT_TRUE(Sign());
  const int num_calls = provider.num_calls() - before;
  module.Close();

  // Pulled out before the C_Logout at the end, the card has signed already.
  constexpr int kEndingCalls = 2;
  for (int nth = 1; nth <= num_calls - kEndingCalls; ++nth) {
    SCOPED_TRACE(nth);
    provider.Reset();
    AddTokenWithPin();
    Open();
    provider.OnAnyCall(nth).Before([this] { provider.Slot(1).Remove(); });
    unsigned char signature[256] = {};
    unsigned long length = sizeof signature;
    const auto ask = [](pkcs11_pin_type, unsigned char* buffer, unsigned long* pin_len, void*) {
      buffer[0] = '1', buffer[1] = '2', buffer[2] = '3', buffer[3] = '4';
      *pin_len = 4;
      return true;
    };
    EXPECT_FALSE(module.Sign("01", signature, 4, signature, &length, ask, nullptr, nullptr));
    EXPECT_EQ(length, sizeof signature);
    module.Close();
    EXPECT_THAT(provider.Violations(), testing::IsEmpty());
  }
}

}  // namespace
