#include "scripted_provider/in_process_loader.h"

#include <cstring>
#include <utility>

#include "support/loader.h"

namespace scripted::in_process_loader {

namespace {

char library;  // Its address is the handle of the provider.
int open = 0;
ReplaceList* replace_list = nullptr;

CK_RV GetFunctionList(CK_FUNCTION_LIST_PTR_PTR list) {
  const CK_RV rv = C_GetFunctionList(list);
  if (rv == CKR_OK && replace_list != nullptr)
    *list = (*replace_list)(*list);
  return rv;
}

class InProcessLoader : public support::Loader {
 public:
  InProcessLoader() { support::SetLoader(this); }

  void* Open(const char* path, int mode) override {
    if (path == nullptr || std::strchr(path, '/') != nullptr || std::strcmp(path, "absent") == 0)
      return Loader::Open(path, mode);
    ++open;
    return &library;
  }

  void* Symbol(void* handle, const char* name) override {
    if (handle != &library)
      return Loader::Symbol(handle, name);
    return std::strcmp(name, "C_GetFunctionList") == 0 ? reinterpret_cast<void*>(&GetFunctionList)
                                                       : nullptr;
  }

  int Close(void* handle) override {
    if (handle != &library)
      return Loader::Close(handle);
    --open;
    return 0;
  }
};

InProcessLoader loader;

}  // namespace

void ReplaceFunctionList(ReplaceList replace) {
  Reset();
  replace_list = new ReplaceList(std::move(replace));
}

int open_libraries() {
  return open;
}

void Reset() {
  delete std::exchange(replace_list, nullptr);
  open = 0;
}

}  // namespace scripted::in_process_loader
