// Parts of expected traces (see expected.h) of logins and unlocks. `user` is "USER" or "SO", as in
// the trace. The slot is 1, and so is the session unless another one is given.
#pragma once

#include <string>

#include "support/ckr_names.h"

inline constexpr char kReadsTokenInfo[] = "C_GetTokenInfo(slot 1) = OK\n";
inline constexpr char kWarnsOfFailedAttempt[] =
    "log 5: Previous failed passphrase attempt for token\n";
inline constexpr char kWarnsOfFinalAttempt[] = "log 5: Final passphrase attempt for token\n";

// The values that say that a PIN has the wrong form; providers disagree on which.
inline bool IsFormError(CK_RV rv) {
  return rv == CKR_PIN_INVALID || rv == CKR_PIN_LEN_RANGE || rv == CKR_DATA_INVALID ||
         rv == CKR_DATA_LEN_RANGE || rv == CKR_ARGUMENTS_BAD;
}

inline std::string AsksForPin(const std::string& user, std::size_t length) {
  return "ask " + user + " = PIN of " + std::to_string(length) + " bytes\n";
}

// The component passes a PIN of `length` bytes to C_Login, which returns `rv`.
inline std::string CallsLogin(const std::string& user, std::size_t length, CK_RV rv = CKR_OK,
                              int session = 1) {
  return "C_Login(session " + std::to_string(session) + ", " + user + ", PIN of " +
         std::to_string(length) + " bytes) = " + support::CkrName(rv) + '\n';
}

// The user types a PIN of `length` bytes, and C_Login returns `rv`.
inline std::string EntersPin(const std::string& user, std::size_t length, CK_RV rv = CKR_OK,
                             int session = 1) {
  return AsksForPin(user, length) + CallsLogin(user, length, rv, session);
}

// The messages about a PIN that C_Login rejects with `rv`: in the log, and also to the user.
inline std::string LogsLoginError(CK_RV rv) {
  return "log 5: Token login error: " + std::to_string(rv) + '\n';
}
inline std::string ReportsPinError(const std::string& user, CK_RV rv) {
  return LogsLoginError(rv) + "tell " + user +
         (rv == CKR_PIN_INCORRECT ? " INCORRECT\n"
          : rv == CKR_PIN_LOCKED  ? " LOCKED\n"
                                  : " INVALID\n");
}

// The user types a PIN that C_Login rejects with `rv`.
inline std::string EntersWrongPin(const std::string& user, std::size_t length,
                                  CK_RV rv = CKR_PIN_INCORRECT) {
  return EntersPin(user, length, rv) + ReportsPinError(user, rv);
}

// The flags of the token say that the PIN is locked.
inline std::string ReportsLockedPin(const std::string& user) {
  return "log 5: Passphrase locked\ntell " + user + " LOCKED\n";
}

inline std::string LogsOut(int session = 1) {
  return "C_Logout(session " + std::to_string(session) + ") = OK\n";
}

// The user agrees to an unlock. The login as security officer follows.
inline std::string BeginsUnlock() {
  return std::string("ask UNLOCK = yes\nlog 5: Attempting to unlock passphrase...\n") +
         kReadsTokenInfo;
}

inline std::string LogsInToUnlock() {
  return BeginsUnlock() + EntersPin("SO", 8);
}

// The user types a new PIN of `length` bytes, and C_InitPIN returns `rv`.
inline std::string EntersNewPin(std::size_t length, CK_RV rv = CKR_OK) {
  return AsksForPin("NEW_USER", length) + "C_InitPIN(session 1, PIN of " + std::to_string(length) +
         " bytes) = " + support::CkrName(rv) + '\n';
}

inline std::string LogsNewPinError(CK_RV rv) {
  return "log 5: Passphrase init error: " + std::to_string(rv) + '\n';
}

// The user types a new PIN that C_InitPIN rejects for its length.
inline std::string EntersNewPinOfWrongLength(std::size_t length) {
  return EntersNewPin(length, CKR_PIN_LEN_RANGE) + LogsNewPinError(CKR_PIN_LEN_RANGE) +
         "tell USER INVALID\n";
}

// An unlock in which both PINs are accepted at the first attempt.
inline std::string Unlocks() {
  return LogsInToUnlock() + EntersNewPin(4) + LogsOut();
}
