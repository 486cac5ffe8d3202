// Calls to the functions of a provider.
#pragma once

#include <p11-kit/pkcs11.h>

namespace cardcert::detail {

// The functions of a loaded provider that the component calls, under their PKCS#11 names. Refers to
// the provider's own function list, so it must not be used after the provider is unloaded.
//
// A provider supplies a stub for each function it does not support (PKCS#11 2.40, section 3.6), but
// some leave a null pointer instead. A call through a null pointer returns what a stub must return,
// CKR_FUNCTION_NOT_SUPPORTED.
class Provider {
 public:
  // `functions` must not be null.
  explicit Provider(CK_FUNCTION_LIST_PTR functions) : functions_(functions) {}

  CK_RV Initialize() const { return Call(functions_->C_Initialize, nullptr); }
  CK_RV Finalize() const { return Call(functions_->C_Finalize, nullptr); }
  CK_RV GetInfo(CK_INFO* info) const { return Call(functions_->C_GetInfo, info); }

  CK_RV GetSlotList(CK_BBOOL token_present, CK_SLOT_ID* slots, CK_ULONG* count) const {
    return Call(functions_->C_GetSlotList, token_present, slots, count);
  }
  CK_RV GetSlotInfo(CK_SLOT_ID slot, CK_SLOT_INFO* info) const {
    return Call(functions_->C_GetSlotInfo, slot, info);
  }
  CK_RV GetTokenInfo(CK_SLOT_ID slot, CK_TOKEN_INFO* info) const {
    return Call(functions_->C_GetTokenInfo, slot, info);
  }
  // Does not wait for an event.
  CK_RV PollSlotEvent(CK_SLOT_ID* slot) const {
    return Call(functions_->C_WaitForSlotEvent, CKF_DONT_BLOCK, slot, nullptr);
  }

  CK_RV OpenSession(CK_SLOT_ID slot, CK_FLAGS flags, CK_SESSION_HANDLE* session) const {
    return Call(functions_->C_OpenSession, slot, flags, nullptr, nullptr, session);
  }
  CK_RV CloseSession(CK_SESSION_HANDLE session) const {
    return Call(functions_->C_CloseSession, session);
  }
  CK_RV Login(CK_SESSION_HANDLE session, CK_USER_TYPE user_type, unsigned char* pin,
              CK_ULONG pin_len) const {
    return Call(functions_->C_Login, session, user_type, pin, pin_len);
  }
  CK_RV Logout(CK_SESSION_HANDLE session) const { return Call(functions_->C_Logout, session); }
  CK_RV InitPin(CK_SESSION_HANDLE session, unsigned char* pin, CK_ULONG pin_len) const {
    return Call(functions_->C_InitPIN, session, pin, pin_len);
  }

  CK_RV FindObjectsInit(CK_SESSION_HANDLE session, CK_ATTRIBUTE* search, CK_ULONG count) const {
    return Call(functions_->C_FindObjectsInit, session, search, count);
  }
  // Asks for one object; `*found` is 0 if there is no further one.
  CK_RV FindObject(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE* object, CK_ULONG* found) const {
    return Call(functions_->C_FindObjects, session, object, 1, found);
  }
  CK_RV FindObjectsFinal(CK_SESSION_HANDLE session) const {
    return Call(functions_->C_FindObjectsFinal, session);
  }
  // Asks for one attribute.
  CK_RV GetAttributeValue(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object,
                          CK_ATTRIBUTE* attribute) const {
    return Call(functions_->C_GetAttributeValue, session, object, attribute, 1);
  }

  CK_RV SignInit(CK_SESSION_HANDLE session, CK_MECHANISM* mechanism, CK_OBJECT_HANDLE key) const {
    return Call(functions_->C_SignInit, session, mechanism, key);
  }
  CK_RV Sign(CK_SESSION_HANDLE session, const unsigned char* data, CK_ULONG data_len,
             unsigned char* signature, CK_ULONG* signature_len) const {
    // C_Sign() only reads the data, but its parameter is not const.
    return Call(functions_->C_Sign, session, const_cast<CK_BYTE_PTR>(data), data_len, signature,
                signature_len);
  }

 private:
  template <typename T>
  struct NotDeduced {
    using Type = T;
  };

  // The parameter types come from the function alone, so that arguments convert as in a direct
  // call.
  template <typename... Parameters>
  static CK_RV Call(CK_RV (*function)(Parameters...),
                    typename NotDeduced<Parameters>::Type... arguments) {
    return function != nullptr ? function(arguments...) : CKR_FUNCTION_NOT_SUPPORTED;
  }

  CK_FUNCTION_LIST_PTR functions_;
};

}  // namespace cardcert::detail
