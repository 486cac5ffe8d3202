#include "faults/direct_loader.h"

#include <cstring>
#include <utility>

extern "C" {
void* __real_dlopen(const char* path, int mode);
void* __real_dlsym(void* handle, const char* symbol);
int __real_dlclose(void* handle);

void* __wrap_dlopen(const char* path, int mode);
void* __wrap_dlsym(void* handle, const char* symbol);
int __wrap_dlclose(void* handle);
}

namespace {

char library;  // Its address is the handle of the provider.
int open = 0;
direct_loader::Tamper* tamper = nullptr;

CK_RV GetFunctionList(CK_FUNCTION_LIST_PTR_PTR list) {
  const CK_RV rv = C_GetFunctionList(list);
  if (rv == CKR_OK && tamper != nullptr)
    *list = (*tamper)(*list);
  return rv;
}

}  // namespace

namespace direct_loader {

void TamperWith(Tamper with) {
  Reset();
  tamper = new Tamper(std::move(with));
}

int open_libraries() {
  return open;
}

void Reset() {
  delete std::exchange(tamper, nullptr);
  open = 0;
}

}  // namespace direct_loader

void* __wrap_dlopen(const char* path, int mode) {
  if (path == nullptr || std::strchr(path, '/') != nullptr || std::strcmp(path, "absent") == 0)
    return __real_dlopen(path, mode);
  ++open;
  return &library;
}

void* __wrap_dlsym(void* handle, const char* symbol) {
  if (handle != &library)
    return __real_dlsym(handle, symbol);
  return std::strcmp(symbol, "C_GetFunctionList") == 0 ? reinterpret_cast<void*>(&GetFunctionList)
                                                       : nullptr;
}

int __wrap_dlclose(void* handle) {
  if (handle != &library)
    return __real_dlclose(handle);
  --open;
  return 0;
}
