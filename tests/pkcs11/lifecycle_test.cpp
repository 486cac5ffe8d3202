// Construction, Close and destruction of a module, and HasChanged.
#include <memory>

#include "pkcs11/expected.h"
#include "pkcs11/module_test.h"
#include "support/ckr_names.h"

namespace {

using testing::ElementsAre;

using LifecycleTest = ModuleTest;

TEST_F(LifecycleTest, StartsWithoutProviderAndWithDefaultName) {
  EXPECT_EQ(module.library_path, "");
  EXPECT_EQ(module.library_handle, nullptr);
  EXPECT_EQ(module.function_list, nullptr);
  ASSERT_EQ(module.name_components.size(), 1u);
  EXPECT_EQ(module.name_components.front().category, PKCS11Module::NAME_SUBJECT);
  EXPECT_EQ(module.name_components.front().attribute, "commonName");
  EXPECT_TRUE(module.filters.empty());
  EXPECT_TRACE("");
}

TEST_F(LifecycleTest, CloseResetsMembersWithoutProvider) {
  CK_FUNCTION_LIST stale = {};
  module.function_list = &stale;  // A failed Open() can leave this.
  module.library_path = "stale";
  module.Close();
  EXPECT_EQ(module.function_list, nullptr);
  EXPECT_EQ(module.library_path, "");
  EXPECT_EQ(module.library_handle, nullptr);
  EXPECT_TRACE("");
}

TEST_F(LifecycleTest, CloseFinalizesAndUnloads) {
  Open();
  EXPECT_EQ(&module.GetLibraryPath(), &module.library_path) << "must return a reference";
  EXPECT_EQ(module.GetLibraryPath(), ProviderPath("scripted"));
  module.Close();
  EXPECT_TRACE(UnloadsProvider());
  EXPECT_EQ(module.GetLibraryPath(), "");
  EXPECT_EQ(module.library_handle, nullptr);
  EXPECT_EQ(module.function_list, nullptr);
  module.Close();
  EXPECT_TRACE("");
}

TEST_F(LifecycleTest, CloseKeepsChangeFlag) {
  for (const bool changed : {false, true}) {
    Open();
    module.changed = changed;
    module.Close();
    EXPECT_EQ(module.changed, changed);
    module.Close();
    EXPECT_EQ(module.changed, changed) << "without a provider";
  }
}

TEST_F(LifecycleTest, UnloadsLibraryWhenFinalizeFails) {
  Open();
  provider.On("C_Finalize").Return(CKR_DEVICE_ERROR);
  module.Close();
  EXPECT_TRACE(R"(
    C_Finalize(NULL) = DEVICE_ERROR
    dlclose(scripted.so), unloaded
  )");
  EXPECT_EQ(module.library_handle, nullptr);
}

TEST_F(LifecycleTest, DestructorFinalizesOnceAndUnloads) {
  auto another = std::make_unique<PKCS11Module>();
  ASSERT_EQ(another->Open(ProviderPath("scripted")), 0);
  ClearTrace();
  another.reset();
  EXPECT_TRACE(UnloadsProvider());
}

TEST_F(LifecycleTest, DestructorDoesNothingWithoutProvider) {
  std::make_unique<PKCS11Module>().reset();
  EXPECT_TRACE("");
}

TEST_F(LifecycleTest, CloseKeepsConfiguration) {
  provider.Slot(1).Token("Alice").Certificate("A;usage=128").Certificate("B;usage=1");
  ASSERT_TRUE(module.SetNameComponents("card_label,subject_commonName"));
  ASSERT_TRUE(module.AddFilter("Signing||128"));
  for (const char* name : {"scripted", "copy"}) {
    Open(name);
    const std::list<pkcs11_certificate> records = module.GetCertificates();
    EXPECT_THAT(Names(records), ElementsAre("Alice/A", "Alice/B"));
    EXPECT_TRUE(records.front().matches_filter);
    EXPECT_FALSE(records.back().matches_filter);
    module.Close();
  }
}

using PollingTest = ModuleTest;

TEST_F(PollingTest, ReportsChangeAfterOpenUntilListing) {
  Open();
  EXPECT_TRUE(module.HasChanged());
  EXPECT_TRUE(module.HasChanged());
  EXPECT_TRACE("");
  module.GetCertificates();
  ClearTrace();
  EXPECT_FALSE(module.HasChanged());
  EXPECT_TRACE(R"(
    C_WaitForSlotEvent(DONT_BLOCK) = NO_EVENT
    C_GetSlotList(ALL, NULL) = OK, 0 slots
    C_WaitForSlotEvent(DONT_BLOCK) = NO_EVENT
  )");
}

TEST_F(PollingTest, ReportsNoChangeWithoutProvider) {
  ASSERT_TRUE(module.AddFilter("x||0"));
  EXPECT_TRUE(module.changed);
  EXPECT_FALSE(module.HasChanged());
  EXPECT_TRACE("");
}

TEST_F(PollingTest, ReportsNoChangeAfterClose) {
  Open();
  module.Close();
  ClearTrace();
  EXPECT_TRUE(module.changed);
  EXPECT_FALSE(module.HasChanged());
  EXPECT_TRACE("");
}

TEST_F(PollingTest, ReportsNoChangeWhenEventsAreNotSupported) {
  OpenUnchanged();
  provider.On("C_WaitForSlotEvent").Return(CKR_FUNCTION_NOT_SUPPORTED).Always();
  EXPECT_FALSE(module.HasChanged());
  EXPECT_TRACE(R"(
    C_WaitForSlotEvent(DONT_BLOCK) = FUNCTION_NOT_SUPPORTED
    C_GetSlotList(ALL, NULL) = OK, 0 slots
    C_WaitForSlotEvent(DONT_BLOCK) = FUNCTION_NOT_SUPPORTED
  )");
  EXPECT_FALSE(module.changed);
  module.changed = true;
  EXPECT_TRUE(module.HasChanged());
  EXPECT_TRACE("");
}

TEST_F(PollingTest, TreatsEveryErrorAsNoEvent) {
  OpenUnchanged();
  for (const CK_RV rv : support::AllCkrValues()) {
    if (rv == CKR_OK)
      continue;
    provider.AddPollResult(rv);
    provider.AddPollResult(rv);
    EXPECT_FALSE(module.HasChanged()) << rv;
    EXPECT_FALSE(module.changed) << rv;
  }
}

TEST_F(PollingTest, ConsumesAllQueuedEventsInOneCall) {
  OpenUnchanged();
  for (const CK_SLOT_ID slot : {1UL, 2UL, 1UL})
    provider.AddSlotEvent(slot);
  EXPECT_TRUE(module.HasChanged());
  EXPECT_TRACE(R"(
    C_WaitForSlotEvent(DONT_BLOCK) = OK, slot 1
    C_WaitForSlotEvent(DONT_BLOCK) = OK, slot 2
    C_WaitForSlotEvent(DONT_BLOCK) = OK, slot 1
    C_WaitForSlotEvent(DONT_BLOCK) = NO_EVENT
  )");
  EXPECT_TRUE(module.changed);
  EXPECT_TRUE(module.HasChanged());
  EXPECT_TRACE("");
}

TEST_F(PollingTest, DoesNotLimitEventsPerCall) {
  constexpr int kEvents = 25;
  OpenUnchanged();
  for (int i = 0; i < kEvents; ++i)
    provider.AddSlotEvent(1);
  EXPECT_TRUE(module.HasChanged());
  EXPECT_TRACE(Repeated(kEvents, "C_WaitForSlotEvent(DONT_BLOCK) = OK, slot 1\n") +
               "C_WaitForSlotEvent(DONT_BLOCK) = NO_EVENT\n");
}

TEST_F(PollingTest, PollsAgainAfterListingSlots) {
  OpenUnchanged();
  provider.AddPollResult(CKR_NO_EVENT);
  provider.AddSlotEvent(3);
  EXPECT_TRUE(module.HasChanged());
  EXPECT_TRACE(R"(
    C_WaitForSlotEvent(DONT_BLOCK) = NO_EVENT
    C_GetSlotList(ALL, NULL) = OK, 0 slots
    C_WaitForSlotEvent(DONT_BLOCK) = OK, slot 3
    C_WaitForSlotEvent(DONT_BLOCK) = NO_EVENT
  )");
}

TEST_F(PollingTest, IgnoresFailureToListSlots) {
  OpenUnchanged();
  provider.AddPollResult(CKR_NO_EVENT);
  provider.AddSlotEvent(3);
  provider.On("C_GetSlotList").Return(CKR_DEVICE_ERROR);
  EXPECT_TRUE(module.HasChanged());
  EXPECT_TRACE(R"(
    C_WaitForSlotEvent(DONT_BLOCK) = NO_EVENT
    C_GetSlotList(ALL, NULL) = DEVICE_ERROR
    C_WaitForSlotEvent(DONT_BLOCK) = OK, slot 3
    C_WaitForSlotEvent(DONT_BLOCK) = NO_EVENT
  )");
}

TEST_F(PollingTest, StopsConsumingEventsAtError) {
  OpenUnchanged();
  provider.AddSlotEvent(1);
  provider.AddPollResult(CKR_GENERAL_ERROR);
  EXPECT_TRUE(module.HasChanged());
  EXPECT_TRACE(R"(
    C_WaitForSlotEvent(DONT_BLOCK) = OK, slot 1
    C_WaitForSlotEvent(DONT_BLOCK) = GENERAL_ERROR
  )");
}

}  // namespace
