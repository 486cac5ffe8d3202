// The lifetime of a module, and polling for slot events.
#include <dlfcn.h>

#include "pkcs11/detail/provider.h"
#include "pkcs11/pkcs11.h"

namespace detail = cardcert::detail;

PKCS11Module::PKCS11Module() {
  SetNameComponents("subject_commonName");
}

PKCS11Module::~PKCS11Module() {
  Close();
}

void PKCS11Module::Close() {
  if (library_handle != nullptr)
    detail::Provider(function_list).Finalize();
  function_list = nullptr;  // It belongs to the library that is unloaded next.
  if (library_handle != nullptr)
    dlclose(library_handle);
  library_path.clear();
  library_handle = nullptr;
}

const std::string& PKCS11Module::GetLibraryPath() const {
  return library_path;
}

bool PKCS11Module::HasChanged() {
  if (library_handle == nullptr)
    return false;
  if (changed)
    return true;

  const detail::Provider provider(function_list);
  const auto has_slot_event = [&provider] {
    CK_SLOT_ID slot = 0;
    return provider.PollSlotEvent(&slot) == CKR_OK;
  };
  if (!has_slot_event()) {
    // Many providers look at their readers only when the slots are listed (PKCS#11 2.40, section
    // 5.5, C_GetSlotList). The next poll then reports what they found.
    CK_ULONG count = 0;
    provider.GetSlotList(CK_FALSE, nullptr, &count);
    if (!has_slot_event())
      return false;
  }
  while (has_slot_event()) {
  }
  changed = true;
  return true;
}
