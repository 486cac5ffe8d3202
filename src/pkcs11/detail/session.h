// Owners of an open session and of a login.
#pragma once

#include <p11-kit/pkcs11.h>

#include <utility>

#include "pkcs11/detail/provider.h"

namespace cardcert::detail {

// Closes its session on destruction, which also ends a search that is active in it.
class Session {
 public:
  explicit Session(Provider provider) : provider_(provider) {}
  // Takes ownership of an open session.
  Session(Provider provider, CK_SESSION_HANDLE session)
      : provider_(provider), session_(session), open_(true) {}
  ~Session() { Close(); }
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  // Must be called at most once. Returns the result of C_OpenSession.
  CK_RV Open(CK_SLOT_ID slot, CK_FLAGS flags) {
    const CK_RV rv = provider_.OpenSession(slot, flags, &session_);
    open_ = rv == CKR_OK;
    return rv;
  }

  // Does nothing if the session is not open. The result of C_CloseSession is ignored, because the
  // component could not act on a failure.
  void Close() {
    if (std::exchange(open_, false))
      provider_.CloseSession(session_);
  }

  // Gives up ownership. The session stays open, and the caller must close it.
  CK_SESSION_HANDLE Release() {
    open_ = false;
    return session_;
  }

  // Returns the handle as the provider wrote it. Keeps its value after Close() and Release().
  CK_SESSION_HANDLE handle() const { return session_; }

 private:
  Provider provider_;
  CK_SESSION_HANDLE session_ = CK_INVALID_HANDLE;
  bool open_ = false;
};

// Logs out on destruction. To be constructed after C_Login has succeeded, and destroyed before the
// session is closed. The result of C_Logout is ignored.
class TokenLogin {
 public:
  TokenLogin(Provider provider, CK_SESSION_HANDLE session)
      : provider_(provider), session_(session) {}
  ~TokenLogin() { provider_.Logout(session_); }
  TokenLogin(const TokenLogin&) = delete;
  TokenLogin& operator=(const TokenLogin&) = delete;

 private:
  Provider provider_;
  CK_SESSION_HANDLE session_;
};

}  // namespace cardcert::detail
