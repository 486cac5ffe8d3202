#include "faults/call_tables.h"

namespace faults {

namespace {

const std::string kCertificateNotRead = "Unable to read certificate\n";
const std::string kSessionNotOpened = "Unable to open card session\n";
const std::string kNotSigned = "Signature operation failed ({rv})\n";

}  // namespace

Rows operator+(Rows left, const Rows& right) {
  left.insert(left.end(), right.begin(), right.end());
  return left;
}

Rows ReadRows(const char* none, const std::string& after, const char* last) {
  const std::string search_error = "Error enumerating certificates\n" + after;
  return {{"C_OpenSession", none, kSessionNotOpened + after, last},
          {"C_FindObjectsInit", none, search_error, last},
          {"C_FindObjects", none, search_error, last},
          {"C_GetAttributeValue", none, kCertificateNotRead + after, last},
          {"C_GetAttributeValue", none, kCertificateNotRead + after, last}};
}

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

Rows LogoutAndCloseRows() {
  return {{"C_Logout", kUnchanged, "", kUnchanged}, {"C_CloseSession", kUnchanged, "", kUnchanged}};
}

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

Rows SingleLoginRows(Handling handling) {
  return {{"C_GetTokenInfo", "{rv}", "Unable to get info about token\n", kLastFailure,
           Handling::kBeforeLogin},
          {"C_Login", "{rv}", "Unexpected token login error: {rv}\n", kLastFailure, handling}};
}

}  // namespace faults
