// The platform's loader, as the fuzzed component sees it: every path but "absent" and "no provider"
// is the fuzzed provider.
#include <dlfcn.h>

#include <cstring>

#include "fuzzed_provider.h"

namespace {

CK_RV GetFunctionList(CK_FUNCTION_LIST_PTR_PTR list) {
  return FuzzedProvider::Current().GetFunctionList(list);
}

char no_provider;  // The address of a library that is none.

}  // namespace

// Our build calls these instead of dlopen, dlsym and dlclose.
void* dlopen(const char* path, int) noexcept {
  if (std::strcmp(path, "absent") == 0)
    return nullptr;
  FuzzedProvider::Current().Opened();
  if (std::strcmp(path, "no provider") == 0)
    return &no_provider;
  return &FuzzedProvider::Current();
}

void* dlsym(void* handle, const char*) noexcept {
  return handle == &no_provider ? nullptr : reinterpret_cast<void*>(&GetFunctionList);
}

int dlclose(void*) noexcept {
  FuzzedProvider::Current().Closed();
  return 0;
}
