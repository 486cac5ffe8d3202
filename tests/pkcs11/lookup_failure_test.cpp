// FindCertificate and CertificatePresent: slots, searches and certificates that fail are skipped.
#include <new>

#include "pkcs11/lookup_test.h"

namespace {

class LookupFailureTest : public LookupTest {
 protected:
  // Searches without a match, and compares the trace.
  void ExpectNotFound(const std::string& serial, const std::string& expected) {
    EXPECT_EQ(module.FindCertificate(serial), nullptr);
    EXPECT_TRACE(BeginsLookup(serial), expected, kNotFound);
    EXPECT_TRUE(provider.sessions().empty());
  }
};

TEST_F(LookupFailureTest, FindsNothingWhenSlotsCannotBeCounted) {
  Open();
  provider.On("C_GetSlotList").Return(CKR_DEVICE_ERROR);
  ExpectNotFound("01", "C_GetSlotList(TOKEN_PRESENT, NULL) = DEVICE_ERROR");
}

TEST_F(LookupFailureTest, FindsNothingWhenSlotCountIsNotWritten) {
  OpenWithTokens({{"A"}});
  provider.On("C_GetSlotList").DoNothing().Always();
  ExpectNotFound("01", ListsSlots({}));
}

TEST_F(LookupFailureTest, FindsNothingWhenSlotsCannotBeListed) {
  OpenWithTokens({{"A"}});
  provider.On("C_GetSlotList", 2).Return(CKR_BUFFER_TOO_SMALL);
  ExpectNotFound("01",
                 CountsSlots("1") + "C_GetSlotList(TOKEN_PRESENT, room for 1) = BUFFER_TOO_SMALL");
}

TEST_F(LookupFailureTest, DoesNotSearchBeyondSlotArray) {
  OpenWithTokens({{}});
  provider.On("C_GetSlotList", 2).ReportNumber(1UL << 32);
  ExpectNotFound("01", ListsSlots({1}) + SearchesSlot(1, 1) + EndsSlot(1));
}

TEST_F(LookupFailureTest, SearchesOnlyListedSlots) {
  OpenWithTokens({{}, {}});
  provider.On("C_GetSlotList").After([this] { provider.Slot(1).Remove(); });
  ExpectNotFound("01",
                 CountsSlots("2") + FillsSlotArray(2, {2}) + SearchesSlot(2, 1) + EndsSlot(1));
}

TEST_F(LookupFailureTest, ThrowsBadAllocForImpossibleSlotCount) {
  if (kImpossibleAllocationsAbort)
    GTEST_SKIP() << "clang's AddressSanitizer ends the program at an impossible allocation";
  Open();
  provider.On("C_GetSlotList").ReportNumber(CK_UNAVAILABLE_INFORMATION);
  EXPECT_THROW(module.FindCertificate("01"), std::bad_alloc);
  EXPECT_TRACE(BeginsLookup("01"), CountsSlots("unavailable"));
}

TEST_F(LookupFailureTest, SkipsSlotWithoutSession) {
  OpenWithTokens({{"A"}, {"A"}});
  provider.On("C_OpenSession").Return(CKR_TOKEN_WRITE_PROTECTED);
  EXPECT_TRUE(module.CertificatePresent("01"));
  EXPECT_TRACE(BeginsLookup("01", {1, 2}), R"(
    log 5: Getting certificates for slot 1
    C_OpenSession(slot 1, SERIAL|RW) = TOKEN_WRITE_PROTECTED
    log 3: Unable to open card session
  )",
               SearchesSlot(2, 1), FindsMatch(1, 2, "A"), ClosesSession(1));
}

TEST_F(LookupFailureTest, SkipsAndClosesSlotWhenSearchFailsToBegin) {
  OpenWithTokens({{"A"}, {"A"}});
  provider.On("C_FindObjectsInit").Return(CKR_DEVICE_ERROR);
  EXPECT_TRUE(module.CertificatePresent("01"));
  EXPECT_TRACE(BeginsLookup("01", {1, 2}), "log 5: Getting certificates for slot 1",
               OpensSession(1, 1, "SERIAL|RW"),
               "C_FindObjectsInit(session 1, CKA_CLASS=CKO_CERTIFICATE) = DEVICE_ERROR",
               ClosesSession(1), SearchesSlot(2, 2), FindsMatch(2, 2, "A"), ClosesSession(2));
}

// Unlike in GetTokenCertificates.
TEST_F(LookupFailureTest, FinishesSearchThatFails) {
  OpenWithTokens({{"A", "B;serial=02"}});
  provider.On("C_FindObjects", 2).Return(CKR_DEVICE_ERROR);
  ExpectNotFound("02", ListsSlots({1}) + SearchesSlot(1, 1) + PassesOver(1, 1, "A", "01") +
                           "C_FindObjects(session 1, max 1) = DEVICE_ERROR\n" + EndsSearch(1));
}

TEST_F(LookupFailureTest, SkipsUnreadableCertificate) {
  OpenWithTokens({{"A", "B"}});
  provider.On("C_GetAttributeValue").Return(CKR_DEVICE_ERROR);
  EXPECT_TRUE(module.CertificatePresent("01"));
  EXPECT_TRACE(BeginsLookup("01", {1}), SearchesSlot(1, 1), FindsObject(1, 1), R"(
    log 5: Getting certificate with id 1
    C_GetAttributeValue(session 1, object 1, CKA_VALUE NULL) = DEVICE_ERROR
    log 3: Unable to read certificate
  )",
               FindsMatch(1, 2, "B"), ClosesSession(1));
}

TEST_F(LookupFailureTest, SkipsUnreadableSerialWithoutMessage) {
  const std::vector<std::string> texts = {"A;fail.serial=1", "B;fail.serial=-1",
                                          "C;claim.serial=16835", "D"};
  OpenWithTokens({texts});
  EXPECT_TRUE(module.CertificatePresent("01"));
  EXPECT_TRACE(BeginsLookup("01", {1}), SearchesSlot(1, 1), ExaminesCertificate(1, 1, texts[0]),
               ExaminesCertificate(1, 2, texts[1]), ExaminesCertificate(1, 3, texts[2]),
               FindsMatch(1, 4, "D"), ClosesSession(1));
}

// Any number but 0 is taken for one object, although the standard does not allow more than were
// asked for (PKCS#11 2.40, section 5.7, C_FindObjects).
TEST_F(LookupFailureTest, UsesFirstObjectWhenProviderReportsMore) {
  const std::pair<CK_ULONG, std::string> kCounts[] = {
      {2, "2"}, {1UL << 32, "4294967296"}, {CK_UNAVAILABLE_INFORMATION, "unavailable"}};
  for (const auto& [count, text] : kCounts) {
    OpenWithTokens({{"A"}});
    provider.On("C_FindObjects").ReportNumber(count);
    const pkcs11_certificate_location* const location = module.FindCertificate("01");
    EXPECT_TRACE(BeginsLookup("01", {1}), SearchesSlot(1, 1),
                 "C_FindObjects(session 1, max 1) = OK, object 1 of " + text,
                 ReadsCertificate(1, 1, "A"), FreesCertificates({"A"}), FinishesSearch(1),
                 "log 5: Certificate found");
    CloseSessionOf(location);
    StartOver();
  }
}

// No object has the handle 0 (CK_INVALID_HANDLE), even if its certificate matches.
TEST_F(LookupFailureTest, IgnoresMatchWithInvalidHandle) {
  OpenWithTokens({{"A"}});
  provider.Slot(1).Token().objects.back().handle = CK_INVALID_HANDLE;
  ExpectNotFound(
      "01", ListsSlots({1}) + SearchesSlot(1, 1) + ExaminesCertificate(1, 0, "A") + EndsSearch(1));
}

TEST_F(LookupFailureTest, IgnoresFailureToEndSearchAndSession) {
  OpenWithTokens({{"A"}});
  provider.On("C_FindObjectsFinal").Return(CKR_DEVICE_ERROR);
  provider.On("C_CloseSession").Return(CKR_DEVICE_ERROR);
  EXPECT_TRUE(module.CertificatePresent("01"));
  EXPECT_TRACE(BeginsLookup("01", {1}), SearchesSlot(1, 1), ExaminesCertificate(1, 1, "A"), R"(
    C_FindObjectsFinal(session 1) = DEVICE_ERROR
    log 5: Certificate found
    C_CloseSession(session 1) = DEVICE_ERROR
  )");
}

}  // namespace
