// Replaces the platform's loader for the fuzzed component. The path "absent" cannot be opened, the
// path "no provider" opens a library without C_GetFunctionList, and every other path opens the
// fuzzed provider.
#include <cstring>

#include "fuzzed_provider.h"
#include "support/loader.h"

namespace {

CK_RV GetFunctionList(CK_FUNCTION_LIST_PTR_PTR list) {
  return FuzzedProvider::Current().GetFunctionList(list);
}

char no_provider;  // Its address is the handle of the library without C_GetFunctionList.

class ProviderLoader : public support::Loader {
 public:
  void* Open(const char* path, int) override {
    if (std::strcmp(path, "absent") == 0)
      return nullptr;
    FuzzedProvider::Current().LibraryOpened();
    if (std::strcmp(path, "no provider") == 0)
      return &no_provider;
    return &FuzzedProvider::Current();
  }

  void* Symbol(void* handle, const char*) override {
    return handle == &no_provider ? nullptr : reinterpret_cast<void*>(&GetFunctionList);
  }

  int Close(void*) override {
    FuzzedProvider::Current().LibraryClosed();
    return 0;
  }
};

}  // namespace

void InstallProviderLoader() {
  static ProviderLoader loader;
  support::SetLoader(&loader);
}
