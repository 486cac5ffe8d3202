// C_GetFunctionList fails, but sets a function list.
#include <p11-kit/pkcs11.h>

CK_RV C_GetFunctionList(CK_FUNCTION_LIST_PTR_PTR list) {
  static CK_FUNCTION_LIST empty = {};
  *list = &empty;
  return CKR_HOST_MEMORY;
}
