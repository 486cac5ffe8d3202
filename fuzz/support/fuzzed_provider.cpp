#include "fuzzed_provider.h"

#include <algorithm>
#include <cstring>

#include "support/der_writer.h"

namespace {

FuzzedProvider* current = nullptr;

// Reads all bytes that the component passes, so that AddressSanitizer reports a length that is too
// large.
void ReadAll(const void* bytes, CK_ULONG length) {
  unsigned sum = 0;
  for (CK_ULONG i = 0; i < length; ++i)
    sum += static_cast<const unsigned char*>(bytes)[i];
  Check(sum < 0xffffffff, "the bytes passed to the provider can be read");
}

void ReadTemplate(const CK_ATTRIBUTE* attributes, CK_ULONG count) {
  for (CK_ULONG i = 0; i < count; ++i)
    ReadAll(attributes[i].pValue, attributes[i].ulValueLen);
}

CK_RV GetInfo(CK_INFO* info) {
  FuzzedProvider& provider = FuzzedProvider::Current();
  provider.Fill(info->manufacturerID, sizeof info->manufacturerID);
  provider.Fill(info->libraryDescription, sizeof info->libraryDescription);
  return provider.Result();
}

CK_RV GetSlotList(CK_BBOOL, CK_SLOT_ID* slots, CK_ULONG* count) {
  FuzzedProvider& provider = FuzzedProvider::Current();
  if (slots == nullptr) {
    // Usually at most three slots, sometimes many or more than fit into memory.
    const unsigned kind = provider.input().Below(64);
    *count = kind == 63 ? ~0UL : kind == 62 ? 1UL << 61 : kind == 61 ? 200 : kind % 4;
    return provider.Result();
  }
  for (CK_ULONG i = 0; i < *count; ++i)
    slots[i] = provider.input().Byte();
  *count = provider.Reported(*count);
  return provider.Result();
}

CK_RV GetSlotInfo(CK_SLOT_ID, CK_SLOT_INFO* info) {
  FuzzedProvider& provider = FuzzedProvider::Current();
  provider.Fill(info->slotDescription, sizeof info->slotDescription);
  return provider.Result();
}

CK_RV GetTokenInfo(CK_SLOT_ID, CK_TOKEN_INFO* info) {
  FuzzedProvider& provider = FuzzedProvider::Current();
  provider.Fill(info->label, sizeof info->label);
  const CK_FLAGS bits = provider.input().Byte();
  info->flags = (bits & 1 ? CKF_LOGIN_REQUIRED : 0) | (bits >> 1 & 7) << 16 | (bits >> 4 & 7) << 20;
  return provider.Result();
}

CK_RV WaitForSlotEvent(CK_FLAGS flags, CK_SLOT_ID* slot, void*) {
  Check(flags == CKF_DONT_BLOCK, "C_WaitForSlotEvent does not block");
  *slot = FuzzedProvider::Current().Handle();
  return FuzzedProvider::Current().Result();
}

CK_RV OpenSession(CK_SLOT_ID, CK_FLAGS flags, void*, CK_NOTIFY, CK_SESSION_HANDLE* session) {
  FuzzedProvider& provider = FuzzedProvider::Current();
  Check((flags & CKF_SERIAL_SESSION) != 0, "CKF_SERIAL_SESSION is set");
  *session = provider.Handle();
  const CK_RV rv = provider.Result();
  if (rv == CKR_OK)
    provider.SessionOpened(*session);
  return rv;
}

CK_RV CloseSession(CK_SESSION_HANDLE session) {
  FuzzedProvider::Current().SessionClosed(session);
  return FuzzedProvider::Current().Result();
}

CK_RV Login(CK_SESSION_HANDLE session, CK_USER_TYPE, CK_UTF8CHAR* pin, CK_ULONG pin_len) {
  Check(pin_len <= 128, "a PIN is at most 128 bytes long");
  ReadAll(pin, pin_len);
  const CK_RV rv = FuzzedProvider::Current().Result();
  if (rv == CKR_OK)
    FuzzedProvider::Current().LoggedIn(session);
  return rv;
}

CK_RV Logout(CK_SESSION_HANDLE session) {
  FuzzedProvider::Current().LoggedOut(session);
  return FuzzedProvider::Current().Result();
}

CK_RV InitPin(CK_SESSION_HANDLE, CK_UTF8CHAR* pin, CK_ULONG pin_len) {
  Check(pin_len <= 128, "a PIN is at most 128 bytes long");
  ReadAll(pin, pin_len);
  return FuzzedProvider::Current().Result();
}

CK_RV FindObjectsInit(CK_SESSION_HANDLE, CK_ATTRIBUTE* attributes, CK_ULONG count) {
  ReadTemplate(attributes, count);
  return FuzzedProvider::Current().Result();
}

CK_RV FindObjects(CK_SESSION_HANDLE, CK_OBJECT_HANDLE* objects, CK_ULONG max_count,
                  CK_ULONG* count) {
  FuzzedProvider& provider = FuzzedProvider::Current();
  const bool found = provider.input().Below(4) != 0;
  if (found && max_count > 0)
    objects[0] = provider.Handle();
  *count = provider.Reported(found ? 1 : 0);
  return provider.Result();
}

CK_RV FindObjectsFinal(CK_SESSION_HANDLE) {
  return FuzzedProvider::Current().Result();
}

CK_RV GetAttributeValue(CK_SESSION_HANDLE, CK_OBJECT_HANDLE, CK_ATTRIBUTE* attributes,
                        CK_ULONG count) {
  FuzzedProvider& provider = FuzzedProvider::Current();
  Check(count == 1, "C_GetAttributeValue reads one attribute");
  CK_ATTRIBUTE& attribute = attributes[0];
  if (attribute.type == CKA_ID)
    provider.value = provider.input().Text(256);
  else if (attribute.pValue == nullptr)
    provider.value = provider.Certificate();
  if (attribute.pValue != nullptr)
    std::memcpy(attribute.pValue, provider.value.data(),
                std::min<std::size_t>(attribute.ulValueLen, provider.value.size()));
  attribute.ulValueLen = provider.Reported(provider.value.size());
  return provider.Result();
}

CK_RV SignInit(CK_SESSION_HANDLE, CK_MECHANISM* mechanism, CK_OBJECT_HANDLE) {
  Check(mechanism->mechanism == CKM_RSA_PKCS, "the mechanism is CKM_RSA_PKCS");
  return FuzzedProvider::Current().Result();
}

CK_RV Sign(CK_SESSION_HANDLE, CK_BYTE* data, CK_ULONG data_len, CK_BYTE* signature,
           CK_ULONG* signature_len) {
  FuzzedProvider& provider = FuzzedProvider::Current();
  ReadAll(data, data_len);
  std::memset(signature, 0x5a, *signature_len);
  *signature_len = provider.Reported(*signature_len);
  return provider.Result();
}

}  // namespace

FuzzedProvider::FuzzedProvider(Input* input) : input_(input) {
  Check(current == nullptr, "there is one FuzzedProvider at a time");
  current = this;
  InstallProviderLoader();
  functions_.version = {2, 40};
  functions_.C_Initialize = [](void*) {
    const CK_RV rv = Current().Result();
    if (rv == CKR_OK)
      Current().Initialized();
    return rv;
  };
  functions_.C_Finalize = [](void*) {
    Current().Finalized();
    return Current().Result();
  };
  functions_.C_GetInfo = GetInfo;
  functions_.C_GetSlotList = GetSlotList;
  functions_.C_GetSlotInfo = GetSlotInfo;
  functions_.C_GetTokenInfo = GetTokenInfo;
  functions_.C_WaitForSlotEvent = WaitForSlotEvent;
  functions_.C_OpenSession = OpenSession;
  functions_.C_CloseSession = CloseSession;
  functions_.C_Login = Login;
  functions_.C_Logout = Logout;
  functions_.C_InitPIN = InitPin;
  functions_.C_FindObjectsInit = FindObjectsInit;
  functions_.C_FindObjects = FindObjects;
  functions_.C_FindObjectsFinal = FindObjectsFinal;
  functions_.C_GetAttributeValue = GetAttributeValue;
  functions_.C_SignInit = SignInit;
  functions_.C_Sign = Sign;
}

FuzzedProvider::~FuzzedProvider() {
  Check(num_libraries_ == 0 && !initialized_, "the provider is finalised and unloaded");
  current = nullptr;
}

FuzzedProvider& FuzzedProvider::Current() {
  return *current;
}

void FuzzedProvider::CheckNothingOpen(std::size_t max_sessions) const {
  Check(sessions_.size() <= max_sessions, "every session is closed");
  Check(logins_.empty(), "every session is logged out");
  Check(num_libraries_ <= 1, "at most one library is loaded");
  Check(initialized_ == loaded(), "a provider is initialised exactly while it is loaded");
}

void FuzzedProvider::LibraryClosed() {
  Check(--num_libraries_ >= 0, "a library is closed only once");
  Check(!initialized_, "a provider is finalised before it is unloaded");
}

CK_RV FuzzedProvider::GetFunctionList(CK_FUNCTION_LIST_PTR_PTR list) {
  *list = input_->Below(32) == 31 ? nullptr : &functions_;
  return Result();
}

CK_RV FuzzedProvider::Result() {
  static const CK_RV kFailures[] = {
      CKR_PIN_INCORRECT, CKR_PIN_LOCKED,       CKR_PIN_LEN_RANGE,  CKR_PIN_INVALID, CKR_CANCEL,
      CKR_ARGUMENTS_BAD, CKR_BUFFER_TOO_SMALL, CKR_DEVICE_REMOVED, CKR_NO_EVENT,    ~CK_RV{0}};
  if (input_->empty())
    return CKR_DEVICE_REMOVED;
  const unsigned kind = input_->Byte();
  return kind < 224 ? CK_RV{CKR_OK} : kFailures[kind % (sizeof kFailures / sizeof *kFailures)];
}

CK_ULONG FuzzedProvider::Reported(CK_ULONG actual) {
  const CK_ULONG wrong[] = {0,          1,          actual + 1,
                            actual - 1, 2 * actual, 257,
                            1UL << 31,  1UL << 32,  CK_UNAVAILABLE_INFORMATION};
  const unsigned kind = input_->Byte();
  return kind < 208 ? actual : wrong[kind % (sizeof wrong / sizeof *wrong)];
}

CK_ULONG FuzzedProvider::Handle() {
  const unsigned kind = input_->Below(16);
  return kind == 15 ? 0 : kind == 14 ? last_handle_ : ++last_handle_;
}

void FuzzedProvider::Fill(unsigned char* field, std::size_t width) {
  const std::string text = input_->Text(width);
  const unsigned char padding[] = {' ', ' ', '\0', 0xff};
  std::memset(field, padding[input_->Below(4)], width);
  std::memcpy(field, text.data(), text.size());
}

// Usually one of FuzzedCertificates(), sometimes with one byte changed, or arbitrary bytes.
const std::string& FuzzedProvider::Certificate() {
  static std::string made;
  const unsigned kind = input_->Byte();
  const std::vector<std::string>& certificates = FuzzedCertificates();
  made = kind < 240 ? certificates[kind % certificates.size()] : input_->Text(64);
  if (kind >= 192 && kind < 240)
    made[(input_->Byte() * 256U + input_->Byte()) % made.size()] =
        static_cast<char>(input_->Byte());
  return made;
}

void FuzzedProvider::Finalized() {
  Check(initialized_, "only an initialised provider is finalised");
  Check(sessions_.empty(), "no session is open when the provider is finalised");
  initialized_ = false;
}

void FuzzedProvider::SessionClosed(CK_SESSION_HANDLE session) {
  const auto found = sessions_.find(session);
  Check(found != sessions_.end(), "only an open session is closed");
  if (--found->second == 0) {
    sessions_.erase(found);
    Check(logins_.count(session) == 0, "a session is logged out before it is closed");
  }
}

void FuzzedProvider::LoggedOut(CK_SESSION_HANDLE session) {
  const auto found = logins_.find(session);
  Check(found != logins_.end(), "only a session with a login is logged out");
  if (--found->second == 0)
    logins_.erase(found);
}

const std::vector<std::string>& FuzzedCertificates() {
  static const std::vector<std::string> certificates = {
      der::Certificate().Serial("\x01").Rsa("\xc1" + std::string(63, '\x55')).Der(),
      der::Certificate()
          .Serial("\x02")
          .Subject({{"O", "Test"}, {"CN", "Alice"}})
          .KeyUsage(128 | 64)
          .Ca(false)
          .Der(),
      der::Certificate().Serial("\x03").KeyUsage(4 | 2).Ca(true).Der(),
      der::Certificate().Serial("\x04").Ec().Der(),
  };
  return certificates;
}

const std::vector<const certificate*>& ParsedCertificates() {
  // Never destroyed, but still reachable, so they are not reported as leaks.
  static const auto* const certificates = [] {
    auto* const parsed = new std::vector<const certificate*>;
    for (const std::string& der : FuzzedCertificates()) {
      certificate* const cert = cert_alloc();
      Check(cert_parse(reinterpret_cast<const unsigned char*>(der.data()),
                       static_cast<int>(der.size()), cert) == 0,
            "the certificate can be parsed");
      parsed->push_back(cert);
    }
    return parsed;
  }();
  return *certificates;
}
