// Replaces the platform's loader for the fuzzed component. The path "absent" cannot be opened, the
// path "no provider" opens a library without C_GetFunctionList, and every other path opens the
// fuzzed provider.
#include <dlfcn.h>

#include <cstring>

#include "fuzzed_provider.h"

namespace {

CK_RV GetFunctionList(CK_FUNCTION_LIST_PTR_PTR list) {
  return FuzzedProvider::Current().GetFunctionList(list);
}

char no_provider;  // Its address is the handle of the library without C_GetFunctionList.

}  // namespace

// The build renames these three to FuzzedOpen, FuzzedSymbol and FuzzedClose, also in the component.
void* dlopen(const char* path, int) noexcept {
  if (std::strcmp(path, "absent") == 0)
    return nullptr;
  FuzzedProvider::Current().LibraryOpened();
  if (std::strcmp(path, "no provider") == 0)
    return &no_provider;
  return &FuzzedProvider::Current();
}

void* dlsym(void* handle, const char*) noexcept {
  return handle == &no_provider ? nullptr : reinterpret_cast<void*>(&GetFunctionList);
}

int dlclose(void*) noexcept {
  FuzzedProvider::Current().LibraryClosed();
  return 0;
}
