// Logging in to a token, and unlocking a locked user PIN.
#include <cstdio>
#include <cstdlib>
#include <optional>

#include "host/logfile.h"
#include "pkcs11/detail/decimal.h"
#include "pkcs11/detail/pin_buffer.h"
#include "pkcs11/detail/provider.h"
#include "pkcs11/detail/session.h"
#include "pkcs11/pkcs11.h"

namespace cardcert::detail {
namespace {

// The PIN of one user type, and the flags that report its state (PKCS#11 2.40, CK_TOKEN_INFO).
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

// A null callback is a programming error in the host. It stops the program in release builds, too,
// because the alternative is a login without the user's PIN.
void RequirePinCallback(pin_cb ask_pin) {
  if (ask_pin != nullptr)
    return;
  std::fputs("PKCS11Module: the PIN callback is null\n", stderr);
  std::abort();
}

// Asks the host for a PIN. Returns CKR_OK with the PIN in `*pin`, CKR_CANCEL if the user cancelled,
// or CKR_ARGUMENTS_BAD if the host reports more bytes than the buffer holds.
CK_RV AskPin(pkcs11_pin_type type, pin_cb ask_pin, void* data, PinBuffer* pin) {
  pin->length = sizeof pin->bytes;
  if (!ask_pin(type, pin->bytes, &pin->length, data))
    return CKR_CANCEL;
  if (pin->length <= sizeof pin->bytes)
    return CKR_OK;
  pin->Clear();
  return CKR_ARGUMENTS_BAD;
}

// Returns true if a token refused a PIN for its form or length. Providers differ in the value that
// they return for this.
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

// Returns what C_Login reported to be wrong with the PIN, or nothing for any other failure.
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

  const detail::Provider provider(function_list);
  CK_TOKEN_INFO token_info = {};
  CK_RV rv = provider.GetTokenInfo(slot, &token_info);
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
    rv = provider.Login(session, user_type, pin.bytes, pin.length);
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
  return rv == CKR_OK ? CKR_PIN_INCORRECT : rv;  // Unlocked: ask for the new PIN.
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

  // No limit here: the token counts the attempts, and the user may cancel.
  CK_RV rv = CKR_OK;
  do {
    rv = Login(session, slot, CKU_SO, ask_pin, report_error, data);
  } while (rv == CKR_PIN_INCORRECT);
  if (rv != CKR_OK)
    return rv;
  const detail::Provider provider(function_list);
  const detail::TokenLogin login(provider, session);

  for (;;) {
    {
      detail::PinBuffer pin;
      rv = detail::AskPin(PIN_TYPE_NEW_USER, ask_pin, data, &pin);
      if (rv != CKR_OK)
        return rv;
      rv = provider.InitPin(session, pin.bytes, pin.length);
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
      // CKR_PIN_INCORRECT would make the caller ask for the user PIN again.
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
