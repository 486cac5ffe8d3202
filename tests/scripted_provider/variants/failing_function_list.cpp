// A provider that cannot give its function list, and leaves something in its place all the same.
#include <p11-kit/pkcs11.h>

CK_RV C_GetFunctionList(CK_FUNCTION_LIST_PTR_PTR list) {
  static CK_FUNCTION_LIST empty = {};
  *list = &empty;
  return CKR_HOST_MEMORY;
}
