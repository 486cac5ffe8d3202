// The parts of traces that are the same in many tests.
#pragma once

#include <string>
#include <vector>

// The same lines so many times over.
inline std::string Repeated(int times, const std::string& lines) {
  std::string all;
  for (int i = 0; i < times; ++i)
    all += lines;
  return all;
}

// The lines of one certificate object being read well. `text` is the certificate's.
inline std::string Reading(int session, int object, const std::string& text) {
  const std::string where =
      "(session " + std::to_string(session) + ", object " + std::to_string(object) + ", CKA_VALUE";
  const std::string size = std::to_string(text.size());
  return "log 5: Getting certificate with id " + std::to_string(object) + "\n" +  //
         "C_GetAttributeValue" + where + " NULL) = OK, " + size + " bytes\n" +    //
         "C_GetAttributeValue" + where + "[" + size + "]) = OK, " + size + " bytes\n" +
         "cert_alloc()\n" +  //
         "cert_parse(" + text.substr(0, text.find(';')) + ") = 0\n";
}

// One search step that yields this object.
inline std::string Found(int session, int object) {
  return "C_FindObjects(session " + std::to_string(session) + ", max 1) = OK, object " +
         std::to_string(object) + "\n";
}

inline std::string FoundNoMore(int session) {
  return "C_FindObjects(session " + std::to_string(session) + ", max 1) = OK, no object\n";
}

// A certificate search begun in a session that is opened with `flags`.
inline std::string BeginSearch(int slot, int session, const std::string& flags = "SERIAL") {
  const std::string number = std::to_string(session);
  return "log 5: Getting certificates for slot " + std::to_string(slot) + "\n" +
         "C_OpenSession(slot " + std::to_string(slot) + ", " + flags + ") = OK, session " + number +
         "\n" +  //
         "C_FindObjectsInit(session " + number + ", CKA_CLASS=CKO_CERTIFICATE) = OK\n";
}

inline std::string EndSearch(int session) {
  const std::string number = std::to_string(session);
  return "C_FindObjectsFinal(session " + number + ") = OK\n" +  //
         "C_CloseSession(session " + number + ") = OK\n";
}

// The lines of all certificates of a token being read well, with objects from `first_object` on.
inline std::string ReadingToken(int slot, int session, const std::vector<std::string>& texts,
                                int first_object = 1) {
  std::string lines = BeginSearch(slot, session);
  int object = first_object;
  for (const std::string& text : texts) {
    lines += Found(session, object) + Reading(session, object, text);
    ++object;
  }
  return lines + FoundNoMore(session) + EndSearch(session);
}

// The lines of a slot being described, up to its certificates.
inline std::string TokenPreamble(int slot, const std::string& description,
                                 const std::string& label) {
  const std::string number = std::to_string(slot);
  return "C_GetSlotInfo(slot " + number + ") = OK\n" +  //
         "log 5: Getting token for slot " + number + " on '" + description + "'\n" +
         "C_GetTokenInfo(slot " + number + ") = OK\n" +  //
         "log 5: Found token \"" + label + "\"\n";
}

// The log lines of one certificate being described well, without anything remarkable about it.
inline std::string Described(const std::string& name, const std::string& serial = "01") {
  return "log 5: Found certificate for \"CN=" + name + "\"\n" +  //
         "log 5: CA: No\n" +                                     //
         "log 5: Serial: " + serial + "\n" +                     //
         "log 5: Key length: 2048 bits\n";
}
