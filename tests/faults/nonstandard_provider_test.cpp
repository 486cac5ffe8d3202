// A provider that deviates from the standard (PKCS#11 2.40), objects that are deleted, and slow
// calls.
#include <unistd.h>

#include "faults/operations.h"

namespace faults {
namespace {

using testing::HasSubstr;

class NonstandardProviderTest : public FaultsTest {
 protected:
  std::string Sign() {
    User user;
    return OperationNamed("Sign without a login").act(module, user);
  }
};

// Text fields are padded with blanks and not terminated (section 3.1).
TEST_F(NonstandardProviderTest, AcceptsTextFieldsWithoutPadding) {
  Begin();
  module.SetNameComponents("card_label");
  provider.manufacturer = std::string(32, 'm');
  provider.library_description = std::string(32, '\xff');
  provider.Slot(1).Description(std::string(64, 'd'));
  provider.Slot(1).Token().Label(std::string(32, 'l'));
  module.Open("direct");
  EXPECT_EQ(FailureLines(),
            "Loaded PKCS#11 module 'direct'\nManufacturer: " + std::string(32, 'm') +
                "\nLibrary description: " + std::string(32, '\xff') + '\n');
  const std::list<pkcs11_certificate> records = module.GetCertificates();
  ASSERT_EQ(records.size(), 2u);
  EXPECT_EQ(records.front().slot_description, std::string(64, 'd'));
  EXPECT_EQ(records.front().presentable_name.front(), std::string(32, 'l'));
}

// The function list must have an entry for every function (section 3.6).
TEST_F(NonstandardProviderTest, WorksWithoutEntryOfFunction) {
  using List = CK_FUNCTION_LIST;
  const std::pair<const char*, std::function<void(List&)>> kGaps[] = {
#define GAP(function)                                       \
  {                                                         \
#function, [](List & list) { list.function = nullptr; } \
  }
      GAP(C_Finalize),
      GAP(C_GetInfo),
      GAP(C_GetSlotList),
      GAP(C_GetSlotInfo),
      GAP(C_GetTokenInfo),
      GAP(C_WaitForSlotEvent),
      GAP(C_OpenSession),
      GAP(C_CloseSession),
      GAP(C_Login),
      GAP(C_Logout),
      GAP(C_InitPIN),
      GAP(C_FindObjectsInit),
      GAP(C_FindObjects),
      GAP(C_FindObjectsFinal),
      GAP(C_GetAttributeValue),
      GAP(C_SignInit),
      GAP(C_Sign),
#undef GAP
  };
  for (const auto& gap : kGaps) {
    const char* const name = gap.first;
    SCOPED_TRACE(name);
    provider.Reset();
    AddHealthyTokens(provider);
    SetPins(provider);
    provider.Slot(2).Token().UserTriesLeft(0);
    CK_FUNCTION_LIST list = {};
    scripted::in_process_loader::ReplaceFunctionList([&](CK_FUNCTION_LIST_PTR own) {
      list = *own;
      gap.second(list);
      return &list;
    });
    ASSERT_EQ(module.Open("direct"), 0);
    EXPECT_EQ(provider.num_calls(name), 0);
    User user;
    OperationNamed("Sign with a login").act(module, user);
    module.GetCertificates();
    module.HasChanged();
    module.CertificatePresent("02");
    module.Close();
    EXPECT_EQ(provider.num_calls(name), 0);
    EXPECT_EQ(scripted::in_process_loader::open_libraries(), 0);
    scripted::in_process_loader::Reset();
    host.Reset();
  }
  provider.Reset();
}

TEST_F(NonstandardProviderTest, RefusesProviderWithoutInitialize) {
  for (const bool everything : {false, true}) {
    CK_FUNCTION_LIST list = {};
    scripted::in_process_loader::ReplaceFunctionList([&](CK_FUNCTION_LIST_PTR own) {
      if (!everything)
        list = *own;
      list.C_Initialize = nullptr;
      return &list;
    });
    EXPECT_EQ(module.Open("direct"), -1);
    EXPECT_EQ(FailureLines(), "Error initializing PKCS#11 module 'direct': 84\n");
    EXPECT_EQ(module.library_handle, nullptr);
    EXPECT_EQ(scripted::in_process_loader::open_libraries(), 0);
    scripted::Trace::Instance().Clear();
  }
}

TEST_F(NonstandardProviderTest, RefusesProviderWithoutFunctionList) {
  scripted::in_process_loader::ReplaceFunctionList(
      [](CK_FUNCTION_LIST_PTR) -> CK_FUNCTION_LIST_PTR { return nullptr; });
  EXPECT_EQ(module.Open("direct"), -1);
  EXPECT_EQ(FailureLines(), "Error initializing PKCS#11 module 'direct': 5\n");
  EXPECT_EQ(scripted::in_process_loader::open_libraries(), 0);
}

TEST_F(NonstandardProviderTest, AcceptsAnyVersion) {
  for (const CK_VERSION version : {CK_VERSION{0, 0}, CK_VERSION{1, 0}, CK_VERSION{2, 1},
                                   CK_VERSION{3, 0}, CK_VERSION{255, 255}}) {
    CK_FUNCTION_LIST list = {};
    scripted::in_process_loader::ReplaceFunctionList([&](CK_FUNCTION_LIST_PTR own) {
      list = *own;
      list.version = version;
      return &list;
    });
    provider.Reset();
    AddHealthyTokens(provider);
    ASSERT_EQ(module.Open("direct"), 0);
    EXPECT_EQ(List(), "A B");
    module.Close();
    scripted::in_process_loader::Reset();
  }
}

TEST_F(NonstandardProviderTest, SkipsObjectDeletedBeforeItIsRead) {
  for (const int read : {1, 2}) {
    Begin();
    provider.On("C_GetAttributeValue", read).Before([&] {
      provider.Slot(1).Token().Delete(provider.Slot(1).Token().objects.front().handle);
    });
    EXPECT_EQ(List(), "B");
    EXPECT_EQ(FailureLines(),
              "Unable to read certificate\nNo certificate associated with token \"Alice\"\n");
    ExpectNothingLeftOver();
  }
}

TEST_F(NonstandardProviderTest, FailsWhenKeyIsDeletedBeforeItSigns) {
  Begin();
  provider.On("C_SignInit").Before([&] {
    provider.Slot(2).Token().Delete(provider.Slot(2).Token().objects.back().handle);
  });
  User user;
  const unsigned char data[] = {'d'};
  unsigned char signature[200];
  unsigned long length = sizeof signature;
  EXPECT_FALSE(module.Sign("02", data, 1, signature, &length, User::Ask, User::Tell, &user));
  EXPECT_EQ(FailureLines(), "Signature operation failed (96)\n");  // CKR_KEY_HANDLE_INVALID
  ExpectNothingLeftOver();
  ExpectStillWorks();
}

// The component passes no callbacks: no notification to C_OpenSession, no mutexes to C_Initialize.
TEST_F(NonstandardProviderTest, PassesNoCallbacksToProvider) {
  AddHealthyTokens(provider);
  module.Open("direct");
  module.GetCertificates();
  module.CertificatePresent("02");
  int num_initialized = 0;
  int num_opened = 0;
  for (const std::string& line : scripted::Trace::Instance().lines()) {
    num_initialized += line.rfind("C_Initialize(NULL) = OK", 0) == 0 ? 1 : 0;
    num_opened += line.rfind("C_OpenSession", 0) == 0 ? 1 : 0;
    EXPECT_THAT(line, testing::Not(HasSubstr("notify")));
    EXPECT_THAT(line, testing::Not(HasSubstr("application")));
  }
  EXPECT_EQ(num_initialized, 1);
  EXPECT_EQ(num_opened, 4);
}

TEST_F(NonstandardProviderTest, WaitsForSlowProvider) {
  Begin();
  provider.OnAnyCall(1).Always().Before([] { usleep(1000); });
  EXPECT_EQ(List(), "A B");
  EXPECT_EQ(Sign(), "signed");
  ExpectNothingLeftOver();
}

}  // namespace
}  // namespace faults
