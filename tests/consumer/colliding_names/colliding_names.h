// Inline classes and functions of the program in the global namespace. They have the names of
// private helpers of the component, and other layouts and effects. If the linker merges one of them
// with the component's, either the component calls the program's function, which the program
// counts, or the program calls the component's.
#pragma once

#include <p11-kit/pkcs11.h>

#include <string>

#include "host/certificate.h"

// How often a function of this file was called.
inline int num_calls = 0;

class Session {
 public:
  Session() { ++num_calls; }
  explicit Session(CK_FUNCTION_LIST*) { ++num_calls; }
  Session(CK_FUNCTION_LIST*, CK_SESSION_HANDLE) { ++num_calls; }
  ~Session() { Close(); }
  CK_RV Open(CK_SLOT_ID, CK_FLAGS) { return static_cast<CK_RV>(++num_calls); }
  void Close() { ++num_calls; }
  CK_SESSION_HANDLE Release() { return static_cast<CK_SESSION_HANDLE>(++num_calls); }
  CK_SESSION_HANDLE handle() const { return static_cast<CK_SESSION_HANDLE>(++num_calls); }

 private:
  std::string user_ = "a user of the program who has a long name";
};

class TokenLogin {
 public:
  TokenLogin() { ++num_calls; }
  TokenLogin(CK_FUNCTION_LIST*, CK_SESSION_HANDLE) { ++num_calls; }
  ~TokenLogin() { ++num_calls; }

 private:
  std::string user_ = "a user of the program who has a long name";
};

class PinBuffer {
 public:
  PinBuffer() { ++num_calls; }
  ~PinBuffer() { Clear(); }
  void Clear() { ++num_calls; }

 private:
  std::string pins_[8];
};

class TokenSlots {
 public:
  TokenSlots() { ++num_calls; }
  explicit TokenSlots(CK_FUNCTION_LIST*) { ++num_calls; }
  ~TokenSlots() { ++num_calls; }
  CK_RV Count() { return static_cast<CK_RV>(++num_calls); }
  CK_RV Fetch() { return static_cast<CK_RV>(++num_calls); }
  CK_ULONG capacity() const { return static_cast<CK_ULONG>(++num_calls); }
  const CK_SLOT_ID* begin() const { return ++num_calls, nullptr; }
  const CK_SLOT_ID* end() const { return ++num_calls, nullptr; }

 private:
  std::string name_ = "slots in a machine, far too many for one short string";
};

class Provider {
 public:
  Provider() { ++num_calls; }
  explicit Provider(CK_FUNCTION_LIST*) { ++num_calls; }
  ~Provider() { ++num_calls; }
  CK_RV Finalize() const { return static_cast<CK_RV>(++num_calls); }

 private:
  std::string name_ = "a provider of something entirely different";
};

class CertificateSearch {
 public:
  CertificateSearch() { ++num_calls; }
  ~CertificateSearch() { ++num_calls; }
  CK_RV Begin() const { return static_cast<CK_RV>(++num_calls); }
  bool Next(CK_OBJECT_HANDLE*) { return ++num_calls != 0; }
  void End() const { ++num_calls; }

 private:
  std::string text_ = "certificates that are lost";
};

class CertificateList {
 public:
  CertificateList() { ++num_calls; }
  ~CertificateList() { ++num_calls; }
  void Release() { ++num_calls; }

 private:
  std::string names_[3];
};

template <unsigned long kSize>
class TextBuffer {
 public:
  TextBuffer() { ++num_calls; }
  ~TextBuffer() { ++num_calls; }
  char* data() { return ++num_calls, nullptr; }
  unsigned long size() const { return static_cast<unsigned long>(++num_calls); }
  std::string text() const { return std::to_string(++num_calls); }

 private:
  std::string text_ = "a text of the program that is not in a buffer";
};

struct Free {
  void operator()(unsigned char*) const { ++num_calls; }
  std::string reason;
};
struct FreeCertificate {
  void operator()(certificate*) const { ++num_calls; }
  std::string reason;
};
struct UniqueCertificate {
  ~UniqueCertificate() { ++num_calls; }
  std::string name;
};
struct Converter {
  ~Converter() { ++num_calls; }
  std::string name;
};
struct Loading {
  ~Loading() { ++num_calls; }
  std::string name;
};
struct KeyId {
  ~KeyId() { ++num_calls; }
  std::string name;
};

template <typename... Arguments>
bool FillGap(CK_RV (**)(Arguments...)) {
  return ++num_calls != 0;
}
inline bool FillGaps(CK_FUNCTION_LIST*) {
  return ++num_calls != 0;
}
inline std::string Decimal(unsigned long number) {
  return std::to_string(++num_calls) + " instead of " + std::to_string(number);
}
inline std::string TokenLabel(const CK_TOKEN_INFO&) {
  return std::to_string(++num_calls);
}
template <std::size_t kWidth>
std::string FixedText(const CK_UTF8CHAR (&)[kWidth]) {
  return std::to_string(++num_calls);
}

namespace x509 {

struct Bytes {
  ~Bytes() { ++num_calls; }
  std::string name;
};

class Cursor {
 public:
  Cursor() { ++num_calls; }
  ~Cursor() { ++num_calls; }
  bool AtEnd() const { return ++num_calls != 0; }
  bool Take(std::size_t, Bytes*) { return ++num_calls == 0; }

 private:
  std::string name_;
};

class TextWriter {
 public:
  TextWriter(char*, std::size_t) { ++num_calls; }
  ~TextWriter() { ++num_calls; }
  void Put(char) { ++num_calls; }
  void Put(const char*) { ++num_calls; }
  void PutHex(unsigned char) { ++num_calls; }
  std::size_t Length() const { return static_cast<std::size_t>(++num_calls); }

 private:
  std::string text_;
};

}  // namespace x509

// Uses everything in this file, so that every function is compiled.
inline int UseAll() {
  const int num_calls_before = num_calls;
  {
    CK_FUNCTION_LIST list = {};
    CK_OBJECT_HANDLE object = 0;
    const CK_TOKEN_INFO info = {};
    Session by_list(&list);
    Session by_handle(&list, 1);
    Session session;
    session.Open(1, 2);
    session.Close();
    session.Release();
    session.handle();
    TokenLogin login;
    TokenLogin login_by_handle(&list, 1);
    PinBuffer pins;
    pins.Clear();
    TokenSlots slots;
    TokenSlots slots_by_list(&list);
    slots.Count();
    slots.Fetch();
    slots.capacity();
    slots.begin();
    slots.end();
    Provider provider;
    Provider provider_by_list(&list);
    provider.Finalize();
    CertificateSearch search;
    search.Begin();
    search.Next(&object);
    search.End();
    CertificateList certificates;
    certificates.Release();
    TextBuffer<1024> short_text;
    TextBuffer<16834> long_text;
    short_text.data();
    short_text.size();
    short_text.text();
    long_text.data();
    long_text.size();
    long_text.text();
    Free()(nullptr);
    FreeCertificate()(nullptr);
    UniqueCertificate unique_certificate;
    Converter converter;
    Loading loading;
    KeyId key_id;
    FillGap(&list.C_GetInfo);
    FillGaps(&list);
    Decimal(1);
    TokenLabel(info);
    FixedText(info.label);
    FixedText(info.manufacturerID);
    x509::Bytes bytes;
    x509::Cursor cursor;
    cursor.AtEnd();
    cursor.Take(1, &bytes);
    x509::TextWriter writer(nullptr, 0);
    writer.Put('a');
    writer.Put("a");
    writer.PutHex(1);
    writer.Length();
  }
  return num_calls - num_calls_before;
}

int UseAllInHost();
int UseAllInPkcs11();
