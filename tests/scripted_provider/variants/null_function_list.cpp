// C_GetFunctionList returns CKR_OK and a null function list.
#include <p11-kit/pkcs11.h>

CK_RV C_GetFunctionList(CK_FUNCTION_LIST_PTR_PTR list) {
  *list = nullptr;
  return CKR_OK;
}
