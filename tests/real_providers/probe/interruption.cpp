#include "real_providers/probe/interruption.h"

#include <chrono>
#include <cstdlib>
#include <utility>

#include "support/ckr_names.h"

namespace {

using Clock = std::chrono::steady_clock;
constexpr std::chrono::milliseconds kLongWait(1200);

// The functions of a function list have no parameter for their object.
Interruption* current = nullptr;
CK_FUNCTION_LIST_PTR real = nullptr;

bool IsForPrivateKey(const CK_ATTRIBUTE* attributes, CK_ULONG num_attributes) {
  for (CK_ULONG i = 0; i < num_attributes; ++i) {
    if (attributes[i].type == CKA_CLASS)
      return *static_cast<const CK_OBJECT_CLASS*>(attributes[i].pValue) == CKO_PRIVATE_KEY;
  }
  return false;
}

}  // namespace

template <typename Call>
CK_RV Interruption::Before(const char* step, Call call) {
  if (current->happened_ || current->step_ != step)
    return call();
  current->happened_ = true;
  if (std::system(current->command_.c_str()) != 0)
    std::abort();
  const auto began = Clock::now();
  current->result_ = call();
  current->waited_ = Clock::now() - began >= kLongWait;
  return current->result_;
}

Interruption::Interruption(CK_FUNCTION_LIST_PTR provider, std::string step, std::string command)
    : functions_(*provider), step_(std::move(step)), command_(std::move(command)) {
  current = this;
  real = provider;
  functions_.C_GetSlotList = [](CK_BBOOL present, CK_SLOT_ID_PTR slots, CK_ULONG_PTR count) {
    return Before("slots", [&] { return real->C_GetSlotList(present, slots, count); });
  };
  functions_.C_GetTokenInfo = [](CK_SLOT_ID slot, CK_TOKEN_INFO_PTR info) {
    return Before("token", [&] { return real->C_GetTokenInfo(slot, info); });
  };
  functions_.C_OpenSession = [](CK_SLOT_ID slot, CK_FLAGS flags, CK_VOID_PTR data, CK_NOTIFY notify,
                                CK_SESSION_HANDLE_PTR session) {
    return Before("session",
                  [&] { return real->C_OpenSession(slot, flags, data, notify, session); });
  };
  functions_.C_FindObjectsInit = [](CK_SESSION_HANDLE session, CK_ATTRIBUTE_PTR attributes,
                                    CK_ULONG num_attributes) {
    return Before(IsForPrivateKey(attributes, num_attributes) ? "key" : "search",
                  [&] { return real->C_FindObjectsInit(session, attributes, num_attributes); });
  };
  functions_.C_FindObjects = [](CK_SESSION_HANDLE session, CK_OBJECT_HANDLE_PTR objects,
                                CK_ULONG max_objects, CK_ULONG_PTR num_objects) {
    return Before("found",
                  [&] { return real->C_FindObjects(session, objects, max_objects, num_objects); });
  };
  functions_.C_GetAttributeValue = [](CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object,
                                      CK_ATTRIBUTE_PTR attributes, CK_ULONG num_attributes) {
    return Before("read", [&] {
      return real->C_GetAttributeValue(session, object, attributes, num_attributes);
    });
  };
  functions_.C_Login = [](CK_SESSION_HANDLE session, CK_USER_TYPE user_type, CK_UTF8CHAR_PTR pin,
                          CK_ULONG pin_len) {
    return Before("login", [&] { return real->C_Login(session, user_type, pin, pin_len); });
  };
  functions_.C_SignInit = [](CK_SESSION_HANDLE session, CK_MECHANISM_PTR mechanism,
                             CK_OBJECT_HANDLE key) {
    return Before("init", [&] { return real->C_SignInit(session, mechanism, key); });
  };
  functions_.C_Sign = [](CK_SESSION_HANDLE session, CK_BYTE_PTR data, CK_ULONG data_len,
                         CK_BYTE_PTR signature, CK_ULONG_PTR signature_len) {
    return Before("sign",
                  [&] { return real->C_Sign(session, data, data_len, signature, signature_len); });
  };
  functions_.C_WaitForSlotEvent = [](CK_FLAGS flags, CK_SLOT_ID_PTR slot, CK_VOID_PTR reserved) {
    return Before("poll", [&] { return real->C_WaitForSlotEvent(flags, slot, reserved); });
  };
}

Interruption::~Interruption() {
  current = nullptr;
}

std::string Interruption::result() const {
  return support::CkrName(result_) + (waited_ ? " after a wait" : "");
}
