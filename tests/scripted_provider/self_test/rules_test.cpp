// Rules of the scripted provider apply to the calls they are meant for.
#include "scripted_provider/self_test/provider_fixture.h"
#include "scripted_provider/trace_text.h"
#include "support/ckr_names.h"

namespace {

using testing::ElementsAre;

class Rules : public ScriptedProviderTest {
 protected:
  CK_RV GetInfo() {
    CK_INFO info = {};
    return p11->C_GetInfo(&info);
  }
  CK_ULONG SlotCount() {
    CK_ULONG count = 0;
    EXPECT_EQ(p11->C_GetSlotList(CK_FALSE, nullptr, &count), CKR_OK);
    return count;
  }
};

TEST_F(Rules, ForcedResultAppliesToOneCallOfOneFunction) {
  provider.On("C_GetInfo", 2).Return(CKR_DEVICE_ERROR);
  EXPECT_EQ(GetInfo(), CKR_OK);
  EXPECT_EQ(SlotCount(), 0u);
  EXPECT_EQ(GetInfo(), CKR_DEVICE_ERROR);
  EXPECT_EQ(GetInfo(), CKR_OK);
}

TEST_F(Rules, CountsCallsOfAnyFunction) {
  const int before = provider.num_calls();
  provider.OnAnyCall(2).Return(CKR_DEVICE_ERROR);
  EXPECT_EQ(SlotCount(), 0u);
  EXPECT_EQ(GetInfo(), CKR_DEVICE_ERROR);
  EXPECT_EQ(GetInfo(), CKR_OK);
  EXPECT_EQ(provider.num_calls() - before, 3);
  EXPECT_EQ(provider.num_calls("C_GetInfo"), 2);
}

TEST_F(Rules, AlwaysAppliesForcedResultToLaterCalls) {
  provider.On("C_GetInfo", 2).Return(CKR_DEVICE_ERROR).Always();
  EXPECT_EQ(GetInfo(), CKR_OK);
  EXPECT_EQ(GetInfo(), CKR_DEVICE_ERROR);
  EXPECT_EQ(GetInfo(), CKR_DEVICE_ERROR);
}

TEST_F(Rules, ReportNumberReplacesNumber) {
  provider.On("C_GetSlotList").ReportNumber(99);
  EXPECT_EQ(SlotCount(), 99u);
  EXPECT_EQ(SlotCount(), 0u);
}

TEST_F(Rules, RunsActionsBeforeAndAfterCall) {
  provider.On("C_GetSlotList").Before([this] { provider.Slot(1); });
  provider.On("C_GetSlotList").After([this] { provider.Slot(2); });
  EXPECT_EQ(SlotCount(), 1u);
  EXPECT_EQ(SlotCount(), 2u);
}

TEST_F(Rules, ReportHandleReplacesHandle) {
  provider.Slot(1).Token("Alice");
  provider.AddSlotEvent(1);
  provider.On("C_WaitForSlotEvent").ReportHandle(77);
  CK_SLOT_ID slot = 0;
  EXPECT_EQ(p11->C_WaitForSlotEvent(CKF_DONT_BLOCK, &slot, nullptr), CKR_OK);
  EXPECT_EQ(slot, 77u);
}

// As on a real token, a session is closed even if C_CloseSession fails.
TEST_F(Rules, ForcedFailureStillClosesAndFinalizes) {
  provider.Slot(1).Token("Alice");
  const CK_SESSION_HANDLE session = OpenSession(1);
  provider.On("C_CloseSession").Return(CKR_DEVICE_ERROR);
  EXPECT_EQ(p11->C_CloseSession(session), CKR_DEVICE_ERROR);
  provider.On("C_Finalize").Return(CKR_DEVICE_ERROR);
  EXPECT_EQ(p11->C_Finalize(nullptr), CKR_DEVICE_ERROR);
  EXPECT_THAT(provider.Violations(), testing::IsEmpty());
}

TEST_F(Rules, ReturnsSlotEventsInOrder) {
  provider.AddSlotEvent(3);
  provider.AddPollResult(CKR_DEVICE_ERROR);
  provider.AddSlotEvent(4);
  CK_SLOT_ID slot = 0;
  EXPECT_EQ(p11->C_WaitForSlotEvent(CKF_DONT_BLOCK, &slot, nullptr), CKR_OK);
  EXPECT_EQ(slot, 3u);
  EXPECT_EQ(p11->C_WaitForSlotEvent(CKF_DONT_BLOCK, &slot, nullptr), CKR_DEVICE_ERROR);
  EXPECT_EQ(p11->C_WaitForSlotEvent(CKF_DONT_BLOCK, &slot, nullptr), CKR_OK);
  EXPECT_EQ(slot, 4u);
  EXPECT_EQ(p11->C_WaitForSlotEvent(CKF_DONT_BLOCK, &slot, nullptr), CKR_NO_EVENT);
}

TEST(Names, KnowsEveryResult) {
  EXPECT_EQ(support::CkrName(CKR_OK), "OK");
  EXPECT_EQ(support::CkrName(CKR_PIN_LOCKED), "PIN_LOCKED");
  EXPECT_EQ(support::CkrName(0x12345), "74565");
  EXPECT_GT(support::AllCkrValues().size(), 90u);
}

TEST(TraceLines, EscapeTrailingBlanksAndOmitFolders) {
  scripted::Trace trace;
  trace.OmitFolder("/some/where/");
  trace.Add("plain");
  trace.Add("two\nlines\x7f");
  trace.Add("blank at the end ");
  trace.Add("/some/where/a.so and /some/where/b.so");
  EXPECT_THAT(trace.lines(),
              ElementsAre("plain", "two\\x0alines\\x7f", "blank at the end\\x20", "a.so and b.so"));
  EXPECT_EQ(scripted::Unindented("\n    a b\n\n  c \n"), "a b\nc \n");
}

}  // namespace
