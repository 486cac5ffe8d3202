// SoftHSM behind a PIN pad. The tokens report a protected authentication path. A null PIN stands
// for the one that is entered on the pad, $PIN_PAD_ENTRY; a PIN that is passed is rejected.
#include <dlfcn.h>
#include <p11-kit/pkcs11.h>

#include <cstdlib>
#include <cstring>

namespace {

CK_FUNCTION_LIST_PTR softhsm = nullptr;

CK_RV GetTokenInfo(CK_SLOT_ID slot, CK_TOKEN_INFO_PTR info) {
  const CK_RV rv = softhsm->C_GetTokenInfo(slot, info);
  info->flags |= CKF_PROTECTED_AUTHENTICATION_PATH;
  return rv;
}

CK_RV Login(CK_SESSION_HANDLE session, CK_USER_TYPE user, CK_UTF8CHAR_PTR pin, CK_ULONG pin_len) {
  if (pin != nullptr || pin_len != 0)
    return CKR_FUNCTION_REJECTED;
  char* const entered = std::getenv("PIN_PAD_ENTRY");
  return softhsm->C_Login(session, user, reinterpret_cast<CK_UTF8CHAR_PTR>(entered),
                          std::strlen(entered));
}

}  // namespace

extern "C" CK_RV C_GetFunctionList(CK_FUNCTION_LIST_PTR_PTR list) {
  void* const library = dlopen(SOFTHSM2_LIBRARY, RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr)
    return CKR_GENERAL_ERROR;
  using GetFunctionList = CK_RV (*)(CK_FUNCTION_LIST_PTR_PTR);
  const CK_RV rv = reinterpret_cast<GetFunctionList>(dlsym(library, "C_GetFunctionList"))(&softhsm);
  static CK_FUNCTION_LIST functions = *softhsm;
  functions.C_GetTokenInfo = &GetTokenInfo;
  functions.C_Login = &Login;
  *list = &functions;
  return rv;
}
