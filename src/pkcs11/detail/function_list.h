// Function lists with gaps.
#pragma once

#include <p11-kit/pkcs11.h>

namespace cardcert::detail {

template <typename... Arguments>
bool FillGap(CK_RV (**function)(Arguments...)) {
  if (*function != nullptr)
    return false;
  *function = [](Arguments...) -> CK_RV { return CKR_FUNCTION_NOT_SUPPORTED; };
  return true;
}

// A provider gives a stub for what it does not support (PKCS#11 2.40, section 3.6), but some leave
// a null pointer. Puts such stubs in the place of the functions that the component calls; whether
// there was a gap.
inline bool FillGaps(CK_FUNCTION_LIST* list) {
  const bool gaps[] = {
      FillGap(&list->C_Initialize),
      FillGap(&list->C_Finalize),
      FillGap(&list->C_GetInfo),
      FillGap(&list->C_GetSlotList),
      FillGap(&list->C_GetSlotInfo),
      FillGap(&list->C_GetTokenInfo),
      FillGap(&list->C_OpenSession),
      FillGap(&list->C_CloseSession),
      FillGap(&list->C_Login),
      FillGap(&list->C_Logout),
      FillGap(&list->C_InitPIN),
      FillGap(&list->C_FindObjectsInit),
      FillGap(&list->C_FindObjects),
      FillGap(&list->C_FindObjectsFinal),
      FillGap(&list->C_SignInit),
      FillGap(&list->C_Sign),
      FillGap(&list->C_WaitForSlotEvent),
      FillGap(&list->C_GetAttributeValue),
  };
  bool any = false;
  for (const bool gap : gaps)
    any = any || gap;
  return any;
}

}  // namespace cardcert::detail
