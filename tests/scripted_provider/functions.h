// The functions behind the provider's entry points (PKCS#11 2.40, section 5).
#pragma once

#include <p11-kit/pkcs11.h>

namespace scripted::functions {

// general_functions.cpp
CK_RV C_GetFunctionList(CK_FUNCTION_LIST_PTR_PTR list, CK_FUNCTION_LIST_PTR functions);
CK_RV C_Initialize(void* init_args);
CK_RV C_Finalize(void* reserved);
CK_RV C_GetInfo(CK_INFO* info);
CK_RV C_GetSlotList(CK_BBOOL token_present, CK_SLOT_ID* slots, CK_ULONG* count);
CK_RV C_GetSlotInfo(CK_SLOT_ID slot, CK_SLOT_INFO* info);
CK_RV C_GetTokenInfo(CK_SLOT_ID slot, CK_TOKEN_INFO* info);
CK_RV C_WaitForSlotEvent(CK_FLAGS flags, CK_SLOT_ID* slot, void* reserved);

// session_functions.cpp
CK_RV C_OpenSession(CK_SLOT_ID slot, CK_FLAGS flags, void* application, CK_NOTIFY notify,
                    CK_SESSION_HANDLE* session);
CK_RV C_CloseSession(CK_SESSION_HANDLE session);
CK_RV C_Login(CK_SESSION_HANDLE session, CK_USER_TYPE user_type, CK_UTF8CHAR* pin,
              CK_ULONG pin_len);
CK_RV C_Logout(CK_SESSION_HANDLE session);
CK_RV C_InitPIN(CK_SESSION_HANDLE session, CK_UTF8CHAR* pin, CK_ULONG pin_len);

// object_functions.cpp
CK_RV C_FindObjectsInit(CK_SESSION_HANDLE session, CK_ATTRIBUTE* attributes, CK_ULONG count);
CK_RV C_FindObjects(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE* objects, CK_ULONG max_count,
                    CK_ULONG* count);
CK_RV C_FindObjectsFinal(CK_SESSION_HANDLE session);
CK_RV C_GetAttributeValue(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object,
                          CK_ATTRIBUTE* attributes, CK_ULONG count);
CK_RV C_SignInit(CK_SESSION_HANDLE session, CK_MECHANISM* mechanism, CK_OBJECT_HANDLE key);
CK_RV C_Sign(CK_SESSION_HANDLE session, CK_BYTE* data, CK_ULONG data_len, CK_BYTE* signature,
             CK_ULONG* signature_len);

// Any other function: records a violation and returns CKR_FUNCTION_NOT_SUPPORTED.
CK_RV Unsupported(const char* function);

}  // namespace scripted::functions
