// Sessions, logins and PINs.
#include <algorithm>
#include <functional>
#include <string>

#include "scripted_provider/call.h"
#include "scripted_provider/functions.h"
#include "scripted_provider/trace_text.h"

namespace scripted::functions {

namespace {

std::string PinText(const CK_UTF8CHAR* pin, CK_ULONG length) {
  if (pin == nullptr)
    return "PIN NULL";
  if (Provider::Instance().traces_pins())
    return "PIN \"" + std::string(pin, pin + length) + '"';
  return "PIN of " + std::to_string(length) + " bytes";
}

bool HasReadOnlySession(const SlotModel& slot) {
  const std::list<SessionModel>& sessions = Provider::Instance().sessions();
  return std::any_of(sessions.begin(), sessions.end(), [&slot](const SessionModel& session) {
    return session.slot == &slot && !session.writable && !session.lost;
  });
}

// Calls `use` with the PIN, or with the one that is entered on the PIN pad: a null pointer starts
// an entry there (PKCS#11 2.40, section 5.6, C_Login).
CK_RV WithPin(Token& token, const CK_UTF8CHAR* pin, CK_ULONG length,
              const std::function<CK_RV(const CK_UTF8CHAR*, CK_ULONG)>& use) {
  if (pin != nullptr || (token.flags & CKF_PROTECTED_AUTHENTICATION_PATH) == 0)
    return use(pin, length);
  if (length != 0)
    return Violation(CKR_ARGUMENTS_BAD, "a null PIN with a length");
  if (token.pad_entries.empty())
    return Violation(CKR_FUNCTION_CANCELED, "nobody enters a PIN on the PIN pad");
  const Token::PadEntry entry = token.pad_entries.front();
  token.pad_entries.pop_front();
  if (entry.rv != CKR_OK)
    return entry.rv;
  return use(reinterpret_cast<const CK_UTF8CHAR*>(entry.pin.data()), entry.pin.size());
}

CK_RV CheckPin(Token& token, Pin& pin, const CK_UTF8CHAR* bytes, CK_ULONG length) {
  if (pin.locked())
    return CKR_PIN_LOCKED;
  if (bytes == nullptr || length < token.min_pin_len || length > token.max_pin_len)
    return CKR_PIN_LEN_RANGE;
  if (pin.Try(bytes, length))
    return CKR_OK;
  return pin.locked() && token.returns_pin_locked_on_last_try ? CKR_PIN_LOCKED : CKR_PIN_INCORRECT;
}

}  // namespace

CK_RV C_OpenSession(CK_SLOT_ID id, CK_FLAGS flags, void* application, CK_NOTIFY notify,
                    CK_SESSION_HANDLE* session) {
  return Call("C_OpenSession",
              {SlotText(id), SessionFlagNames(flags), application == nullptr ? "" : "application",
               notify == nullptr ? "" : "notify"})
      .HandleOutput(session)
      .Run(
          [&] {
            return WithToken(id, [&](SlotModel& slot) {
              if ((flags & CKF_SERIAL_SESSION) == 0)
                return Violation(CKR_SESSION_PARALLEL_NOT_SUPPORTED, "a parallel session");
              const bool writable = (flags & CKF_RW_SESSION) != 0;
              if (slot.token->login == CKU_SO && !writable)
                return CK_RV{CKR_SESSION_READ_WRITE_SO_EXISTS};
              *session = Provider::Instance().AddSession(slot, writable).handle;
              return CK_RV{CKR_OK};
            });
          },
          [&] { return SessionText(*session); });
}

CK_RV C_CloseSession(CK_SESSION_HANDLE handle) {
  Provider& provider = Provider::Instance();
  return Call("C_CloseSession", {SessionText(handle)}).DoesWorkOnFailure().Run([&] {
    const CK_RV rv = InSession(handle, [&](const SessionModel& session) {
      const std::list<SessionModel>& sessions = provider.sessions();
      const auto of_same_token = [&session](const SessionModel& other) {
        return other.slot == session.slot && !other.lost;
      };
      Token& token = *session.slot->token;
      if (std::count_if(sessions.begin(), sessions.end(), of_same_token) == 1 && token.login) {
        provider.AddViolation(SessionText(handle) + " closed without C_Logout");
        token.login.reset();
      }
      return CKR_OK;
    });
    provider.EndSession(handle);
    return rv;
  });
}

CK_RV C_Login(CK_SESSION_HANDLE handle, CK_USER_TYPE user_type, CK_UTF8CHAR* pin,
              CK_ULONG pin_len) {
  return Call("C_Login", {SessionText(handle), UserName(user_type), PinText(pin, pin_len)})
      .Run([&] {
        return InSession(handle, [&](const SessionModel& session) -> CK_RV {
          Token& token = *session.slot->token;
          if (user_type != CKU_USER && user_type != CKU_SO)
            return CKR_USER_TYPE_INVALID;
          if (token.login)
            return token.login == user_type ? CKR_USER_ALREADY_LOGGED_IN
                                            : CKR_USER_ANOTHER_ALREADY_LOGGED_IN;
          if (user_type == CKU_SO && HasReadOnlySession(*session.slot))
            return CKR_SESSION_READ_ONLY_EXISTS;
          Pin& known = user_type == CKU_USER ? token.user_pin : token.so_pin;
          if (!known.exists())
            return user_type == CKU_USER ? CKR_USER_PIN_NOT_INITIALIZED : CKR_USER_TYPE_INVALID;
          const CK_RV rv =
              WithPin(token, pin, pin_len, [&](const CK_UTF8CHAR* bytes, CK_ULONG length) {
                return CheckPin(token, known, bytes, length);
              });
          if (rv == CKR_OK)
            token.login = user_type;
          return rv;
        });
      });
}

CK_RV C_Logout(CK_SESSION_HANDLE handle) {
  return Call("C_Logout", {SessionText(handle)}).DoesWorkOnFailure().Run([&] {
    return InSession(handle, [&](const SessionModel& session) -> CK_RV {
      if (!session.slot->token->login)
        return Violation(CKR_USER_NOT_LOGGED_IN, "C_Logout without a login");
      session.slot->token->login.reset();
      return CKR_OK;
    });
  });
}

CK_RV C_InitPIN(CK_SESSION_HANDLE handle, CK_UTF8CHAR* pin, CK_ULONG pin_len) {
  return Call("C_InitPIN", {SessionText(handle), PinText(pin, pin_len)}).Run([&] {
    return InSession(handle, [&](const SessionModel& session) -> CK_RV {
      Token& token = *session.slot->token;
      if (!session.writable)
        return Violation(CKR_SESSION_READ_ONLY, "C_InitPIN in a read-only session");
      if (token.login != CKU_SO)
        return Violation(CKR_USER_NOT_LOGGED_IN, "C_InitPIN without a login as security officer");
      return WithPin(token, pin, pin_len, [&](const CK_UTF8CHAR* bytes, CK_ULONG length) -> CK_RV {
        if (bytes == nullptr || length < token.min_pin_len || length > token.max_pin_len)
          return CKR_PIN_LEN_RANGE;
        token.user_pin.Change(bytes, length);
        return CKR_OK;
      });
    });
  });
}

}  // namespace scripted::functions
