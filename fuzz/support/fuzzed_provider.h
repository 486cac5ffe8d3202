// A PKCS#11 provider that takes every answer from an input: results, counts, lengths, handles,
// texts and certificates. It never writes beyond the buffers it is given, but may report any length
// or count. At the end of the input every call fails, so that every operation ends.
//
// It counts open libraries, initialisations, sessions and logins, and checks that the component
// releases each of them exactly once.
#pragma once

#include <p11-kit/pkcs11.h>

#include <map>
#include <string>
#include <vector>

#include "fuzzing.h"
#include "host/certificate.h"

class FuzzedProvider {
 public:
  explicit FuzzedProvider(Input* input);
  ~FuzzedProvider();
  FuzzedProvider(const FuzzedProvider&) = delete;
  FuzzedProvider& operator=(const FuzzedProvider&) = delete;

  // Returns the only instance. Must be called while there is one.
  static FuzzedProvider& Current();

  // Checks that nothing is left open after an operation, except for at most `max_sessions`
  // sessions.
  void CheckNothingOpen(std::size_t max_sessions = 0) const;
  bool loaded() const { return num_libraries_ > 0; }

  // Called by the loader.
  void LibraryOpened() { ++num_libraries_; }
  void LibraryClosed();
  CK_RV GetFunctionList(CK_FUNCTION_LIST_PTR_PTR list);

  // Called by the PKCS#11 functions.
  Input& input() { return *input_; }
  // Returns the result of a call: usually CKR_OK, at the end of the input always a failure.
  CK_RV Result();
  // Returns the length or count to report: usually `actual`, sometimes a wrong one.
  CK_ULONG Reported(CK_ULONG actual);
  // Returns a handle or slot: usually a new one, sometimes the last one again or 0.
  CK_ULONG Handle();
  // Fills a fixed-width text field with a text and padding, which may be other than blanks.
  void Fill(unsigned char* field, std::size_t width);
  const std::string& Certificate();

  void Initialized() { initialized_ = true; }
  void Finalized();
  void SessionOpened(CK_SESSION_HANDLE session) { ++sessions_[session]; }
  void SessionClosed(CK_SESSION_HANDLE session);
  void LoggedIn(CK_SESSION_HANDLE session) { ++logins_[session]; }
  void LoggedOut(CK_SESSION_HANDLE session);

  std::string value;  // The attribute value whose length was reported last.

 private:
  Input* input_;
  CK_FUNCTION_LIST functions_ = {};
  int num_libraries_ = 0;
  bool initialized_ = false;
  CK_ULONG last_handle_ = 0;
  std::map<CK_SESSION_HANDLE, int> sessions_;
  std::map<CK_SESSION_HANDLE, int> logins_;
};

// The certificates on the provider's tokens. Their serial numbers are 01, 02, ...
const std::vector<std::string>& FuzzedCertificates();

// Returns the same certificates, parsed.
const std::vector<const certificate*>& ParsedCertificates();

// Makes the component load the current FuzzedProvider (see provider_loader.cpp).
void InstallProviderLoader();
