// The scripted provider reports mistakes of its caller. The tests of the component rely on this.
#include "scripted_provider/self_test/provider_fixture.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class Violations : public ScriptedProviderTest {
 protected:
  void SetUp() override {
    ScriptedProviderTest::SetUp();
    provider.Slot(1).Token("Alice").UserPin("1234").Certificate("A");
  }
  void Finalize() { EXPECT_EQ(p11->C_Finalize(nullptr), CKR_OK); }
};

TEST_F(Violations, NoneForCorrectCaller) {
  const CK_SESSION_HANDLE session = OpenSession(1);
  EXPECT_EQ(Login(session, CKU_USER, "1234"), CKR_OK);
  EXPECT_THAT(Search(session, CKO_CERTIFICATE), ElementsAre(1));
  EXPECT_EQ(p11->C_Logout(session), CKR_OK);
  EXPECT_EQ(p11->C_CloseSession(session), CKR_OK);
  Finalize();
  EXPECT_THAT(provider.Violations(), IsEmpty());
}

TEST_F(Violations, ReportsCallsWhileUninitialized) {
  CK_INFO info = {};
  EXPECT_EQ(p11->C_Initialize(nullptr), CKR_CRYPTOKI_ALREADY_INITIALIZED);
  Finalize();
  EXPECT_EQ(p11->C_GetInfo(&info), CKR_CRYPTOKI_NOT_INITIALIZED);
  EXPECT_EQ(p11->C_Finalize(nullptr), CKR_CRYPTOKI_NOT_INITIALIZED);
  EXPECT_THAT(provider.Violations(),
              ElementsAre("C_Initialize twice", "C_GetInfo while the provider is not initialized",
                          "C_Finalize while the provider is not initialized"));
}

TEST_F(Violations, ReportsMissingFinalize) {
  EXPECT_THAT(provider.ViolationsSoFar(), IsEmpty());
  EXPECT_THAT(provider.Violations(), ElementsAre("the provider was never finalized"));
}

TEST_F(Violations, ReportsOpenSessions) {
  OpenSession(1);
  EXPECT_THAT(provider.Violations(),
              ElementsAre("session 1 was never closed", "the provider was never finalized"));
  Finalize();
  EXPECT_THAT(provider.Violations(), ElementsAre("C_Finalize with session 1 open"));
}

TEST_F(Violations, ReportsUseOfClosedSession) {
  const CK_SESSION_HANDLE session = OpenSession(1);
  EXPECT_EQ(p11->C_CloseSession(session), CKR_OK);
  EXPECT_EQ(p11->C_CloseSession(session), CKR_SESSION_HANDLE_INVALID);
  EXPECT_EQ(p11->C_Logout(session), CKR_SESSION_HANDLE_INVALID);
  Finalize();
  EXPECT_THAT(provider.Violations(), ElementsAre("a call on session 1, which is not open",
                                                 "a call on session 1, which is not open"));
}

TEST_F(Violations, ReportsSearchCallsOutOfOrder) {
  const CK_SESSION_HANDLE session = OpenSession(1);
  CK_OBJECT_HANDLE object = 0;
  CK_ULONG count = 0;
  EXPECT_EQ(p11->C_FindObjects(session, &object, 1, &count), CKR_OPERATION_NOT_INITIALIZED);
  EXPECT_EQ(p11->C_FindObjectsFinal(session), CKR_OPERATION_NOT_INITIALIZED);
  EXPECT_EQ(p11->C_FindObjectsInit(session, nullptr, 0), CKR_OK);
  EXPECT_EQ(p11->C_FindObjectsInit(session, nullptr, 0), CKR_OPERATION_ACTIVE);
  EXPECT_EQ(p11->C_CloseSession(session), CKR_OK);
  Finalize();
  EXPECT_THAT(provider.Violations(),
              ElementsAre("C_FindObjects without a search", "C_FindObjectsFinal without a search",
                          "C_FindObjectsInit during a search"));
}

TEST_F(Violations, ReportsUnbalancedLogins) {
  const CK_SESSION_HANDLE session = OpenSession(1);
  EXPECT_EQ(p11->C_Logout(session), CKR_USER_NOT_LOGGED_IN);
  EXPECT_EQ(Login(session, CKU_USER, "1234"), CKR_OK);
  EXPECT_EQ(p11->C_CloseSession(session), CKR_OK);
  Finalize();
  EXPECT_THAT(provider.Violations(),
              ElementsAre("C_Logout without a login", "session 1 closed without C_Logout"));
}

TEST_F(Violations, ReportsUnexpectedFunctions) {
  EXPECT_EQ(p11->C_SeedRandom(1, nullptr, 0), CKR_FUNCTION_NOT_SUPPORTED);
  EXPECT_EQ(p11->C_CloseAllSessions(1), CKR_FUNCTION_NOT_SUPPORTED);
  Finalize();
  EXPECT_THAT(provider.Violations(),
              ElementsAre("C_SeedRandom was called", "C_CloseAllSessions was called"));
}

TEST_F(Violations, ReportsBlockingPollAndParallelSession) {
  CK_SLOT_ID slot = 0;
  CK_SESSION_HANDLE session = 0;
  EXPECT_EQ(p11->C_WaitForSlotEvent(0, &slot, nullptr), CKR_FUNCTION_NOT_SUPPORTED);
  EXPECT_EQ(p11->C_OpenSession(1, CKF_RW_SESSION, nullptr, nullptr, &session),
            CKR_SESSION_PARALLEL_NOT_SUPPORTED);
  Finalize();
  EXPECT_THAT(provider.Violations(),
              ElementsAre("C_WaitForSlotEvent would block", "a parallel session"));
}

TEST_F(Violations, ReportsCallsFromAnotherThread) {
  std::thread([this] {
    CK_INFO info = {};
    p11->C_GetInfo(&info);
  }).join();
  Finalize();
  EXPECT_THAT(provider.Violations(),
              ElementsAre("C_GetInfo from another thread than C_Initialize"));
}

TEST_F(Violations, ReportsUnusedRulesAndEvents) {
  provider.On("C_Sign", 2).Return(CKR_DEVICE_ERROR);
  provider.OnAnyCall(9).Before([] {});
  provider.On("C_Login").Return(CKR_DEVICE_ERROR).Always();
  provider.AddSlotEvent(1);
  provider.AddPollResult(CKR_DEVICE_ERROR);
  Finalize();
  EXPECT_THAT(provider.Violations(),
              ElementsAre("unused rule for C_Sign, 2 calls away",
                          "unused rule for any function, 8 calls away",
                          "unused rule for C_Login, 1 calls away", "unused slot event OK",
                          "unused slot event DEVICE_ERROR"));
  provider.ClearScript();
  EXPECT_THAT(provider.Violations(), IsEmpty());
}

// Removing the card ends its sessions. That is no mistake of the caller, who still closes them.
TEST_F(Violations, NoneForSessionsLostByRemoval) {
  const CK_SESSION_HANDLE session = OpenSession(1);
  EXPECT_EQ(Login(session, CKU_USER, "1234"), CKR_OK);
  const auto token = provider.Slot(1).Remove();
  EXPECT_EQ(p11->C_Logout(session), CKR_SESSION_HANDLE_INVALID);
  EXPECT_THAT(provider.Violations(),
              ElementsAre("session 1 was never closed", "the provider was never finalized"));
  EXPECT_EQ(p11->C_CloseSession(session), CKR_SESSION_HANDLE_INVALID);
  provider.Slot(1).Insert(token);
  const CK_SESSION_HANDLE another = OpenSession(1);
  EXPECT_EQ(Login(another, CKU_USER, "1234"), CKR_OK);
  EXPECT_EQ(p11->C_Logout(another), CKR_OK);
  EXPECT_EQ(p11->C_CloseSession(another), CKR_OK);
  Finalize();
  EXPECT_THAT(provider.Violations(), IsEmpty());
}

}  // namespace
