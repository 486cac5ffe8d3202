// A PKCS#11 provider whose every answer comes from an input: results, counts, lengths, handles,
// texts, certificates. It writes only where it was offered room, as a provider can be expected to,
// and may claim anything beside. When the input ends every call fails, so that every operation
// ends.
//
// It keeps the books that the component must balance: libraries, initialisations, sessions, logins.
#pragma once

#include <p11-kit/pkcs11.h>

#include <map>
#include <string>
#include <vector>

#include "fuzzing.h"

class FuzzedProvider {
 public:
  explicit FuzzedProvider(Input* input);
  ~FuzzedProvider();
  FuzzedProvider(const FuzzedProvider&) = delete;
  FuzzedProvider& operator=(const FuzzedProvider&) = delete;

  // The one that is alive.
  static FuzzedProvider& Current();

  // Nothing is open that an operation opened; only `sessions` of them may be.
  void CheckBalance(std::size_t sessions = 0) const;
  bool loaded() const { return libraries_ > 0; }

  // For the loader.
  void Opened() { ++libraries_; }
  void Closed();
  CK_RV GetFunctionList(CK_FUNCTION_LIST_PTR_PTR list);

  // For the functions.
  Input& input() { return *input_; }
  // How the call ends: mostly well while there is input, never after it.
  CK_RV Result();
  // A length or number that is told instead of `truth`; mostly the truth.
  CK_ULONG Told(CK_ULONG truth);
  // A handle or slot; often one that was given out before, now and then 0.
  CK_ULONG Handle();
  // A blank-padded field, or one of any bytes.
  void Fill(unsigned char* field, std::size_t width);
  const std::string& Certificate();

  void Initialized() { initialized_ = true; }
  void Finalized();
  void SessionOpened(CK_SESSION_HANDLE session) { ++sessions_[session]; }
  void SessionClosed(CK_SESSION_HANDLE session);
  void LoggedIn(CK_SESSION_HANDLE session) { ++logins_[session]; }
  void LoggedOut(CK_SESSION_HANDLE session);

  std::string value;  // Of the object whose length was asked for last.

 private:
  Input* input_;
  CK_FUNCTION_LIST functions_ = {};
  int libraries_ = 0;
  bool initialized_ = false;
  CK_ULONG last_handle_ = 0;
  std::map<CK_SESSION_HANDLE, int> sessions_;
  std::map<CK_SESSION_HANDLE, int> logins_;
};

// The certificates that the provider has on its tokens; their serials are 01, 02, ...
const std::vector<std::string>& FuzzedCertificates();
