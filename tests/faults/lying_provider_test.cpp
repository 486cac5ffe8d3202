// A provider that says what is not so. Where the standard (PKCS#11 2.40) settles what it may say,
// the test cites it; the rest is a choice of ours, explained in docs/threat-model.md.
#include <climits>

#include "faults/operations.h"
#include "pkcs11/expected.h"

namespace faults {
namespace {

class LyingProvider : public FaultsTest {
 protected:
  std::string List() { return NamesOf(module.GetCertificates()); }
  std::string Sign() {
    User user;
    return OperationNamed("Sign without a login").act(module, user);
  }
};

constexpr CK_ULONG kLies[] = {0, 1, CK_ULONG{1} << 31, CK_ULONG{1} << 32,
                              CK_UNAVAILABLE_INFORMATION};

const std::string kNoneOfAlice = "No certificate associated with token \"Alice\"\n";

// C_GetAttributeValue: a length that cannot be had is CK_UNAVAILABLE_INFORMATION together with an
// error, never with CKR_OK (section 5.7).
TEST_F(LyingProvider, AboutTheLengthOfACertificate) {
  for (const CK_ULONG length : kLies) {
    SCOPED_TRACE(length);
    Begin();
    provider.Slot(1).Token().objects.front().attributes[CKA_VALUE] = "Longer";
    provider.On("C_GetAttributeValue").ReportNumber(length);
    EXPECT_EQ(List(), "B");
    // One byte is not enough for what is then read; more than an int is not even allocated.
    EXPECT_EQ(FailureLines(),
              std::string(length <= INT_MAX ? "Unable to read certificate\n"
                                            : "Unable to allocate certificate storage\n") +
                  kNoneOfAlice);
    EXPECT_EQ(provider.num_calls("C_GetAttributeValue"), length <= INT_MAX ? 4 : 3);
    ExpectBalance();
  }
}

// The length on the way back is that of what was written into the buffer that was offered (section
// 5.7): never more.
TEST_F(LyingProvider, AboutTheLengthOfACertificateThatItHasWritten) {
  for (const CK_ULONG length : kLies) {
    SCOPED_TRACE(length);
    Begin();
    provider.On("C_GetAttributeValue", 2).ReportNumber(length);
    EXPECT_EQ(List(), length == 1 ? "A B" : "B");  // One byte is the whole certificate "A".
    const std::string reason =
        length == 0 ? "Error parsing certificate\n" : "Unable to read certificate\n";
    EXPECT_EQ(FailureLines(), length == 1 ? "" : reason + kNoneOfAlice);
    ExpectBalance();
    ExpectStillWorks();
  }
}

TEST_F(LyingProvider, AboutTheLengthOfACertificateThatGrowsOrShrinksMeanwhile) {
  for (const std::string& value : {std::string("Longer;serial=0303"), std::string("S")}) {
    SCOPED_TRACE(value);
    Begin();
    provider.Slot(1).Token().objects.front().attributes[CKA_VALUE] = "Middle";
    provider.On("C_GetAttributeValue").After([&] {
      provider.Slot(1).Token().objects.front().attributes[CKA_VALUE] = value;
    });
    EXPECT_EQ(List(), value == "S" ? "S B" : "B");
    ExpectBalance();
  }
}

TEST_F(LyingProvider, AboutTheLengthOfAKeyId) {
  for (const CK_ULONG length : kLies) {
    SCOPED_TRACE(length);
    Begin();
    provider.On("C_GetAttributeValue", 5).ReportNumber(length);
    // One byte is the truth. No key has an ID of no bytes.
    EXPECT_EQ(Sign(), length == 1 ? "signed" : "not signed");
    EXPECT_EQ(FailureLines(),
              length == 1   ? ""
              : length == 0 ? "Signature operation failed (102)\n"
                            : "Unable to read certificate ID\nSignature operation failed (5)\n");
    ExpectBalance();
    ExpectStillWorks();
  }
}

// C_Sign: *pulSignatureLen is the number of bytes that were written (section 5.2).
TEST_F(LyingProvider, AboutTheLengthOfASignature) {
  for (const CK_ULONG length : kLies) {
    SCOPED_TRACE(length);
    Begin();
    provider.On("C_Sign").ReportNumber(length);
    const bool plausible = length <= 200;
    EXPECT_EQ(Sign(), plausible ? "rubbish" : "not signed");
    EXPECT_EQ(FailureLines(), plausible ? "" : "Signature operation failed (5)\n");
    ExpectBalance();
    ExpectStillWorks();
  }
}

TEST_F(LyingProvider, ASignatureMayFillTheBufferButNotMore) {
  Begin();
  const unsigned char data[] = {'d'};
  for (const CK_ULONG told : {128UL, 129UL}) {
    std::vector<unsigned char> signature(128);
    unsigned long length = signature.size();
    provider.On("C_Sign").ReportNumber(told);
    EXPECT_EQ(
        module.Sign("01", data, sizeof data, signature.data(), &length, nullptr, nullptr, nullptr),
        told == 128);
    EXPECT_EQ(length, 128u);
    ExpectBalance();
  }
}

// C_GetSlotList, first call: the number of slots; second call: the number that was written, or
// CKR_BUFFER_TOO_SMALL (section 5.5).
TEST_F(LyingProvider, AboutTheNumberOfSlotsThatItHasWritten) {
  for (const CK_ULONG count : kLies) {
    SCOPED_TRACE(count);
    for (const char* operation : {"GetCertificates", "CertificatePresent"}) {
      Begin();
      provider.On("C_GetSlotList", 2).ReportNumber(count);
      User user;
      const std::string result = OperationNamed(operation).act(module, user);
      if (operation == std::string("GetCertificates"))
        EXPECT_EQ(result, count == 0 ? "" : count == 1 ? "A" : "A B");
      else
        EXPECT_EQ(result, count <= 1 ? "absent" : "present");
      ExpectBalance();
      ExpectStillWorks();
    }
  }
}

TEST_F(LyingProvider, AboutTheNumberOfSlotsBeforeTheyAreFetched) {
  Begin();
  for (const CK_ULONG too_few : {0UL, 1UL}) {
    provider.On("C_GetSlotList").ReportNumber(too_few);
    EXPECT_EQ(List(), "");
    EXPECT_TRUE(module.changed);  // It asks again.
    ExpectBalance();
  }
  provider.On("C_GetSlotList").ReportNumber(10000);
  EXPECT_EQ(List(), "A B");
  EXPECT_FALSE(module.changed);
  ExpectStillWorks();
}

TEST_F(LyingProvider, ASlotListThatChangesBetweenEveryTwoCalls) {
  Begin();
  CK_SLOT_ID next = 10;
  provider.On("C_GetSlotList").Always().After([&] {
    provider.Slot(next).Token("More").Certificate("More;serial=" + std::to_string(next));
    ++next;
  });
  for (int i = 0; i < 20; ++i) {
    EXPECT_EQ(List(), "");  // One more than there was room for (CKR_BUFFER_TOO_SMALL).
    EXPECT_TRUE(module.changed);
    EXPECT_FALSE(module.CertificatePresent("01"));
    ExpectBalance();
  }
  provider.ClearScript();
  EXPECT_THAT(List(), testing::StartsWith("A B More"));
  ExpectBalance();
}

TEST_F(LyingProvider, NoSlotOneSlotAndTenThousand) {
  for (const int slots : {0, 1, 10000}) {
    provider.Reset();
    for (int i = 0; i < slots; ++i)
      provider.Slot(static_cast<CK_SLOT_ID>(i));
    if (slots > 0)
      provider.Slot(static_cast<CK_SLOT_ID>(slots - 1)).Token("Last").Certificate("L;serial=ff");
    for (scripted::SlotModel& slot : provider.slots()) {
      if (!slot.token)
        slot.Token("Blank");
    }
    ASSERT_EQ(module.Open("direct"), 0);
    EXPECT_EQ(List(), slots == 0 ? "" : "L");
    EXPECT_FALSE(module.changed);
    EXPECT_EQ(module.CertificatePresent("ff"), slots > 0);
    ExpectBalance();
    module.Close();
    scripted::Trace::Instance().Clear();
  }
}

// C_FindObjects gives at most as many handles as it is asked for (section 5.7).
TEST_F(LyingProvider, MoreObjectsThanAskedForAreOne) {
  for (const CK_ULONG count : {CK_ULONG{2}, CK_ULONG{1} << 32, CK_UNAVAILABLE_INFORMATION}) {
    Begin();
    provider.On("C_FindObjects").ReportNumber(count);
    EXPECT_EQ(List(), "A B");
    ExpectBalance();
  }
}

TEST_F(LyingProvider, NoObjectFoundLeavesItsHandleUnread) {
  Begin();
  provider.On("C_FindObjects").ReportNumber(0);
  EXPECT_EQ(List(), "B");
  ExpectBalance();
}

// CK_INVALID_HANDLE, 0, is never the handle of an object (section 3.4).
TEST_F(LyingProvider, AnObjectWithoutAHandleIsNoCertificate) {
  Begin();
  provider.On("C_FindObjects").ReportHandle(CK_INVALID_HANDLE);
  EXPECT_EQ(List(), "B");
  provider.On("C_FindObjects").ReportHandle(CK_INVALID_HANDLE);
  EXPECT_FALSE(module.CertificatePresent("01"));
  ExpectBalance();
  ExpectStillWorks();
}

TEST_F(LyingProvider, TheSameObjectForEverEndsTheListing) {
  Begin();
  provider.On("C_FindObjects")
      .Always()
      .ReportNumber(1)
      .ReportHandle(provider.Slot(1).Token().objects.front().handle);
  const std::list<certificate*> certificates = module.GetTokenCertificates(1);
  EXPECT_EQ(certificates.size(), 10000u);
  for (certificate* cert : certificates)
    cert_free(cert);
  EXPECT_EQ(FailureLines(), "Giving up the search after 10000 objects\n");
  EXPECT_EQ(LogLines().back(), "3: Giving up the search after 10000 objects");
  EXPECT_EQ(provider.num_calls("C_FindObjects"), 10001);
  EXPECT_EQ(provider.num_calls("C_FindObjectsFinal"), 1);
  provider.ClearScript();
  ExpectBalance();
  ExpectStillWorks();
}

TEST_F(LyingProvider, TheSameObjectForEverEndsTheLookup) {
  Begin();
  provider.On("C_FindObjects")
      .Always()
      .ReportNumber(1)
      .ReportHandle(provider.Slot(1).Token().objects.front().handle);
  EXPECT_EQ(module.FindCertificate("77"), nullptr);
  // The second token has no object of that handle.
  const std::string given_up = "Giving up the search after 10000 objects\n";
  EXPECT_EQ(FailureLines(), given_up + Repeated(10000, "Unable to read certificate\n") + given_up);
  EXPECT_LE(provider.num_calls(), 70000);
  provider.ClearScript();
  ExpectBalance();
  ExpectStillWorks();
}

}  // namespace
}  // namespace faults
