#include "faults/operations.h"

#include <algorithm>
#include <utility>

#include "host/certificate.h"

namespace faults {

namespace {

using Rows = std::vector<CallRow>;

const std::string kUnreadable = "Unable to read certificate\n";
const std::string kNoSession = "Unable to open card session\n";
const std::string kNotSigned = "Signature operation failed ({rv})\n";
constexpr char kNotOpened[] = "-1, path \"\"";
const std::string kNotInitialized = "Error initializing PKCS#11 module 'again': {rv}\n";
constexpr char kNotFound[] = "Failed to find the certificate";
constexpr const char* kHealthy = nullptr;  // As in a healthy run.
constexpr const char* kLastFailure = "";   // The last of the row's own lines.

Rows operator+(Rows left, const Rows& right) {
  left.insert(left.end(), right.begin(), right.end());
  return left;
}

// GetTokenCertificates on a token with one certificate, up to where it has been read. `none` is the
// result when there is none, `after` what the caller then logs.
Rows ReadRows(const char* none, const std::string& after, const char* last) {
  const std::string broken_off = "Error enumerating certificates\n" + after;
  return {{"C_OpenSession", none, kNoSession + after, last},
          {"C_FindObjectsInit", none, broken_off, last},
          {"C_FindObjects", none, broken_off, last},
          {"C_GetAttributeValue", none, kUnreadable + after, last},
          {"C_GetAttributeValue", none, kUnreadable + after, last}};
}

// Its end; what was read before the search breaks off is kept.
Rows ReadEndRows(const char* last) {
  return {{"C_FindObjects", kHealthy, "Error enumerating certificates\n", last},
          {"C_FindObjectsFinal", kHealthy, "", kHealthy},
          {"C_CloseSession", kHealthy, "", kHealthy}};
}

Rows TokenRows(const std::string& slot, const std::string& label, const char* none,
               const char* last) {
  return Rows{{"C_GetSlotInfo", none, "Unabled to get description of slot " + slot + '\n', last},
              {"C_GetTokenInfo", none, "Unable to get info about token in slot " + slot + '\n',
               last}} +
         ReadRows(none, "No certificate associated with token \"" + label + "\"\n", last) +
         ReadEndRows(kHealthy);
}

Rows ListRows() {
  return Rows{{"C_GetSlotList", ", changed", "", "Fetching tokens..."},
              {"C_GetSlotList", ", changed", "", "Found 2 slots."}} +
         TokenRows("1", "Alice", "B", kHealthy) + TokenRows("2", "Bob", "A", kLastFailure);
}

// FindCertificate for the certificate in slot 2; `absent` is the result when it is not found.
Rows SearchRows(const char* absent, const char* last) {
  return {
      {"C_GetSlotList", absent, "", last},
      {"C_GetSlotList", absent, "", last},
      {"C_OpenSession", kHealthy, kNoSession, kHealthy},
      {"C_FindObjectsInit", kHealthy, "", kHealthy},
      {"C_FindObjects", kHealthy, "", kHealthy},
      {"C_GetAttributeValue", kHealthy, kUnreadable, kHealthy},
      {"C_GetAttributeValue", kHealthy, kUnreadable, kHealthy},
      {"C_FindObjects", kHealthy, "", kHealthy},
      {"C_FindObjectsFinal", kHealthy, "", kHealthy},
      {"C_CloseSession", kHealthy, "", kHealthy},
      {"C_OpenSession", absent, kNoSession, last},
      {"C_FindObjectsInit", absent, "", last},
      {"C_FindObjects", absent, "", last},
      {"C_GetAttributeValue", absent, kUnreadable, last},
      {"C_GetAttributeValue", absent, kUnreadable, last},
      {"C_FindObjectsFinal", kHealthy, "", kHealthy},
  };
}

// What Sign does before and after a login.
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
      {"C_FindObjectsFinal", kHealthy, "", kHealthy},
      {"C_SignInit", "not signed", kNotSigned, kLastFailure},
      {"C_Sign", "not signed", kNotSigned, kLastFailure},
  };
}

const Rows kLogoutAndClose = {{"C_Logout", kHealthy, "", kHealthy},
                              {"C_CloseSession", kHealthy, "", kHealthy}};

// Login within Sign or Unlock, which call it again for a wrong PIN.
Rows LoginRows(const char* failed, Meaning meaning) {
  return {{"C_GetTokenInfo", failed, "Unable to get info about token\n", kLastFailure,
           Meaning::kInLogin},
          {"C_Login", failed, "Unexpected token login error: {rv}\n", kLastFailure, meaning}};
}

Rows UnlockRows(const char* failed) {
  return LoginRows(failed, Meaning::kSoLogin) +
         Rows{{"C_InitPIN", failed, "Unexpected passphrase init error: {rv}\n", kLastFailure,
               Meaning::kNewPin},
              {"C_Logout", kHealthy, "", kHealthy}};
}

void WithPins(scripted::Provider& provider, PKCS11Module&) {
  SetPins(provider);
}

// The user PIN of slot 2 is locked; the token says so with its flags, or when it is used.
void WithLockedPin(scripted::Provider& provider, PKCS11Module&) {
  SetPins(provider);
  provider.Slot(2).Token().UserTriesLeft(0);
}
void WithPinLockedUnseen(scripted::Provider& provider, PKCS11Module& module) {
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

void Nothing(scripted::Provider&, PKCS11Module&) {}

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
    return length == sizeof signature ? "not signed" : "not signed, but the length is another";
  return HealthyKey().Verifies("data", std::string(signature, signature + length)) ? "signed"
                                                                                   : "rubbish";
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

// Login by itself: one C_Login a call.
Rows DirectLoginRows(Meaning meaning) {
  return {{"C_GetTokenInfo", "{rv}", "Unable to get info about token\n", kLastFailure,
           Meaning::kInLogin},
          {"C_Login", "{rv}", "Unexpected token login error: {rv}\n", kLastFailure, meaning}};
}

std::vector<Operation> MakeOperations() {
  const Rows found = SearchRows("not signed", kNotFound);
  return {
      {"Open",
       Nothing,
       OpenAgain,
       "0, path \"again\"",
       {{"C_Finalize", kHealthy,
         "Loaded PKCS#11 module 'again'\nManufacturer: Example Ltd\n"
         "Library description: Scripted tokens\n",
         kHealthy},
        {"C_GetFunctionList", kNotOpened, kNotInitialized, kLastFailure},
        {"C_Initialize", kNotOpened, kNotInitialized, kLastFailure},
        {"C_GetInfo", kHealthy,
         "Loaded PKCS#11 module 'again'\n"
         "Error getting info from PKCS#11 module 'again': {rv}\n",
         kLastFailure}}},
      {"Close",
       Nothing,
       [](PKCS11Module& module, User&) {
         module.Close();
         return module.GetLibraryPath();
       },
       "",
       {{"C_Finalize", kHealthy, "", kHealthy}}},
      {"HasChanged with events",
       WithEvents,
       PollOnce,
       "changed",
       {{"C_WaitForSlotEvent", kHealthy, "", kHealthy},
        {"C_WaitForSlotEvent", kHealthy, "", kHealthy},
        {"C_WaitForSlotEvent", kHealthy, "", kHealthy}}},
      {"HasChanged with an event after a look at the slots",
       WithLateEvent,
       PollOnce,
       "changed",
       // The event stays behind the answer that the first poll did not come to give.
       {{"C_WaitForSlotEvent", "unchanged", "", kHealthy},
        {"C_GetSlotList", kHealthy, "", kHealthy},
        {"C_WaitForSlotEvent", "unchanged", "", kHealthy},
        {"C_WaitForSlotEvent", kHealthy, "", kHealthy}}},
      {"HasChanged without events",
       WithoutEvents,
       PollOnce,
       "unchanged",
       {{"C_WaitForSlotEvent", kHealthy, "", kHealthy},
        {"C_GetSlotList", kHealthy, "", kHealthy},
        {"C_WaitForSlotEvent", kHealthy, "", kHealthy}}},
      {"GetCertificates", Nothing, List, "A B", ListRows()},
      {"CertificatePresent", Nothing, Present, "present",
       SearchRows("absent", kNotFound) + Rows{{"C_CloseSession", kHealthy, "", kHealthy}}},
      {"FindCertificate", Nothing, Find, "slot 2", SearchRows("not found", kNotFound), 1},
      {"Sign without a login", Nothing, Sign, "signed",
       found + BeforeLoginRows() + AfterLoginRows() +
           Rows{{"C_CloseSession", kHealthy, "", kHealthy}}},
      {"Sign with a login", WithPins, Sign, "signed",
       found + BeforeLoginRows() + LoginRows("not signed", Meaning::kUserLogin) + AfterLoginRows() +
           kLogoutAndClose},
      {"Sign with a PIN that is locked", WithLockedPin, Sign, "signed",
       found + BeforeLoginRows() +
           Rows{{"C_GetTokenInfo", "not signed", "Unable to get info about token\n", kLastFailure,
                 Meaning::kInLogin}} +
           UnlockRows("not signed") +
           Rows{{"C_Login", "not signed", "Unexpected token login error: {rv}\n", kLastFailure,
                 Meaning::kUserLogin}} +
           AfterLoginRows() + kLogoutAndClose},
      {"Sign with a PIN that turns out to be locked", WithPinLockedUnseen, Sign, "signed",
       found + BeforeLoginRows() + LoginRows("not signed", Meaning::kUserLogin) +
           UnlockRows("not signed") + LoginRows("not signed", Meaning::kUserLogin) +
           AfterLoginRows() + kLogoutAndClose},
      {"GetToken", Nothing, [](PKCS11Module& module, User&) { return NamesOf(module.GetToken(1)); },
       "A", TokenRows("1", "Alice", "", kLastFailure)},
      {"GetTokenCertificates", Nothing, ReadAll, "1 read",
       ReadRows("0 read", "", kLastFailure) + ReadEndRows(kLastFailure)},
      {"GetTokenCertificate",
       WithSession,
       ReadOne,
       "read",
       {{"C_GetAttributeValue", "null", kUnreadable, kLastFailure},
        {"C_GetAttributeValue", "null", kUnreadable, kLastFailure}},
       1},
      {"Login as user", WithSession, LogIn<CKU_USER>, "0",
       DirectLoginRows(Meaning::kDirectUserLogin), 1},
      {"Login as security officer", WithSession, LogIn<CKU_SO>, "0",
       DirectLoginRows(Meaning::kDirectSoLogin), 1},
      {"Unlock", WithSession, Unlock, "0", UnlockRows("{rv}"), 1},
  };
}

bool IsFormError(CK_RV rv) {
  return rv == CKR_PIN_INVALID || rv == CKR_PIN_LEN_RANGE || rv == CKR_DATA_INVALID ||
         rv == CKR_DATA_LEN_RANGE || rv == CKR_ARGUMENTS_BAD;
}

bool IsPinError(CK_RV rv) {
  return rv == CKR_PIN_INCORRECT || IsFormError(rv);
}

void Replace(std::string* text, const std::string& what, const std::string& with) {
  for (auto at = text->find(what); at != std::string::npos; at = text->find(what, at + with.size()))
    text->replace(at, what.size(), with);
}

std::string LastLine(const std::string& lines) {
  if (lines.empty())
    return lines;
  const std::string::size_type before = lines.rfind('\n', lines.size() - 2);
  const std::string::size_type begin = before == std::string::npos ? 0 : before + 1;
  return lines.substr(begin, lines.size() - 1 - begin);
}

bool Signs(const Operation& operation) {
  return std::string(operation.result) == "signed";
}

bool CallsLoginAgain(const Operation& operation) {
  return Signs(operation) || std::string(operation.name) == "Unlock";
}

// A signature, or Unlock by itself, that ends with `rv` after these lines.
Outcome Ends(const Operation& operation, std::string lines, CK_RV rv) {
  const bool signs = Signs(operation);
  if (signs)
    lines += "Signature operation failed (" + Number(rv) + ")\n";
  return {signs ? "not signed" : Number(rv), lines, LastLine(lines)};
}

Outcome Plain(const Operation& operation, const CallRow& row) {
  Outcome outcome = {row.result == kHealthy ? operation.result : row.result, row.failures, ""};
  if (row.last == kLastFailure)
    outcome.last = LastLine(row.failures);
  else if (row.last != kHealthy)
    outcome.last = row.last;
  return outcome;
}

// One call of Login by itself.
Outcome DirectLogin(const Operation& operation, const CallRow& row, CK_RV rv) {
  const std::string told = "Token login error: " + Number(rv);
  if (IsPinError(rv))
    return {Number(CKR_PIN_INCORRECT), "", told};
  if (rv != CKR_PIN_LOCKED)
    return Plain(operation, row);
  if (row.meaning == Meaning::kDirectSoLogin)
    return {Number(rv), "", told};
  return {Number(CKR_PIN_INCORRECT), "", "Attempting to unlock passphrase..."};
}

Outcome Meant(const Operation& operation, const CallRow& row, CK_RV rv) {
  const Outcome as_ever = {operation.result, "", ""};
  const bool signs = Signs(operation);
  switch (row.meaning) {
    case Meaning::kPlain:
      return Plain(operation, row);
    case Meaning::kInLogin:
      if (rv == CKR_PIN_INCORRECT && CallsLoginAgain(operation))
        return {operation.result, row.failures, signs ? "" : LastLine(row.failures)};
      return Ends(operation, row.failures, rv);
    case Meaning::kUserLogin:  // A locked PIN is unlocked on the way.
      return IsPinError(rv) || rv == CKR_PIN_LOCKED ? as_ever : Ends(operation, row.failures, rv);
    case Meaning::kSoLogin:
      if (IsPinError(rv))
        return {operation.result, "", signs ? "" : "Token login error: " + Number(rv)};
      if (rv == CKR_PIN_LOCKED && !signs)
        return {Number(rv), "", "Token login error: " + Number(rv)};
      return Ends(operation, rv == CKR_PIN_LOCKED ? "" : row.failures, rv);
    case Meaning::kNewPin:
      if (IsFormError(rv))
        return {operation.result, "", signs ? "" : "Passphrase init error: " + Number(rv)};
      if (rv == CKR_PIN_INCORRECT || rv == CKR_PIN_LOCKED)
        return Ends(operation, "", rv == CKR_PIN_LOCKED ? rv : CKR_GENERAL_ERROR);
      return Ends(operation, row.failures, rv);
    case Meaning::kDirectUserLogin:
    case Meaning::kDirectSoLogin:
      return DirectLogin(operation, row, rv);
  }
  return as_ever;
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

Outcome ExpectedOutcome(const Operation& operation, const CallRow& row, CK_RV rv) {
  Outcome outcome = Meant(operation, row, rv);
  for (std::string* text : {&outcome.result, &outcome.failures, &outcome.last})
    Replace(text, "{rv}", Number(rv));
  // A provider that answers CKR_CANCEL of its own accord is taken for the user.
  for (std::string* text : {&outcome.failures, &outcome.last})
    Replace(text, "Signature operation failed (1)", "Signature operation aborted by user");
  return outcome;
}

}  // namespace faults
