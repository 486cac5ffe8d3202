// Owners of what a provider hands out: a session, a login.
#pragma once

#include <p11-kit/pkcs11.h>

#include <utility>

namespace cardcert::detail {

// One open session; closing it also ends a search that is under way in it.
class Session {
 public:
  explicit Session(CK_FUNCTION_LIST_PTR functions) : functions_(functions) {}
  // Takes over a session that is open already.
  Session(CK_FUNCTION_LIST_PTR functions, CK_SESSION_HANDLE session)
      : functions_(functions), session_(session), open_(true) {}
  ~Session() { Close(); }
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  CK_RV Open(CK_SLOT_ID slot, CK_FLAGS flags) {
    const CK_RV rv = functions_->C_OpenSession(slot, flags, nullptr, nullptr, &session_);
    open_ = rv == CKR_OK;
    return rv;
  }

  // The result of C_CloseSession is ignored: there is nothing left to do about it.
  void Close() {
    if (std::exchange(open_, false))
      functions_->C_CloseSession(session_);
  }

  // Gives the open session away; the receiver closes it.
  CK_SESSION_HANDLE Release() {
    open_ = false;
    return session_;
  }

  // The handle as the provider gave it, also after Close().
  CK_SESSION_HANDLE handle() const { return session_; }

 private:
  CK_FUNCTION_LIST_PTR functions_;
  CK_SESSION_HANDLE session_ = CK_INVALID_HANDLE;
  bool open_ = false;
};

// A login of a session, from when the token has granted it.
class TokenLogin {
 public:
  TokenLogin(CK_FUNCTION_LIST_PTR functions, CK_SESSION_HANDLE session)
      : functions_(functions), session_(session) {}
  ~TokenLogin() { functions_->C_Logout(session_); }
  TokenLogin(const TokenLogin&) = delete;
  TokenLogin& operator=(const TokenLogin&) = delete;

 private:
  CK_FUNCTION_LIST_PTR functions_;
  CK_SESSION_HANDLE session_;
};

}  // namespace cardcert::detail
