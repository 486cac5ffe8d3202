// Tokens of the scripted provider behave as PKCS#11 requires: objects, PINs, signatures.
#include "scripted_provider/self_test/provider_fixture.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr CK_FLAGS kUserPinFlags =
    CKF_USER_PIN_COUNT_LOW | CKF_USER_PIN_FINAL_TRY | CKF_USER_PIN_LOCKED;
constexpr CK_FLAGS kSoPinFlags = kUserPinFlags << 4;

class Tokens : public ScriptedProviderTest {};

TEST_F(Tokens, ReadAttributesInTwoSteps) {
  provider.Slot(1).Token("Alice").Certificate("value");
  const CK_SESSION_HANDLE session = OpenSession(1);
  char buffer[8] = {};
  CK_ATTRIBUTE attribute = {CKA_VALUE, nullptr, 0};
  EXPECT_EQ(p11->C_GetAttributeValue(session, 1, &attribute, 1), CKR_OK);
  EXPECT_EQ(attribute.ulValueLen, 5u);
  attribute = {CKA_VALUE, buffer, 4};
  EXPECT_EQ(p11->C_GetAttributeValue(session, 1, &attribute, 1), CKR_BUFFER_TOO_SMALL);
  EXPECT_EQ(attribute.ulValueLen, CK_UNAVAILABLE_INFORMATION);
  attribute = {CKA_VALUE, buffer, sizeof buffer};
  EXPECT_EQ(p11->C_GetAttributeValue(session, 1, &attribute, 1), CKR_OK);
  EXPECT_EQ(std::string(buffer, attribute.ulValueLen), "value");
  attribute = {CKA_MODULUS, buffer, sizeof buffer};
  EXPECT_EQ(p11->C_GetAttributeValue(session, 1, &attribute, 1), CKR_ATTRIBUTE_TYPE_INVALID);
  EXPECT_EQ(p11->C_GetAttributeValue(session, 2, &attribute, 1), CKR_OBJECT_HANDLE_INVALID);
}

TEST_F(Tokens, RejectMissingSlotOrToken) {
  provider.Slot(1);
  CK_SLOT_INFO slot_info = {};
  CK_TOKEN_INFO token_info = {};
  CK_SESSION_HANDLE session = 0;
  EXPECT_EQ(p11->C_GetSlotInfo(2, &slot_info), CKR_SLOT_ID_INVALID);
  EXPECT_EQ(p11->C_GetTokenInfo(2, &token_info), CKR_SLOT_ID_INVALID);
  EXPECT_EQ(p11->C_GetTokenInfo(1, &token_info), CKR_TOKEN_NOT_PRESENT);
  EXPECT_EQ(p11->C_OpenSession(1, CKF_SERIAL_SESSION, nullptr, nullptr, &session),
            CKR_TOKEN_NOT_PRESENT);
}

TEST_F(Tokens, LockAfterTooManyWrongPins) {
  provider.Slot(1).Token("Alice").UserPin("1234", 3);
  const CK_SESSION_HANDLE session = OpenSession(1);
  EXPECT_EQ(TokenFlags(1) & kUserPinFlags, 0u);
  EXPECT_EQ(Login(session, CKU_USER, "9999"), CKR_PIN_INCORRECT);
  EXPECT_EQ(TokenFlags(1) & kUserPinFlags, CKF_USER_PIN_COUNT_LOW);
  EXPECT_EQ(Login(session, CKU_USER, "9999"), CKR_PIN_INCORRECT);
  EXPECT_EQ(TokenFlags(1) & kUserPinFlags, CKF_USER_PIN_COUNT_LOW | CKF_USER_PIN_FINAL_TRY);
  EXPECT_EQ(Login(session, CKU_USER, "9999"), CKR_PIN_INCORRECT);
  EXPECT_EQ(TokenFlags(1) & kUserPinFlags, CKF_USER_PIN_COUNT_LOW | CKF_USER_PIN_LOCKED);
  EXPECT_EQ(Login(session, CKU_USER, "1234"), CKR_PIN_LOCKED);
}

TEST_F(Tokens, RightPinResetsCounter) {
  provider.Slot(1).Token("Alice").UserPin("1234").UserTriesLeft(1);
  const CK_SESSION_HANDLE session = OpenSession(1);
  EXPECT_EQ(Login(session, CKU_USER, "1234"), CKR_OK);
  EXPECT_EQ(TokenFlags(1) & kUserPinFlags, 0u);
}

TEST_F(Tokens, CanReturnPinLockedOnLastTry) {
  provider.Slot(1).Token("Alice").SoPin("12345678").SoTriesLeft(1).ReturnsPinLockedOnLastTry();
  const CK_SESSION_HANDLE session = OpenSession(1);
  EXPECT_EQ(TokenFlags(1) & kSoPinFlags, CKF_SO_PIN_COUNT_LOW | CKF_SO_PIN_FINAL_TRY);
  EXPECT_EQ(Login(session, CKU_SO, "00000000"), CKR_PIN_LOCKED);
  EXPECT_EQ(TokenFlags(1) & kSoPinFlags, CKF_SO_PIN_COUNT_LOW | CKF_SO_PIN_LOCKED);
}

TEST_F(Tokens, PinOfWrongLengthUsesNoTry) {
  provider.Slot(1).Token("Alice").UserPin("1234").PinLengths(4, 8);
  const CK_SESSION_HANDLE session = OpenSession(1);
  EXPECT_EQ(Login(session, CKU_USER, "123"), CKR_PIN_LEN_RANGE);
  EXPECT_EQ(Login(session, CKU_USER, "123456789"), CKR_PIN_LEN_RANGE);
  EXPECT_EQ(TokenFlags(1) & kUserPinFlags, 0u);
}

TEST_F(Tokens, CanReportWrongPinFlags) {
  provider.Slot(1).Token("Alice").UserPin("1234").ReportedPinFlags(CKF_USER_PIN_LOCKED);
  EXPECT_EQ(TokenFlags(1) & kUserPinFlags, CKF_USER_PIN_LOCKED);
  EXPECT_EQ(Login(OpenSession(1), CKU_USER, "1234"), CKR_OK);
}

TEST_F(Tokens, ShareOneLoginAmongSessions) {
  provider.Slot(1).Token("Alice").UserPin("1234").SoPin("12345678");
  const CK_SESSION_HANDLE session = OpenSession(1);
  EXPECT_EQ(Login(session, 2, "1234"), CKR_USER_TYPE_INVALID);
  EXPECT_EQ(Login(session, CKU_USER, "1234"), CKR_OK);
  EXPECT_EQ(Login(OpenSession(1), CKU_USER, "1234"), CKR_USER_ALREADY_LOGGED_IN);
  EXPECT_EQ(Login(session, CKU_SO, "12345678"), CKR_USER_ANOTHER_ALREADY_LOGGED_IN);
}

TEST_F(Tokens, RejectSoLoginWithReadOnlySession) {
  provider.Slot(1).Token("Alice").SoPin("12345678");
  const CK_SESSION_HANDLE session = OpenSession(1);
  const CK_SESSION_HANDLE read_only = OpenSession(1, 0);
  EXPECT_EQ(Login(session, CKU_SO, "12345678"), CKR_SESSION_READ_ONLY_EXISTS);
  EXPECT_EQ(p11->C_CloseSession(read_only), CKR_OK);
  EXPECT_EQ(Login(session, CKU_SO, "12345678"), CKR_OK);
  CK_SESSION_HANDLE another = 0;
  EXPECT_EQ(p11->C_OpenSession(1, CKF_SERIAL_SESSION, nullptr, nullptr, &another),
            CKR_SESSION_READ_WRITE_SO_EXISTS);
}

TEST_F(Tokens, OnlySecurityOfficerSetsPin) {
  provider.Slot(1).Token("Alice").UserPin("1234").UserTriesLeft(0).SoPin("12345678");
  const CK_SESSION_HANDLE session = OpenSession(1);
  EXPECT_EQ(InitPin(session, "4321"), CKR_USER_NOT_LOGGED_IN);
  EXPECT_EQ(Login(session, CKU_SO, "12345678"), CKR_OK);
  EXPECT_EQ(InitPin(session, "432"), CKR_PIN_LEN_RANGE);
  EXPECT_EQ(InitPin(session, "4321"), CKR_OK);
  EXPECT_EQ(p11->C_Logout(session), CKR_OK);
  EXPECT_EQ(Login(session, CKU_USER, "1234"), CKR_PIN_INCORRECT);
  EXPECT_EQ(Login(session, CKU_USER, "4321"), CKR_OK);
}

TEST_F(Tokens, ShowPrivateKeysToUserOnly) {
  const auto key = support::RsaKey::Generate(1024);
  provider.Slot(1).Token("Alice").UserPin("1234").SoPin("12345678").PrivateKey("\x01", key);
  const CK_SESSION_HANDLE session = OpenSession(1);
  EXPECT_THAT(Search(session, CKO_PRIVATE_KEY), IsEmpty());
  EXPECT_EQ(Login(session, CKU_SO, "12345678"), CKR_OK);
  EXPECT_THAT(Search(session, CKO_PRIVATE_KEY), IsEmpty());
  EXPECT_EQ(p11->C_Logout(session), CKR_OK);
  EXPECT_EQ(Login(session, CKU_USER, "1234"), CKR_OK);
  EXPECT_THAT(Search(session, CKO_PRIVATE_KEY), ElementsAre(1));
}

class Signatures : public ScriptedProviderTest {
 protected:
  void SetUp() override {
    ScriptedProviderTest::SetUp();
    provider.Slot(1).Token("Alice").PrivateKey("\x01", key_).PrivateKey("\x02", nullptr);
    session_ = OpenSession(1);
  }
  CK_RV SignInit(CK_MECHANISM_TYPE type, CK_OBJECT_HANDLE key) {
    CK_MECHANISM mechanism = {type, nullptr, 0};
    return p11->C_SignInit(session_, &mechanism, key);
  }
  CK_RV Sign(std::string data, CK_ULONG* length) {
    return p11->C_Sign(session_, reinterpret_cast<CK_BYTE*>(&data[0]), data.size(), signature_,
                       length);
  }

  std::shared_ptr<const support::RsaKey> key_ = support::RsaKey::Generate(1024);
  CK_SESSION_HANDLE session_ = 0;
  CK_BYTE signature_[256] = {};
};

TEST_F(Signatures, SucceedAfterBufferTooSmall) {
  CK_ULONG length = 127;
  EXPECT_EQ(Sign("data", &length), CKR_OPERATION_NOT_INITIALIZED);
  EXPECT_EQ(SignInit(CKM_RSA_PKCS, 1), CKR_OK);
  EXPECT_EQ(Sign("data", &length), CKR_BUFFER_TOO_SMALL);
  EXPECT_EQ(length, 128u);
  EXPECT_EQ(Sign("data", &length), CKR_OK);
  EXPECT_TRUE(key_->Verifies("data", std::string(signature_, signature_ + length)));
  EXPECT_FALSE(key_->Verifies("date", std::string(signature_, signature_ + length)));
  EXPECT_EQ(Sign("data", &length), CKR_OPERATION_NOT_INITIALIZED);
}

TEST_F(Signatures, RejectUnsupportedInput) {
  EXPECT_EQ(SignInit(CKM_SHA256_RSA_PKCS, 1), CKR_MECHANISM_INVALID);
  EXPECT_EQ(SignInit(CKM_RSA_PKCS, 2), CKR_KEY_TYPE_INCONSISTENT);
  EXPECT_EQ(SignInit(CKM_RSA_PKCS, 3), CKR_KEY_HANDLE_INVALID);
  EXPECT_EQ(SignInit(CKM_RSA_PKCS, 1), CKR_OK);
  CK_ULONG length = sizeof signature_;
  EXPECT_EQ(Sign(std::string(118, 'x'), &length), CKR_DATA_LEN_RANGE);
}

TEST_F(Signatures, KeyRoundTripsThroughPem) {
  const auto again = support::RsaKey::FromPem(key_->pem());
  ASSERT_NE(again, nullptr);
  EXPECT_EQ(again->modulus(), key_->modulus());
  EXPECT_EQ(again->public_exponent(), std::string("\x01\x00\x01", 3));
  EXPECT_EQ(support::RsaKey::FromPem("no key"), nullptr);
}

}  // namespace
