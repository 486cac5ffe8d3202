// A provider that reports wrong lengths, counts and handles. Tests cite the section of the standard
// (PKCS#11 2.40) that the provider violates. What the component does then is its own choice; see
// docs/threat-model.md.
#include <climits>

#include "faults/operations.h"
#include "pkcs11/expected.h"

namespace faults {
namespace {

class WrongValuesTest : public FaultsTest {
 protected:
  std::string Sign() {
    User user;
    return OperationNamed("Sign without a login").act(module, user);
  }
};

constexpr CK_ULONG kWrongNumbers[] = {0, 1, CK_ULONG{1} << 31, CK_ULONG{1} << 32,
                                      CK_UNAVAILABLE_INFORMATION};

const std::string kNoneForAlice = "No certificate associated with token \"Alice\"\n";

// C_GetAttributeValue may report CK_UNAVAILABLE_INFORMATION only together with an error (section
// 5.7).
TEST_F(WrongValuesTest, SkipsCertificateWithWrongLength) {
  for (const CK_ULONG length : kWrongNumbers) {
    SCOPED_TRACE(length);
    Begin();
    provider.Slot(1).Token().objects.front().attributes[CKA_VALUE] = "Longer";
    provider.On("C_GetAttributeValue").ReportNumber(length);
    EXPECT_EQ(List(), "B");
    // A buffer of 0 or 1 bytes is too small for the value. A length beyond int is not allocated.
    EXPECT_EQ(FailureLines(),
              std::string(length <= INT_MAX ? "Unable to read certificate\n"
                                            : "Unable to allocate certificate storage\n") +
                  kNoneForAlice);
    EXPECT_EQ(provider.num_calls("C_GetAttributeValue"), length <= INT_MAX ? 4 : 3);
    ExpectNothingLeftOver();
  }
}

// The second length is the number of bytes written, which cannot exceed the buffer (section 5.7).
TEST_F(WrongValuesTest, SkipsCertificateWithWrongSecondLength) {
  for (const CK_ULONG length : kWrongNumbers) {
    SCOPED_TRACE(length);
    Begin();
    provider.On("C_GetAttributeValue", 2).ReportNumber(length);
    EXPECT_EQ(List(), length == 1 ? "A B" : "B");  // The certificate "A" has one byte.
    const std::string reason =
        length == 0 ? "Error parsing certificate\n" : "Unable to read certificate\n";
    EXPECT_EQ(FailureLines(), length == 1 ? "" : reason + kNoneForAlice);
    ExpectNothingLeftOver();
    ExpectStillWorks();
  }
}

TEST_F(WrongValuesTest, SkipsCertificateThatGrows) {
  for (const std::string& value : {std::string("Longer;serial=0303"), std::string("S")}) {
    SCOPED_TRACE(value);
    Begin();
    provider.Slot(1).Token().objects.front().attributes[CKA_VALUE] = "Middle";
    provider.On("C_GetAttributeValue").After([&] {
      provider.Slot(1).Token().objects.front().attributes[CKA_VALUE] = value;
    });
    EXPECT_EQ(List(), value == "S" ? "S B" : "B");
    ExpectNothingLeftOver();
  }
}

TEST_F(WrongValuesTest, FailsToSignWithWrongIdLength) {
  for (const CK_ULONG length : kWrongNumbers) {
    SCOPED_TRACE(length);
    Begin();
    provider.On("C_GetAttributeValue", 5).ReportNumber(length);
    // The ID has one byte. No key has an empty ID.
    EXPECT_EQ(Sign(), length == 1 ? "signed" : "not signed");
    EXPECT_EQ(FailureLines(),
              length == 1   ? ""
              : length == 0 ? "Signature operation failed (102)\n"
                            : "Unable to read certificate ID\nSignature operation failed (5)\n");
    ExpectNothingLeftOver();
    ExpectStillWorks();
  }
}

// C_Sign sets *pulSignatureLen to the number of bytes written (section 5.2).
TEST_F(WrongValuesTest, RejectsSignatureLengthBeyondBuffer) {
  for (const CK_ULONG length : kWrongNumbers) {
    SCOPED_TRACE(length);
    Begin();
    provider.On("C_Sign").ReportNumber(length);
    const bool fits = length <= 200;
    EXPECT_EQ(Sign(), fits ? "wrong signature" : "not signed");
    EXPECT_EQ(FailureLines(), fits ? "" : "Signature operation failed (5)\n");
    ExpectNothingLeftOver();
    ExpectStillWorks();
  }
}

TEST_F(WrongValuesTest, AcceptsSignatureThatFillsBuffer) {
  Begin();
  const unsigned char data[] = {'d'};
  for (const CK_ULONG reported : {128UL, 129UL}) {
    std::vector<unsigned char> signature(128);
    unsigned long length = signature.size();
    provider.On("C_Sign").ReportNumber(reported);
    EXPECT_EQ(
        module.Sign("01", data, sizeof data, signature.data(), &length, nullptr, nullptr, nullptr),
        reported == 128);
    EXPECT_EQ(length, 128u);
    ExpectNothingLeftOver();
  }
}

// C_GetSlotList reports the number of slots first. The second call reports the number written, or
// returns CKR_BUFFER_TOO_SMALL (section 5.5).
TEST_F(WrongValuesTest, DoesNotReadBeyondSlotArray) {
  for (const CK_ULONG count : kWrongNumbers) {
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
      ExpectNothingLeftOver();
      ExpectStillWorks();
    }
  }
}

TEST_F(WrongValuesTest, KeepsChangeWhenSlotCountIsTooSmall) {
  Begin();
  for (const CK_ULONG too_few : {0UL, 1UL}) {
    provider.On("C_GetSlotList").ReportNumber(too_few);
    EXPECT_EQ(List(), "");
    EXPECT_TRUE(module.changed);  // So that the host lists the certificates again.
    ExpectNothingLeftOver();
  }
  provider.On("C_GetSlotList").ReportNumber(10000);
  EXPECT_EQ(List(), "A B");
  EXPECT_FALSE(module.changed);
  ExpectStillWorks();
}

TEST_F(WrongValuesTest, KeepsChangeWhileSlotListGrows) {
  Begin();
  CK_SLOT_ID next = 10;
  provider.On("C_GetSlotList").Always().After([&] {
    provider.Slot(next).Token("More").Certificate("More;serial=" + std::to_string(next));
    ++next;
  });
  for (int i = 0; i < 20; ++i) {
    EXPECT_EQ(List(), "");  // CKR_BUFFER_TOO_SMALL from the second call.
    EXPECT_TRUE(module.changed);
    EXPECT_FALSE(module.CertificatePresent("01"));
    ExpectNothingLeftOver();
  }
  provider.ClearScript();
  EXPECT_THAT(List(), testing::StartsWith("A B More"));
  ExpectNothingLeftOver();
}

TEST_F(WrongValuesTest, ListsAnyNumberOfSlots) {
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
    ExpectNothingLeftOver();
    module.Close();
    scripted::Trace::Instance().Clear();
  }
}

// C_FindObjects returns at most as many handles as were asked for (section 5.7).
TEST_F(WrongValuesTest, UsesFirstObjectWhenProviderReportsMore) {
  for (const CK_ULONG count : {CK_ULONG{2}, CK_ULONG{1} << 32, CK_UNAVAILABLE_INFORMATION}) {
    Begin();
    provider.On("C_FindObjects").ReportNumber(count);
    EXPECT_EQ(List(), "A B");
    ExpectNothingLeftOver();
  }
}

TEST_F(WrongValuesTest, EndsSearchAtObjectCountOfZero) {
  Begin();
  provider.On("C_FindObjects").ReportNumber(0);
  EXPECT_EQ(List(), "B");
  ExpectNothingLeftOver();
}

// 0, CK_INVALID_HANDLE, is never the handle of an object (section 3.4).
TEST_F(WrongValuesTest, SkipsObjectWithInvalidHandle) {
  Begin();
  provider.On("C_FindObjects").ReportHandle(CK_INVALID_HANDLE);
  EXPECT_EQ(List(), "B");
  provider.On("C_FindObjects").ReportHandle(CK_INVALID_HANDLE);
  EXPECT_FALSE(module.CertificatePresent("01"));
  ExpectNothingLeftOver();
  ExpectStillWorks();
}

TEST_F(WrongValuesTest, LimitsEndlessListing) {
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
  ExpectNothingLeftOver();
  ExpectStillWorks();
}

TEST_F(WrongValuesTest, LimitsEndlessLookup) {
  Begin();
  provider.On("C_FindObjects")
      .Always()
      .ReportNumber(1)
      .ReportHandle(provider.Slot(1).Token().objects.front().handle);
  EXPECT_EQ(module.FindCertificate("77"), nullptr);
  // The second token has no object with that handle, so its reads fail.
  const std::string given_up = "Giving up the search after 10000 objects\n";
  EXPECT_EQ(FailureLines(), given_up + Repeated(10000, "Unable to read certificate\n") + given_up);
  EXPECT_LE(provider.num_calls(), 70000);
  provider.ClearScript();
  ExpectNothingLeftOver();
  ExpectStillWorks();
}

}  // namespace
}  // namespace faults
