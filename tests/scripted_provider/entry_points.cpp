// The loadable library: a function list whose functions forward to functions.h. It has no state of
// its own, so that tests can load and unload it while the scripted provider keeps its state.
#include <p11-kit/pkcs11.h>

#include "scripted_provider/functions.h"

namespace {

namespace functions = scripted::functions;

CK_FUNCTION_LIST MakeFunctionList() {
  CK_FUNCTION_LIST list = {};
  list.version = {2, 40};

// The lambda converts to the type of the member it is assigned to.
#define FORWARDED(function) \
  list.function = [](auto... arguments) -> CK_RV { return functions::function(arguments...); }
  FORWARDED(C_Initialize);
  FORWARDED(C_Finalize);
  FORWARDED(C_GetInfo);
  FORWARDED(C_GetSlotList);
  FORWARDED(C_GetSlotInfo);
  FORWARDED(C_GetTokenInfo);
  FORWARDED(C_WaitForSlotEvent);
  FORWARDED(C_OpenSession);
  FORWARDED(C_CloseSession);
  FORWARDED(C_Login);
  FORWARDED(C_Logout);
  FORWARDED(C_InitPIN);
  FORWARDED(C_FindObjectsInit);
  FORWARDED(C_FindObjects);
  FORWARDED(C_FindObjectsFinal);
  FORWARDED(C_GetAttributeValue);
  FORWARDED(C_SignInit);
  FORWARDED(C_Sign);
#undef FORWARDED

#define UNSUPPORTED(function) \
  list.function = [](auto...) -> CK_RV { return functions::Unsupported(#function); }
  UNSUPPORTED(C_GetMechanismList);
  UNSUPPORTED(C_GetMechanismInfo);
  UNSUPPORTED(C_InitToken);
  UNSUPPORTED(C_SetPIN);
  UNSUPPORTED(C_CloseAllSessions);
  UNSUPPORTED(C_GetSessionInfo);
  UNSUPPORTED(C_GetOperationState);
  UNSUPPORTED(C_SetOperationState);
  UNSUPPORTED(C_CreateObject);
  UNSUPPORTED(C_CopyObject);
  UNSUPPORTED(C_DestroyObject);
  UNSUPPORTED(C_GetObjectSize);
  UNSUPPORTED(C_SetAttributeValue);
  UNSUPPORTED(C_EncryptInit);
  UNSUPPORTED(C_Encrypt);
  UNSUPPORTED(C_EncryptUpdate);
  UNSUPPORTED(C_EncryptFinal);
  UNSUPPORTED(C_DecryptInit);
  UNSUPPORTED(C_Decrypt);
  UNSUPPORTED(C_DecryptUpdate);
  UNSUPPORTED(C_DecryptFinal);
  UNSUPPORTED(C_DigestInit);
  UNSUPPORTED(C_Digest);
  UNSUPPORTED(C_DigestUpdate);
  UNSUPPORTED(C_DigestKey);
  UNSUPPORTED(C_DigestFinal);
  UNSUPPORTED(C_SignUpdate);
  UNSUPPORTED(C_SignFinal);
  UNSUPPORTED(C_SignRecoverInit);
  UNSUPPORTED(C_SignRecover);
  UNSUPPORTED(C_VerifyInit);
  UNSUPPORTED(C_Verify);
  UNSUPPORTED(C_VerifyUpdate);
  UNSUPPORTED(C_VerifyFinal);
  UNSUPPORTED(C_VerifyRecoverInit);
  UNSUPPORTED(C_VerifyRecover);
  UNSUPPORTED(C_DigestEncryptUpdate);
  UNSUPPORTED(C_DecryptDigestUpdate);
  UNSUPPORTED(C_SignEncryptUpdate);
  UNSUPPORTED(C_DecryptVerifyUpdate);
  UNSUPPORTED(C_GenerateKey);
  UNSUPPORTED(C_GenerateKeyPair);
  UNSUPPORTED(C_WrapKey);
  UNSUPPORTED(C_UnwrapKey);
  UNSUPPORTED(C_DeriveKey);
  UNSUPPORTED(C_SeedRandom);
  UNSUPPORTED(C_GenerateRandom);
  UNSUPPORTED(C_GetFunctionStatus);
  UNSUPPORTED(C_CancelFunction);
#undef UNSUPPORTED

  list.C_GetFunctionList = &C_GetFunctionList;
  return list;
}

}  // namespace

CK_RV C_GetFunctionList(CK_FUNCTION_LIST_PTR_PTR list) {
  static CK_FUNCTION_LIST functions = MakeFunctionList();
  return functions::C_GetFunctionList(list, &functions);
}
