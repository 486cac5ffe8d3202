// Parts of expected traces that many tests share. Each function is named after what the component
// does, and returns complete lines. EXPECT_TRACE joins its arguments:
//
//   EXPECT_TRACE(BeginsSearch(1, 1), FindsObject(1, 1), ReadsCertificate(1, 1, "A"),
//                FindsNoObject(1), EndsSearch(1));
//
// Numbers of slots, sessions and objects are those of the trace (see module_test.h). Every call
// succeeds unless the name of the function says otherwise.
#pragma once

#include <initializer_list>
#include <string>
#include <vector>

inline std::string Repeated(int times, const std::string& lines) {
  std::string all;
  for (int i = 0; i < times; ++i)
    all += lines;
  return all;
}

// Loading. `file` is the name of the library without its folder.

inline std::string OpensLibrary(const std::string& file) {
  return "dlopen(" + file + ", RTLD_LAZY) = OK\n" +  //
         "dlsym(C_GetFunctionList) = OK\n";
}

inline std::string ClosesLibrary(const std::string& file) {
  return "dlclose(" + file + "), unloaded\n";
}

// `path` is the path that was passed to Open().
inline std::string LoadsProvider(const std::string& file, const std::string& path) {
  return OpensLibrary(file) +            //
         "C_GetFunctionList() = OK\n" +  //
         "C_Initialize(NULL) = OK\n" +   //
         "log 3: Loaded PKCS#11 module '" + path + "'\n";
}
inline std::string LoadsProvider(const std::string& file = "scripted.so") {
  return LoadsProvider(file, file);
}

inline std::string LogsIdentity() {
  return "C_GetInfo() = OK\n"
         "log 3: Manufacturer: Example Ltd\n"
         "log 3: Library description: Scripted tokens\n";
}

inline std::string UnloadsProvider(const std::string& file = "scripted.so") {
  return "C_Finalize(NULL) = OK\n" + ClosesLibrary(file);
}

// Slots.

inline std::string CountsSlots(const std::string& count) {
  return "C_GetSlotList(TOKEN_PRESENT, NULL) = OK, " + count + " slots\n";
}

// `capacity` is the size of the array that is passed to the provider.
inline std::string FillsSlotArray(std::size_t capacity, const std::vector<int>& slots) {
  std::string line = "C_GetSlotList(TOKEN_PRESENT, room for " + std::to_string(capacity) +
                     ") = OK, " + (slots.empty() ? "no slots" : "slots");
  for (const int slot : slots)
    line += ' ' + std::to_string(slot);
  return line + '\n';
}

// The slots that FindCertificate searches.
inline std::string ListsSlots(const std::vector<int>& slots) {
  return CountsSlots(std::to_string(slots.size())) + FillsSlotArray(slots.size(), slots);
}

// The start of GetCertificates, up to the number of slots.
inline std::string BeginsFetch(const std::string& count) {
  return "log 5: Fetching tokens...\n" + CountsSlots(count) + "log 5: Found " + count + " slots.\n";
}

// The start of GetCertificates, up to the list of slots.
inline std::string FetchesSlots(const std::vector<int>& slots) {
  return BeginsFetch(std::to_string(slots.size())) + FillsSlotArray(slots.size(), slots);
}

// Sessions and searches. `session` is the session in which the call is made.

inline std::string OpensSession(int slot, int session, const std::string& flags = "SERIAL") {
  return "C_OpenSession(slot " + std::to_string(slot) + ", " + flags + ") = OK, session " +
         std::to_string(session) + '\n';
}

inline std::string ClosesSession(int session) {
  return "C_CloseSession(session " + std::to_string(session) + ") = OK\n";
}

// A session on the slot and a search for certificates in it.
inline std::string BeginsSearch(int slot, int session, const std::string& flags = "SERIAL") {
  return "log 5: Getting certificates for slot " + std::to_string(slot) + '\n' +
         OpensSession(slot, session, flags) +  //
         "C_FindObjectsInit(session " + std::to_string(session) +
         ", CKA_CLASS=CKO_CERTIFICATE) = OK\n";
}

inline std::string FindsObject(int session, int object) {
  return "C_FindObjects(session " + std::to_string(session) + ", max 1) = OK, object " +
         std::to_string(object) + '\n';
}

inline std::string FindsNoObject(int session) {
  return "C_FindObjects(session " + std::to_string(session) + ", max 1) = OK, no object\n";
}

// Leaves the session open.
inline std::string FinishesSearch(int session) {
  return "C_FindObjectsFinal(session " + std::to_string(session) + ") = OK\n";
}

inline std::string EndsSearch(int session) {
  return FinishesSearch(session) + ClosesSession(session);
}

// Certificates. `text` is the certificate's text (scripted_host/scripted_certificate.h), of which
// the first word is the name.

inline std::string NameOf(const std::string& text) {
  return text.substr(0, text.find(';'));
}

// The two reads of a certificate's value, of `size` bytes.
inline std::string ReadsValue(int session, int object, std::size_t size) {
  const std::string where = "C_GetAttributeValue(session " + std::to_string(session) +  //
                            ", object " + std::to_string(object) + ", CKA_VALUE";
  const std::string bytes = std::to_string(size);
  return "log 5: Getting certificate with id " + std::to_string(object) + '\n' + where +
         " NULL) = OK, " + bytes + " bytes\n" +  //
         where + "[" + bytes + "]) = OK, " + bytes + " bytes\n";
}

inline std::string ReadsCertificate(int session, int object, const std::string& text) {
  return ReadsValue(session, object, text.size()) +  //
         "cert_alloc()\n" +                          //
         "cert_parse(" + NameOf(text) + ") = 0\n";
}

inline std::string FreesCertificates(const std::vector<std::string>& texts) {
  std::string lines;
  for (const std::string& text : texts)
    lines += "cert_free(" + NameOf(text) + ")\n";
  return lines;
}

// One step of a search for a serial: the certificate is found, read and freed.
inline std::string ExaminesCertificate(int session, int object, const std::string& text) {
  return FindsObject(session, object) + ReadsCertificate(session, object, text) +
         FreesCertificates({text});
}

// All of GetTokenCertificates; the objects are numbered from `first_object`.
inline std::string ReadsToken(int slot, int session, const std::vector<std::string>& texts,
                              int first_object = 1) {
  std::string lines = BeginsSearch(slot, session);
  int object = first_object;
  for (const std::string& text : texts) {
    lines += FindsObject(session, object) + ReadsCertificate(session, object, text);
    ++object;
  }
  return lines + FindsNoObject(session) + EndsSearch(session);
}

// GetToken.

// The part before the certificates are read.
inline std::string IdentifiesToken(int slot, const std::string& description,
                                   const std::string& label) {
  const std::string number = std::to_string(slot);
  return "C_GetSlotInfo(slot " + number + ") = OK\n" +  //
         "log 5: Getting token for slot " + number + " on '" + description + "'\n" +
         "C_GetTokenInfo(slot " + number + ") = OK\n" +  //
         "log 5: Found token \"" + label + "\"\n";
}

// A certificate that is not a CA and has a key of 2048 bits.
inline std::string DescribesCertificate(const std::string& name, const std::string& serial = "01") {
  return "log 5: Found certificate for \"CN=" + name + "\"\n" +  //
         "log 5: CA: No\n" +                                     //
         "log 5: Serial: " + serial + '\n' +                     //
         "log 5: Key length: 2048 bits\n";
}

inline std::string ReportsNoCertificate(const std::string& label) {
  return "log 3: No certificate associated with token \"" + label + "\"\n";
}

// All of GetToken for a token without certificates.
inline std::string DescribesEmptyToken(int slot, int session, const std::string& label = "Empty") {
  return IdentifiesToken(slot, "Reader", label) + ReadsToken(slot, session, {}) +
         ReportsNoCertificate(label);
}
