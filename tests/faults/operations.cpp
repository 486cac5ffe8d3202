#include "faults/operations.h"

#include <algorithm>
#include <utility>

#include "faults/call_tables.h"
#include "host/certificate.h"

namespace faults {

namespace {

const std::string kCertificateNotRead = "Unable to read certificate\n";
constexpr char kNotOpened[] = "-1, path \"\"";
const std::string kNotInitialized = "Error initializing PKCS#11 module 'again': {rv}\n";
constexpr char kNotFound[] = "Failed to find the certificate";

void WithPins(scripted::Provider& provider, PKCS11Module&) {
  SetPins(provider);
}

// The user PIN of slot 2 is locked. The flags of the token report it, or only C_Login does.
void WithLockedPin(scripted::Provider& provider, PKCS11Module&) {
  SetPins(provider);
  provider.Slot(2).Token().UserTriesLeft(0);
}
void WithUnreportedLockedPin(scripted::Provider& provider, PKCS11Module& module) {
  WithLockedPin(provider, module);
  provider.Slot(2).Token().ReportedPinFlags(0);
}

void WithSession(scripted::Provider& provider, PKCS11Module& module) {
  SetPins(provider);
  CK_SESSION_HANDLE session = CK_INVALID_HANDLE;
  module.function_list->C_OpenSession(1, CKF_SERIAL_SESSION | CKF_RW_SESSION, nullptr, nullptr,
                                      &session);
}

CK_SESSION_HANDLE OpenedSession() {
  return scripted::Provider::Instance().sessions().front().handle;
}

void NoPreparation(scripted::Provider&, PKCS11Module&) {}

void WithEvents(scripted::Provider& provider, PKCS11Module& module) {
  module.changed = false;
  provider.AddSlotEvent(1);
  provider.AddSlotEvent(2);
}
void WithLateEvent(scripted::Provider& provider, PKCS11Module& module) {
  module.changed = false;
  provider.AddPollResult(CKR_NO_EVENT);
  provider.AddSlotEvent(1);
}
void WithoutEvents(scripted::Provider&, PKCS11Module& module) {
  module.changed = false;
}

std::string Number(CK_RV rv) {
  return std::to_string(static_cast<long>(rv));
}

std::string OpenAgain(PKCS11Module& module, User&) {
  const int result = module.Open("again");
  return std::to_string(result) + ", path \"" + module.GetLibraryPath() + '"';
}

std::string List(PKCS11Module& module, User&) {
  const std::string names = NamesOf(module.GetCertificates());
  return names + (module.changed ? ", changed" : "");
}

std::string Present(PKCS11Module& module, User&) {
  return module.CertificatePresent("02") ? "present" : "absent";
}

std::string Find(PKCS11Module& module, User&) {
  const pkcs11_certificate_location* const found = module.FindCertificate("02");
  return found != nullptr ? "slot " + std::to_string(found->slot) : "not found";
}

std::string Sign(PKCS11Module& module, User& user) {
  const unsigned char data[] = {'d', 'a', 't', 'a'};
  unsigned char signature[200] = {};
  unsigned long length = sizeof signature;
  const bool made =
      module.Sign("02", data, sizeof data, signature, &length, User::Ask, User::Tell, &user);
  if (!made)
    return length == sizeof signature ? "not signed" : "not signed, but the length has changed";
  return HealthyKey().Verifies("data", std::string(signature, signature + length))
             ? "signed"
             : "wrong signature";
}

std::string ReadAll(PKCS11Module& module, User&) {
  const std::list<certificate*> certificates = module.GetTokenCertificates(1);
  for (certificate* cert : certificates)
    cert_free(cert);
  return std::to_string(certificates.size()) + " read";
}

std::string ReadOne(PKCS11Module& module, User&) {
  const CK_OBJECT_HANDLE object =
      scripted::Provider::Instance().Slot(1).Token().objects.front().handle;
  certificate* const cert = module.GetTokenCertificate(OpenedSession(), object);
  if (cert == nullptr)
    return "null";
  cert_free(cert);
  return "read";
}

std::string PollOnce(PKCS11Module& module, User&) {
  return module.HasChanged() ? "changed" : "unchanged";
}

template <CK_USER_TYPE kType>
std::string LogIn(PKCS11Module& module, User& user) {
  return Number(module.Login(OpenedSession(), 1, kType, User::Ask, User::Tell, &user));
}

std::string Unlock(PKCS11Module& module, User& user) {
  return Number(module.Unlock(OpenedSession(), 1, User::Ask, User::Tell, &user));
}

std::vector<Operation> MakeOperations() {
  const Rows found = SearchRows("not signed", kNotFound);
  return {
      {"Open",
       NoPreparation,
       OpenAgain,
       "0, path \"again\"",
       {{"C_Finalize", kUnchanged,
         "Loaded PKCS#11 module 'again'\nManufacturer: Example Ltd\n"
         "Library description: Scripted tokens\n",
         kUnchanged},
        {"C_GetFunctionList", kNotOpened, kNotInitialized, kLastFailure},
        {"C_Initialize", kNotOpened, kNotInitialized, kLastFailure},
        {"C_GetInfo", kUnchanged,
         "Loaded PKCS#11 module 'again'\n"
         "Error getting info from PKCS#11 module 'again': {rv}\n",
         kLastFailure}}},
      {"Close",
       NoPreparation,
       [](PKCS11Module& module, User&) {
         module.Close();
         return module.GetLibraryPath();
       },
       "",
       {{"C_Finalize", kUnchanged, "", kUnchanged}}},
      {"HasChanged with events",
       WithEvents,
       PollOnce,
       "changed",
       {{"C_WaitForSlotEvent", kUnchanged, "", kUnchanged},
        {"C_WaitForSlotEvent", kUnchanged, "", kUnchanged},
        {"C_WaitForSlotEvent", kUnchanged, "", kUnchanged}}},
      {"HasChanged with an event after listing the slots",
       WithLateEvent,
       PollOnce,
       "changed",
       // When the first or the second poll fails, the event stays in the queue.
       {{"C_WaitForSlotEvent", "unchanged", "", kUnchanged},
        {"C_GetSlotList", kUnchanged, "", kUnchanged},
        {"C_WaitForSlotEvent", "unchanged", "", kUnchanged},
        {"C_WaitForSlotEvent", kUnchanged, "", kUnchanged}}},
      {"HasChanged without events",
       WithoutEvents,
       PollOnce,
       "unchanged",
       {{"C_WaitForSlotEvent", kUnchanged, "", kUnchanged},
        {"C_GetSlotList", kUnchanged, "", kUnchanged},
        {"C_WaitForSlotEvent", kUnchanged, "", kUnchanged}}},
      {"GetCertificates", NoPreparation, List, "A B", ListRows()},
      {"CertificatePresent", NoPreparation, Present, "present",
       SearchRows("absent", kNotFound) + Rows{{"C_CloseSession", kUnchanged, "", kUnchanged}}},
      {"FindCertificate", NoPreparation, Find, "slot 2", SearchRows("not found", kNotFound), 1},
      {"Sign without a login", NoPreparation, Sign, "signed",
       found + BeforeLoginRows() + AfterLoginRows() +
           Rows{{"C_CloseSession", kUnchanged, "", kUnchanged}}},
      {"Sign with a login", WithPins, Sign, "signed",
       found + BeforeLoginRows() + LoginRows("not signed", Handling::kUserLogin) +
           AfterLoginRows() + LogoutAndCloseRows()},
      {"Sign with a locked PIN", WithLockedPin, Sign, "signed",
       found + BeforeLoginRows() +
           Rows{{"C_GetTokenInfo", "not signed", "Unable to get info about token\n", kLastFailure,
                 Handling::kBeforeLogin}} +
           UnlockRows("not signed") +
           Rows{{"C_Login", "not signed", "Unexpected token login error: {rv}\n", kLastFailure,
                 Handling::kUserLogin}} +
           AfterLoginRows() + LogoutAndCloseRows()},
      {"Sign with a PIN that C_Login reports as locked", WithUnreportedLockedPin, Sign, "signed",
       found + BeforeLoginRows() + LoginRows("not signed", Handling::kUserLogin) +
           UnlockRows("not signed") + LoginRows("not signed", Handling::kUserLogin) +
           AfterLoginRows() + LogoutAndCloseRows()},
      {"GetToken", NoPreparation,
       [](PKCS11Module& module, User&) { return NamesOf(module.GetToken(1)); }, "A",
       TokenRows("1", "Alice", "", kLastFailure)},
      {"GetTokenCertificates", NoPreparation, ReadAll, "1 read",
       ReadRows("0 read", "", kLastFailure) + ReadEndRows(kLastFailure)},
      {"GetTokenCertificate",
       WithSession,
       ReadOne,
       "read",
       {{"C_GetAttributeValue", "null", kCertificateNotRead, kLastFailure},
        {"C_GetAttributeValue", "null", kCertificateNotRead, kLastFailure}},
       1},
      {"Login as user", WithSession, LogIn<CKU_USER>, "0",
       SingleLoginRows(Handling::kSingleUserLogin), 1},
      {"Login as security officer", WithSession, LogIn<CKU_SO>, "0",
       SingleLoginRows(Handling::kSingleSoLogin), 1},
      {"Unlock", WithSession, Unlock, "0", UnlockRows("{rv}"), 1},
  };
}

}  // namespace

const std::vector<Operation>& AllOperations() {
  static const std::vector<Operation> operations = MakeOperations();
  return operations;
}

const Operation& OperationNamed(const std::string& name) {
  const std::vector<Operation>& all = AllOperations();
  return *std::find_if(all.begin(), all.end(),
                       [&name](const Operation& operation) { return operation.name == name; });
}

std::string TestName(const testing::TestParamInfo<Operation>& parameter) {
  std::string name = parameter.param.name;
  std::replace(name.begin(), name.end(), ' ', '_');
  return name;
}

void PrintTo(const Operation& operation, std::ostream* out) {
  *out << operation.name;
}

}  // namespace faults
