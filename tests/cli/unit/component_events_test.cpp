// Drives the component on the scripted provider until it has logged each line that the program
// knows. A test fails if the component's texts and the program's table no longer agree.
#include "cli/component_events.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <deque>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "cli/component_log.h"
#include "pkcs11/pkcs11.h"
#include "scripted_provider/provider.h"
#include "support/der_writer.h"
#include "support/rsa_key.h"

namespace cardcert::cli {
namespace {

using Kind = ComponentEventKind;
using testing::IsEmpty;

constexpr CK_SLOT_ID kSlot = 7;

// Answers requests for PINs of all types in order. Cancels when none is left.
struct Answers {
  std::deque<std::string> pins;

  static bool Ask(pkcs11_pin_type type, unsigned char* buffer, unsigned long* length, void* data) {
    auto* const answers = static_cast<Answers*>(data);
    if (answers->pins.empty())
      return false;
    const std::string pin = answers->pins.front();
    answers->pins.pop_front();
    if (type != PIN_TYPE_UNLOCK)
      *length = pin.copy(reinterpret_cast<char*>(buffer), *length);
    return true;
  }
};

class ComponentEventsTest : public testing::Test {
 protected:
  ComponentEventsTest() : provider_(scripted::Provider::Instance()) { Reset(); }
  ~ComponentEventsTest() override { module_->Close(); }

  // Begins a scenario, with one empty slot and default names and filters.
  void Reset() {
    module_.reset();
    provider_.Reset();
    provider_.Slot(kSlot, "Reader");
    module_ = std::make_unique<PKCS11Module>();
    log_.Clear();
  }

  static std::string Path(const std::string& name) { return SCRIPTED_PROVIDER_FOLDER + name; }

  // Inserts a token with these certificates and loads the provider.
  scripted::Token& OpenWith(const std::vector<std::string>& certificates) {
    scripted::Token& token = provider_.Slot(kSlot).Token("Card (PIN)");
    for (const std::string& value : certificates)
      token.Certificate(value, "id");
    EXPECT_EQ(module_->Open(Path("scripted.so")), 0);
    log_.Clear();
    return token;
  }

  // The same with a private key and PINs.
  scripted::Token& OpenWithKey() {
    scripted::Token& token = OpenWith({der::Certificate().Der()});
    token.UserPin("1234").SoPin("87654321").PrivateKey("id", key_);
    return token;
  }

  bool Sign(const std::deque<std::string>& pins) {
    Answers answers = {pins};
    const unsigned char data[] = {1};
    std::vector<unsigned char> signature(8193);
    unsigned long length = signature.size();
    return module_->Sign("01", data, sizeof data, signature.data(), &length, &Answers::Ask, nullptr,
                         &answers);
  }

  // Returns the first event of this kind, and notes that the component has produced it.
  ComponentEvent Event(Kind kind) {
    for (const ComponentEvent& event : log_.events()) {
      if (event.kind == kind) {
        produced_.insert(kind);
        return event;
      }
    }
    ADD_FAILURE() << "no event of kind " << static_cast<int>(kind);
    return {};
  }

  void LoadProviders() {
    testing::internal::CaptureStderr();
    EXPECT_NE(module_->Open("/no/such.so"), 0);
    EXPECT_EQ(Event(Kind::kLoadFailed).text, "/no/such.so");
    EXPECT_NE(module_->Open(Path("no_function_list.so")), 0);
    EXPECT_EQ(Event(Kind::kNotAProvider).text, Path("no_function_list.so"));
    provider_.On("C_Initialize").Return(CKR_DEVICE_ERROR);
    EXPECT_NE(module_->Open(Path("scripted.so")), 0);
    EXPECT_EQ(Event(Kind::kInitializeFailed).text, Path("scripted.so"));
    EXPECT_EQ(Event(Kind::kInitializeFailed).rv, CKR_DEVICE_ERROR);
    provider_.On("C_GetInfo").Return(CKR_FUNCTION_FAILED);
    EXPECT_EQ(module_->Open(Path("scripted.so")), 0);
    EXPECT_EQ(Event(Kind::kGetInfoFailed).text, Path("scripted.so"));
    EXPECT_EQ(Event(Kind::kGetInfoFailed).rv, CKR_FUNCTION_FAILED);
    testing::internal::GetCapturedStderr();
    Reset();
  }

  void SetNamesAndFilters() {
    for (const char* const name : {"subject_CN\\", "subject_CN, card_label", ""}) {
      EXPECT_FALSE(module_->SetNameComponents(name));
      Event(Kind::kNameSpecificationInvalid);
      log_.Clear();
    }
    for (const char* const filter : {"a\\", "a|b", "a|x\\\\|0"}) {
      EXPECT_FALSE(module_->AddFilter(filter));
      Event(Kind::kFilterInvalid);
      log_.Clear();
    }
    EXPECT_FALSE(module_->SetNameComponents("subject"));
    EXPECT_EQ(Event(Kind::kElementInvalid).text, "subject");
    EXPECT_FALSE(module_->SetNameComponents("Subject_CN"));
    EXPECT_EQ(Event(Kind::kNameCategoryUnknown).text, "Subject");
    Reset();
  }

  void WalkOverSlots() {
    OpenWith({});
    module_->GetCertificates();
    EXPECT_EQ(Event(Kind::kSlotEntered).slot, kSlot);
    EXPECT_EQ(Event(Kind::kSlotEntered).text, "Reader");
    EXPECT_EQ(Event(Kind::kTokenFound).label, "Card (PIN)");
    EXPECT_EQ(Event(Kind::kNoCertificates).label, "Card (PIN)");
    provider_.On("C_GetSlotInfo").Return(CKR_DEVICE_ERROR);
    module_->GetCertificates();
    EXPECT_EQ(Event(Kind::kSlotInfoUnreadable).slot, kSlot);
    provider_.On("C_GetTokenInfo").Return(CKR_DEVICE_ERROR);
    module_->GetCertificates();
    EXPECT_EQ(Event(Kind::kTokenInfoUnreadable).slot, kSlot);
    provider_.On("C_OpenSession").Return(CKR_DEVICE_ERROR);
    module_->GetCertificates();
    Event(Kind::kSessionNotOpened);
    provider_.On("C_FindObjectsInit").Return(CKR_DEVICE_ERROR);
    module_->GetCertificates();
    Event(Kind::kSearchFailed);
    Reset();
  }

  void ReadCertificates() {
    OpenWith({der::Certificate().Subject({{"CN", "Test"}}).Serial("\x4f\xa1").Der(), "not DER"});
    module_->GetCertificates();
    EXPECT_EQ(Event(Kind::kSubjectRead).text, "CN=Test");
    EXPECT_EQ(Event(Kind::kSerialRead).text, "4fa1");
    EXPECT_EQ(Event(Kind::kDescribed).number, 2048U);
    Event(Kind::kCertificateMalformed);
    provider_.On("C_GetAttributeValue").Return(CKR_DEVICE_ERROR);
    provider_.On("C_GetAttributeValue", 2).ReportNumber(CK_UNAVAILABLE_INFORMATION);
    module_->GetCertificates();
    Event(Kind::kCertificateUnreadable);
    Event(Kind::kCertificateTooLarge);
    EXPECT_TRUE(module_->SetNameComponents("card_a,pin_b,subject_c,issuer_d"));
    module_->GetCertificates();
    EXPECT_EQ(Event(Kind::kCardAttributeUnknown).attribute, "a");
    EXPECT_EQ(Event(Kind::kPinAttributeUnknown).attribute, "b");
    EXPECT_EQ(Event(Kind::kSubjectAttributeUnreadable).attribute, "c");
    EXPECT_EQ(Event(Kind::kIssuerAttributeUnreadable).attribute, "d");
    Reset();
  }

  // Lists one certificate that is left out.
  void LeaveOut(Kind kind, const der::Certificate& certificate) {
    OpenWith({certificate.Der()});
    EXPECT_THAT(module_->GetCertificates(), IsEmpty());
    EXPECT_EQ(Event(kind).label, "Card (PIN)");
    Reset();
  }

  void LeaveOutCertificates() {
    const std::string garbage = der::Null();
    LeaveOut(Kind::kPublicKeyUnreadable, der::Certificate().Ec());
    LeaveOut(Kind::kKeyUsageUnreadable,
             der::Certificate().Add(der::Extension("2.5.29.15", garbage)));
    LeaveOut(Kind::kCaUnreadable, der::Certificate().Add(der::Extension("2.5.29.19", garbage)));
    LeaveOut(Kind::kSubjectUnreadable,
             der::Certificate().Subject({{"CN", std::string(20000, 'x')}}));
    LeaveOut(Kind::kSerialUnreadable, der::Certificate().Serial(std::string(20000, '\1')));
    OpenWith({der::Certificate().Der()});
    module_->name_components.clear();
    EXPECT_THAT(module_->GetCertificates(), IsEmpty());
    EXPECT_EQ(Event(Kind::kNameMissing).label, "Card (PIN)");
    Reset();
  }

  void FindAndSign() {
    scripted::Token& token = OpenWithKey();
    EXPECT_FALSE(module_->CertificatePresent("02"));
    EXPECT_EQ(Event(Kind::kSlotSearched).slot, kSlot);
    Event(Kind::kCertificateNotFound);
    EXPECT_TRUE(Sign({"1234"}));
    Event(Kind::kCertificateFound);
    Event(Kind::kSigned);
    Event(Kind::kPrivateKeySearched);
    EXPECT_FALSE(Sign({}));
    Event(Kind::kSignatureCancelled);
    provider_.On("C_Sign").Return(CKR_DEVICE_REMOVED);
    EXPECT_FALSE(Sign({"1234"}));
    EXPECT_EQ(Event(Kind::kSignatureFailed).rv, CKR_DEVICE_REMOVED);
    provider_.On("C_GetAttributeValue", 3).Return(CKR_ATTRIBUTE_SENSITIVE);
    EXPECT_FALSE(Sign({"1234"}));
    Event(Kind::kKeyIdUnreadable);
    provider_.On("C_GetTokenInfo").Return(CKR_DEVICE_ERROR);
    EXPECT_FALSE(Sign({"1234"}));
    Event(Kind::kSignTokenInfoUnreadable);

    EXPECT_FALSE(Sign({"9999"}));
    EXPECT_EQ(Event(Kind::kLoginRefused).rv, CKR_PIN_INCORRECT);
    Event(Kind::kPinCountLow);
    EXPECT_EQ(log_.TakePinWarning(), PinWarning::kCountLow);
    token.UserTriesLeft(1);
    EXPECT_FALSE(Sign({}));
    Event(Kind::kPinFinalTry);
    EXPECT_EQ(log_.TakePinWarning(), PinWarning::kFinalTry);
    EXPECT_EQ(log_.TakePinWarning(), PinWarning::kNone);
    provider_.On("C_Login").Return(CKR_DEVICE_ERROR);
    EXPECT_FALSE(Sign({"1234"}));
    EXPECT_EQ(Event(Kind::kLoginFailed).rv, CKR_DEVICE_ERROR);

    token.UserTriesLeft(0);
    provider_.On("C_InitPIN", 2).Return(CKR_DEVICE_ERROR);
    EXPECT_FALSE(Sign({"yes", "87654321", "567", "5678"}));
    Event(Kind::kPinLocked);
    EXPECT_EQ(Event(Kind::kNewPinRefused).rv, CKR_PIN_LEN_RANGE);
    EXPECT_EQ(Event(Kind::kNewPinFailed).rv, CKR_DEVICE_ERROR);
    Reset();
  }

  scripted::Provider& provider_;
  ComponentLog log_;
  std::unique_ptr<PKCS11Module> module_;
  std::shared_ptr<const support::RsaKey> key_ = support::RsaKey::Generate(1024);
  std::set<Kind> produced_;
};

TEST_F(ComponentEventsTest, RecognizesEveryLineThatTheComponentLogs) {
  LoadProviders();
  SetNamesAndFilters();
  WalkOverSlots();
  ReadCertificates();
  LeaveOutCertificates();
  FindAndSign();
  const std::vector<Kind> known = KnownEventKinds();
  EXPECT_EQ(produced_, std::set<Kind>(known.begin(), known.end()));
}

TEST(ComponentEventTest, KeepsLinesThatItDoesNotKnow) {
  const ComponentEvent event = ParseComponentEvent("Fetching tokens...", kTrace);
  EXPECT_EQ(event.kind, Kind::kOther);
  EXPECT_EQ(event.level, kTrace);
  EXPECT_EQ(event.message, "Fetching tokens...");
}

TEST(ComponentEventTest, ReadsNumbersAsTheComponentWritesThem) {
  EXPECT_EQ(ParseComponentEvent("Getting certificates for slot -1", kTrace).slot, ~0UL);
  EXPECT_EQ(ParseComponentEvent("Signature operation failed (2147483649)", kFailed).rv,
            CKR_VENDOR_DEFINED + 1);
  EXPECT_EQ(ParseComponentEvent("Signature operation failed (1x)", kFailed).kind, Kind::kOther);
  EXPECT_EQ(ParseComponentEvent("Signature operation failed ()", kFailed).kind, Kind::kOther);
}

TEST(ComponentEventTest, TakesFieldsWholeWhateverTheyContain) {
  const ComponentEvent event =
      ParseComponentEvent("No certificate associated with token \"a\" is for a CA\"", kFailed);
  EXPECT_EQ(event.kind, Kind::kNoCertificates);
  EXPECT_EQ(event.label, "a\" is for a CA");
  const ComponentEvent entered =
      ParseComponentEvent("Getting token for slot 3 on 'x' on 'y'", kTrace);
  EXPECT_EQ(entered.slot, 3U);
  EXPECT_EQ(entered.text, "x' on 'y");
}

TEST(ComponentEventTest, DoesNotTakeALineOfAnotherLevel) {
  // What the loader says is logged at level 2, whatever it is.
  EXPECT_EQ(ParseComponentEvent("Certificate found", kProviderUnusable).kind, Kind::kOther);
  EXPECT_EQ(ParseComponentEvent("Certificate found", kTrace).kind, Kind::kCertificateFound);
}

}  // namespace
}  // namespace cardcert::cli
