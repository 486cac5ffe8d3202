// FindCertificate and CertificatePresent: finding a certificate by its serial.
#include "pkcs11/lookup_test.h"

#include <functional>
#include <thread>

namespace {

TEST_F(LookupTest, FindsNothingWithoutTokens) {
  provider.Slot(1);
  Open();
  EXPECT_EQ(module.FindCertificate("01"), nullptr);
  EXPECT_TRACE(BeginsLookup("01", {}), kNotFound);
}

TEST_F(LookupTest, HandsOverSessionOfCertificate) {
  provider.Slot(4096).Token("Alice").Certificate("A").Certificate("B;serial=00ab7f");
  Open();
  const pkcs11_certificate_location* const location = module.FindCertificate("00ab7f");
  EXPECT_TRACE(BeginsLookup("00ab7f", {4096}), SearchesSlot(4096, 1), PassesOver(1, 1, "A", "01"),
               FindsMatch(1, 2, "B;serial=00ab7f"));
  ASSERT_NE(location, nullptr);
  ExpectLocation(*location, 4096, 1, 2);
  CloseSessionOf(location);
}

TEST_F(LookupTest, ReadsSerialOfUpTo16834Bytes) {
  OpenWithTokens({{"A"}});
  host.RecordInspection();
  const pkcs11_certificate_location* const location = module.FindCertificate("01");
  EXPECT_TRACE(BeginsLookup("01", {1}), SearchesSlot(1, 1), FindsObject(1, 1),
               ReadsCertificate(1, 1, "A"), "cert_serial(A, room for 16834) = 0",
               FreesCertificates({"A"}), FinishesSearch(1), "log 5: Certificate found");
  CloseSessionOf(location);
}

TEST_F(LookupTest, FindsSerialThatFillsBuffer) {
  std::string digits;
  for (int i = 0; i < 16834; ++i)
    digits += i % 2 == 0 ? "a1" : "b2";
  OpenWithTokens({{"A;serial=" + digits}});
  EXPECT_TRUE(module.CertificatePresent(digits));
  digits.back() = '3';
  EXPECT_FALSE(module.CertificatePresent(digits));
}

// The hexadecimal texts are compared in full. A zero byte does not end them.
TEST_F(LookupTest, ComparesSerialExactly) {
  OpenWithTokens({{"A;serial=00ab7f"}});
  const std::string zero(1, '\0');
  for (const std::string& serial :
       {std::string("00AB7F"), std::string("ab7f"), std::string("00ab7"), std::string("00ab7f00"),
        std::string("0:0ab7f"), std::string(), "00ab7f" + zero, "00ab7f" + zero + "00ab7f",
        zero + "00ab7f"}) {
    EXPECT_EQ(module.FindCertificate(serial), nullptr) << testing::PrintToString(serial);
    EXPECT_EQ(module.CertificatePresent(serial), false) << testing::PrintToString(serial);
  }
  EXPECT_TRUE(module.CertificatePresent("00ab7f"));
}

TEST_F(LookupTest, FindsEmptySerial) {
  OpenWithTokens({{"A", "B;serial="}});
  const pkcs11_certificate_location* const location = module.FindCertificate("");
  ASSERT_NE(location, nullptr);
  EXPECT_EQ(location->object, 2u);
  EXPECT_TRACE("log 5: Finding certificate with serial\\x20", ListsSlots({1}), SearchesSlot(1, 1),
               PassesOver(1, 1, "A", "01"), FindsMatch(1, 2, "B;serial="));
  CloseSessionOf(location);
}

TEST_F(LookupTest, StopsAtFirstMatch) {
  provider.Slot(2).Token("Bob").Certificate("A");
  provider.Slot(1).Token("Alice").Certificate("A");
  Open();
  const pkcs11_certificate_location* const location = module.FindCertificate("01");
  EXPECT_TRACE(BeginsLookup("01", {2, 1}), SearchesSlot(2, 1), FindsMatch(1, 1, "A"));
  ASSERT_NE(location, nullptr);
  EXPECT_EQ(location->slot, 2u);
  CloseSessionOf(location);
}

TEST_F(LookupTest, ClosesSessionBeforeNextSlot) {
  OpenWithTokens({{"A"}, {"B;serial=02"}});
  const pkcs11_certificate_location* const location = module.FindCertificate("02");
  EXPECT_TRACE(BeginsLookup("02", {1, 2}), SearchesSlot(1, 1), PassesOver(1, 1, "A", "01"),
               EndsSlot(1), SearchesSlot(2, 2), FindsMatch(2, 2, "B;serial=02"));
  CloseSessionOf(location);
}

TEST_F(LookupTest, ReportsAbsentCertificate) {
  OpenWithTokens({{"A"}});
  EXPECT_FALSE(module.CertificatePresent("02"));
  EXPECT_TRACE(BeginsLookup("02", {1}), SearchesSlot(1, 1), PassesOver(1, 1, "A", "01"),
               EndsSlot(1), kNotFound);
}

// All searches return the same record.

TEST_F(LookupTest, ReturnsSameRecordEachTime) {
  OpenWithTokens({{"A", "B;serial=02"}});
  const pkcs11_certificate_location* const first = module.FindCertificate("01");
  CloseSessionOf(first);
  const pkcs11_certificate_location* const second = module.FindCertificate("02");
  CloseSessionOf(second);
  EXPECT_EQ(first, second);
  EXPECT_EQ(second->object, 2u);
  EXPECT_EQ(module.FindCertificate("03"), nullptr);
  EXPECT_EQ(second->object, 0u) << "a search without a match must overwrite the record, too";
  EXPECT_EQ(second->slot, 1u);
}

TEST_F(LookupTest, ReturnsSameRecordForAllModulesAndThreads) {
  OpenWithTokens({{"A"}});
  const pkcs11_certificate_location* const ours = module.FindCertificate("01");
  CloseSessionOf(ours);
  module.Close();

  const pkcs11_certificate_location* theirs = nullptr;
  std::thread([&theirs] {
    PKCS11Module another;
    ASSERT_EQ(another.Open(ProviderPath("copy")), 0);
    theirs = another.FindCertificate("01");
    ASSERT_NE(theirs, nullptr);
    another.function_list->C_CloseSession(theirs->session);
  }).join();
  EXPECT_EQ(ours, theirs);
}

TEST_F(LookupTest, LeavesLastSlotInRecordWithoutMatch) {
  provider.Slot(5).Token("Alice").Certificate("A");
  provider.Slot(4096).Token("Bob").Certificate("B;serial=02");
  Open();
  const pkcs11_certificate_location* const location = module.FindCertificate("01");
  CloseSessionOf(location);
  EXPECT_EQ(module.FindCertificate("03"), nullptr);
  ExpectLocation(*location, 4096, 3, 0);  // The session is closed.
}

TEST_F(LookupTest, LeavesSessionOfEarlierSlotWhenLastSlotHasNone) {
  provider.Slot(5).Token("Alice").Certificate("A");
  provider.Slot(4096).Token("Bob").Certificate("B;serial=02");
  Open();
  const pkcs11_certificate_location* const location = module.FindCertificate("01");
  CloseSessionOf(location);
  provider.On("C_OpenSession", 2).Return(CKR_TOKEN_WRITE_PROTECTED);
  EXPECT_EQ(module.FindCertificate("03"), nullptr);
  ExpectLocation(*location, 4096, 2, 0);
}

TEST_F(LookupTest, ClearsRecordWhenNoSlotIsSearched) {
  const std::function<void()> kObstacles[] = {
      [this] { provider.On("C_GetSlotList", 1).Return(CKR_DEVICE_ERROR); },
      [this] { provider.On("C_GetSlotList", 2).Return(CKR_DEVICE_ERROR); },
      [this] { provider.Slot(5).Remove(); }};
  for (const std::function<void()>& obstruct : kObstacles) {
    provider.Slot(5).Token("Alice").Certificate("A");
    Open();
    const pkcs11_certificate_location* const location = module.FindCertificate("01");
    CloseSessionOf(location);
    obstruct();
    EXPECT_EQ(module.FindCertificate("01"), nullptr);
    ExpectLocation(*location, 0, 0, 0);
  }
}

}  // namespace
