#include "faults/operations.h"

#include <algorithm>
#include <utility>

#include "host/certificate.h"

namespace faults {

namespace {

using Rows = std::vector<CallRow>;

const std::string kCertificateNotRead = "Unable to read certificate\n";
const std::string kSessionNotOpened = "Unable to open card session\n";
const std::string kNotSigned = "Signature operation failed ({rv})\n";
constexpr char kNotOpened[] = "-1, path \"\"";
const std::string kNotInitialized = "Error initializing PKCS#11 module 'again': {rv}\n";
constexpr char kNotFound[] = "Failed to find the certificate";

Rows operator+(Rows left, const Rows& right) {
  left.insert(left.end(), right.begin(), right.end());
  return left;
}

// GetTokenCertificates on a token with one certificate, until the certificate has been read. `none`
// is the result of the operation without the certificate, `after` what the caller logs about that.
Rows ReadRows(const char* none, const std::string& after, const char* last) {
  const std::string broken_off = "Error enumerating certificates\n" + after;
  return {{"C_OpenSession", none, kSessionNotOpened + after, last},
          {"C_FindObjectsInit", none, broken_off, last},
          {"C_FindObjects", none, broken_off, last},
          {"C_GetAttributeValue", none, kCertificateNotRead + after, last},
          {"C_GetAttributeValue", none, kCertificateNotRead + after, last}};
}

// The rest of GetTokenCertificates. A failure does not affect the certificate that has been read.
Rows ReadEndRows(const char* last) {
  return {{"C_FindObjects", kUnchanged, "Error enumerating certificates\n", last},
          {"C_FindObjectsFinal", kUnchanged, "", kUnchanged},
          {"C_CloseSession", kUnchanged, "", kUnchanged}};
}

Rows TokenRows(const std::string& slot, const std::string& label, const char* none,
               const char* last) {
  return Rows{{"C_GetSlotInfo", none, "Unabled to get description of slot " + slot + '\n', last},
              {"C_GetTokenInfo", none, "Unable to get info about token in slot " + slot + '\n',
               last}} +
         ReadRows(none, "No certificate associated with token \"" + label + "\"\n", last) +
         ReadEndRows(kUnchanged);
}

Rows ListRows() {
  return Rows{{"C_GetSlotList", ", changed", "", "Fetching tokens..."},
              {"C_GetSlotList", ", changed", "", "Found 2 slots."}} +
         TokenRows("1", "Alice", "B", kUnchanged) + TokenRows("2", "Bob", "A", kLastFailure);
}

// FindCertificate for the certificate in slot 2. `absent` is the result if it is not found.
// Failures in slot 1 do not affect the result.
Rows SearchRows(const char* absent, const char* last) {
  return {
      {"C_GetSlotList", absent, "", last},
      {"C_GetSlotList", absent, "", last},
      {"C_OpenSession", kUnchanged, kSessionNotOpened, kUnchanged},
      {"C_FindObjectsInit", kUnchanged, "", kUnchanged},
      {"C_FindObjects", kUnchanged, "", kUnchanged},
      {"C_GetAttributeValue", kUnchanged, kCertificateNotRead, kUnchanged},
      {"C_GetAttributeValue", kUnchanged, kCertificateNotRead, kUnchanged},
      {"C_FindObjects", kUnchanged, "", kUnchanged},
      {"C_FindObjectsFinal", kUnchanged, "", kUnchanged},
      {"C_CloseSession", kUnchanged, "", kUnchanged},
      {"C_OpenSession", absent, kSessionNotOpened, last},
      {"C_FindObjectsInit", absent, "", last},
      {"C_FindObjects", absent, "", last},
      {"C_GetAttributeValue", absent, kCertificateNotRead, last},
      {"C_GetAttributeValue", absent, kCertificateNotRead, last},
      {"C_FindObjectsFinal", kUnchanged, "", kUnchanged},
  };
}

// Sign before and after the login.
Rows BeforeLoginRows() {
  return {
      {"C_GetAttributeValue", "not signed",
       "Unable to read certificate ID\nSignature operation failed ({rv})\n", kLastFailure},
      {"C_GetTokenInfo", "not signed",
       "Unable to get info about token\nSignature operation failed ({rv})\n", kLastFailure},
  };
}

Rows AfterLoginRows() {
  return {
      {"C_FindObjectsInit", "not signed", kNotSigned, kLastFailure},
      {"C_FindObjects", "not signed", kNotSigned, kLastFailure},
      {"C_FindObjectsFinal", kUnchanged, "", kUnchanged},
      {"C_SignInit", "not signed", kNotSigned, kLastFailure},
      {"C_Sign", "not signed", kNotSigned, kLastFailure},
  };
}

const Rows kLogoutAndClose = {{"C_Logout", kUnchanged, "", kUnchanged},
                              {"C_CloseSession", kUnchanged, "", kUnchanged}};

// Login within Sign or Unlock, which repeat it after a wrong PIN.
Rows LoginRows(const char* failed, Handling handling) {
  return {{"C_GetTokenInfo", failed, "Unable to get info about token\n", kLastFailure,
           Handling::kBeforeLogin},
          {"C_Login", failed, "Unexpected token login error: {rv}\n", kLastFailure, handling}};
}

Rows UnlockRows(const char* failed) {
  return LoginRows(failed, Handling::kSoLogin) +
         Rows{{"C_InitPIN", failed, "Unexpected passphrase init error: {rv}\n", kLastFailure,
               Handling::kInitPin},
              {"C_Logout", kUnchanged, "", kUnchanged}};
}

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

// Login as an operation of its own, which is not repeated after a wrong PIN.
Rows SingleLoginRows(Handling handling) {
  return {{"C_GetTokenInfo", "{rv}", "Unable to get info about token\n", kLastFailure,
           Handling::kBeforeLogin},
          {"C_Login", "{rv}", "Unexpected token login error: {rv}\n", kLastFailure, handling}};
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
           AfterLoginRows() + kLogoutAndClose},
      {"Sign with a locked PIN", WithLockedPin, Sign, "signed",
       found + BeforeLoginRows() +
           Rows{{"C_GetTokenInfo", "not signed", "Unable to get info about token\n", kLastFailure,
                 Handling::kBeforeLogin}} +
           UnlockRows("not signed") +
           Rows{{"C_Login", "not signed", "Unexpected token login error: {rv}\n", kLastFailure,
                 Handling::kUserLogin}} +
           AfterLoginRows() + kLogoutAndClose},
      {"Sign with a PIN that C_Login reports as locked", WithUnreportedLockedPin, Sign, "signed",
       found + BeforeLoginRows() + LoginRows("not signed", Handling::kUserLogin) +
           UnlockRows("not signed") + LoginRows("not signed", Handling::kUserLogin) +
           AfterLoginRows() + kLogoutAndClose},
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
