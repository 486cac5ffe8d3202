// GetCertificates: the certificates of all slots.
#include <unistd.h>

#include <fstream>
#include <new>

#include "pkcs11/expected.h"
#include "pkcs11/module_test.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// Listing one token without certificates in slot 1: for tests of the slots themselves.
std::string EmptyToken(int slot, int session) {
  return TokenPreamble(slot, "Reader", "Empty") + ReadingToken(slot, session, {}) +
         "log 3: No certificate associated with token \"Empty\"\n";
}

// How much memory the process has in use.
long ResidentBytes() {
  std::ifstream status("/proc/self/statm");
  long all_pages = 0;
  long resident_pages = 0;
  status >> all_pages >> resident_pages;
  return resident_pages * sysconf(_SC_PAGESIZE);
}

class Listing : public ModuleTest {};

TEST_F(Listing, WithoutAProviderIsEmptyAndSilent) {
  module.changed = true;
  EXPECT_THAT(module.GetCertificates(), IsEmpty());
  EXPECT_TRACE("");
  EXPECT_TRUE(module.changed);
}

TEST_F(Listing, WithoutTokensIsEmptyAndComplete) {
  provider.Slot(1);
  Open();
  EXPECT_THAT(module.GetCertificates(), IsEmpty());
  EXPECT_TRACE(R"(
    log 5: Fetching tokens...
    C_GetSlotList(TOKEN_PRESENT, NULL) = OK, 0 slots
    log 5: Found 0 slots.
    C_GetSlotList(TOKEN_PRESENT, room for 0) = OK, no slots
  )");
  EXPECT_FALSE(module.changed);
}

TEST_F(Listing, JoinsTheSlotsInTheirOrder) {
  provider.Slot(7, "Left").Token("Alice").Certificate("A").Certificate("B");
  provider.Slot(8, "Empty");
  provider.Slot(3, "Right").Token("Bob").Certificate("C");
  Open();
  const std::list<pkcs11_certificate> records = module.GetCertificates();
  EXPECT_THAT(Names(records), ElementsAre("A", "B", "C"));
  EXPECT_EQ(records.front().slot_description, "Left");
  EXPECT_EQ(records.back().slot_description, "Right");
  EXPECT_TRACE(R"(
    log 5: Fetching tokens...
    C_GetSlotList(TOKEN_PRESENT, NULL) = OK, 2 slots
    log 5: Found 2 slots.
    C_GetSlotList(TOKEN_PRESENT, room for 2) = OK, slots 7 3
  )" + TokenPreamble(7, "Left", "Alice") +
               ReadingToken(7, 1, {"A", "B"}) + Described("A") + Described("B") + R"(
    cert_free(A)
    cert_free(B)
  )" + TokenPreamble(3, "Right", "Bob") +
               ReadingToken(3, 2, {"C"}, 3) + Described("C") + R"(
    cert_free(C)
  )");
  EXPECT_FALSE(module.changed);
}

TEST_F(Listing, ASlotThatFailsDoesNotEndTheWalk) {
  provider.Slot(1).Token("Alice").Certificate("A");
  provider.Slot(2).Token("Bob").Certificate("B");
  Open();
  provider.On("C_GetSlotInfo").Return(CKR_DEVICE_REMOVED);
  EXPECT_THAT(Names(module.GetCertificates()), ElementsAre("B"));
  EXPECT_TRACE(R"(
    log 5: Fetching tokens...
    C_GetSlotList(TOKEN_PRESENT, NULL) = OK, 2 slots
    log 5: Found 2 slots.
    C_GetSlotList(TOKEN_PRESENT, room for 2) = OK, slots 1 2
    C_GetSlotInfo(slot 1) = DEVICE_REMOVED
    log 3: Unabled to get description of slot 1
  )" + TokenPreamble(2, "Reader", "Bob") +
               ReadingToken(2, 1, {"B"}, 2) + Described("B") + "cert_free(B)\n");
  EXPECT_FALSE(module.changed);
}

TEST_F(Listing, OneSlotIsWrittenInThePluralToo) {
  provider.Slot(1).Token("Empty");
  Open();
  EXPECT_THAT(module.GetCertificates(), IsEmpty());
  EXPECT_TRACE(R"(
    log 5: Fetching tokens...
    C_GetSlotList(TOKEN_PRESENT, NULL) = OK, 1 slots
    log 5: Found 1 slots.
    C_GetSlotList(TOKEN_PRESENT, room for 1) = OK, slots 1
  )" + EmptyToken(1, 1));
}

TEST_F(Listing, SlotsThatCannotBeCountedLeaveTheChange) {
  Open();
  provider.On("C_GetSlotList").Return(CKR_GENERAL_ERROR);
  EXPECT_THAT(module.GetCertificates(), IsEmpty());
  EXPECT_TRACE(R"(
    log 5: Fetching tokens...
    C_GetSlotList(TOKEN_PRESENT, NULL) = GENERAL_ERROR
  )");
  EXPECT_TRUE(module.changed);
}

TEST_F(Listing, ACountThatIsNotWrittenIsNone) {
  provider.Slot(1).Token("Alice").Certificate("A");
  Open();
  provider.On("C_GetSlotList").DoNothing().Always();
  EXPECT_THAT(module.GetCertificates(), IsEmpty());
  EXPECT_TRACE(R"(
    log 5: Fetching tokens...
    C_GetSlotList(TOKEN_PRESENT, NULL) = OK, 0 slots
    log 5: Found 0 slots.
    C_GetSlotList(TOKEN_PRESENT, room for 0) = OK, no slots
  )");
}

// Neither failure is a change in itself.
TEST_F(Listing, SlotsThatCannotBeReadAreNoChangeEither) {
  for (const int nth : {1, 2}) {
    OpenUnchanged();
    provider.On("C_GetSlotList", nth).Return(CKR_DEVICE_ERROR);
    EXPECT_THAT(module.GetCertificates(), IsEmpty());
    EXPECT_FALSE(module.changed);
  }
}

TEST_F(Listing, ATokenThatComesInBetweenLeavesTheChange) {
  provider.Slot(1).Token("Empty");
  Open();
  provider.On("C_GetSlotList").After([this] { provider.Slot(2).Token("Bob"); });
  EXPECT_THAT(module.GetCertificates(), IsEmpty());
  EXPECT_TRACE(R"(
    log 5: Fetching tokens...
    C_GetSlotList(TOKEN_PRESENT, NULL) = OK, 1 slots
    log 5: Found 1 slots.
    C_GetSlotList(TOKEN_PRESENT, room for 1) = BUFFER_TOO_SMALL
  )");
  EXPECT_TRUE(module.changed);
  EXPECT_TRUE(module.HasChanged());
}

TEST_F(Listing, ATokenThatGoesInBetweenIsNotWalked) {
  provider.Slot(1).Token("Empty");
  provider.Slot(2).Token("Bob");
  Open();
  provider.On("C_GetSlotList").After([this] { provider.Slot(2).Remove(); });
  EXPECT_THAT(module.GetCertificates(), IsEmpty());
  EXPECT_TRACE(R"(
    log 5: Fetching tokens...
    C_GetSlotList(TOKEN_PRESENT, NULL) = OK, 2 slots
    log 5: Found 2 slots.
    C_GetSlotList(TOKEN_PRESENT, room for 2) = OK, slots 1
  )" + EmptyToken(1, 1));
  EXPECT_FALSE(module.changed);
}

// Only the slots of the array are walked, whatever their number is said to be.
TEST_F(Listing, ACountBeyondTheArrayIsNotBelieved) {
  provider.Slot(1).Token("Empty");
  Open();
  provider.On("C_GetSlotList", 2).ReportNumber(CK_UNAVAILABLE_INFORMATION);
  EXPECT_THAT(module.GetCertificates(), IsEmpty());
  EXPECT_TRACE(R"(
    log 5: Fetching tokens...
    C_GetSlotList(TOKEN_PRESENT, NULL) = OK, 1 slots
    log 5: Found 1 slots.
    C_GetSlotList(TOKEN_PRESENT, room for 1) = OK, slots 1
  )" + EmptyToken(1, 1));
  EXPECT_FALSE(module.changed);
}

TEST_F(Listing, AnImpossibleCountIsTheAllocatorsException) {
  if (kImpossibleAllocationsAbort)
    GTEST_SKIP() << "clang's AddressSanitizer ends the program at an impossible allocation";
  Open();
  provider.On("C_GetSlotList").ReportNumber(CK_UNAVAILABLE_INFORMATION);
  EXPECT_THROW(module.GetCertificates(), std::bad_alloc);
  EXPECT_TRACE(R"(
    log 5: Fetching tokens...
    C_GetSlotList(TOKEN_PRESENT, NULL) = OK, unavailable slots
    log 5: Found -1 slots.
  )");
  EXPECT_TRUE(module.changed);
}

// The array is not written to before the provider has filled it.
TEST_F(Listing, ACountThatLiesCostsAddressesButNoMemory) {
  constexpr CK_ULONG kSlots = 1UL << 24;
  provider.Slot(1).Token("Empty");
  Open();
  provider.On("C_GetSlotList").ReportNumber(kSlots);
  const long before = ResidentBytes();
  long during = 0;
  provider.On("C_GetSlotList", 2).Before([&during] { during = ResidentBytes(); });
  EXPECT_THAT(module.GetCertificates(), IsEmpty());
  EXPECT_LT(during - before, static_cast<long>(kSlots * sizeof(CK_SLOT_ID) / 2));
  EXPECT_TRACE(R"(
    log 5: Fetching tokens...
    C_GetSlotList(TOKEN_PRESENT, NULL) = OK, 16777216 slots
    log 5: Found 16777216 slots.
    C_GetSlotList(TOKEN_PRESENT, room for 16777216) = OK, slots 1
  )" + EmptyToken(1, 1));
}

TEST_F(Listing, NothingHasChangedUntilSomethingDoes) {
  Open();
  const auto fetch = [this] {
    module.GetCertificates();
    return module.HasChanged();
  };
  EXPECT_FALSE(fetch());
  provider.AddSlotEvent(1);
  EXPECT_TRUE(module.HasChanged());
  EXPECT_FALSE(fetch());
  ASSERT_TRUE(module.AddFilter("x||0"));
  EXPECT_TRUE(module.HasChanged());
  EXPECT_FALSE(fetch());
  module.ClearFilters();
  EXPECT_TRUE(module.HasChanged());
  EXPECT_FALSE(fetch());
  ASSERT_TRUE(module.SetNameComponents("card_label"));
  EXPECT_FALSE(module.HasChanged()) << "a naming specification is no change";
  Open();
  EXPECT_TRUE(module.HasChanged());
}

}  // namespace
