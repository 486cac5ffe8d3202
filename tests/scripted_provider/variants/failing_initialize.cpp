// C_Initialize fails as if other code in the process had already initialised the provider. All
// other entries are null, so that any further call crashes.
#include <p11-kit/pkcs11.h>

CK_RV C_GetFunctionList(CK_FUNCTION_LIST_PTR_PTR list) {
  static CK_FUNCTION_LIST functions = [] {
    CK_FUNCTION_LIST made = {};
    made.C_Initialize = [](void*) -> CK_RV { return CKR_CRYPTOKI_ALREADY_INITIALIZED; };
    return made;
  }();
  *list = &functions;
  return CKR_OK;
}
