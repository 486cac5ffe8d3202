#include "faults/faults_test.h"

#include <cstring>

namespace faults {

namespace {

constexpr char kUserPin[] = "1234";
constexpr char kSoPin[] = "12345678";

const std::shared_ptr<const support::RsaKey>& Key() {
  static const auto key = support::RsaKey::Generate(1024);
  return key;
}

}  // namespace

const support::RsaKey& HealthyKey() {
  return *Key();
}

void AddHealthyTokens(scripted::Provider& provider) {
  provider.Slot(1, "Left").Token("Alice").Certificate("A", "\x0a").PrivateKey("\x0a", Key());
  provider.Slot(2, "Right")
      .Token("Bob")
      .Certificate("B;serial=02", "\x0b")
      .PrivateKey("\x0b", Key());
}

void SetPins(scripted::Provider& provider) {
  for (const CK_SLOT_ID slot : {1UL, 2UL}) {
    scripted::Token& token = provider.Slot(slot).Token();
    token.UserPin(kUserPin).SoPin(kSoPin);
  }
}

bool User::Ask(pkcs11_pin_type type, unsigned char* buffer, unsigned long* length, void* data) {
  if (--static_cast<User*>(data)->requests_left < 0)
    return false;
  if (type == PIN_TYPE_UNLOCK)
    return true;
  const char* const pin = type == PIN_TYPE_SO ? kSoPin : kUserPin;
  *length = std::strlen(pin);
  std::memcpy(buffer, pin, *length);
  return true;
}

void User::Tell(pkcs11_pin_type, pkcs11_pin_error, void* data) {
  ++static_cast<User*>(data)->num_errors;
}

std::string NamesOf(const std::list<pkcs11_certificate>& records) {
  std::string names;
  for (const pkcs11_certificate& record : records)
    names += (names.empty() ? "" : " ") + record.presentable_name.front();
  return names;
}

std::vector<std::string> LogLines() {
  std::vector<std::string> lines;
  for (const std::string& line : scripted::Trace::Instance().lines()) {
    if (line.rfind("log ", 0) == 0)
      lines.push_back(line.substr(4));
  }
  return lines;
}

std::string FailureLines() {
  std::string lines;
  for (const std::string& line : LogLines()) {
    if (line[0] != '5')
      lines += line.substr(3) + '\n';
  }
  return lines;
}

FaultsTest::FaultsTest()
    : provider(scripted::Provider::Instance()), host(scripted_host::Host::Instance()) {
  provider.Reset();
  host.Reset();
  scripted::in_process_loader::Reset();
  scripted::Trace::Instance().Clear();
}

FaultsTest::~FaultsTest() {
  End();
  EXPECT_EQ(scripted::in_process_loader::open_libraries(), 0);
  scripted::in_process_loader::Reset();
  host.Reset();
}

void FaultsTest::Begin() {
  End();
  provider.Reset();
  host.Reset();
  AddHealthyTokens(provider);
  ASSERT_EQ(module.Open("direct"), 0);
  scripted::Trace::Instance().Clear();
}

void FaultsTest::End() {
  module.Close();
  EXPECT_THAT(provider.Violations(), testing::IsEmpty());
}

void FaultsTest::ExpectNothingLeftOver() {
  EXPECT_THAT(provider.ViolationsSoFar(), testing::IsEmpty());
  EXPECT_TRUE(provider.sessions().empty());
  for (const scripted::SlotModel& slot : provider.slots())
    EXPECT_FALSE(slot.token && slot.token->login) << "slot " << slot.id << " is logged in";
  EXPECT_THAT(host.Violations(), testing::IsEmpty());
  EXPECT_EQ(provider.initialized, module.library_handle != nullptr);
  EXPECT_EQ(scripted::in_process_loader::open_libraries(),
            module.library_handle != nullptr ? 1 : 0);
}

void FaultsTest::EndSessionsOfCaller() {
  provider.ClearScript();
  for (const scripted::SlotModel& slot : provider.slots()) {
    if (slot.token && slot.token->login && !provider.sessions().empty())
      module.function_list->C_Logout(provider.sessions().front().handle);
  }
  while (!provider.sessions().empty())
    module.function_list->C_CloseSession(provider.sessions().front().handle);
}

void FaultsTest::ExpectStillWorks() {
  module.Close();
  EXPECT_EQ(module.GetLibraryPath(), "");
  EXPECT_EQ(module.Open("direct"), 0);
  EXPECT_TRUE(module.HasChanged());
  EXPECT_EQ(List(), "A B");
  EXPECT_FALSE(module.changed);
  ExpectNothingLeftOver();
}

std::string FaultsTest::List() {
  return NamesOf(module.GetCertificates());
}

}  // namespace faults
