// Sign: finding the certificate and its key, and making the signature.
#include "pkcs11/signing_test.h"

namespace {

TEST_F(SigningTest, SkipsLoginWhenTokenRequiresNone) {
  OpenWithToken();
  EXPECT_TRUE(Sign());
  EXPECT_TRACE(Prepares(), FindsKey(), Signs(), Completes());
}

TEST_F(SigningTest, NeedsNoPinCallbackWhenTokenRequiresNoLogin) {
  OpenWithToken();
  EXPECT_TRUE(SignWith(nullptr, nullptr, &pad));
  EXPECT_TRACE(Prepares(), FindsKey(), Signs(), Completes());
}

TEST_F(SigningTest, LogsInForOneSignatureOnly) {
  OpenWithPin();
  pad.Type(PIN_TYPE_USER, "1234");
  EXPECT_TRUE(Sign());
  EXPECT_TRACE(Prepares(), LogsIn(), FindsKey(), Signs(), LogsOut(), Completes());
}

TEST_F(SigningTest, SearchesForKeyWithIdThatFillsBuffer) {
  const std::string id(256, '\x5a');
  Open();
  provider.Slot(1).Token("Alice").Certificate("A", id).PrivateKey(id, Key());
  EXPECT_TRUE(Sign());
  EXPECT_TRACE(FindsCertificate(),
               "C_GetAttributeValue(session 1, object 1, CKA_ID[256]) = OK, 256 bytes",
               kReadsTokenInfo, "log 5: Finding private key...",
               "C_FindObjectsInit(session 1, CKA_ID=" + Repeated(256, "5a") +
                   ", CKA_CLASS=CKO_PRIVATE_KEY) = OK",
               FindsObject(1, 2), FinishesSearch(1), Signs(), Completes());
}

TEST_F(SigningTest, SearchesForKeyWithEmptyId) {
  Open();
  provider.Slot(1).Token("Alice").Certificate("A", "").PrivateKey("", Key());
  EXPECT_TRUE(Sign());
  EXPECT_TRACE(FindsCertificate(),
               "C_GetAttributeValue(session 1, object 1, CKA_ID[256]) = OK, 0 bytes",
               kReadsTokenInfo, "log 5: Finding private key...",
               "C_FindObjectsInit(session 1, CKA_ID=, CKA_CLASS=CKO_PRIVATE_KEY) = OK",
               FindsObject(1, 2), FinishesSearch(1), Signs(), Completes());
}

TEST_F(SigningTest, AcceptsBufferOfExactlyTheSignatureSize) {
  OpenWithToken();
  EXPECT_TRUE(Sign("01", 128));
  EXPECT_TRACE(Prepares(), FindsKey(), Signs(128), Completes());
}

// Any number but 0 is taken for one key, although the standard does not allow more than were asked
// for (PKCS#11 2.40, section 5.7, C_FindObjects).
TEST_F(SigningTest, UsesFirstKeyWhenProviderReportsMore) {
  const std::pair<CK_ULONG, std::string> kCounts[] = {
      {2, "2"}, {1UL << 32, "4294967296"}, {CK_UNAVAILABLE_INFORMATION, "unavailable"}};
  for (const auto& [count, text] : kCounts) {
    OpenWithToken();
    provider.On("C_FindObjects", 2).ReportNumber(count);
    EXPECT_TRUE(Sign());
    EXPECT_TRACE(Prepares(),
                 BeginsKeySearch("C_FindObjects(session 1, max 1) = OK, object 2 of " + text),
                 FinishesSearch(1), Signs(), Completes());
    StartOver();
  }
}

TEST_F(SigningTest, IgnoresFailureToFinishSearches) {
  OpenWithToken();
  provider.On("C_FindObjectsFinal").Return(CKR_DEVICE_ERROR).Always();
  EXPECT_TRUE(Sign());
  const std::string fails_to_finish = "C_FindObjectsFinal(session 1) = DEVICE_ERROR\n";
  EXPECT_TRACE("log 5: Preparing signature operation...",
               "log 5: Finding certificate with serial 01", ListsSlots({1}),
               BeginsSearch(1, 1, "SERIAL|RW"), ExaminesCertificate(1, 1, "A"), fails_to_finish,
               "log 5: Certificate found", ReadsId(), kReadsTokenInfo,
               BeginsKeySearch(FindsObject(1, 2)), fails_to_finish, Signs(), Completes());
}

TEST_F(SigningTest, IgnoresFailureToLogOutAndCloseSession) {
  OpenWithPin();
  provider.On("C_Logout").Return(CKR_DEVICE_REMOVED);
  provider.On("C_CloseSession").Return(CKR_DEVICE_REMOVED);
  pad.Type(PIN_TYPE_USER, "1234");
  EXPECT_TRUE(Sign());
  EXPECT_TRACE(Prepares(), LogsIn(), FindsKey(), Signs(), R"(
    C_Logout(session 1) = DEVICE_REMOVED
    C_CloseSession(session 1) = DEVICE_REMOVED
    log 5: Signature operation completed
  )");
}

}  // namespace
