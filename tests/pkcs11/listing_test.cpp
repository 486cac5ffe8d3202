// GetCertificates: the certificates of all slots.
#include <unistd.h>

#include <fstream>
#include <new>

#include "pkcs11/expected.h"
#include "pkcs11/module_test.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// Returns the size of the resident memory of this process.
long ResidentBytes() {
  std::ifstream status("/proc/self/statm");
  long all_pages = 0;
  long resident_pages = 0;
  status >> all_pages >> resident_pages;
  return resident_pages * sysconf(_SC_PAGESIZE);
}

using ListingTest = ModuleTest;

TEST_F(ListingTest, ReturnsNothingWithoutProvider) {
  module.changed = true;
  EXPECT_THAT(module.GetCertificates(), IsEmpty());
  EXPECT_TRACE("");
  EXPECT_TRUE(module.changed);
}

TEST_F(ListingTest, ClearsChangeWithoutTokens) {
  provider.Slot(1);
  Open();
  EXPECT_THAT(module.GetCertificates(), IsEmpty());
  EXPECT_TRACE(FetchesSlots({}));
  EXPECT_FALSE(module.changed);
}

TEST_F(ListingTest, JoinsSlotsInOrder) {
  provider.Slot(7, "Left").Token("Alice").Certificate("A").Certificate("B");
  provider.Slot(8, "Empty");
  provider.Slot(3, "Right").Token("Bob").Certificate("C");
  Open();
  const std::list<pkcs11_certificate> records = module.GetCertificates();
  EXPECT_THAT(Names(records), ElementsAre("A", "B", "C"));
  EXPECT_EQ(records.front().slot_description, "Left");
  EXPECT_EQ(records.back().slot_description, "Right");
  EXPECT_TRACE(FetchesSlots({7, 3}), IdentifiesToken(7, "Left", "Alice"),
               ReadsToken(7, 1, {"A", "B"}), DescribesCertificate("A"), DescribesCertificate("B"),
               FreesCertificates({"A", "B"}), IdentifiesToken(3, "Right", "Bob"),
               ReadsToken(3, 2, {"C"}, 3), DescribesCertificate("C"), FreesCertificates({"C"}));
  EXPECT_FALSE(module.changed);
}

TEST_F(ListingTest, ContinuesAfterSlotThatFails) {
  provider.Slot(1).Token("Alice").Certificate("A");
  provider.Slot(2).Token("Bob").Certificate("B");
  Open();
  provider.On("C_GetSlotInfo").Return(CKR_DEVICE_REMOVED);
  EXPECT_THAT(Names(module.GetCertificates()), ElementsAre("B"));
  EXPECT_TRACE(FetchesSlots({1, 2}), "C_GetSlotInfo(slot 1) = DEVICE_REMOVED",
               "log 3: Unabled to get description of slot 1", IdentifiesToken(2, "Reader", "Bob"),
               ReadsToken(2, 1, {"B"}, 2), DescribesCertificate("B"), FreesCertificates({"B"}));
  EXPECT_FALSE(module.changed);
}

TEST_F(ListingTest, WritesOneSlotInPlural) {
  provider.Slot(1).Token("Empty");
  Open();
  EXPECT_THAT(module.GetCertificates(), IsEmpty());
  EXPECT_TRACE(FetchesSlots({1}), DescribesEmptyToken(1, 1));
}

TEST_F(ListingTest, KeepsChangeWhenSlotsCannotBeCounted) {
  Open();
  provider.On("C_GetSlotList").Return(CKR_GENERAL_ERROR);
  EXPECT_THAT(module.GetCertificates(), IsEmpty());
  EXPECT_TRACE("log 5: Fetching tokens...", "C_GetSlotList(TOKEN_PRESENT, NULL) = GENERAL_ERROR");
  EXPECT_TRUE(module.changed);
}

TEST_F(ListingTest, SetsNoChangeWhenSlotsCannotBeRead) {
  for (const int nth : {1, 2}) {
    OpenUnchanged();
    provider.On("C_GetSlotList", nth).Return(CKR_DEVICE_ERROR);
    EXPECT_THAT(module.GetCertificates(), IsEmpty());
    EXPECT_FALSE(module.changed);
  }
}

TEST_F(ListingTest, ListsNothingWhenSlotCountIsNotWritten) {
  provider.Slot(1).Token("Alice").Certificate("A");
  Open();
  provider.On("C_GetSlotList").DoNothing().Always();
  EXPECT_THAT(module.GetCertificates(), IsEmpty());
  EXPECT_TRACE(FetchesSlots({}));
}

TEST_F(ListingTest, KeepsChangeWhenTokenIsInsertedBetweenCalls) {
  provider.Slot(1).Token("Empty");
  Open();
  provider.On("C_GetSlotList").After([this] { provider.Slot(2).Token("Bob"); });
  EXPECT_THAT(module.GetCertificates(), IsEmpty());
  EXPECT_TRACE(BeginsFetch("1"), "C_GetSlotList(TOKEN_PRESENT, room for 1) = BUFFER_TOO_SMALL");
  EXPECT_TRUE(module.changed);
  EXPECT_TRUE(module.HasChanged());
}

TEST_F(ListingTest, SkipsTokenThatIsRemovedBetweenCalls) {
  provider.Slot(1).Token("Empty");
  provider.Slot(2).Token("Bob");
  Open();
  provider.On("C_GetSlotList").After([this] { provider.Slot(2).Remove(); });
  EXPECT_THAT(module.GetCertificates(), IsEmpty());
  EXPECT_TRACE(BeginsFetch("2"), FillsSlotArray(2, {1}), DescribesEmptyToken(1, 1));
  EXPECT_FALSE(module.changed);
}

TEST_F(ListingTest, DoesNotReadBeyondSlotArray) {
  provider.Slot(1).Token("Empty");
  Open();
  provider.On("C_GetSlotList", 2).ReportNumber(CK_UNAVAILABLE_INFORMATION);
  EXPECT_THAT(module.GetCertificates(), IsEmpty());
  EXPECT_TRACE(FetchesSlots({1}), DescribesEmptyToken(1, 1));
  EXPECT_FALSE(module.changed);
}

TEST_F(ListingTest, ThrowsBadAllocForImpossibleSlotCount) {
  if (kImpossibleAllocationsAbort)
    GTEST_SKIP() << "clang's AddressSanitizer ends the program at an impossible allocation";
  Open();
  provider.On("C_GetSlotList").ReportNumber(CK_UNAVAILABLE_INFORMATION);
  EXPECT_THROW(module.GetCertificates(), std::bad_alloc);
  EXPECT_TRACE("log 5: Fetching tokens...", CountsSlots("unavailable"), "log 5: Found -1 slots.");
  EXPECT_TRUE(module.changed);
}

// The slot array is not written to before the provider has filled it, so that a count that is far
// too high uses address space but no memory.
TEST_F(ListingTest, UsesNoMemoryForSlotsThatDoNotExist) {
  constexpr CK_ULONG kSlots = 1UL << 24;
  provider.Slot(1).Token("Empty");
  Open();
  provider.On("C_GetSlotList").ReportNumber(kSlots);
  const long before = ResidentBytes();
  long during = 0;
  provider.On("C_GetSlotList", 2).Before([&during] { during = ResidentBytes(); });
  EXPECT_THAT(module.GetCertificates(), IsEmpty());
  EXPECT_LT(during - before, static_cast<long>(kSlots * sizeof(CK_SLOT_ID) / 2));
  EXPECT_TRACE(BeginsFetch("16777216"), FillsSlotArray(kSlots, {1}), DescribesEmptyToken(1, 1));
}

TEST_F(ListingTest, ClearsChangeUntilNextOne) {
  Open();
  const auto has_changed_after_listing = [this] {
    module.GetCertificates();
    return module.HasChanged();
  };
  EXPECT_FALSE(has_changed_after_listing());
  provider.AddSlotEvent(1);
  EXPECT_TRUE(module.HasChanged());
  EXPECT_FALSE(has_changed_after_listing());
  ASSERT_TRUE(module.AddFilter("x||0"));
  EXPECT_TRUE(module.HasChanged());
  EXPECT_FALSE(has_changed_after_listing());
  module.ClearFilters();
  EXPECT_TRUE(module.HasChanged());
  EXPECT_FALSE(has_changed_after_listing());
  ASSERT_TRUE(module.SetNameComponents("card_label"));
  EXPECT_FALSE(module.HasChanged()) << "a naming specification is not a change";
  Open();
  EXPECT_TRUE(module.HasChanged());
}

}  // namespace
