// FindCertificate and CertificatePresent: finding a certificate again by its serial.
#include <functional>
#include <new>
#include <thread>

#include "pkcs11/expected.h"
#include "pkcs11/module_test.h"

namespace {

constexpr char kReadWrite[] = "SERIAL|RW";

std::string Looking(const std::string& serial) {
  return "log 5: Finding certificate with serial " + serial + "\n";
}

std::string SlotLists(const std::string& slots, int count) {
  const std::string number = std::to_string(count);
  return "C_GetSlotList(TOKEN_PRESENT, NULL) = OK, " + number + " slots\n" +
         "C_GetSlotList(TOKEN_PRESENT, room for " + number + ") = OK, " + slots + "\n";
}

std::string NotThis(const std::string& serial) {
  return "log 5: Not the certificate we're looking for (serial " + serial + ")\n";
}

const char kFound[] = "log 5: Certificate found\n";
const char kNotFound[] = "log 5: Failed to find the certificate\n";

class Lookup : public ModuleTest {
 protected:
  // Looks in vain, and compares the trace.
  void ExpectNotFound(const std::string& serial, const std::string& expected) {
    EXPECT_EQ(module.FindCertificate(serial), nullptr);
    EXPECT_TRACE(Looking(serial) + expected + kNotFound);
    EXPECT_TRUE(provider.sessions().empty());
  }

  // Closes the session that a search has handed over.
  void Close(const pkcs11_certificate_location* location) {
    ASSERT_NE(location, nullptr);
    ASSERT_EQ(provider.sessions().size(), 1u) << "exactly one session is left open";
    EXPECT_FALSE(provider.sessions().front().search.has_value()) << "and no search in it";
    EXPECT_EQ(module.function_list->C_CloseSession(location->session), CKR_OK);
    ClearTrace();
  }
};

TEST_F(Lookup, WithoutTokensFindsNothing) {
  provider.Slot(1);
  Open();
  ExpectNotFound("01", SlotLists("no slots", 0));
}

TEST_F(Lookup, HandsOverTheSessionInWhichItFoundTheCertificate) {
  provider.Slot(4096).Token("Alice").Certificate("A").Certificate("B;serial=00ab7f");
  Open();
  const pkcs11_certificate_location* const location = module.FindCertificate("00ab7f");
  EXPECT_TRACE(Looking("00ab7f") + SlotLists("slots 4096", 1) + BeginSearch(4096, 1, kReadWrite) +
               Found(1, 1) + Reading(1, 1, "A") + "cert_free(A)\n" + NotThis("01") + Found(1, 2) +
               Reading(1, 2, "B;serial=00ab7f") + "cert_free(B)\n" +
               "C_FindObjectsFinal(session 1) = OK\n" + kFound);
  ASSERT_NE(location, nullptr);
  EXPECT_EQ(location->slot, 4096u);
  EXPECT_EQ(location->session, 1u);
  EXPECT_EQ(location->object, 2u);
  Close(location);
}

TEST_F(Lookup, AsksForTheSerialWithRoomFor16834Bytes) {
  provider.Slot(1).Token("Alice").Certificate("A");
  Open();
  host.RecordInspection();
  const pkcs11_certificate_location* const location = module.FindCertificate("01");
  EXPECT_TRACE(Looking("01") + SlotLists("slots 1", 1) + BeginSearch(1, 1, kReadWrite) +
               Found(1, 1) + Reading(1, 1, "A") + R"(
    cert_serial(A, room for 16834) = 0
    cert_free(A)
    C_FindObjectsFinal(session 1) = OK
  )" + kFound);
  Close(location);
}

TEST_F(Lookup, TheAnswerIsOneRecordForAllCalls) {
  provider.Slot(1).Token("Alice").Certificate("A").Certificate("B;serial=02");
  Open();
  const pkcs11_certificate_location* const first = module.FindCertificate("01");
  Close(first);
  const pkcs11_certificate_location* const second = module.FindCertificate("02");
  Close(second);
  EXPECT_EQ(first, second);
  EXPECT_EQ(second->object, 2u);
  EXPECT_EQ(module.FindCertificate("03"), nullptr);
  EXPECT_EQ(second->object, 0u) << "overwritten by a vain search, too";
  EXPECT_EQ(second->slot, 1u);
}

TEST_F(Lookup, TheAnswerIsOneRecordForAllModulesAndThreads) {
  provider.Slot(1).Token("Alice").Certificate("A");
  Open();
  const pkcs11_certificate_location* const ours = module.FindCertificate("01");
  Close(ours);
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

// What a vain search leaves in the record: the last slot, its session, which is closed, no object.
TEST_F(Lookup, AVainSearchLeavesTheLastSlotInTheRecord) {
  provider.Slot(5).Token("Alice").Certificate("A");
  provider.Slot(4096).Token("Bob").Certificate("B;serial=02");
  Open();
  const pkcs11_certificate_location* const location = module.FindCertificate("01");
  Close(location);
  EXPECT_EQ(module.FindCertificate("03"), nullptr);
  EXPECT_EQ(location->slot, 4096u);
  EXPECT_EQ(location->session, 3u);
  EXPECT_EQ(location->object, 0u);
}

// The last session is then that of a slot before.
TEST_F(Lookup, ALastSlotWithoutASessionIsInTheRecordAllTheSame) {
  provider.Slot(5).Token("Alice").Certificate("A");
  provider.Slot(4096).Token("Bob").Certificate("B;serial=02");
  Open();
  const pkcs11_certificate_location* const location = module.FindCertificate("01");
  Close(location);
  provider.On("C_OpenSession", 2).Return(CKR_TOKEN_WRITE_PROTECTED);
  EXPECT_EQ(module.FindCertificate("03"), nullptr);
  EXPECT_EQ(location->slot, 4096u);
  EXPECT_EQ(location->session, 2u);
  EXPECT_EQ(location->object, 0u);
}

// A search that does not get as far as a slot leaves nothing of the answer before.
TEST_F(Lookup, ASearchWithoutSlotsEmptiesTheRecord) {
  const std::function<void()> kObstacles[] = {
      [this] { provider.On("C_GetSlotList", 1).Return(CKR_DEVICE_ERROR); },
      [this] { provider.On("C_GetSlotList", 2).Return(CKR_DEVICE_ERROR); },
      [this] { provider.Slot(5).Remove(); }};
  for (const std::function<void()>& obstruct : kObstacles) {
    provider.Slot(5).Token("Alice").Certificate("A");
    Open();
    const pkcs11_certificate_location* const location = module.FindCertificate("01");
    Close(location);
    obstruct();
    EXPECT_EQ(module.FindCertificate("01"), nullptr);
    EXPECT_EQ(location->slot, 0u);
    EXPECT_EQ(location->session, 0u);
    EXPECT_EQ(location->object, 0u);
  }
}

// Bytes are compared: case counts, and so does a leading zero byte.
TEST_F(Lookup, ASerialMatchesByteForByte) {
  provider.Slot(1).Token("Alice").Certificate("A;serial=00ab7f");
  Open();
  // To their ends, which a zero byte is not.
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

TEST_F(Lookup, AnEmptyRequestMatchesASerialWithoutBytes) {
  provider.Slot(1).Token("Alice").Certificate("A").Certificate("B;serial=");
  Open();
  const pkcs11_certificate_location* const location = module.FindCertificate("");
  ASSERT_NE(location, nullptr);
  EXPECT_EQ(location->object, 2u);
  EXPECT_TRACE("log 5: Finding certificate with serial\\x20\n" + SlotLists("slots 1", 1) +
               BeginSearch(1, 1, kReadWrite) + Found(1, 1) + Reading(1, 1, "A") + "cert_free(A)\n" +
               NotThis("01") + Found(1, 2) + Reading(1, 2, "B;serial=") +
               "cert_free(B)\nC_FindObjectsFinal(session 1) = OK\n" + kFound);
  Close(location);
}

TEST_F(Lookup, TheFirstSlotWinsAndTheSecondIsNotVisited) {
  provider.Slot(2).Token("Bob").Certificate("A");
  provider.Slot(1).Token("Alice").Certificate("A");
  Open();
  const pkcs11_certificate_location* const location = module.FindCertificate("01");
  EXPECT_TRACE(Looking("01") + SlotLists("slots 2 1", 2) + BeginSearch(2, 1, kReadWrite) +
               Found(1, 1) + Reading(1, 1, "A") +
               "cert_free(A)\nC_FindObjectsFinal(session 1) = OK\n" + kFound);
  ASSERT_NE(location, nullptr);
  EXPECT_EQ(location->slot, 2u);
  Close(location);
}

TEST_F(Lookup, EachSessionWithoutItIsClosedBeforeTheNextSlot) {
  provider.Slot(1).Token("Alice").Certificate("A");
  provider.Slot(2).Token("Bob").Certificate("B;serial=02");
  Open();
  const pkcs11_certificate_location* const location = module.FindCertificate("02");
  EXPECT_TRACE(Looking("02") + SlotLists("slots 1 2", 2) + BeginSearch(1, 1, kReadWrite) +
               Found(1, 1) + Reading(1, 1, "A") + "cert_free(A)\n" + NotThis("01") +
               FoundNoMore(1) + EndSearch(1) + BeginSearch(2, 2, kReadWrite) + Found(2, 2) +
               Reading(2, 2, "B;serial=02") + "cert_free(B)\nC_FindObjectsFinal(session 2) = OK\n" +
               kFound);
  Close(location);
}

TEST_F(Lookup, SlotsThatCannotBeCountedAreNotSearched) {
  Open();
  provider.On("C_GetSlotList").Return(CKR_DEVICE_ERROR);
  ExpectNotFound("01", "C_GetSlotList(TOKEN_PRESENT, NULL) = DEVICE_ERROR\n");
}

TEST_F(Lookup, ACountThatIsNotWrittenIsNone) {
  provider.Slot(1).Token("Alice").Certificate("A");
  Open();
  provider.On("C_GetSlotList").DoNothing().Always();
  ExpectNotFound("01", SlotLists("no slots", 0));
}

TEST_F(Lookup, SlotsThatCannotBeListedAreNotSearched) {
  provider.Slot(1).Token("Alice").Certificate("A");
  Open();
  provider.On("C_GetSlotList", 2).Return(CKR_BUFFER_TOO_SMALL);
  ExpectNotFound("01", R"(
    C_GetSlotList(TOKEN_PRESENT, NULL) = OK, 1 slots
    C_GetSlotList(TOKEN_PRESENT, room for 1) = BUFFER_TOO_SMALL
  )");
}

TEST_F(Lookup, ACountBeyondTheArrayIsNotBelieved) {
  provider.Slot(1).Token("Alice");
  Open();
  provider.On("C_GetSlotList", 2).ReportNumber(1UL << 32);
  ExpectNotFound("01", SlotLists("slots 1", 1) + BeginSearch(1, 1, kReadWrite) + FoundNoMore(1) +
                           EndSearch(1));
}

TEST_F(Lookup, AsManySlotsAreSearchedAsAreListed) {
  provider.Slot(1).Token("Alice");
  provider.Slot(2).Token("Bob");
  Open();
  provider.On("C_GetSlotList").After([this] { provider.Slot(1).Remove(); });
  ExpectNotFound("01", R"(
    C_GetSlotList(TOKEN_PRESENT, NULL) = OK, 2 slots
    C_GetSlotList(TOKEN_PRESENT, room for 2) = OK, slots 2
  )" + BeginSearch(2, 1, kReadWrite) +
                           FoundNoMore(1) + EndSearch(1));
}

TEST_F(Lookup, ASlotWithoutASessionIsPassedOver) {
  provider.Slot(1).Token("Alice").Certificate("A");
  provider.Slot(2).Token("Bob").Certificate("A");
  Open();
  provider.On("C_OpenSession").Return(CKR_TOKEN_WRITE_PROTECTED);
  EXPECT_TRUE(module.CertificatePresent("01"));
  EXPECT_TRACE(Looking("01") + SlotLists("slots 1 2", 2) + R"(
    log 5: Getting certificates for slot 1
    C_OpenSession(slot 1, SERIAL|RW) = TOKEN_WRITE_PROTECTED
    log 3: Unable to open card session
  )" + BeginSearch(2, 1, kReadWrite) +
               Found(1, 2) + Reading(1, 2, "A") + "cert_free(A)\n" +
               "C_FindObjectsFinal(session 1) = OK\n" + kFound + "C_CloseSession(session 1) = OK");
}

TEST_F(Lookup, ASlotWithoutASearchIsClosedAndPassedOver) {
  provider.Slot(1).Token("Alice").Certificate("A");
  provider.Slot(2).Token("Bob").Certificate("A");
  Open();
  provider.On("C_FindObjectsInit").Return(CKR_DEVICE_ERROR);
  EXPECT_TRUE(module.CertificatePresent("01"));
  EXPECT_TRACE(Looking("01") + SlotLists("slots 1 2", 2) + R"(
    log 5: Getting certificates for slot 1
    C_OpenSession(slot 1, SERIAL|RW) = OK, session 1
    C_FindObjectsInit(session 1, CKA_CLASS=CKO_CERTIFICATE) = DEVICE_ERROR
    C_CloseSession(session 1) = OK
  )" + BeginSearch(2, 2, kReadWrite) +
               Found(2, 2) + Reading(2, 2, "A") + "cert_free(A)\n" +
               "C_FindObjectsFinal(session 2) = OK\n" + kFound + "C_CloseSession(session 2) = OK");
}

// Unlike the reading of a token, this search is finished in any case.
TEST_F(Lookup, ASearchThatBreaksOffIsFinishedAndPassedOver) {
  provider.Slot(1).Token("Alice").Certificate("A").Certificate("B;serial=02");
  Open();
  provider.On("C_FindObjects", 2).Return(CKR_DEVICE_ERROR);
  ExpectNotFound("02", SlotLists("slots 1", 1) + BeginSearch(1, 1, kReadWrite) + Found(1, 1) +
                           Reading(1, 1, "A") + "cert_free(A)\n" + NotThis("01") + R"(
    C_FindObjects(session 1, max 1) = DEVICE_ERROR
  )" + EndSearch(1));
}

TEST_F(Lookup, ACertificateThatCannotBeReadIsPassedOver) {
  provider.Slot(1).Token("Alice").Certificate("A").Certificate("B");
  Open();
  provider.On("C_GetAttributeValue").Return(CKR_DEVICE_ERROR);
  EXPECT_TRUE(module.CertificatePresent("01"));
  EXPECT_TRACE(Looking("01") + SlotLists("slots 1", 1) + BeginSearch(1, 1, kReadWrite) +
               Found(1, 1) + R"(
    log 5: Getting certificate with id 1
    C_GetAttributeValue(session 1, object 1, CKA_VALUE NULL) = DEVICE_ERROR
    log 3: Unable to read certificate
  )" + Found(1, 2) +
               Reading(1, 2, "B") + "cert_free(B)\nC_FindObjectsFinal(session 1) = OK\n" + kFound +
               "C_CloseSession(session 1) = OK");
}

TEST_F(Lookup, ASerialThatCannotBeReadIsPassedOverInSilence) {
  const std::vector<std::string> texts = {"A;fail.serial=1", "B;fail.serial=-1",
                                          "C;claim.serial=16835", "D"};
  scripted::Token& token = provider.Slot(1).Token("Alice");
  for (const std::string& text : texts)
    token.Certificate(text);
  Open();
  EXPECT_TRUE(module.CertificatePresent("01"));
  EXPECT_TRACE(Looking("01") + SlotLists("slots 1", 1) + BeginSearch(1, 1, kReadWrite) +
               Found(1, 1) + Reading(1, 1, texts[0]) + "cert_free(A)\n" + Found(1, 2) +
               Reading(1, 2, texts[1]) + "cert_free(B)\n" + Found(1, 3) + Reading(1, 3, texts[2]) +
               "cert_free(C)\n" + Found(1, 4) + Reading(1, 4, "D") +
               "cert_free(D)\nC_FindObjectsFinal(session 1) = OK\n" + kFound +
               "C_CloseSession(session 1) = OK");
}

// The longest that there is room for.
TEST_F(Lookup, ASerialThatFillsItsBufferIsFound) {
  std::string digits;
  for (int i = 0; i < 16834; ++i)
    digits += i % 2 == 0 ? "a1" : "b2";
  provider.Slot(1).Token("Alice").Certificate("A;serial=" + digits);
  Open();
  EXPECT_TRUE(module.CertificatePresent(digits));
  digits.back() = '3';
  EXPECT_FALSE(module.CertificatePresent(digits));
}

// Any number but 0, although the standard allows no more than were asked for (PKCS#11 2.40, section
// 5.7, C_FindObjects).
TEST_F(Lookup, MoreObjectsThanAskedForAreOne) {
  struct Case {
    CK_ULONG count;
    const char* text;
  };
  for (const Case& claim : {Case{2, "2"}, Case{1UL << 32, "4294967296"},
                            Case{CK_UNAVAILABLE_INFORMATION, "unavailable"}}) {
    provider.Reset();
    provider.Slot(1).Token("Alice").Certificate("A");
    Open();
    provider.On("C_FindObjects").ReportNumber(claim.count);
    const pkcs11_certificate_location* const location = module.FindCertificate("01");
    EXPECT_TRACE(Looking("01") + SlotLists("slots 1", 1) + BeginSearch(1, 1, kReadWrite) +
                 "C_FindObjects(session 1, max 1) = OK, object 1 of " + claim.text + "\n" +
                 Reading(1, 1, "A") + "cert_free(A)\nC_FindObjectsFinal(session 1) = OK\n" +
                 kFound);
    Close(location);
    module.Close();
  }
}

// No object has handle 0 (CK_INVALID_HANDLE), whatever is in it.
TEST_F(Lookup, AnObjectWithoutAHandleIsNotFound) {
  scripted::Token& token = provider.Slot(1).Token("Alice").Certificate("A");
  token.objects.back().handle = CK_INVALID_HANDLE;
  Open();
  ExpectNotFound("01", SlotLists("slots 1", 1) + BeginSearch(1, 1, kReadWrite) + Found(1, 0) +
                           Reading(1, 0, "A") + "cert_free(A)\n" + EndSearch(1));
}

TEST_F(Lookup, WhatEndsASearchAndASessionMayFail) {
  provider.Slot(1).Token("Alice").Certificate("A");
  Open();
  provider.On("C_FindObjectsFinal").Return(CKR_DEVICE_ERROR);
  provider.On("C_CloseSession").Return(CKR_DEVICE_ERROR);
  EXPECT_TRUE(module.CertificatePresent("01"));
  EXPECT_TRACE(Looking("01") + SlotLists("slots 1", 1) + BeginSearch(1, 1, kReadWrite) +
               Found(1, 1) + Reading(1, 1, "A") + R"(
    cert_free(A)
    C_FindObjectsFinal(session 1) = DEVICE_ERROR
    log 5: Certificate found
    C_CloseSession(session 1) = DEVICE_ERROR
  )");
}

TEST_F(Lookup, AnAbsentCertificateIsNotPresent) {
  provider.Slot(1).Token("Alice").Certificate("A");
  Open();
  EXPECT_FALSE(module.CertificatePresent("02"));
  EXPECT_TRACE(Looking("02") + SlotLists("slots 1", 1) + BeginSearch(1, 1, kReadWrite) +
               Found(1, 1) + Reading(1, 1, "A") + "cert_free(A)\n" + NotThis("01") +
               FoundNoMore(1) + EndSearch(1) + kNotFound);
}

TEST_F(Lookup, AnImpossibleCountIsTheAllocatorsException) {
  if (kImpossibleAllocationsAbort)
    GTEST_SKIP() << "clang's AddressSanitizer ends the program at an impossible allocation";
  Open();
  provider.On("C_GetSlotList").ReportNumber(CK_UNAVAILABLE_INFORMATION);
  EXPECT_THROW(module.FindCertificate("01"), std::bad_alloc);
  EXPECT_TRACE(Looking("01") + "C_GetSlotList(TOKEN_PRESENT, NULL) = OK, unavailable slots\n");
}

}  // namespace
