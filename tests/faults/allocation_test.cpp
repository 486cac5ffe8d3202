// Each allocation of each operation fails once. The operation throws std::bad_alloc or skips what
// needs the memory. It changes either everything or nothing, and the module can still be used.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <new>

#include "faults/failing_memory.h"
#include "pkcs11/pkcs11.h"
#include "scripted_provider/in_process_loader.h"
#include "scripted_provider/provider.h"
#include "support/der_writer.h"

namespace {

using failing_memory::Uncounted;

// The provider's own list, and one with functions whose allocations are not counted.
CK_FUNCTION_LIST own_list;
CK_FUNCTION_LIST uncounted_list;

CK_FUNCTION_LIST_PTR Uncount(CK_FUNCTION_LIST_PTR list) {
  const Uncounted uncounted;
  uncounted_list = own_list = *list;
#define UNCOUNTED(function)                         \
  uncounted_list.function = [](auto... arguments) { \
    const Uncounted uncounted_here;                 \
    return own_list.function(arguments...);         \
  }
  UNCOUNTED(C_Initialize);
  UNCOUNTED(C_Finalize);
  UNCOUNTED(C_GetInfo);
  UNCOUNTED(C_GetSlotList);
  UNCOUNTED(C_GetSlotInfo);
  UNCOUNTED(C_GetTokenInfo);
  UNCOUNTED(C_WaitForSlotEvent);
  UNCOUNTED(C_OpenSession);
  UNCOUNTED(C_CloseSession);
  UNCOUNTED(C_Login);
  UNCOUNTED(C_Logout);
  UNCOUNTED(C_InitPIN);
  UNCOUNTED(C_FindObjectsInit);
  UNCOUNTED(C_FindObjects);
  UNCOUNTED(C_FindObjectsFinal);
  UNCOUNTED(C_GetAttributeValue);
  UNCOUNTED(C_SignInit);
  UNCOUNTED(C_Sign);
#undef UNCOUNTED
  return &uncounted_list;
}

bool Ask(pkcs11_pin_type type, unsigned char* buffer, unsigned long* length, void*) {
  if (type == PIN_TYPE_UNLOCK)
    return true;
  *length = type == PIN_TYPE_SO ? 8 : 4;
  std::memcpy(buffer, "12345678", *length);
  return true;
}

struct Case {
  const char* name;
  std::function<void(PKCS11Module&)> act;
  bool may_lose_certificates = false;  // In GetToken(), which an exception may end.
  bool locked = false;                 // The user PIN of the second slot.
};

void Sign(PKCS11Module& module) {
  unsigned char signature[200];
  unsigned long length = sizeof signature;
  module.Sign("02", reinterpret_cast<const unsigned char*>("data"), 4, signature, &length, Ask,
              nullptr, nullptr);
}

void SetNames(PKCS11Module& module) {
  module.SetNameComponents("card_label,subject_commonName,issuer_an.attribute.with.a.long.name");
}

const char kFilter[] = "A name that is long enough|commonName=Test CA,organizationName=Test|128";

const Case kCases[] = {
    {"Construct", [](PKCS11Module&) { const PKCS11Module another; }},
    {"Open", [](PKCS11Module& module) { module.Open("direct, by another and longer path"); }},
    {"Close", [](PKCS11Module& module) { module.Close(); }},
    {"HasChanged", [](PKCS11Module& module) { module.HasChanged(); }},
    {"SetNameComponents", SetNames},
    {"AddFilter", [](PKCS11Module& module) { module.AddFilter(kFilter); }},
    {"ClearFilters", [](PKCS11Module& module) { module.ClearFilters(); }},
    {"GetCertificates", [](PKCS11Module& module) { module.GetCertificates(); }, true},
    {"GetToken", [](PKCS11Module& module) { module.GetToken(1); }, true},
    {"GetTokenCertificates",
     [](PKCS11Module& module) {
       for (certificate* cert : module.GetTokenCertificates(1))
         cert_free(cert);
     }},
    {"CertificatePresent", [](PKCS11Module& module) { module.CertificatePresent("02"); }},
    {"FindCertificate",
     [](PKCS11Module& module) {
       if (const auto* const found = module.FindCertificate("02"))
         module.function_list->C_CloseSession(found->session);
     }},
    {"Sign", Sign},
    {"SignAndUnlock", Sign, false, true},
};

void PrintTo(const Case& operation, std::ostream* out) {
  *out << operation.name;
}

class EveryAllocationFails : public testing::TestWithParam<Case> {
 protected:
  EveryAllocationFails() : provider(scripted::Provider::Instance()) {
    scripted::in_process_loader::ReplaceFunctionList(Uncount);
  }
  ~EveryAllocationFails() override { scripted::in_process_loader::Reset(); }

  void AddTokens() {
    provider.Reset();
    scripted::Trace::Instance().Clear();
    for (const CK_SLOT_ID slot : {1UL, 2UL}) {
      const char id[] = {static_cast<char>(slot), 0};
      der::Certificate cert;
      cert.Serial(id).Subject({{"CN", "A name that is long enough to be allocated"}});
      cert.Issuer({{"O", "Test"}, {"CN", "Test CA"}}).KeyUsage(128).Ca(false);
      provider.Slot(slot).Token("Token").UserPin("1234").SoPin("12345678");
      provider.Slot(slot).Token().Certificate(cert.Der(), id).PrivateKey(id, Key());
    }
    if (GetParam().locked)
      provider.Slot(2).Token().UserTriesLeft(0);
  }

  // Sets a filter and a naming specification, and opens the provider.
  void Prepare(PKCS11Module& module) {
    AddTokens();
    ASSERT_TRUE(module.SetNameComponents("subject_commonName"));
    ASSERT_TRUE(module.AddFilter("|commonName=Test CA|0"));
    ASSERT_EQ(module.Open("direct"), 0);
    module.changed = true;
  }

  void ExpectNothingLeftOver(const PKCS11Module& module) {
    EXPECT_TRUE(provider.sessions().empty());
    for (const std::string& violation : provider.ViolationsSoFar())
      ADD_FAILURE() << violation;
    EXPECT_EQ(provider.initialized, module.library_handle != nullptr);
    EXPECT_EQ(scripted::in_process_loader::open_libraries(),
              module.library_handle != nullptr ? 1 : 0);
    EXPECT_EQ(module.GetLibraryPath().empty(), module.library_handle == nullptr);
  }

  void ExpectStillWorks(PKCS11Module& module) {
    ASSERT_EQ(module.Open("direct"), 0);
    const std::list<pkcs11_certificate> records = module.GetCertificates();
    EXPECT_EQ(records.size(), 2u);
    EXPECT_FALSE(module.changed);
    EXPECT_TRUE(module.CertificatePresent("02"));
  }

  static std::shared_ptr<const support::RsaKey> Key() {
    static const auto key = support::RsaKey::Generate(1024);
    return key;
  }

  scripted::Provider& provider;
};

TEST_P(EveryAllocationFails, LeavesModuleConsistent) {
  const Case& operation = GetParam();
  const std::string name = operation.name;
  int failed = 0;
  for (int nth = 1;; ++nth) {
    SCOPED_TRACE("allocation " + std::to_string(nth));
    PKCS11Module module;
    Prepare(module);
    if (name == "AddFilter" || name == "HasChanged")
      module.changed = false;

    bool thrown = false;
    failing_memory::FailAt(nth);
    try {
      operation.act(module);
    } catch (const std::bad_alloc&) {
      thrown = true;
    }
    if (!failing_memory::Stop())
      break;
    ++failed;

    ExpectNothingLeftOver(module);
    EXPECT_TRUE(failing_memory::certificates_alive() == 0 ||
                (operation.may_lose_certificates && thrown));
    failing_memory::FreeCertificates();
    if (name == "Construct") {  // Its default naming specification is allocated.
      EXPECT_TRUE(thrown);
    }
    if (thrown && name == "SetNameComponents") {
      EXPECT_EQ(module.name_components.size(), 1u);
    }
    if (thrown && name == "AddFilter") {
      EXPECT_EQ(module.filters.size(), 1u);
      EXPECT_FALSE(module.changed);
    }
    if (thrown && name == "GetCertificates") {
      EXPECT_TRUE(module.changed);
    }
    if (thrown && name == "Open") {  // Failed before or after it closed the previous provider.
      EXPECT_THAT(module.GetLibraryPath(), testing::AnyOf("", "direct"));
    }
    ExpectStillWorks(module);
    if (HasFailure())
      FAIL() << "stopping after the first failure";
  }
  std::printf("counted: %d allocations failed, one at a time\n", failed);
  const bool needs_none = name == "Close" || name == "HasChanged" || name == "ClearFilters";
  EXPECT_EQ(failed == 0, needs_none);
}

INSTANTIATE_TEST_SUITE_P(Faults, EveryAllocationFails, testing::ValuesIn(kCases),
                         [](const auto& parameter) { return parameter.param.name; });

}  // namespace
