// Logging in to a token, and unlocking a locked user PIN.
#include <cstdio>
#include <cstdlib>
#include <optional>

#include "host/logfile.h"
#include "pkcs11/detail/decimal.h"
#include "pkcs11/detail/pin_buffer.h"
#include "pkcs11/detail/session.h"
#include "pkcs11/pkcs11.h"

namespace cardcert::detail {
namespace {

// What the token says of the PIN of one user type (PKCS#11 2.40, CK_TOKEN_INFO flags).
struct PinKind {
  pkcs11_pin_type type;
  CK_FLAGS locked;
  CK_FLAGS final_try;
  CK_FLAGS count_low;
};

constexpr PinKind kUserPin = {PIN_TYPE_USER, CKF_USER_PIN_LOCKED, CKF_USER_PIN_FINAL_TRY,
                              CKF_USER_PIN_COUNT_LOW};
constexpr PinKind kSoPin = {PIN_TYPE_SO, CKF_SO_PIN_LOCKED, CKF_SO_PIN_FINAL_TRY,
                            CKF_SO_PIN_COUNT_LOW};

// A missing callback is a fault of the host program, in release builds too: going on would mean
// a login without the user.
void RequirePinCallback(pin_cb ask_pin) {
  if (ask_pin != nullptr)
    return;
  std::fputs("PKCS11Module: the PIN callback is null\n", stderr);
  std::abort();
}

// Asks for a PIN: CKR_OK with the PIN in the buffer, CKR_CANCEL, or CKR_ARGUMENTS_BAD when the host
// claims to have written more than the buffer holds.
CK_RV AskPin(pkcs11_pin_type type, pin_cb ask_pin, void* data, PinBuffer* pin) {
  pin->length = sizeof pin->bytes;
  if (!ask_pin(type, pin->bytes, &pin->length, data))
    return CKR_CANCEL;
  if (pin->length <= sizeof pin->bytes)
    return CKR_OK;
  pin->Clear();
  return CKR_ARGUMENTS_BAD;
}

// What token and driver say when a PIN has the wrong form. Drivers disagree on the value.
bool IsFormError(CK_RV rv) {
  switch (rv) {
    case CKR_PIN_INVALID:
    case CKR_PIN_LEN_RANGE:
    case CKR_DATA_INVALID:
    case CKR_DATA_LEN_RANGE:
    case CKR_ARGUMENTS_BAD:
      return true;
    default:
      return false;
  }
}

// What is wrong with the PIN of a login; nothing when the fault lies elsewhere.
std::optional<pkcs11_pin_error> LoginPinError(CK_RV rv) {
  if (rv == CKR_PIN_INCORRECT)
    return PIN_ERROR_INCORRECT;
  if (rv == CKR_PIN_LOCKED)
    return PIN_ERROR_LOCKED;
  if (IsFormError(rv))
    return PIN_ERROR_INVALID;
  return std::nullopt;
}

}  // namespace
}  // namespace cardcert::detail

namespace detail = cardcert::detail;

CK_RV PKCS11Module::Login(CK_SESSION_HANDLE session, CK_SLOT_ID slot, CK_USER_TYPE user_type,
                          pin_cb ask_pin, error_cb report_error, void* data) {
  detail::RequirePinCallback(ask_pin);
  if (user_type != CKU_USER && user_type != CKU_SO)
    return CKR_ARGUMENTS_BAD;
  const detail::PinKind& kind = user_type == CKU_USER ? detail::kUserPin : detail::kSoPin;
  const auto report = [&](pkcs11_pin_error error) {
    if (report_error != nullptr)
      report_error(kind.type, error, data);
  };

  CK_TOKEN_INFO token_info = {};
  CK_RV rv = function_list->C_GetTokenInfo(slot, &token_info);
  if (rv != CKR_OK) {
    logfile.Log("Unable to get info about token", 3);
    return rv;
  }

  if (token_info.flags & kind.locked) {
    logfile.Log("Passphrase locked", 5);
    report(PIN_ERROR_LOCKED);
    if (user_type == CKU_SO)
      return CKR_PIN_LOCKED;
    rv = Unlock(session, slot, ask_pin, report_error, data);
    if (rv != CKR_OK)
      return rv;
  }
  if (token_info.flags & kind.final_try)
    logfile.Log("Final passphrase attempt for token", 5);
  else if (token_info.flags & kind.count_low)
    logfile.Log("Previous failed passphrase attempt for token", 5);

  {
    detail::PinBuffer pin;
    rv = detail::AskPin(kind.type, ask_pin, data, &pin);
    if (rv != CKR_OK)
      return rv;
    rv = function_list->C_Login(session, user_type, pin.bytes, pin.length);
  }
  if (rv == CKR_OK)
    return CKR_OK;

  const std::optional<pkcs11_pin_error> error = detail::LoginPinError(rv);
  if (!error) {
    logfile.Log("Unexpected token login error: " + detail::Decimal(rv), 3);
    return rv;
  }
  logfile.Log("Token login error: " + detail::Decimal(rv), 5);
  report(*error);
  if (rv != CKR_PIN_LOCKED)
    return CKR_PIN_INCORRECT;
  if (user_type == CKU_SO)
    return CKR_PIN_LOCKED;
  rv = Unlock(session, slot, ask_pin, report_error, data);
  return rv == CKR_OK ? CKR_PIN_INCORRECT : rv;  // Unlocked: ask again, for the new PIN.
}

CK_RV PKCS11Module::Unlock(CK_SESSION_HANDLE session, CK_SLOT_ID slot, pin_cb ask_pin,
                           error_cb report_error, void* data) {
  detail::RequirePinCallback(ask_pin);
  const auto report = [&](pkcs11_pin_type type, pkcs11_pin_error error) {
    if (report_error != nullptr)
      report_error(type, error, data);
  };

  unsigned long no_length = 0;
  if (!ask_pin(PIN_TYPE_UNLOCK, nullptr, &no_length, data))
    return CKR_CANCEL;
  logfile.Log("Attempting to unlock passphrase...", 5);

  // Without a limit of our own: the token counts the attempts, and the user may cancel.
  CK_RV rv = CKR_OK;
  do {
    rv = Login(session, slot, CKU_SO, ask_pin, report_error, data);
  } while (rv == CKR_PIN_INCORRECT);
  if (rv != CKR_OK)
    return rv;
  const detail::TokenLogin login(function_list, session);

  for (;;) {
    {
      detail::PinBuffer pin;
      rv = detail::AskPin(PIN_TYPE_NEW_USER, ask_pin, data, &pin);
      if (rv != CKR_OK)
        return rv;
      rv = function_list->C_InitPIN(session, pin.bytes, pin.length);
    }
    if (!detail::IsFormError(rv))
      break;
    logfile.Log("Passphrase init error: " + detail::Decimal(rv), 5);
    report(PIN_TYPE_USER, PIN_ERROR_INVALID);
  }

  switch (rv) {
    case CKR_OK:
      return CKR_OK;
    case CKR_PIN_INCORRECT:
      // Not passed on: the caller would take it for a wrong user PIN, and ask for that again.
      report(PIN_TYPE_SO, PIN_ERROR_INCORRECT);
      return CKR_GENERAL_ERROR;
    case CKR_PIN_LOCKED:
      report(PIN_TYPE_SO, PIN_ERROR_LOCKED);
      return CKR_PIN_LOCKED;
    default:
      logfile.Log("Unexpected passphrase init error: " + detail::Decimal(rv), 3);
      return rv;
  }
}
